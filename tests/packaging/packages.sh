#!/bin/bash
# Installing packages, with stand-ins for the commands that know of packages and users.
. "$(dirname "$0")/support.sh"

mkdir "$scratch/bin" "$scratch/packaging"
stand_in "$scratch/bin/dpkg-query" <<'END'
for name; do
    case $name in
        there*) echo "$name installed" ;;
        removed*) echo "$name config-files" ;;
    esac
done
END
stand_in "$scratch/packaging/install-packages.sh" <<'END'
echo "installs $*"
[[ $* != *broken* ]]
END
stand_in "$scratch/bin/id" <<<'echo "$USER_ID"'

install() {  # USER_ID PACKAGE...
    export USER_ID=$1
    shift
    (
        PATH=$scratch/bin:$PATH
        . "$packaging/setup.sh"
        top=$scratch
        install_packages "$@"
    )
}

# Nothing is missing: nothing is asked of anybody.
run install 1000 there1 there2
expect_success
[[ ! -s $scratch/out ]] || fail "said something"

# Root installs what is missing and nothing else.
run install 0 there1 gone removed1
expect_success
grep -qx 'installs gone removed1' "$scratch/out" || fail "wrong packages"

# A user needs sudo, which without a terminal must not ask.
hide_sudo() (
    mkdir -p "$scratch/plain"
    for command in bash awk dirname readlink; do
        ln -sf "$(command -v "$command")" "$scratch/plain/"
    done
    PATH=$scratch/plain install 1000 there1 gone removed1
)
run hide_sudo
expect_one_line '*: These packages are missing, and there is no sudo: gone removed1'

stand_in "$scratch/bin/sudo" <<'END'
echo "sudo $1"
shift
exec "$@"
END
run install 1000 gone
expect_success
grep -qx 'sudo --non-interactive' "$scratch/out" || fail "asks"
grep -qx 'installs gone' "$scratch/out" || fail "does not install"

# An installation that fails is named.
run install 0 broken1
expect_one_line '*: These packages could not be installed: broken1'

# The lists name packages that this system knows: all of them are installed where this test runs.
run bash -c '. "$1/setup.sh"; missing_packages "${build_packages[@]}" "${screen_packages[@]}" "${test_packages[@]}"' \
    - "$packaging"
expect_success
[[ ! -s $scratch/out ]] || fail "not installed"
