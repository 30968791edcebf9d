#!/usr/bin/env bash
# mirror_test MIRROR: the example as a person would run it, when it succeeds and when it cannot.
set -euo pipefail
mirror=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fails() {  # MESSAGE ARGUMENT...: exit code 1 and that message
    local message=$1 code=0
    shift
    "$mirror" "$@" >out 2>err || code=$?
    if [[ $code -ne 1 ]] || ! grep -q -e "$message" err; then
        echo "mirror $*: exit code $code, expected 1 and '$message'"
        cat err
        exit 1
    fi
}

for size in 0 1 16384 3000001; do
    head -c "$size" /dev/urandom >source
    "$mirror" source copy >out
    cmp source copy
    grep -q "mirrored $size bytes" out
done

fails 'usage'
fails 'cannot read missing: No such file' missing copy
fails 'cannot write none/copy: No such file' source none/copy
fails 'same file' source ./source
fails 'writing the destination failed' source /dev/full

truncate -s 2G source
(
    until [[ -s shrunk ]]; do :; done
    truncate -s 1M source
) &
fails 'source shrank while it was read' source shrunk
