#!/usr/bin/env bash
# gdb_test.sh SCENE TIMERS FOLDER GUIDE: checks that gdb finds the printers beside the library in FOLDER, shows the scene,
# shows the program TIMERS as GUIDE does, and shows addresses without the library's debug information.
set -euo pipefail
command -v gdb >/dev/null || { echo "there is no gdb"; exit 77; }
scene=$1 timers=$2 folder=$3 guide=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

run() {  # LIBRARY-FOLDER PROGRAM GDB-ARGUMENT...
    gdb -nx -batch -iex "add-auto-load-safe-path $1" -iex "add-auto-load-safe-path /usr" \
        -iex 'set debuginfod enabled off' -iex "set environment LD_LIBRARY_PATH $1" \
        -ex 'set breakpoint pending on' "${@:3}" -ex kill "$2" 2>&1 || true
}

failed=0
expect() {  # TEXT: it has a line for each pattern
    while read -r pattern; do
        grep -qE -e "$pattern" <<<"$1" || { echo "missing: $pattern"; failed=1; }
    done
    [[ $failed -eq 0 ]] || echo "$1"
}

expect "$(run "$folder" "$scene" -ex 'break allIsSet' -ex run -ex up \
    -ex 'print buffer' -ex 'print empty' -ex 'print dictionary' -ex 'print loop' \
    -ex 'print pool' -ex 'print ring' -ex 'print event' -ex 'print center' -ex 'print socket' \
    -ex 'print address' -ex continue -ex 'print *buffer._ptr')" <<'END'
^\$1 = SharedPtr to NIVUR::Buffer, references: 2 = \{object = Buffer, in use, 5 of 1500 bytes, guard intact = \{data = "hello"\}\}$
^\$2 = empty SharedPtr$
^\$3 = Dictionary, keys: 3 = \{\["name"\] = "screen", \["size"\] = Dictionary, keys: 1 = \{\["width"\] = 1920\}, \["sizes"\] = std::vector of length 2, capacity 2 = \{1, 2\}\}$
^\$4 = RunLoop "scene", _current: 1, .*, _timers: 1, _watches: 1 = \{_current\[0\] = NIVUR::CallableRunnable<main::
^\$4 = .*, (_items|_intake)\[[01]\] = Normal at 0x
^\$4 = .*, (_highPriorityItems|_intake)\[[01]\] = Urgent at 0x
^\$4 = .*, _timers\[0\] = Urgent at 0x[0-9a-f]+, _watches\[0\] = Normal at 0x[0-9a-f]+\}$
^\$5 = BufferPool "scene", lists: 1, fallbacks: 0 = \{0 = 1 buffers of 1500 bytes, free: 0\}$
^\$6 = RingBuffer "ring", 3 of 100 bytes$
^\$7 = Event "opened"$
^\$8 = EventCenter, names: 1 = \{"opened"\[0\] = Handler at 0x[0-9a-f]+\}$
^\$9 = UDPSocket, descriptor [0-9]+, IPv4$
^\$10 = \[fe80::1\]:80$
^\$11 = Buffer, in use, 5 of 1500 bytes, guard overwritten: db21ad0b = \{data = "hello"\}$
END

# What the guide shows, except for the addresses.
shown=$(sed -n '/^(gdb) print -pretty -- _loop$/,/^```$/p' "$guide" | sed '1d; $d; s/0x[0-9a-f]*/0x/g')
seen=$(run "$folder" "$timers" -ex 'break Heart::beat' -ex run -ex 'print -pretty -- _loop')
[[ -n $shown && $(sed 's/0x[0-9a-f]*/0x/g' <<<"$seen") == *"$shown"* ]] || { echo "the guide shows: $shown"; echo "$seen"; failed=1; }

cp -a "$folder"/libnivur.so* "$work"
objcopy --strip-debug "$(realpath "$work/libnivur.so")"
# clang has the type of the pointer's count in the library's debug information only, g++ also in the program's.
expect "$(run "$work" "$scene" -ex 'break allIsSet' -ex run -ex up \
    -ex 'print loop' -ex 'print buffer' -ex 'print *buffer._ptr')" <<'END'
^\$1 = NIVUR::RunLoop at 0x[0-9a-f]+$
^\$2 = (SharedPtr to NIVUR::Buffer, references: 2|NIVUR::SharedPtr<NIVUR::Buffer> at 0x[0-9a-f]+)$
^\$3 = NIVUR::Buffer at 0x[0-9a-f]+$
END
exit $failed
