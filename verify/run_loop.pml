/*
 * A model of how a run loop sleeps, wakes, stops and starts (src/private/intake.h,
 * src/private/run_loop_state.cpp, src/run_loop.cpp). Two threads post, one of them with high
 * priority. One thread adds the first watch, whose descriptor may become ready at any time. An owner
 * starts the loop and destroys it as soon as everything has run; or it stops, restarts and destroys it
 * while a second thread stops it, too.
 *
 *     spin -a run_loop.pml && cc -O2 -DSAFETY -o pan pan.c && ./pan -m100000
 *
 * must report "errors: 0": there is no deadlock, which a lost wake-up would cause; each task runs, is
 * dropped or is refused, exactly once; no signal is left over; no thread uses the loop after its
 * destruction. With -DWITHOUT_RULE (spin -DWITHOUT_RULE -a ...) a rule is left out, and an error must be
 * found:
 *
 *   DEBT_WAIT     if its mark was removed, the loop first takes the signal that is owed to it
 *   LOOK          the loop reads its queues after it has set the mark
 *   PLACE_LOOK    it then also checks whether the place where it will sleep is still right
 *   PLACE_FIRST   it stores that place before it sets the mark
 *   URGENT_WAKES  a high-priority post removes the mark
 *   WATCH_WAKES   adding the first watch removes the mark
 *   MARK_ONCE     only the thread that removes the mark signals
 *   STOP_SIGNALS  stop() signals if it has replaced the mark
 *   CLOSE_LOCKED  stop() sets the flag and closes the intake under one lock
 *   CHECKED_OPEN  the intake is opened only if the loop runs and is not stopping
 *   DROP_AT_EXIT  the loop's thread drops remaining tasks when it ends
 *   HANDS_OFF     a poster that owes no signal does not use the loop any more
 *
 * Memory ordering is not modelled: all threads see each step at once. Code under the queue lock is one
 * step if it uses at most one thing that other threads change without the lock.
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
byte runs, ended;                     /* threads that were started, and threads that have ended */
byte ran, dropped, refused;
bool watchRan;
byte timeouts;                        /* sleeps that end by themselves, for example for a timer */
byte callers = 3;                     /* threads whose calls have not returned */
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

/* Removes the mark if it is set. */
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
    :: before == CLOSED ->  /* perhaps the loop's thread has not opened it yet */
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
    ready = true  /* the peer writes, at any time */
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
    :: true ->  /* some calls may not have returned when everything has run */
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
