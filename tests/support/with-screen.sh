#!/bin/bash
# with-screen.sh COMMAND...: runs a test on a screen of its own that has a window manager. Both end with it.
set -euo pipefail

private=$(mktemp -d)
screen=
manager=
trap 'kill $manager $screen 2>/dev/null || true; wait; rm -rf "$private"' EXIT
trap 'exit 143' INT TERM HUP
until_the_end=(setpriv --pdeathsig KILL --)  # also when this shell is killed

exec {number_of}< <(exec "${until_the_end[@]}" Xvfb -displayfd 1 -screen 0 1280x1024x24 -dpi 96 -nolisten tcp \
    2>"$private/screen.log" </dev/null)
screen=$!
read -r number <&"$number_of" || { cat "$private/screen.log" >&2; exit 1; }
unset XAUTHORITY WAYLAND_DISPLAY
export DISPLAY=:$number QT_QPA_PLATFORM=xcb QT_XCB_GL_INTEGRATION=none

# The manager's own settings, not those of whoever runs the tests. It says when it is there.
mkfifo "$private/ready"
XDG_CONFIG_HOME=$private XDG_CACHE_HOME=$private "${until_the_end[@]}" openbox --sm-disable \
    --startup "sh -c 'echo >$private/ready'" >"$private/manager.log" 2>&1 </dev/null &
manager=$!
read -r -t 60 <>"$private/ready" || { cat "$private/manager.log" >&2; exit 1; }
export TESSALY_TEST_WINDOW_MANAGER=$manager  # for a test that holds it up

status=0
"$@" || status=$?
exit "$status"
