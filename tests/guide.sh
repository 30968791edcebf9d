#!/usr/bin/env bash
# guide.sh ROOT PROGRAMS: checks that README and guide show the programs of the guide and their
# output. "..." in an output matches anything. EMULATOR runs programs for another machine.
set -euo pipefail
pages=("$1/README.md" "$1/docs/guide.md") sources=("$1"/examples/guide/*.cpp) programs=$2
read -ra emulator <<<"${EMULATOR:-}"

block() {  # NAME LANGUAGE: prints the first such block after the line that names the program
    awk -v name="[examples/guide/$1.cpp]" -v fence="\`\`\`$2" '
        index($0, name) == 1 { found = 1 }
        inside && $0 == "```" { exit }
        inside { print }
        found && $0 == fence { inside = 1 }' "${pages[@]}"
}

failed=0
for source in "${sources[@]}"; do
    name=$(basename "$source" .cpp)
    diff -u --label "as shown: $name" --label "$source" <(block "$name" cpp) "$source" || failed=1
    pattern=$(block "$name" text | sed 's/[][*?\\]/\\&/g; s/\.\.\./*/g')
    output=$("${emulator[@]}" "$programs/guide_$name")
    # shellcheck disable=SC2053  # intended as a pattern
    if [[ -z $pattern || $output != $pattern ]]; then
        echo "guide_$name printed '$output', shown is '$pattern'"
        failed=1
    fi
done
shown=$(cat "${pages[@]}" | grep -c '^\[examples/guide/')
[[ $shown -eq ${#sources[@]} ]] || { echo "shown are $shown programs of ${#sources[@]}"; failed=1; }
exit $failed
