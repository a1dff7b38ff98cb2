#!/bin/bash
# open-console.sh FOLDER: opens the console of the programs in FOLDER with all that it needs around it: the data
# source, the database, a session bus, a screen. What it starts ends with it, and its exit status is the
# console's.
set -euo pipefail

packaging=$(dirname "$(readlink -f "$0")")
. "$packaging/setup.sh"
. "$packaging/data-source.sh"
. "$packaging/session-bus.sh"
. "$packaging/vnc-screen.sh"

programs=$(readlink -f "$1")
private=$(mktemp -d)
console=
companions=()

# What is started ends even when this shell is killed.
until_the_end=(setpriv --pdeathsig TERM --)

# Starts a process beside the console; its output is to be read from the descriptor $companion_output. In a
# session of its own Ctrl-C does not reach it while the console still needs it.
start_companion() {  # LOG COMMAND...
    exec {companion_output}< <(exec setsid "${until_the_end[@]}" "${@:2}" 2>"$1" </dev/null)
    companions+=("$!")
}

end_process() {  # PID; which may have ended already
    local i
    kill "$1" 2>/dev/null || return 0
    for ((i = 0; i < 50; ++i)); do
        kill -0 "$1" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$1" 2>/dev/null || true
}

end_everything() {
    local i
    trap '' INT TERM HUP  # once is enough
    [[ -z $console ]] || end_process "$console"
    end_server
    withdraw_server
    for ((i = ${#companions[@]} - 1; i >= 0; --i)); do
        end_process "${companions[i]}"
    done
    rm -rf "$private"
}
trap end_everything EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

[[ -n ${XDG_RUNTIME_DIR:-} ]] || export XDG_RUNTIME_DIR=$private  # the toolkit and the bus want one
ensure_data_source "$programs/tessaly-db"
ensure_session_bus "$programs/tessalyd"
ensure_screen
if [[ -z ${XDG_RUNTIME_DIR:-} ]]; then  # the toolkit would make a folder and leave it when it is stopped
    export XDG_RUNTIME_DIR=$private/runtime
    mkdir -m 700 "$XDG_RUNTIME_DIR"
fi
"${until_the_end[@]}" "$programs/tessalycfg" &
console=$!
status=0
wait "$console" || status=$?
console=
exit "$status"
