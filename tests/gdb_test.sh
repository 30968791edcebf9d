#!/usr/bin/env bash
# gdb_test.sh SCENE FOLDER: gdb finds the printers beside the library in FOLDER and shows the scene.
set -euo pipefail
command -v gdb >/dev/null || { echo "there is no gdb"; exit 77; }

shown=$(gdb -nx -batch -iex "add-auto-load-safe-path $2" -iex "add-auto-load-safe-path /usr" \
    -iex 'set debuginfod enabled off' -ex 'set breakpoint pending on' -ex 'break allIsSet' -ex run -ex up \
    -ex 'print buffer' -ex 'print empty' -ex 'print dictionary' -ex 'print loop' \
    -ex continue -ex 'print *buffer._ptr' -ex kill "$1" 2>&1) || true

failed=0
while read -r pattern; do
    grep -qE -e "$pattern" <<<"$shown" || { echo "missing: $pattern"; failed=1; }
done <<'END'
^\$1 = SharedPtr to NIVUR::Buffer, references: 2 = \{object = Buffer, in use, 5 of 1500 bytes, guard intact = \{data = "hello"\}\}$
^\$2 = empty SharedPtr$
^\$3 = Dictionary, keys: 3 = \{\["name"\] = "screen", \["size"\] = Dictionary, keys: 1 = \{\["width"\] = 1920\}, \["sizes"\] = std::vector of length 2, capacity 2 = \{1, 2\}\}$
^\$4 = RunLoop "scene", _current: 1, .*, _timers: 1, _watches: 1 = \{_current\[0\] = NIVUR::CallableRunnable<main::
^\$4 = .*, (_items|_intake)\[[01]\] = Normal at 0x
^\$4 = .*, (_highPriorityItems|_intake)\[[01]\] = Urgent at 0x
^\$4 = .*, _timers\[0\] = Urgent at 0x[0-9a-f]+, _watches\[0\] = Normal at 0x[0-9a-f]+\}$
^\$5 = Buffer, in use, 5 of 1500 bytes, guard overwritten: db21ad0b = \{data = "hello"\}$
END
[[ $failed -eq 0 ]] || echo "$shown"
exit $failed
