#!/bin/bash
# lint.sh PROGRAMS PACKAGES: what Debian's and the desktop's own tools say of the packages and their files.
. "$(dirname "$0")/support.sh"

packages=("$2"/*.deb)
((${#packages[@]} == 2)) || fail "not two packages: ${packages[*]}"

run lintian --no-cfg --allow-root --fail-on error "${packages[@]}"
[[ $status == 0 ]] || fail "lintian"

root=$scratch/root
for package in "${packages[@]}"; do
    dpkg-deb -x "$package" "$root"
    # The driver of the other engine, by the name that this system has it under.
    [[ ", $(dpkg-deb --field "$package" Suggests)," == *", odbc-postgresql,"* ]] || fail "no driver suggested: $package"
done
dpkg-query --show odbc-postgresql >/dev/null

run desktop-file-validate "$root/usr/share/applications/"*.desktop
expect_success
[[ ! -s $scratch/out ]] || fail "remarks on the menu entry"
run appstreamcli validate --no-net "$root/usr/share/metainfo/"*.xml
[[ $status == 0 ]] || fail "appstreamcli"

pages=("$root"/usr/share/man/man1/*.gz)
((${#pages[@]} == 4)) || fail "not four pages: ${pages[*]}"
for page in "${pages[@]}"; do
    name=${page##*/}
    [[ -x $root/usr/bin/${name%.1.gz} ]] || fail "a page without its program: $name"
    LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 run man --warnings --local-file --encoding=UTF-8 --troff-device=utf8 \
        --ditroff "$page"
    expect_success
done
for program in "$root"/usr/bin/*; do
    [[ -e $root/usr/share/man/man1/${program##*/}.1.gz ]] || fail "no page for $program"
done

# The server is the one thing that the bus and systemd start.
grep -qx 'Exec=/usr/bin/tessalyd' "$root/usr/share/dbus-1/services/org.tessaly.Server.service"
grep -qx 'ExecStart=/usr/bin/tessalyd' "$root/usr/lib/systemd/user/tessalyd.service"
# What its file gives it, to listen on port 104, the unit does not take away.
! grep -q '^NoNewPrivileges=' "$root/usr/lib/systemd/user/tessalyd.service" || fail "no ports below 1024"
# It decodes by a program of its own, and leaves no core.
[[ -x $root/usr/bin/../libexec/tessaly/tessaly-decoder ]] || fail "no decoder"
grep -qx 'LimitCORE=0' "$root/usr/lib/systemd/user/tessalyd.service"
