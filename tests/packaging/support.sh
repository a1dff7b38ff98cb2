# To be sourced by the tests of the scripts, with the folder of the built programs as $1: a home of the test's
# own, and functions to say what is expected. The first thing that is not as expected ends the test.
set -euo pipefail

packaging=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../../packaging")
programs=$(readlink -f "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'echo "failed at line $LINENO: $BASH_COMMAND" >&2' ERR
set -o errtrace

unset DISPLAY WAYLAND_DISPLAY XAUTHORITY XDG_DATA_HOME XDG_RUNTIME_DIR DBUS_SESSION_BUS_ADDRESS ODBCSYSINI
export HOME=$scratch/home ODBCINI=$scratch/home/odbc.ini TMPDIR=$scratch/tmp
mkdir "$HOME" "$TMPDIR"
database=$HOME/.local/share/tessaly/DicomDB.mdb

fail() {
    echo "line ${BASH_LINENO[0]}: $*" >&2
    [[ ! -e $scratch/out ]] || sed 's/^/out: /' "$scratch/out" >&2
    [[ ! -e $scratch/err ]] || sed 's/^/err: /' "$scratch/err" >&2
    exit 1
}

# Runs a command with its output in $scratch/out and $scratch/err; $status is its exit status.
run() {
    status=0
    "$@" >"$scratch/out" 2>"$scratch/err" </dev/null || status=$?
}

expect_success() {
    [[ $status == 0 && ! -s $scratch/err ]] || fail "exit status $status"
}

expect_one_line() {  # PATTERN
    [[ $status == 1 && $(wc -l <"$scratch/err") == 1 ]] || fail "no refusal in one line, exit status $status"
    # shellcheck disable=SC2053
    [[ $(<"$scratch/err") == $1 ]] || fail "not $1"
}

stand_in() {  # FILE; the body from standard input
    { echo '#!/bin/bash'; cat; } >"$1"
    chmod +x "$1"
}
