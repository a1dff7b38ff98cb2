#!/bin/bash
# Installs Debian packages; for root. Orthanc and PostgreSQL are wanted as programs for the tests alone, and of D-Bus
# only the session's: no service of theirs is left running, and of the first two not after a restart of the machine
# either.
set -euo pipefail

policy=/usr/sbin/policy-rc.d
if [[ ! -e $policy ]]; then
    trap 'rm -f "$policy"' EXIT
    printf '#!/bin/sh\ncase "$*" in *orthanc* | *postgresql* | *dbus*) exit 101 ;; esac\n' >"$policy"
    chmod 755 "$policy"
fi

# The package makes a cluster of its own and has it started with the machine. Where one stands already it is
# somebody's.
cluster=/etc/postgresql/15/main/start.conf
[[ " $* " == *" postgresql-15 "* && ! -e $cluster ]] || cluster=

export DEBIAN_FRONTEND=noninteractive
apt-get -q update </dev/null
apt-get -q -y --no-install-recommends install "$@" </dev/null

if [[ " $* " == *" orthanc "* ]] && command -v systemctl >/dev/null; then
    systemctl --quiet disable orthanc.service || true  # not a unit everywhere
    [[ ! -d /run/systemd/system ]] || systemctl --quiet stop orthanc.service
fi
[[ -z $cluster || ! -e $cluster ]] || sed -i 's/^auto$/manual/' "$cluster"
