/*
 * A model of src/private/free_set.h and of the destruction of a list and its buffers (src/buffer.cpp,
 * src/buffer_list.cpp). Threads take and return buffers, while the list may be destroyed with buffers
 * out. Two words with one index each are sufficient: more indexes in a word behave in the same way.
 *
 *     spin -a pool.pml && cc -O2 -DSAFETY -DCOLLAPSE -o pan pan.c && ./pan -m100000
 *
 * must report "errors: 0", after about 25 s and with 860 MB. With -DBREAK_n (spin -DBREAK_n -a ...) a
 * rule is left out, and an error must be found:
 *
 *   1  take() tests and clears the bit in one step
 *   2  giveBack() sets the bit and reads whether the list exists in one step
 *   3  close() marks the word and reads what is free in one step
 *   4  giveBack() does not set a bit in a word without a hint
 *   5  clearHint() clears the hint before it marks the word
 *   6  clearHint() sets the hint again if the word has changed
 *   7  setHint() removes the mark before it sets the hint
 *   8  giveBack() uses nothing after the bit is set
 *   9  the last of the list and its buffers frees what they share
 *  10  take() checks every word before it returns that none is free
 *  11  a buffer without a list gets back the guard that its holder left
 *  12  a buffer is reset before its bit is set
 *
 * Memory ordering is not modelled: all threads see each step at once.
 */

#define WORDS 2
#define THREADS 3
#define ROUNDS 2
#define FREE 1
#define UNHINTED 2
#define CLOSED 4

byte word[WORDS];
bool hint[WORDS];

/* For each buffer. */
byte holder[WORDS];  /* its thread, or 0 */
bool deleted[WORDS];
bool intact[WORDS];  /* the guard */

byte shares = WORDS + 1;      /* references to the words and hints: the buffers and the list */
byte takersLeft = THREADS;
byte busy;                    /* operations under way */
bool closing;
bool freeThroughout[THREADS * WORDS]; /* since the thread's take() began */

#define through(thread, n) freeThroughout[((thread) - 1) * WORDS + (n)]
#define alive() assert(shares > 0)

inline hintsAreExact() {
    assert(!(word[0] & FREE) || hint[0]);
    assert(!(word[1] & FREE) || hint[1])
}

inline begin() { busy++ }

inline end() {
    atomic {
        busy--;
        if
        :: busy == 0 && !closing -> hintsAreExact()
        :: else
        fi
    }
}

/* Runs within an atomic step. */
inline isTaken(n) {
    assert(holder[n] == 0 && !deleted[n]);
    holder[n] = me;
    through(1, n) = false;
    through(2, n) = false;
    through(3, n) = false;
    got = n
}

inline takeFrom(n) {
    atomic { alive(); now = word[n] };
    do
    :: !(now & FREE) -> break
    :: else ->
#ifdef BREAK_1
        atomic { word[n] = now & ~FREE; isTaken(n); break }
#else
        atomic {
            if
            :: word[n] == now -> word[n] = now & ~FREE; isTaken(n); break
            :: else -> now = word[n]
            fi
        }
#endif
    od
}

inline clearHint(n) {
#ifndef BREAK_5
    hint[n] = false;
#endif
    now = word[n];
    atomic {
        if
        :: !(now & FREE) && word[n] == now -> word[n] = now | UNHINTED; changed = false
        :: else -> changed = true
        fi
    };
#ifdef BREAK_5
    hint[n] = false;
#endif
#ifndef BREAK_6
    if
    :: changed -> hint[n] = true
    :: else
    fi;
#endif
    changed = false
}

inline take() {
    got = WORDS;
    atomic {
        begin();
        through(me, 0) = (word[0] & FREE);
        through(me, 1) = (word[1] & FREE)
    };
    atomic { hinted0 = hint[0]; hinted1 = hint[1] };
    if
    :: hinted0 ->
        takeFrom(0);
        if
        :: got == WORDS -> clearHint(0)
        :: else
        fi
    :: else
    fi;
    if
    :: got == WORDS && hinted1 ->
        takeFrom(1);
        if
        :: got == WORDS -> clearHint(1)
        :: else
        fi
    :: else
    fi;
#ifndef BREAK_10
    if
    :: got == WORDS -> takeFrom(0)
    :: else
    fi;
    if
    :: got == WORDS -> takeFrom(1)
    :: else
    fi;
#endif
    if
    :: got == WORDS -> assert(!through(me, 0) && !through(me, 1))
    :: else
    fi;
    atomic { hinted0 = false; hinted1 = false; now = 0; end() }
}

inline deleteBuffer(n) {
    assert(!deleted[n]);
    deleted[n] = true;
    shares--
}

inline setHint(n) {
#ifdef BREAK_7
    hint[n] = true;
#endif
    atomic { alive(); now = word[n] & ~UNHINTED; word[n] = now };
#ifndef BREAK_7
    atomic { alive(); hint[n] = true }
#endif
}

/* Returns the buffer of the calling thread; `gone` is then true if the list was destroyed. */
inline giveBack(n) {
    atomic { alive(); now = word[n] };
    do
#ifndef BREAK_4
    :: now & UNHINTED -> setHint(n)
    :: !(now & UNHINTED) ->
#else
    :: true ->
#endif
#ifdef BREAK_2
        atomic { alive(); word[n] = word[n] | FREE; gone = (now & CLOSED) != 0; isBack(n); break }
#else
        atomic {
            alive();
            if
            :: word[n] == now -> word[n] = now | FREE; gone = (now & CLOSED) != 0; isBack(n); break
            :: else -> now = word[n]
            fi
        }
#endif
    od;
#ifdef BREAK_8
    atomic { alive(); hint[n] = true };
#endif
    now = 0
}

/* Runs within an atomic step. */
inline isBack(n) {
    if
    :: !gone -> holder[n] = 0
    :: else
    fi
}

inline reset(n) {
    atomic { assert(holder[n] == me && !deleted[n]); intact[n] = true }
}

inline release(n) {
    atomic { begin(); found = intact[n] };
#ifndef BREAK_12
    reset(n);
#endif
    giveBack(n);
#ifdef BREAK_12
    reset(n);
#endif
    if
    :: gone ->
        atomic {
#ifndef BREAK_11
            intact[n] = found;
#endif
            assert(intact[n] != strayed); /* the destructor sees a stray write */
            deleteBuffer(n)
        }
    :: else
    fi;
    atomic { found = false; gone = false; strayed = false; end() }
}

proctype Thread(byte me) {
    byte got = WORDS, now, rounds;
    bool hinted0, hinted1, changed, gone, found, strayed;
    do
    :: rounds == ROUNDS -> break
    :: else ->
        rounds++;
        take();
        atomic {
            if
            :: rounds == ROUNDS -> takersLeft--
            :: else
            fi
        };
        if
        :: got < WORDS ->
            atomic {
                if
                :: strayed = true; intact[got] = false
                :: skip
                fi
            };
            release(got)
        :: else
        fi
    od
}

/* The list's destructor: no take() is under way or follows. */
proctype List() {
    byte n, left;
    atomic { takersLeft == 0 -> closing = true };
    n = 0;
    do
    :: n == WORDS -> break
    :: else ->
#ifdef BREAK_3
        left = word[n];
        word[n] = CLOSED;
#else
        atomic { left = word[n]; word[n] = CLOSED };
#endif
        atomic {
            if
            :: left & FREE -> assert(holder[n] == 0 && intact[n]); deleteBuffer(n)
            :: else
            fi;
            n++
        }
    od;
#ifdef BREAK_9
    shares = 0
#else
    shares--
#endif
}

init {
    atomic {
        word[0] = FREE;
        word[1] = FREE;
        hint[0] = true;
        hint[1] = true;
        intact[0] = true;
        intact[1] = true;
        run Thread(1);
        run Thread(2);
        run Thread(3);
        run List()
    };
    _nr_pr == 1;
    assert(deleted[0] && deleted[1] && shares == 0)
}
