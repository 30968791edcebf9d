/*
 * A model of src/private/gate.h and of how a loop serves it (src/private/run_loop_state.cpp): two
 * threads cancel the tasks of an object while the loop runs some of them, which may post a successor
 * to themselves, and at last sleeps or ends.
 *
 *     spin -a gate.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan -m100000
 *
 * wants "errors: 0": every cancel returns, and waits for one task at most; when it has returned, nothing
 * of the object runs, waits to be deleted or starts later. Each rule can be taken away with -DWITHOUT_RULE and then an error must be found:
 *
 *   CLOSE         a pass closes the gate in the step in which it takes a task
 *   SERVE_PASS    a pass lets through who waits
 *   SERVE_SLEEP   so does the loop before it sleeps
 *   SERVE_EXIT    and when it ends
 *   OPEN_SLEEP    the gate is open while the loop sleeps
 *   OPEN_EXIT     and when it has ended
 *   DROP_AT_GATE  what was added while the caller waited is dropped for it
 *   DELETE_FIRST  what ran is deleted before anybody is let through
 *   NOTE_LOCKED   a caller looks at the gate and joins the waiters in the step in which it drops
 *
 * What the queue lock guards is one step; the memory order is not modelled.
 */

#define CALLERS 2

bool closed;
bool waits[CALLERS], passed[CALLERS];  /* the notes at the gate, and the signals */
byte queued = 1;                       /* tasks of the object */
bool running, existing;                /* one of them runs, and is not deleted */
byte successors = 2;                   /* which the tasks may still post */
byte returned;                         /* cancels that have */
bool asleep, ended;

/* In one step with what follows it: gives the notes that are there. */
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
            assert(!waits[0] && !waits[1]);  /* nobody waits for more than one task */
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
    :: atomic { true ->  /* it sleeps */
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
