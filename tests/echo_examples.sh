#!/usr/bin/env bash
# echo_examples.sh SERVER CLIENT: runs the example client with the example server for a second.
set -euo pipefail
coproc SERVER { "$1" 127.0.0.1 0 2; }
server=$SERVER_PID
read -r -u "${SERVER[0]}" _ _ _ port
"$2" 127.0.0.1 "$port" 1
wait "$server"
