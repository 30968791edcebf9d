#!/usr/bin/env bash
# mirror_test MIRROR ECHO_SERVER: runs the example as users would, with transfers that succeed, transfers
# that fail, and hostile peers.
set -euo pipefail
mirror=$1 echo_server=$2
work=$(mktemp -d)
trap 'kill -9 $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "line ${BASH_LINENO[*]}: $*"
    tail -n 5 -- *.out *.err
    exit 1
}

soon() {  # COMMAND...: waits until it succeeds
    local deadline=$((SECONDS + 20))
    until "$@"; do
        ((SECONDS < deadline)) || fail "never: $*"
        sleep 0.02
    done
}

listen() {  # DESTINATION OPTION...: a receiver; sets pid, host and port
    : >receive.out
    "$mirror" receive "$1" --listen "${address:-127.0.0.1}:0" "${@:2}" >receive.out 2>receive.err &
    pid=$!
    soon grep -q '^listening on' receive.out
    host=$(sed -n 's/^listening on //p' receive.out)
    port=${host##*:}
}

ends() {  # PID CODE NAME MESSAGE: the process ends so, with that in NAME.err
    local code=0
    wait "$1" 2>/dev/null || code=$?
    [[ $code -eq $2 ]] || fail "$3: exit code $code, expected $2"
    [[ -z $4 ]] || grep -q -e "$4" "$3.err" || fail "$3 did not say '$4'"
}

fails() {  # CODE MESSAGE ARGUMENT...
    "$mirror" "${@:3}" >run.out 2>run.err &
    ends $! "$1" run "$2"
}

still() {  # PID: none of its threads wakes for a while
    local before after
    before=$(grep -h ctxt_switches /proc/"$1"/task/*/status)
    sleep 3
    after=$(grep -h ctxt_switches /proc/"$1"/task/*/status)
    [[ $before == "$after" ]]
}

nothing_left() { [[ ! -e $1 && ! -e $1.part ]] || fail "$1 or $1.part is there"; }

# A receiver gives up a sender that stops in the middle; the other tests run meanwhile.
truncate -s 8G huge
listen frozen
frozen_receiver=$pid
mv receive.out frozen.out
mv receive.err frozen.err
"$mirror" send huge --to "$host" >frozen_sender.out 2>frozen_sender.err &
frozen_sender=$!
soon test -s frozen.part
kill -STOP $frozen_sender

# A stream continues after a pause that is longer than the time limit for answers, although datagrams
# were lost, and ends well if its latency is longer than other limits.
streams=()
for latency in 400 11000; do
    "$mirror" receive - --live --listen 127.0.0.1:0 --drop 60 >$latency.out 2>$latency.err &
    streams+=($!)
    soon grep -q '^listening on' $latency.err
    (echo one; ((latency > 400)) || sleep 9; echo two) | "$mirror" send - --live --latency $latency \
        --to "$(sed -n 's/^listening on //p' $latency.err)" >/dev/null 2>"sender$latency.err" &
done

# A receiver without a sender sleeps, and can be stopped. The thread sanitizer has a thread of its own,
# which wakes up.
listen idle
grep -q __tsan_init "$mirror" || soon still $pid
kill -TERM $pid
ends $pid 1 receive 'interrupted'

# Files arrive byte for byte.
addresses=(127.0.0.1)
grep -q '^0\{31\}1 ' /proc/net/if_inet6 2>/dev/null && addresses+=('[::1]')
for address in "${addresses[@]}"; do
    while read -r size drop; do
        head -c "$size" /dev/urandom >source
        listen copy --drop "$drop"
        "$mirror" send source --to "$host" >send.out 2>send.err || fail "$address $size $drop"
        ends $pid 0 receive ''
        cmp source copy
        grep -q "sent $size bytes in" send.out || fail 'no summary of the sender'
        grep -q "received $size bytes in" receive.out || fail 'no summary of the receiver'
        if ((size > 1000000)) && [[ $drop -gt 0 ]]; then
            grep -q ' [1-9][0-9]* dropped on purpose' receive.out || fail 'nothing was dropped'
            grep -q ' [1-9][0-9]* lost, [1-9][0-9]* sent again' send.out || fail 'nothing was lost'
        fi
    done <<<'0 0
        1 0
        1172 50
        1173 0
        3000001 5
        1000001 40'
done
address=127.0.0.1

# Both ends in one process; a copy replaces a file.
"$mirror" source copy --drop 5 >run.out
cmp source copy

# Errors are reported.
fails 2 usage
fails 2 usage source
fails 2 usage source copy --drop 100
for bad in localhost:7 ::1:7 127.0.0.1:70000 1.2.3:7000; do
    fails 2 "$bad is not a numeric address" send source --to "$bad"
done
fails 2 usage receive copy --to 127.0.0.1:7
fails 1 'cannot read missing: No such file' missing other
fails 1 'cannot read \.: Is a directory' . other
fails 1 'cannot write none/copy.part: No such file' source none/copy
fails 1 'cannot write .*: not a file' source "$work"
fails 1 'same file' source ./source
fails 1 'cannot write /dev/full: No space left' source /dev/full
fails 1 'cannot connect to 127.0.0.1:1: Connection refused' send source --to 127.0.0.1:1
nothing_left other

# An existing file with the name of the incomplete copy is not touched, even if it is the source.
echo precious >kept.part
fails 1 'kept.part is in the way' kept.part kept
[[ $(<kept.part) == precious ]] || fail 'kept.part was touched'

# The file of an interrupted transfer is continued with --resume, if the source begins with it.
fails 1 'is not the beginning of source' source kept --resume
for size in 1 1000000 1000001; do
    head -c $size source >copy.part
    "$mirror" source copy --resume >run.out || fail "$size bytes were not resumed"
    cmp source copy
    grep -q "^sent $((1000001 - size)) bytes" run.out || fail 'what was there was sent again'
done
head -c 1000002 /dev/zero >copy.part
fails 1 'more than source has' source copy --resume
rm copy.part

# Beyond the loopback interface mirror requires --key or --open.
"$mirror" --help | grep -q '^usage' || fail 'no help'
"$mirror" key >good.key
"$mirror" key >other.key
echo 12 >bad.key
fails 2 'give --key FILE, or --open' receive kept --listen 192.0.2.1:0
fails 2 'bad.key holds no key' send source --to 127.0.0.1:7 --key bad.key
listen locked --key good.key
for wrong in '--key other.key' ''; do
    # shellcheck disable=SC2086
    fails 1 'does not hold the same key' send source --to "$host" $wrong
done
"$mirror" send source --to "$host" --key good.key >send.out 2>send.err || fail 'the right key was refused'
ends $pid 0 receive ''
cmp source locked

# A stream arrives in order and not early, even if datagrams are lost.
seq 200000 >lines
"$mirror" receive - --live --listen 127.0.0.1:0 --drop 10 --stats=json >live.out 2>live.err &
pid=$!
soon grep -q '^listening on' live.err
began=$(date +%s%N)
"$mirror" send - --live --latency 300 --stats --to "$(sed -n 's/^listening on //p' live.err)" \
    <lines >send.out 2>send.err || fail 'the stream was not sent'
ends $pid 0 live 'handed out [1-9]'
(($(date +%s%N) - began > 300000000)) || fail 'the stream came early'
[[ ! -s send.out ]] || fail 'the sender wrote to its standard output'
grep -q 'skipped 0,' live.err || fail 'something was skipped'
cmp lines live.out

# A file size limit or a closed pipe does not kill the process.
(ulimit -f 100 && fails 1 'cannot write limited: File too large' source limited)
nothing_left limited
"$mirror" source piped 2>run.err | true
cmp source piped || fail 'a closed pipe ended the transfer'

# Each end reports its reason to the other, even with a file name that JSON cannot represent.
listen $'none\xff/copy'
fails 1 'the receiver refused: cannot write none?/copy.part: No such file' send source --to "$host"
ends $pid 1 receive 'No such file'
listen /dev/full
fails 1 "cannot listen on $host: Address already in use" receive other --listen "$host"
fails 1 'the receiver refused: cannot write /dev/full' send source --to "$host"
ends $pid 1 receive 'cannot write /dev/full'

# A source grows or shrinks, a sender or a receiver is killed or asked to stop.
"$mirror" huge shrunk >run.out 2>run.err &
soon test -s shrunk.part
truncate -s 1M huge
ends $! 1 run 'huge shrank while it was read'
nothing_left shrunk
truncate -s 8G huge
fails 1 '/proc/version grew while it was read' /proc/version grown
nothing_left grown

listen lost
"$mirror" send huge --to "$host" >send.out 2>send.err &
sender=$!
soon test -s lost.part
kill -9 $sender
ends $pid 1 receive 'the sender closed the connection'
nothing_left lost

listen lost
"$mirror" send huge --to "$host" >send.out 2>send.err &
sender=$!
soon test -s lost.part
fails 1 'busy with another sender' send source --to "$host"
fails 1 'written by another transfer' source lost --resume
kill -9 $pid
ends $sender 1 send 'the receiver closed the connection'

"$mirror" huge stopped --dump >run.out 2>run.err &
soon test -s stopped.part
kill -USR1 $!
for loop in send recv disk; do
    soon grep -q "dump thread info, _name: mirror-$loop," run.err
done
kill -TERM $!
ends $! 1 run 'interrupted'
nothing_left stopped

# A receiver that violates the protocol: it echoes its input.
"$echo_server" 127.0.0.1 0 2 >echo.out &
soon grep -q port echo.out
fails 1 'the receiver does not hold the same key' \
    send source --to "127.0.0.1:$(sed 's/.* //' echo.out)"

# A client that does not prove the key is turned away, and the receiver waits for the next.
listen hello
while read -r text; do
    exec 3<>"/dev/tcp/127.0.0.1/$port"
    printf '%s\n' "$text" '{"type": "offer", "mode": "file", "size": "5", "chunkSize": "3"}' >&3 || true
    grep -q '"refuse"' <&3 || fail "accepted: $text"
    exec 3>&-
done <<END
$(head -c 8000 /dev/zero | tr '\0' '[')
$(head -c 300 /dev/urandom | tr "\n\0" "  ") !
{$(printf '\r')forged
{}
{"type": "refuse"}
{"type": "hello"}
{"type": "hello", "public": "$(head -c 64 /dev/zero | tr '\0' 0)"}
{"type": "hello", "public": "$("$mirror" key)"}
END
exec 3<>"/dev/tcp/127.0.0.1/$port"
head -c 9000 /dev/zero | tr '\0' ' ' >&3
grep -q 'too long' <&3 || fail 'a text without end was taken'
exec 3>&-
for size in 0 1 19 20 21 1200 1345 9000; do
    head -c "$size" /dev/urandom >datagram
    cat datagram >"/dev/udp/127.0.0.1/$port"
done

# Silent clients do not keep a sender waiting, even before they are turned away.
silent=()
for _ in {1..70}; do
    exec {client}<>"/dev/tcp/127.0.0.1/$port"
    silent+=("$client")
done
began=$SECONDS
"$mirror" send source --to "$host" >send.out 2>send.err || fail 'silent clients kept a sender out'
((SECONDS - began < 3)) || fail 'silent clients delayed a sender'
for client in "${silent[@]}"; do
    exec {client}>&-
done
ends $pid 0 receive ''
cmp source hello
grep -Eq ' (1[6-9]|[2-7][0-9]) turned away' receive.out || fail 'who was turned away was not counted'
(($(wc -l <receive.err) < 30)) || fail 'hostile clients fill the log'
! grep -q '^forged' receive.err || fail 'a hostile client wrote a line of the log'

for latency in 400 11000; do
    ends "${streams[$((latency > 400))]}" 0 $latency 'handed out [12] chunks'
done
ends $frozen_receiver 1 frozen 'the sender has been silent for 5 s'
nothing_left frozen
kill -CONT $frozen_sender
ends $frozen_sender 1 frozen_sender 'receiver'
