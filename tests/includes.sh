#!/bin/bash
# Files include downwards only; docs/development.md draws who may include whom. Prints every line that does not.
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

declare -A below=(
    [app]='server network printers users maintenance ui dicom passwords db'
    [server]='ui db'
    [network]='ui db'
    [printers]='ui db'
    [users]='ui db'
    [maintenance]='ui db'
    [ui]='dicom db'
    [db]=''
    [dicom]=''
    [passwords]=''
    [schema]='db'
    [tessalyd]='db'
    [tessaly-db]='schema passwords db'
)
leaves='app/(Globals|MainWindowOperations)\.h'   # what every form may include

wrong=0
for folder in "${!below[@]}"; do
    allowed="$folder ${below[$folder]}"
    pattern="(${allowed// /|})/"
    case $folder in
        server | network | printers | users | maintenance) pattern="($pattern|$leaves\")" ;;
    esac
    headers=("$folder"/*.h "$folder"/*.cpp)
    [[ -e ${headers[0]} || -e ${headers[-1]} ]] || { echo "$folder has no sources"; wrong=1; }
    if grep -nE '#include "[a-z-]+/' "$folder"/*.{h,cpp} 2>/dev/null | grep -vE "#include \"$pattern"; then
        wrong=1
    fi
done
exit $wrong
