/*
 * A model of src/private/gate.h and of how a loop serves it (src/private/run_loop_state.cpp). Two
 * threads cancel the tasks of an object while the loop runs some of them. A task may post a successor
 * to the same loop. At the end the loop sleeps or ends.
 *
 *     spin -a gate.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan -m100000
 *
 * must report "errors: 0": every cancel returns, and waits for at most one task; after it has returned,
 * no task of the object runs, waits to be deleted, or starts. With -DWITHOUT_RULE (spin -DWITHOUT_RULE
 * -a ...) a rule is left out, and an error must be found:
 *
 *   CLOSE         a pass closes the gate in the same step in which it takes a task
 *   SERVE_PASS    each pass serves the waiters
 *   SERVE_SLEEP   the loop serves the waiters before it sleeps
 *   SERVE_EXIT    the loop serves the waiters when it ends
 *   OPEN_SLEEP    the gate is open while the loop sleeps
 *   OPEN_EXIT     the gate is open after the loop has ended
 *   DROP_AT_GATE  for each waiter, the tasks that were added while it waited are dropped
 *   DELETE_FIRST  a task that ran is deleted before waiters are served
 *   NOTE_LOCKED   a caller checks the gate and joins the waiters in the same step in which it drops tasks
 *
 * Code under the queue lock is one step. Memory ordering is not modelled.
 */

#define CALLERS 2

bool closed;
bool waits[CALLERS], passed[CALLERS];  /* the waiters at the gate, and their signals */
byte queued = 1;                       /* tasks of the object */
bool running, existing;                /* a task runs; a task that was taken is not yet deleted */
byte successors = 2;                   /* that the tasks may still post */
byte returned;                         /* the number of cancels that have returned */
bool asleep, ended;

/* Part of an atomic step: returns the waiters. */
inline letThrough(notes) {
    notes = (waits[0] -> 1 : 0) + (waits[1] -> 2 : 0);
#ifndef WITHOUT_DROP_AT_GATE
    if
    :: notes != 0 -> queued = 0
    :: else
    fi;
#endif
    waits[0] = false;
    waits[1] = false
}

inline signal(notes) {
    atomic {
        passed[0] = passed[0] || (notes & 1) != 0;
        passed[1] = passed[1] || (notes & 2) != 0;
        notes = 0
    }
}

active proctype Loop() {
    byte notes;
    bool take;
    byte passes;

    do
    :: passes < 3 ->
        atomic {
            passes++;
#ifndef WITHOUT_SERVE_PASS
            letThrough(notes);
#endif
            assert(!waits[0] && !waits[1]);  /* no caller waits for more than one task */
            take = queued > 0;
            queued = queued - take;
            existing = take;
#ifndef WITHOUT_CLOSE
            closed = true
#endif
        }
#ifdef WITHOUT_CLOSE
        closed = true;
#endif
        signal(notes);
        if
        :: take ->
            atomic { assert(returned == 0); running = true }
            atomic {
                if
                :: successors > 0 -> successors--; queued++
                :: true
                fi
            }
            running = false;
#ifdef WITHOUT_DELETE_FIRST
            atomic { letThrough(notes) }
            signal(notes);
#endif
            existing = false
        :: else
        fi
    :: atomic { true ->  /* the loop sleeps */
#ifndef WITHOUT_SERVE_SLEEP
            letThrough(notes);
#endif
#ifndef WITHOUT_OPEN_SLEEP
            closed = false;
#endif
            asleep = true
        }
        signal(notes);
        if
        :: atomic { queued > 0 -> asleep = false }
        :: atomic { passes == 3 -> asleep = false }
        :: atomic { returned == CALLERS -> asleep = false; break }
        fi
    :: passes == 3 -> break
    od;
    atomic {
        queued = 0;
#ifndef WITHOUT_SERVE_EXIT
        letThrough(notes);
#endif
#ifndef WITHOUT_OPEN_EXIT
        closed = false;
#endif
        ended = true
    }
    signal(notes)
}

proctype Caller(byte me) {
    bool mustWait;
    atomic {
        queued = 0;
#ifndef WITHOUT_NOTE_LOCKED
        mustWait = closed;
        waits[me] = closed
#else
        mustWait = closed
#endif
    }
#ifdef WITHOUT_NOTE_LOCKED
    waits[me] = mustWait;
#endif
    if
    :: mustWait -> passed[me]
    :: else
    fi;
    atomic { assert(!running && !existing && queued == 0); returned++ }
}

init {
    atomic { run Caller(0); run Caller(1) }
}
