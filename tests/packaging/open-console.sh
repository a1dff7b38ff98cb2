#!/bin/bash
# Opening the console, with stand-ins for it and for the server.
. "$(dirname "$0")/support.sh"

standin_server=$(readlink -f "$2")
opener=
bus_daemon=
trap 'kill $opener $bus_daemon 2>/dev/null; wait; rm -rf "$scratch"' EXIT
bin=$scratch/bin
mkdir "$bin"
ln -s "$programs/tessaly-db" "$bin/"
ln -s "$standin_server" "$bin/tessalyd"
# The console stands in its window until the test's file "close" is there.
cat >"$bin/tessalycfg" <<'END'
#!/bin/bash
env >"$SCRATCH/console.env.new"
mv "$SCRATCH/console.env.new" "$SCRATCH/console.env"
until [[ -s $SCRATCH/close ]]; do sleep 0.05; done
exit "$(<"$SCRATCH/close")"
END
chmod +x "$bin/tessalycfg"
export SCRATCH=$scratch

# Waits for something that another process does.
eventually() {
    local i
    for ((i = 0; i < 400; ++i)); do
        ! "$@" || return 0
        sleep 0.05
    done
    fail "not in time: $*"
}
of_console() {  # VARIABLE: as the console has it
    sed -n "s/^$1=//p" "$scratch/console.env"
}
open() {
    rm -f "$scratch/console.env" "$scratch/close"
    # A shell's background process would not hear of Ctrl-C.
    env --default-signal=INT,TERM,HUP "$packaging/open-console.sh" "$bin" >"$scratch/out" 2>"$scratch/err" </dev/null &
    opener=$!
    eventually test -e "$scratch/console.env"
}
# Whatever is started has the private folder among its arguments or in its environment.
nothing_is_left() {
    [[ -z $(grep -lsF -- "$TMPDIR/tmp." /proc/[0-9]*/cmdline /proc/[0-9]*/environ) ]]
}
expect_end() {  # EXIT-STATUS
    status=0
    wait "$opener" || status=$?
    opener=
    [[ $status == "$1" ]] || fail "exit status $status"
    nothing_is_left || fail "processes are left"
    [[ -z $(ls -A "$TMPDIR") ]] || fail "files are left"
}
bus() {
    DBUS_SESSION_BUS_ADDRESS=$(of_console DBUS_SESSION_BUS_ADDRESS) dbus-send --session --print-reply=literal \
        --dest=org.freedesktop.DBus / "org.freedesktop.DBus.$1" "${@:2}"
}

# --- A machine without a screen and without a bus.
open
number=$(of_console DISPLAY)
number=${number#:}
port=$((5900 + number))
password=$(sed -n "s/^The console is to be seen by VNC at 127.0.0.1:$port, password \([a-z2-9]\{8\}\) (of this run only)$/\1/p" \
    "$scratch/out")
[[ -n $password ]] || fail "does not say where to look"

[[ -d $(of_console XDG_RUNTIME_DIR) ]] || fail "leaves the console without a folder for its run"

# Only this machine can reach the screen.
hex_port=$(printf %04X "$port")
listeners=$(awk -v port=":$hex_port" '$4 == "0A" && substr($2, length($2) - 4) == port { print $2 }' /proc/net/tcp /proc/net/tcp6)
[[ $listeners == "0100007F:$hex_port" ]] || fail "listens on $listeners"

to_bytes() {  # HEXADECIMAL-DIGITS
    printf '%b' "$(sed 's/../\\x&/g' <<<"$1")"
}
to_digits() {
    od -An -v -tx1 | tr -d ' \n'
}
# What the server says next, as hexadecimal digits.
receive() {  # BYTES
    head -c "$1" <&"$vnc" | to_digits
}
# A VNC password is a key of which each byte has its bits turned round.
vnc_key() {  # PASSWORD
    printf %s "$1" | od -An -v -tu1 | awk '{
        for (i = 1; i <= NF; ++i) {
            for (bit = turned = 0; bit < 8; ++bit) { turned = turned * 2 + $i % 2; $i = int($i / 2) }
            printf "%02x", turned
        } }'
}
# Prints the server's answer to a way of logging in, 00000000 for an open door.
vnc_login() {  # WAY PASSWORD; the ways are 01, none, and 02, a password
    local challenge
    exec {vnc}<>"/dev/tcp/127.0.0.1/$port"
    [[ $(receive 12) == "$(printf 'RFB 003.008\n' | to_digits)" ]]
    printf 'RFB 003.008\n' >&"$vnc"
    [[ $(receive 2) == 0102 ]]  # one way is offered: with a password
    to_bytes "$1" >&"$vnc"
    if [[ $1 == 02 ]]; then
        challenge=$(receive 16)
        to_bytes "$challenge" | openssl enc -des-ecb -nopad -K "$(vnc_key "$2")" -provider legacy -provider default >&"$vnc"
    fi
    receive 4
    exec {vnc}>&-
}
answer=$(vnc_login 02 "$password")
[[ $answer == 00000000 ]] || fail "the password is refused: $answer"
answer=$(vnc_login 02 aaaaaaaa)
[[ $answer == 00000001 ]] || fail "a wrong password is taken: $answer"
answer=$(vnc_login 01)
[[ $answer != 00000000 ]] || fail "no password is taken"
! DISPLAY=:$number XAUTHORITY=/dev/null openbox --exit >"$scratch/openbox" 2>&1 || fail "the screen lets everybody in"

# The console can start the server, which sees the same data source.
bus StartServiceByName string:org.tessaly.Server uint32:0 >/dev/null
server=$(bus GetConnectionUnixProcessID string:org.tessaly.Server)
tr '\0' '\n' <"/proc/${server##* }/environ" | grep -qx "ODBCINI=$ODBCINI" || fail "the server sees another data source"

# Closing the window ends everything, with the console's exit status.
echo 0 >"$scratch/close"
expect_end 0
[[ ! -e /proc/${server##* } ]] || fail "the server is left"
open
[[ $(of_console DISPLAY) == ":$number" ]] || fail "the first screen is left"
! grep -q "password $password" "$scratch/out" || fail "the password of the last run serves again"
echo 7 >"$scratch/close"
expect_end 7

# So does every way of stopping it.
for signal in INT:130 TERM:143 HUP:129; do
    open
    kill -"${signal%:*}" "$opener"
    expect_end "${signal#*:}"
done
open
kill -KILL "$opener"
{ wait "$opener" || true; } 2>/dev/null
eventually nothing_is_left
rm -rf "${TMPDIR:?}"/*

# --- A session with a screen and a bus of its own: nothing of either is started, and the bus learns of the server
# while the console is open.
export XDG_RUNTIME_DIR=$scratch/runtime DISPLAY=:4711
mkdir -m 700 "$XDG_RUNTIME_DIR"
exec {bus_output}< <(exec dbus-daemon --session --nofork --print-address=1 2>"$scratch/bus.log")
bus_daemon=$!
read -r address <&"$bus_output"
export DBUS_SESSION_BUS_ADDRESS=$address
offer=$XDG_RUNTIME_DIR/dbus-1/services/org.tessaly.Server.service

open
[[ $(of_console DISPLAY) == :4711 && $(of_console DBUS_SESSION_BUS_ADDRESS) == "$address" ]] || fail "starts its own"
[[ ! -s $scratch/out ]] || fail "said something"
bus StartServiceByName string:org.tessaly.Server uint32:0 >/dev/null
server=$(bus GetConnectionUnixProcessID string:org.tessaly.Server)
tr '\0' '\n' <"/proc/${server##* }/environ" | grep -qx "ODBCINI=$ODBCINI" || fail "the server sees another data source"
echo 0 >"$scratch/close"
expect_end 0
[[ ! -e $offer && ! -e /proc/${server##* } ]] || fail "the server is left"

# Without a server that is built the console opens all the same.
rm "$bin/tessalyd"
open
[[ ! -e $offer ]] || fail "offers what is not there"
echo 0 >"$scratch/close"
expect_end 0

# A bus that is gone is none.
DBUS_SESSION_BUS_ADDRESS=unix:path=$scratch/gone open
[[ $(of_console DBUS_SESSION_BUS_ADDRESS) == "unix:path=$TMPDIR/"* ]] || fail "takes a bus that is gone"
echo 0 >"$scratch/close"
expect_end 0
