#!/bin/bash
# build.sh PROGRAMS FOLDER: makes the packages of the programs that were built, for the tests of them.
set -euo pipefail

build=$(dirname "$(readlink -f "$1")")
rm -rf "$2"
mkdir -p "$2"
cd "$2"
cpack --config "$build/CPackConfig.cmake" -B "$2"
ls tessaly-console_*.deb tessaly-server_*.deb
