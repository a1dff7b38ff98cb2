#!/usr/bin/env python3
"""Checks sources with clang-tidy, as many at once as there are processors.

tests/tidy.py PRESET PATTERN [ARGUMENT...]: those that the preset builds and whose path in the repository begins as
PATTERN says, with ARGUMENTs for clang-tidy. A source that passed leaves a file in the folder TIDY_PASSED (the build's
own where nothing is said), whose name stands for all that clang-tidy saw: it is checked again when it, what it
includes, the checks or the ARGUMENTs have changed.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

CLANG, CLANG_TIDY = "clang++-14", "clang-tidy-14"
TOP = pathlib.Path(__file__).resolve().parent.parent
ROOMS = "|".join(sorted(file.parent.name for file in TOP.glob("*/CMakeLists.txt")))
# They are another compiler's: each source stands on what it includes.
PRECOMPILED = re.compile(r" -Winvalid-pch( -Xclang)? -include [^ ]*cmake_pch\.hxx")


def commands_of(build, folder):
    """The commands of the build's own sources, without precompiled headers, which FOLDER has for clang-tidy too."""
    entries = json.loads((build / "compile_commands.json").read_text())
    entries = [{**entry, "command": PRECOMPILED.sub("", entry["command"])} for entry in entries
               if re.match(f"({ROOMS})/", os.path.relpath(entry["file"], TOP))]
    (folder / "compile_commands.json").write_text(json.dumps(entries, indent=1))
    return entries


def seen(entry):
    """The source with all that it includes, comments kept: some are for clang-tidy."""
    command = shlex.split(entry["command"])
    output = command.index("-o")
    options = command[1:output] + command[output + 2:]
    return subprocess.run([CLANG, *options, "-w", "-E", "-frewrite-includes"],
                          cwd=entry["directory"], stdout=subprocess.PIPE, check=True).stdout


def check(entry, tidy, checks, passed):
    """Empty, or what is wrong with the source."""
    mark = passed / hashlib.sha256(checks + seen(entry)).hexdigest()
    if mark.exists():
        return ""
    done = subprocess.run([*tidy, entry["file"]], text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        return done.stdout or f"{entry['file']}: error: {CLANG_TIDY} ended with {done.returncode}\n"
    mark.touch()
    return ""


def main(preset, pattern, *arguments):
    build = TOP / "build" / preset
    folder = build / "tidy"
    passed = pathlib.Path(os.environ.get("TIDY_PASSED", folder / "passed"))
    for made in folder, passed:
        made.mkdir(parents=True, exist_ok=True)
    entries = [entry for entry in commands_of(build, folder)
               if re.match(pattern, os.path.relpath(entry["file"], TOP))]
    if not entries:
        sys.exit(f"{sys.argv[0]}: no source of {preset} is like {pattern}")
    tidy = [CLANG_TIDY, "-quiet", f"-p={folder}", f"-header-filter=^{TOP}/({ROOMS})/", *arguments]
    version = subprocess.run([CLANG_TIDY, "--version"], stdout=subprocess.PIPE, check=True).stdout
    checks = b"\n".join([version, (TOP / ".clang-tidy").read_bytes(), json.dumps(tidy).encode()])
    found = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for finding in pool.map(lambda entry: check(entry, tidy, checks, passed), entries):
            print(finding, end="", flush=True)
            found = found or bool(finding)
    return found


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
