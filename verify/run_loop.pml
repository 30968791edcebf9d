/*
 * A model of how a run loop sleeps, wakes, stops and starts (src/private/intake.h,
 * src/private/run_loop_state.cpp, src/run_loop.cpp). Two threads post, one of them with high
 * priority; one adds the first watch, whose descriptor becomes ready at any time. An owner starts
 * the loop and ends it as soon as all that has run; or it stops, restarts and ends it while a
 * second controller stops it too.
 *
 *     spin -a run_loop.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan -m100000
 *
 * wants "errors: 0": no deadlock, which is where a lost wake-up ends; each task runs, is dropped or
 * is refused, once; no signal is left over; nobody touches the loop after its end. Each rule can be
 * taken away with -DWITHOUT_RULE (spin -DWITHOUT_RULE -a ...) and then an error must be found:
 *
 *   DEBT_WAIT     who finds its mark gone takes the owed signal before it does anything else
 *   LOOK          the loop looks for work after it has set the mark
 *   PLACE_LOOK    and whether the place where it will sleep is still the right one
 *   PLACE_FIRST   the place is written down before the mark is set
 *   URGENT_WAKES  a high-priority post takes the mark
 *   WATCH_WAKES   so does the first watch
 *   MARK_ONCE     only who takes the mark signals
 *   STOP_SIGNALS  stop() signals if it has replaced the mark
 *   CLOSE_LOCKED  the flag is set and the intake closed under the lock
 *   CHECKED_OPEN  the intake is opened only for a loop that runs and is not stopping
 *   DROP_AT_EXIT  the loop's thread drops what is left when it ends
 *   HANDS_OFF     a poster that owes no signal touches the loop no more
 *
 * The memory order is not modelled: every step is seen by all at once. What the queue lock alone
 * guards is one step where it meets no more than one thing that others change without it.
 */

#define EMPTY  0
#define ASLEEP 1
#define CLOSED 2
#define NORMAL 4  /* the posters' tasks, as bits of the head or of the queues */
#define URGENT 8

byte head = CLOSED, items, high;      /* the intake; the queues, guarded by the lock */
bool locked;
byte semaphore, eventfd;              /* signals not taken */
bool hasPoller, watched, ready;       /* the first watch, and its descriptor */
bool placeIsPoller;                   /* where the loop sleeps */
bool started, stopping, destroyed;
byte runs, ended;                     /* threads that were started, and that have ended */
byte ran, dropped, refused;
bool watchRan;
byte timeouts;                        /* sleeps that end by themselves, as for a timer */
byte callers = 3;                     /* whose calls have not returned */
bool controllerDone;

inline touch() { assert(!destroyed) }
inline lock() { !locked -> locked = true; touch() }
inline unlock() { atomic { touch(); locked = false } }

inline drop(tasks) { assert((dropped & (tasks)) == 0); dropped = dropped | (tasks); tasks = 0 }

inline signal() {
    atomic {
        touch();
        if
        :: placeIsPoller -> eventfd++
        :: else -> semaphore++
        fi
    }
}

/* Takes the mark if it is there. */
inline takeMark(taken) {
    touch();
    if
    :: head == ASLEEP -> head = EMPTY; taken = true
    :: else ->
#ifdef WITHOUT_MARK_ONCE
        taken = (head != CLOSED)
#else
        taken = false
#endif
    fi
}

inline open() {
    atomic { lock() };
#ifdef WITHOUT_CHECKED_OPEN
    if
    :: head == CLOSED -> head = EMPTY
    :: else
    fi;
#else
    if
    :: started && !stopping && head == CLOSED -> head = EMPTY
    :: else
    fi;
#endif
    unlock()
}

inline drain() {
    if
    :: head >= NORMAL -> items = items | head; head = EMPTY
    :: else
    fi
}

inline dropAll(watches) {
    atomic {
        lock();
        drain();
        drop(items);
        drop(high);
        watched = watched && !(watches);
        unlock()
    }
}

proctype Loop() {
    byte task;
    bool busy, event, now, signalled, mark;

    open();
    do
    :: stopping -> break
    :: else ->
        atomic {
            if
            :: busy -> goto pass
            :: else
            fi;
#ifndef WITHOUT_PLACE_FIRST
            placeIsPoller = hasPoller;
#endif
            now = false
#ifdef WITHOUT_LOOK
            ; now = (high != 0 || items != 0)
#endif
        }
        atomic {
            if
            :: head == EMPTY -> head = ASLEEP
            :: else -> goto pass
            fi
        }
#ifdef WITHOUT_PLACE_FIRST
        placeIsPoller = hasPoller;
#endif
        atomic {
            lock();
#ifndef WITHOUT_LOOK
            now = (high != 0 || items != 0);
#endif
#ifndef WITHOUT_PLACE_LOOK
            now = now || (placeIsPoller != hasPoller);
#endif
            signalled = false;
            unlock()
        }
        atomic {  /* the sleep */
            if
            :: placeIsPoller && (now || eventfd > 0 || (ready && watched)) -> event = ready && watched
            :: !placeIsPoller && semaphore > 0 -> semaphore--; signalled = true
            :: !placeIsPoller && semaphore == 0 && now
            :: !now && timeouts < 1 -> timeouts++
            fi
        }
        atomic { takeMark(mark) }
#ifndef WITHOUT_DEBT_WAIT
        atomic {
            if
            :: mark || signalled
            :: !mark && !signalled && placeIsPoller && eventfd > 0 -> eventfd--
            :: !mark && !signalled && !placeIsPoller && semaphore > 0 -> semaphore--
            fi
        }
#endif
pass:   atomic {  /* it runs one task and the watch */
            lock();
            if
            :: high != 0 -> task = high; high = 0
            :: else -> drain(); task = items; items = 0
            fi;
            if
            :: event && watched -> watchRan = true; ready = false
            :: else
            fi;
            event = false;
            unlock()
        }
        atomic {
            assert((ran & task) == 0);
            ran = ran | task;
            busy = (task != 0);
            task = 0
        }
    od;
#ifndef WITHOUT_DROP_AT_EXIT
    dropAll(true);
#endif
    atomic { started = false; stopping = false; ended++ }
}

inline stop() {
#ifdef WITHOUT_CLOSE_LOCKED
    atomic {
        mine = runs;
        if
        :: started -> stopping = true
        :: else
        fi
    }
    atomic { before = head; items = items | (before & NORMAL); head = CLOSED }
#else
    atomic { lock() };
    atomic {
        mine = runs;
        if
        :: started -> stopping = true
        :: else
        fi
    }
    atomic { before = head; items = items | (before & NORMAL); head = CLOSED }
    unlock();
#endif
#ifndef WITHOUT_STOP_SIGNALS
    if
    :: before == ASLEEP -> signal()
    :: else
    fi;
#endif
    ended >= mine  /* the join */
}

inline start() {
    dropAll(false);
    atomic {
        if
        :: !started -> started = true; runs++; run Loop()
        :: else
        fi
    }
}

proctype Poster() {
    byte before;
again:
    atomic {
        touch();
        before = head;
        if
        :: before == CLOSED
        :: before == ASLEEP || before == EMPTY -> head = NORMAL
        :: else -> head = head | NORMAL
        fi
    }
    if
    :: before == ASLEEP -> signal()
    :: before == CLOSED ->  /* perhaps the loop's thread has not come to opening it */
        if
        :: started && !stopping -> open(); goto again
        :: else -> refused = refused | NORMAL
        fi
#ifdef WITHOUT_HANDS_OFF
    :: before == EMPTY -> atomic { takeMark(before) }
#endif
    :: else
    fi;
    callers--
}

proctype UrgentPoster() {
    bool owes;
    atomic {
        lock();
        if
        :: started && !stopping ->
            high = high | URGENT;
#ifndef WITHOUT_URGENT_WAKES
            takeMark(owes)
#endif
        :: else -> refused = refused | URGENT
        fi;
        unlock()
    }
    if
    :: owes -> signal()
    :: else
    fi;
    callers--
}

proctype Watcher() {
    bool owes;
    atomic {
        lock();
        hasPoller = true;
        watched = true;
#ifndef WITHOUT_WATCH_WAKES
        takeMark(owes);
#endif
        unlock()
    }
    if
    :: owes -> signal()
    :: else
    fi;
    callers--;
    ready = true  /* by the peer, at any time */
}

proctype Controller() {
    byte mine, before;
    stop();
    controllerDone = true
}

init {
    byte mine, before;
    bool withWatch;
    start();
    atomic {
        run Poster();
        run UrgentPoster();
        if
        :: withWatch = true; run Watcher()
        :: withWatch = false; callers--
        fi
    }
    if
    :: true ->  /* some of the calls may not have returned when all has run */
       ran == (NORMAL | URGENT) && watchRan == withWatch
    :: true ->
       run Controller();
       stop();
       assert(head == CLOSED && items == 0 && high == 0);
       start();
       controllerDone && callers == 0
    fi;
    stop();
    assert(semaphore == 0 && eventfd == 0);
    assert((ran & dropped) == 0 && (ran & refused) == 0 && (dropped & refused) == 0);
    assert((ran | dropped | refused) == (NORMAL | URGENT));
    destroyed = true
}
