#!/bin/bash
# Installs Debian packages; for root. Orthanc is wanted as a program for the tests alone, and of D-Bus only the
# session's: no service of theirs is left running, and Orthanc's not after a restart of the machine either.
set -euo pipefail

policy=/usr/sbin/policy-rc.d
if [[ ! -e $policy ]]; then
    trap 'rm -f "$policy"' EXIT
    printf '#!/bin/sh\ncase "$*" in *orthanc* | *dbus*) exit 101 ;; esac\n' >"$policy"
    chmod 755 "$policy"
fi

export DEBIAN_FRONTEND=noninteractive
apt-get -q update </dev/null
apt-get -q -y --no-install-recommends install "$@" </dev/null

if [[ " $* " == *" orthanc "* ]] && command -v systemctl >/dev/null; then
    systemctl --quiet disable orthanc.service || true  # not a unit everywhere
    [[ ! -d /run/systemd/system ]] || systemctl --quiet stop orthanc.service
fi
