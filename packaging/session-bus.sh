# To be sourced after $private, a folder of this run's own, is set: a session bus on which the console can start
# the server.

server_name=org.tessaly.Server
server_offer=  # the file that offers the server on a bus that was there before

bus_call() {  # MEMBER [ARGUMENT...]
    dbus-send --session --print-reply=literal --reply-timeout=3000 \
        --dest=org.freedesktop.DBus /org/freedesktop/DBus "org.freedesktop.DBus.$1" "${@:2}" 2>/dev/null
}

server_is_on_offer() {
    local names
    names=$(bus_call ListActivatableNames; bus_call ListNames)
    grep -qwF "$server_name" <<<"$names"
}

shell_quoted() {
    printf "'%s'" "${1//\'/\'\\\'\'}"
}

# A bus that was there before knows nothing of an ODBCINI set for this run.
write_server_offer() {  # FILE SERVER
    local command
    command=$(shell_quoted "$2")
    [[ -z ${ODBCINI:-} ]] || command="/usr/bin/env $(shell_quoted "ODBCINI=$ODBCINI") $command"
    printf '[D-BUS Service]\nName=%s\nExec=%s\n' "$server_name" "$command" >"$1"
}

start_own_bus() {  # SERVER
    mkdir "$private/services"
    [[ ! -x $1 ]] || write_server_offer "$private/services/$server_name.service" "$1"
    cat >"$private/bus.conf" <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=$private/bus</listen>
  <servicedir>$private/services</servicedir>
  <policy context="default">
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
END
    local ready
    start_companion "$private/bus.log" dbus-daemon --nofork --config-file="$private/bus.conf" --print-address=1
    read -r ready <&"$companion_output" || die "No session bus could be started: $(tail -n 1 "$private/bus.log")"
    export DBUS_SESSION_BUS_ADDRESS=${ready%%,guid=*}
}

# The user's bus where it lets the server be started, else one of this run's own.
ensure_session_bus() {  # SERVER
    local services=${XDG_RUNTIME_DIR:-}/dbus-1/services
    if [[ -z ${DBUS_SESSION_BUS_ADDRESS:-} && -S ${XDG_RUNTIME_DIR:-}/bus ]]; then
        export DBUS_SESSION_BUS_ADDRESS=unix:path=$XDG_RUNTIME_DIR/bus
    fi
    if [[ -n ${DBUS_SESSION_BUS_ADDRESS:-} ]] && bus_call GetId >/dev/null; then
        if [[ ! -x $1 ]] || server_is_on_offer; then
            return 0
        fi
        if [[ -n ${XDG_RUNTIME_DIR:-} ]] && mkdir -p "$services" 2>/dev/null; then
            server_offer=$services/$server_name.service
            write_server_offer "$server_offer" "$1"
            bus_call ReloadConfig >/dev/null || true
            ! server_is_on_offer || return 0
            withdraw_server
        fi
    fi
    start_own_bus "$1"
}

withdraw_server() {
    [[ -n $server_offer ]] || return 0
    rm -f "$server_offer"
    server_offer=
    bus_call ReloadConfig >/dev/null || true
}

# Ends the server that the console had started, unless it became a service of the system.
end_server() {
    local pid
    [[ -n $server_offer || -d $private/services ]] || return 0
    pid=$(bus_call GetConnectionUnixProcessID "string:$server_name") || return 0
    if [[ -n $server_offer ]] && dbus-send --session --print-reply=literal --reply-timeout=3000 \
        --dest="$server_name" /org/tessaly/Server org.freedesktop.DBus.Properties.Get \
        string:org.tessaly.Server1 string:IsService 2>/dev/null | grep -qw true; then
        return 0
    fi
    end_process "${pid##* }"
}
