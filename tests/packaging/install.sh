#!/bin/bash
# install.sh PROGRAMS PACKAGES PLUGINS: the packages as a stranger meets them. They are installed, set up for a user,
# started from the menu, verified by a DICOM peer, used, and removed; what is the user's stays.
#
# Root installs into this machine's own system, with every change of it kept aside and thrown away: dpkg checks the
# dependencies, and the programs have their final paths. Elsewhere the packages go into an empty folder, and the
# paths in their scripts are turned to there.
if [[ -z ${own_mounts:-} && $(id -u) == 0 ]] && unshare --mount true 2>/dev/null; then
    own_mounts=yes exec unshare --mount --propagation private "$0" "$@"
fi
. "$(dirname "$0")/support.sh"

packages=("$2"/*.deb)
export PATH=$PATH:/usr/sbin:/sbin QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8
export XDG_RUNTIME_DIR=$scratch/runtime TESSALY_CLOSE=$scratch/close
mkdir -m 700 "$XDG_RUNTIME_DIR"
bus=
console=
server=
root=$scratch/root
mkdir "$root"

end_everything() {
    local pid
    for pid in $console $server $bus; do
        kill "$pid" 2>/dev/null || true
    done
    wait
    [[ -z ${own_mounts:-} ]] || umount --recursive --lazy "$root" "$scratch/changes" 2>/dev/null || true
    rm -rf "$scratch"
}
trap end_everything EXIT

whole_system() {
    mkdir "$scratch/changes"
    mount -t tmpfs tmpfs "$scratch/changes"
    mkdir "$scratch/changes/upper" "$scratch/changes/work"
    mount -t overlay overlay "$root" \
        -o "lowerdir=/,upperdir=$scratch/changes/upper,workdir=$scratch/changes/work" 2>/dev/null || return 1
    local folder
    for folder in /proc /dev "$scratch"; do
        mkdir -p "$root$folder"
        mount --bind "$folder" "$root$folder"
    done
}
if [[ -n ${own_mounts:-} ]] && whole_system; then
    inside=(chroot "$root")
    # Whoever makes a session has its bus; here it is the test's own.
    dpkg_there() { "${inside[@]}" dpkg --ignore-depends=dbus-user-session,dbus-session-bus "$@"; }
    turn_paths() { :; }
else
    own_mounts=
    inside=(env "PATH=$root/usr/bin:$PATH")
    mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers}
    touch "$root/var/lib/dpkg/status"
    dpkg_there() {
        dpkg --root="$root" --log=/dev/null --force-not-root --force-depends --force-script-chrootless "$@"
    }
    turn_paths() {
        sed -i "s|/usr/|$root/usr/|g" "$root/usr/bin/tessaly-setup" \
            "$root/usr/share/dbus-1/services/org.tessaly.Server.service"
        sed -i "1s|.*|#!/bin/bash|" "$root/usr/bin/tessaly-setup"
    }
fi

# Waits for something that another process does.
eventually() {
    local i
    for ((i = 0; i < 600; ++i)); do
        ! "$@" || return 0
        sleep 0.1
    done
    fail "not in time: $*"
}
says() {  # LINE: as the console's visitor said it
    [[ -e $scratch/console ]] && grep -qxF "$1" "$scratch/console"
}

# --- Install.
mkdir "$scratch/packages"
cp "${packages[@]}" "$scratch/packages/"
run dpkg_there --install "$scratch"/packages/*.deb
[[ $status == 0 ]] || fail "dpkg --install"
mapfile -t installed < <(dpkg_there --listfiles tessaly-console tessaly-server | sort -u)
grep -qx /usr/bin/tessalyd <<<"$(printf '%s\n' "${installed[@]}")" || fail "the server is not among the files"
grep -qx /usr/libexec/tessaly/tessaly-decoder <<<"$(printf '%s\n' "${installed[@]}")" || fail "the decoder is not among the files"
turn_paths

# --- Set up, twice: the second time there is nothing to do.
run "${inside[@]}" tessaly-setup
expect_success
password=$(sed -n 's/^Password of admin: //p' "$scratch/out")
[[ -n $password ]] || fail "no password"
run "${inside[@]}" tessaly-setup
expect_success
! grep -q Password "$scratch/out" || fail "sets up again"

# A port below those that the system gives to connections, where nobody listens.
port=20000
while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || ! sqlite3 "$database" "UPDATE Port SET Port='$port'"; do
    port=$((20000 + RANDOM % 12000))
done

# --- Port 104, for a server that is not root's: the right comes with the installed file, and the session's bus, the data
# source and the home are found nevertheless. In a network of its own, where that port is free and asks for the right.
listens_on_104() { grep -qs 'port 104: listening' "$scratch/nobody/server.log"; }
if [[ -n $own_mounts ]]; then
    chmod 711 "$scratch"
    mkdir "$scratch/nobody"
    sed "s|^Database=.*|Database=$scratch/nobody/DicomDB.mdb|" "$ODBCINI" >"$scratch/nobody/odbc.ini"
    sqlite3 "$database" ".backup $scratch/nobody/DicomDB.mdb"
    sqlite3 "$scratch/nobody/DicomDB.mdb" "UPDATE Port SET Port='104', Root='$scratch/nobody'"
    chown -R nobody "$scratch/nobody"
    as_nobody=(setpriv --reuid nobody --regid nogroup --clear-groups
        env "HOME=$scratch/nobody" "ODBCINI=$scratch/nobody/odbc.ini" "XDG_RUNTIME_DIR=$scratch/nobody")
    # shellcheck disable=SC2016
    unshare --net "${inside[@]}" "${as_nobody[@]}" dbus-run-session -- \
        sh -c 'echo $$ >"$HOME/pid" && exec tessalyd --log-file "$HOME/server.log"' >"$scratch/out" 2>"$scratch/err" &
    eventually listens_on_104
    kill "$(<"$scratch/nobody/pid")"
    wait $!
fi

# --- A session's bus that knows the installed services, and no other.
[[ -n $own_mounts ]] && prefix= || prefix=$root
cat >"$scratch/bus.conf" <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=$scratch/bus</listen>
  <servicedir>$prefix/usr/share/dbus-1/services</servicedir>
  <policy context="default">
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
END
"${inside[@]}" dbus-daemon --nofork --nopidfile --config-file="$scratch/bus.conf" 2>"$scratch/bus.log" &
bus=$!
eventually test -S "$scratch/bus"
export DBUS_SESSION_BUS_ADDRESS=unix:path=$scratch/bus

# --- Start from the menu, and log in: the console starts the server.
command=$(sed -n 's/^Exec=//p' "$root/usr/share/applications/org.tessaly.Configuration.desktop")
cp -r "$3" "$scratch/plugins"
QT_PLUGIN_PATH=$scratch/plugins QT_QPA_GENERIC_PLUGINS=visitor TESSALY_PASSWORD=$password \
    "${inside[@]}" sh -c "exec $command" >"$scratch/console" 2>"$scratch/err" </dev/null &
console=$!
eventually says 'state Listening'
server=$(dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetConnectionUnixProcessID string:org.tessaly.Server)
server=${server##* }
for program in "$console:tessalycfg" "$server:tessalyd"; do
    [[ /proc/${program%:*}/exe -ef $root/usr/bin/${program#*:} ]] || fail "not the installed ${program#*:}"
done

# --- A peer verifies the server and stores an image.
run echoscu -aet VISITOR -aec TESSALY 127.0.0.1 "$port"
expect_success
cat >"$scratch/image.txt" <<'END'
(0008,0016) UI =SecondaryCaptureImageStorage
(0008,0018) UI [2.25.1.1.1]
(0008,0060) CS [OT]
(0010,0010) PN [Visitor^Test]
(0010,0020) LO [VISITOR]
(0020,000d) UI [2.25.1]
(0020,000e) UI [2.25.1.1]
END
dump2dcm "$scratch/image.txt" "$scratch/image.dcm" >"$scratch/out" 2>&1
run storescu -aet VISITOR -aec TESSALY 127.0.0.1 "$port" "$scratch/image.dcm"
[[ $status == 0 ]] || fail "storescu"
[[ $(sqlite3 "$database" 'SELECT SOPInstanceUID FROM Image') == 2.25.1.1.1 ]] || fail "the image is not registered"

# --- Close: the console ends well, having met no message box, and the server ends when it is told.
touch "$TESSALY_CLOSE"
status=0
wait "$console" || status=$?
console=
[[ $status == 0 ]] || fail "the console's exit status is $status"
! grep -q '^box' "$scratch/console" || fail "the console: $(<"$scratch/console")"
dbus-send --session --print-reply --dest=org.tessaly.Server /org/tessaly/Server org.tessaly.Server1.Terminate >/dev/null
eventually test ! -e "/proc/$server"

# --- Remove: all that was installed goes, all that is the user's stays.
mapfile -t images < <(find "$HOME/.local/share/tessaly/images" -type f)
((${#images[@]} == 1)) || fail "not one image but: ${images[*]}"
user_files() {
    (cd "$HOME" && find . -type f -exec sha256sum {} + | sort)
}
before=$(user_files)
run dpkg_there --remove tessaly-console tessaly-server
[[ $status == 0 ]] || fail "dpkg --remove"
run dpkg_there --purge tessaly-console tessaly-server
[[ $status == 0 ]] || fail "dpkg --purge"
for file in "${installed[@]}"; do
    [[ ! -f $root$file ]] || fail "$file is left"
done
[[ $(user_files) == "$before" ]] || fail "the user's files have changed"
[[ $before == *DicomDB.mdb* && -s $ODBCINI ]] || fail "no database, or no data source"
[[ $(sqlite3 "$database" 'PRAGMA integrity_check') == ok ]] || fail "the database is damaged"
