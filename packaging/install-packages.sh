#!/bin/bash
# Installs Debian packages; for root. Orthanc is wanted as a program for the tests alone: no service of it is
# left running, now or after a restart of the machine.
set -euo pipefail

policy=/usr/sbin/policy-rc.d
if [[ ! -e $policy ]]; then
    trap 'rm -f "$policy"' EXIT
    printf '#!/bin/sh\ncase "$*" in *orthanc*) exit 101 ;; esac\n' >"$policy"
    chmod 755 "$policy"
fi

export DEBIAN_FRONTEND=noninteractive
apt-get -q update </dev/null
apt-get -q -y --no-install-recommends install "$@" </dev/null

if [[ " $* " == *" orthanc "* ]] && command -v systemctl >/dev/null; then
    systemctl --quiet disable orthanc.service || true  # not a unit everywhere
    [[ ! -d /run/systemd/system ]] || systemctl --quiet stop orthanc.service
fi
