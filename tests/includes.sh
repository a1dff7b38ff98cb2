#!/bin/bash
# Files include downwards only; docs/development.md draws who may include whom. Prints every line that does not, every
# source that belongs to no room, and every room that is empty.
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

# ROOM > the rooms right below it; those below these may be included too. A room is a folder, or files of one name.
table='
console/app             > console/server console/network console/printers console/users console/maintenance
console/server          > console/session
console/network         > console/session
console/printers        > console/session
console/users           > console/session
console/maintenance     > console/session maintenance
console/session         > console/ui passwords
console/ui              > archive
tessalyd/main           > tessalyd/control
tessalyd/control        > tessalyd/Server
tessalyd/Server         > tessalyd/services
tessalyd/services       > tessalyd/services/verification tessalyd/services/storage tessalyd/services/retrieve tessalyd/services/commitment tessalyd/services/print
tessalyd/services/verification > tessalyd/association
tessalyd/services/storage      > tessalyd/services/ServiceContext
tessalyd/services/retrieve     > tessalyd/services/query tessalyd/services/PrintQueue tessalyd/forwarding/composing
tessalyd/services/commitment   > tessalyd/services/ServiceContext
tessalyd/services/print        > tessalyd/services/PrintQueue
tessalyd/services/PrintQueue   > tessalyd/services/ServiceContext tessalyd/forwarding/films
tessalyd/forwarding/composing  > tessalyd/forwarding/films tessalyd/forwarding/images tessalyd/search
tessalyd/forwarding/films      > tessalyd/Log jobs dicom/net
tessalyd/services/query        > tessalyd/services/ServiceContext
tessalyd/services/ServiceContext > tessalyd/services/JobSessions tessalyd/association tessalyd/search tessalyd/store tessalyd/forwarding/ftp
tessalyd/services/JobSessions  > tessalyd/configuration jobs
tessalyd/forwarding/ftp        > tessalyd/search jobs tessalyd/forwarding/volumes
tessalyd/forwarding/volumes    > tessalyd/forwarding/images
tessalyd/forwarding/images     > decoder
tessalyd/search         > tessalyd/Log archive decoder
tessalyd/store          > tessalyd/Log archive decoder
tessalyd/association    > tessalyd/Log dicom/net
tessalyd/Log            > tessalyd/configuration tessalyd/Printable
tessalyd/Printable      >
tessalyd/configuration  > schema dicom/net
tessaly-db              > maintenance passwords jobs
jobs                    > archive
maintenance             > archive schema
archive                 > db dicom/net
schema                  > db dicom/data
decoder                 > dicom/data
dicom/net               > dicom/net/transport
dicom/net/transport     > dicom/data
dicom/data              > base
db                      > db/dialects
db/dialects             > base
passwords               >
base                    >
'

# The tests, the measurements and the pictures look into every room.
find [!.]* -regextype egrep \( -path build -o -regex '(tests|bench|docs)' \) -prune -o -name '*.h' -print -o -name '*.cpp' -print |
    xargs awk -v table="$table" '
function room(file) {  # the longest that the file lies in
    if (!(file in below)) sub(/\.[a-z]+$/, "", file)
    while (!(file in below)) if (!sub(/\/[^\/]*$/, "", file)) return ""
    return file
}
function reaches(from, to,    rooms, n, i) {
    if (from == to) return 1
    n = split(below[from], rooms, " ")
    for (i = 1; i <= n; ++i) if (reaches(rooms[i], to)) return 1
    return 0
}
BEGIN {
    lines = split(table, line, "\n")
    for (i = 1; i <= lines; ++i) if (line[i] != "") {
        split(line[i], part, /[ \t]*>[ \t]*/)
        below[part[1]] = part[2]
    }
}
FNR == 1 {
    from = room(FILENAME)
    if (from == "") { print FILENAME ": in no room"; wrong = 1 }
    seen[from] = 1
}
/^#include "[^"]*\// {  # those without a folder are made by the build
    split($0, quoted, "\"")
    to = room(quoted[2])
    if (to == "" || !reaches(from, to)) { print FILENAME ":" FNR ": " $0; wrong = 1 }
}
END {
    for (name in below) if (!(name in seen)) { print name ": empty"; wrong = 1 }
    exit wrong
}'
