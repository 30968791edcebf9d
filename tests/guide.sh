#!/usr/bin/env bash
# guide.sh GUIDE PROGRAMS SOURCE...: the guide shows each program as it stands and what it prints.
# In an output "..." stands for anything. EMULATOR runs programs for another machine.
set -euo pipefail
guide=$1 programs=$2
shift 2
read -ra emulator <<<"${EMULATOR:-}"

block() {  # NAME LANGUAGE: the first such block after the line that names the program
    awk -v name="[examples/guide/$1.cpp]" -v fence="\`\`\`$2" '
        index($0, name) == 1 { found = 1 }
        inside && $0 == "```" { exit }
        inside { print }
        found && $0 == fence { inside = 1 }' "$guide"
}

failed=0
for source in "$@"; do
    name=$(basename "$source" .cpp)
    diff -u --label "guide: $name" --label "$source" <(block "$name" cpp) "$source" || failed=1
    pattern=$(block "$name" text | sed 's/[][*?\\]/\\&/g; s/\.\.\./*/g')
    output=$("${emulator[@]}" "$programs/guide_$name")
    # shellcheck disable=SC2053  # a pattern it is meant to be
    if [[ -z $pattern || $output != $pattern ]]; then
        echo "guide_$name printed '$output', the guide says '$pattern'"
        failed=1
    fi
done
shown=$(grep -c '^\[examples/guide/' "$guide")
[[ $shown -eq $# ]] || { echo "the guide names $shown programs of $#"; failed=1; }
exit $failed
