/*
 * A model of src/ring_buffer.cpp. Two producers and two consumers pass blocks of one or two bytes
 * through a ring of two bytes, one thread resets it, and one asks how many bytes are stored. The value
 * of a byte is its position in the stream. The totals wrap.
 *
 *     spin -a ring.pml && cc -O2 -DSAFETY -DCOLLAPSE -o pan pan.c && ./pan -m100000
 *
 * must report "errors: 0". With -DBREAK_n (spin -DBREAK_n -a ...) a rule is left out, and an error must
 * be found:
 *
 *   1  producers exclude each other
 *   2  consumers exclude each other
 *   3  a producer adds to its total after it has copied
 *   4  a consumer adds to its total after it has copied
 *   5  a limit that does not suffice is computed again
 *   6  reset() excludes producers
 *   7  reset() excludes consumers
 *   8  reset() sets the consumers' limit together with their total
 *   9  getUnreadSize() checks whether the consumers' total has changed meanwhile
 *
 * Memory ordering is not modelled: all threads see each step at once.
 */

#define SIZE 2
#define MODULUS 8 /* of totals, in place of 2^32 */
#define WRITER 0
#define READER 1

byte cell[SIZE]; /* the position of the byte plus 1, or 0 after a reset */
bool locked[2];
byte position[2];
byte limit[2] = MODULUS - 1;
byte total[2] = MODULUS - 1;

byte passed = MODULUS - 1; /* the expected total of the producers */
byte numbers;              /* a bit for each number of bytes that were stored since getUnreadSize() began */

#define difference(a, b) (((a) + MODULUS - (b)) % MODULUS)
#define stored() difference(total[WRITER], total[READER])

inline lock(side) { atomic { !locked[side] -> locked[side] = true } }
inline unlock(side) { locked[side] = false }

inline setTotal(side, value) {
    atomic {
        total[side] = (value) % MODULUS;
        assert(stored() <= SIZE);
        numbers = numbers | (1 << stored())
    }
}

/* Sets `granted` if `length` bytes are free, or stored. */
inline mayPass(side, ahead) {
    if
    :: side == WRITER -> fits = (length <= SIZE - stored())
    :: else -> fits = (length <= stored())
    fi;
#ifndef BREAK_5
    if
    :: length > difference(limit[side], total[side]) ->
        limit[side] = (total[1 - side] + ahead) % MODULUS
    :: else
    fi;
#endif
    granted = (length <= difference(limit[side], total[side]));
    assert(granted || !fits) /* a block that fits at the beginning is not refused */
}

proctype Producer() {
    byte length, copied, start;
    bool granted, fits;
    select(length : 1 .. 2);
#ifndef BREAK_1
    lock(WRITER);
#endif
    atomic { mayPass(WRITER, SIZE) };
    if
    :: granted ->
        start = total[WRITER];
#ifdef BREAK_3
        setTotal(WRITER, start + length);
#endif
        do
        :: copied == length -> break
        :: else ->
            atomic {
                cell[(position[WRITER] + copied) % SIZE] = (start + copied) % MODULUS + 1;
                copied++
            }
        od;
        atomic {
            position[WRITER] = (position[WRITER] + length) % SIZE;
            passed = (passed + length) % MODULUS
        };
#ifndef BREAK_3
        setTotal(WRITER, start + length)
#endif
    :: else
    fi;
    unlock(WRITER)
}

proctype Consumer() {
    byte length, copied, start;
    bool granted, fits;
    select(length : 1 .. 2);
#ifndef BREAK_2
    lock(READER);
#endif
    atomic { mayPass(READER, 0) };
    if
    :: granted ->
        start = total[READER];
#ifdef BREAK_4
        setTotal(READER, start + length);
#endif
        do
        :: copied == length -> break
        :: else ->
            atomic {
                assert(cell[(position[READER] + copied) % SIZE] ==
                       (start + copied) % MODULUS + 1);
                copied++
            }
        od;
        position[READER] = (position[READER] + length) % SIZE;
#ifndef BREAK_4
        setTotal(READER, start + length)
#endif
    :: else
    fi;
    unlock(READER)
}

proctype Resetter() {
    byte i;
#ifndef BREAK_6
    lock(WRITER);
#endif
#ifndef BREAK_7
    lock(READER);
#endif
    do
    :: i == SIZE -> break
    :: else -> atomic { cell[i] = 0; i++ }
    od;
    position[WRITER] = 0;
    position[READER] = 0;
    i = total[WRITER];
#ifndef BREAK_8
    limit[READER] = i;
#endif
    setTotal(READER, i);
    unlock(READER);
    unlock(WRITER)
}

proctype Asker() {
    byte read, written;
    atomic { numbers = 1 << stored(); read = total[READER] };
    do
    :: true ->
        written = total[WRITER];
#ifndef BREAK_9
        if
        :: total[READER] != read -> read = total[READER]
        :: else -> break
        fi
#else
        break
#endif
    od;
    assert(numbers & (1 << difference(written, read))) /* true at some moment of the call */
}

init {
    atomic {
        run Producer();
        run Producer();
        run Consumer();
        run Consumer();
        run Resetter();
        run Asker()
    };
    _nr_pr == 1;
    assert(passed == total[WRITER])
}
