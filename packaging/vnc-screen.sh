# To be sourced after $private is set: a screen where there is none, shown over VNC. Only this machine reaches
# it, and only with the password of this run; other users of the machine have no way around either.

start_vnc_screen() {
    local password cookie number
    password=$(set +o pipefail; LC_ALL=C tr -dc 'abcdefghjkmnpqrstuvwxyz23456789' </dev/urandom | head -c 8)
    vncpasswd -f <<<"$password" >"$private/vnc-password"
    cookie=$(mcookie)
    # The server takes a cookie for any number, and tells its own number only when it runs.
    touch "$private/server-auth" "$private/Xauthority"
    xauth -q -f "$private/server-auth" add :0 . "$cookie"
    start_companion "$private/screen.log" Xtigervnc -displayfd 1 -auth "$private/server-auth" -nolisten tcp \
        -interface 127.0.0.1 -SecurityTypes VncAuth -PasswordFile "$private/vnc-password" \
        -desktop "Tessaly Configuration" -geometry 1280x900 -depth 24 -dpi 96
    read -r number <&"$companion_output" || die "No screen could be started: $(tail -n 1 "$private/screen.log")"
    export DISPLAY=:$number XAUTHORITY=$private/Xauthority
    xauth -q add "$DISPLAY" . "$cookie"
    start_companion "$private/window-manager.log" \
        env XDG_CACHE_HOME="$private" XDG_CONFIG_HOME="$private" openbox --sm-disable
    echo "The console is to be seen by VNC at 127.0.0.1:$((5900 + number)), password $password (of this run only)"
}

ensure_screen() {
    [[ -n ${DISPLAY:-}${WAYLAND_DISPLAY:-} ]] || start_vnc_screen
}
