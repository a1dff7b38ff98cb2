# What ./run and ./test share, to be sourced: it installs what is missing and builds.
# Debian 12 is all that is expected to be there.

top=$(dirname "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")")

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# Compiler, libraries and what the programs need at run time. Qt's SVG icons come with qt6-svg-dev.
build_packages=(
    g++ cmake ninja-build pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev libgl-dev
    unixodbc-dev odbcinst libsqliteodbc libsqlite3-dev
    libdcmtk-dev libsodium-dev libcli11-dev libseccomp-dev zlib1g-dev libopenjp2-7-dev
    libcurl4-openssl-dev ca-certificates
    dbus fonts-dejavu-core
)
# A screen for a machine that has none.
screen_packages=(tigervnc-standalone-server tigervnc-tools openbox xauth)
# Peers and tools of the tests: a screen with real keys and clicks, openssl to answer the screen's password question,
# the other engine, a driver for the files that other programs left, other makers of videos and volumes and another reader.
test_packages=(
    dcmtk ffmpeg libgdcm-tools libopenjp2-tools openjph-tools orthanc openssl xvfb xdotool lintian desktop-file-utils appstream man-db sqlite3
    postgresql-15 odbc-postgresql libpq-dev odbc-mdbtools libcap2-bin ncftp dcm2niix python3-nibabel
    libwrap0 libhiredis0.14 libmemcached11 libmemcachedutil2 libpcre2-posix3
)
# FTP servers as peers of the tests, with the libraries above. Installed, they would conflict with each other, drive out
# the one that somebody has here, and run from the machine's start on: their programs alone are wanted.
unpacked_packages=(vsftpd proftpd-core proftpd-mod-crypto)
# Compiler and checks of ./test --long alone.
long_test_packages=(clang-14 clang-tidy-14 libclang-rt-14-dev)

# Prints those of the packages that are not installed, a line each.
missing_packages() {
    command -v dpkg-query >/dev/null || die "Debian 12 is needed: there is no dpkg-query here"
    dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null |
        awk -v wanted="$*" '
            $2 == "installed" { there[$1] = 1 }
            END { n = split(wanted, names, " "); for (i = 1; i <= n; ++i) if (!(names[i] in there)) print names[i] }'
}

install_packages() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]} > 0)) || return 0
    echo "Installing ${missing[*]}"
    as_root "These packages are missing" "${missing[*]}" "$top/packaging/install-packages.sh" "${missing[@]}" ||
        die "These packages could not be installed: ${missing[*]}"
}

as_root() {  # WHY WHAT COMMAND...
    local prefix=()
    if [[ $(id -u) != 0 ]]; then
        command -v sudo >/dev/null || die "$1, and there is no sudo: $2"
        prefix=(sudo)
        [[ -t 0 ]] || prefix+=(--non-interactive)
    fi
    "${prefix[@]}" "${@:3}"
}

# Puts the packages' files below build/unpacked, once.
unpack_packages() {
    local folder=$top/build/unpacked package
    [[ "$(cat "$folder/packages" 2>/dev/null)" != "$*" ]] || return 0
    echo "Unpacking $*"
    rm -rf "$folder" && mkdir -p "$folder/archives" || die "There is no room for $*"
    (
        cd "$folder/archives" || exit 1
        apt-get -q -o APT::Sandbox::User= download "$@" ||
            { as_root "The lists of packages are missing" "$*" apt-get -q update && apt-get -q -o APT::Sandbox::User= download "$@"; }
    ) || die "These packages could not be fetched: $*"
    for package in "$folder"/archives/*.deb; do
        dpkg-deb --extract "$package" "$folder" || die "$package cannot be unpacked"
    done
    printf '%s\n' "$*" >"$folder/packages"
}

build() {  # PRESET [TARGET...]; without a target everything
    [[ $top/build/$1/build.ninja -nt $top/CMakePresets.json ]] || cmake -S "$top" --preset "$1" || die "The build cannot be set up"
    (cd "$top" && cmake --build --preset "$1" ${2:+--target "${@:2}"}) || die "The build failed"
}
