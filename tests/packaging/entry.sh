#!/bin/bash
# entry.sh PROGRAMS: what ./run and ./test build, with stand-ins for the commands that install, build and open.
. "$(dirname "$0")/support.sh"

mkdir -p "$scratch/bin" "$scratch/top/packaging" "$scratch/top/build/release"
cp "$packaging/../run" "$packaging/../test" "$scratch/top/"
cp "$packaging/setup.sh" "$scratch/top/packaging/"
stand_in "$scratch/bin/dpkg-query" <<<'printf "%s installed\n" "$@"'
stand_in "$scratch/bin/apt-get" <<<'[[ $* == *download* ]] && echo "fetches ${*: -1}" && touch "${*: -1}.deb"'
stand_in "$scratch/bin/dpkg-deb" <<<'true'
stand_in "$scratch/bin/cmake" <<<'echo "cmake $*"; [[ $* != *--build* || -z ${BROKEN:-} ]]'
stand_in "$scratch/bin/ctest" <<<'echo "ctest $*"'
stand_in "$scratch/top/packaging/open-console.sh" <<<'echo "opens $*"'
export PATH=$scratch/bin:$PATH
ran() {  # LINE...: these commands, and no other
    expect_success
    cmp <(printf '%s\n' "$@") "$scratch/out" || fail "something else"
}
top=$scratch/top
targets=(tessalycfg tessalyd tessaly-db)

# ./run sets the build up at its first use, and builds the programs that it runs, nothing else.
run "$top/run"
ran "cmake -S $top --preset release" "cmake --build --preset release --target ${targets[*]}" \
    "opens $top/build/release/bin"
touch -d yesterday "$top/CMakePresets.json"
touch "$top/build/release/build.ninja"
run "$top/run"
ran "cmake --build --preset release --target ${targets[*]}" "opens $top/build/release/bin"

# Those are targets of the build, and nothing of them is made for tests, benches or pictures alone.
build=$(dirname "$programs")
run ninja -C "$build" -t inputs "${targets[@]}"
expect_success
grep -q 'main\.cpp\.o$' "$scratch/out" || fail "nothing to build"
! grep -E '^(tests|bench|docs)/' "$scratch/out" || fail "builds more than is run"

# ./test builds everything. Peers that cannot be installed beside each other it unpacks, once.
run "$top/test" -R something
ran 'Unpacking vsftpd proftpd-core proftpd-mod-crypto' 'fetches proftpd-mod-crypto' \
    "cmake --build --preset release" "ctest --preset release -R something"
run "$top/test" -R something
ran "cmake --build --preset release" "ctest --preset release -R something"

# A build that fails opens nothing and tests nothing.
for entry in run test; do
    BROKEN=yes run "$top/$entry"
    expect_one_line '*: The build failed'
    ! grep -qE '^(opens|ctest)' "$scratch/out" || fail "goes on"
done
