#!/bin/bash
# Files include downwards only; docs/development.md draws who may include whom. Prints every line that does not.
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

declare -A below=(
    [app]='server network printers users maintenance ui db'
    [server]='ui db'
    [network]='ui db'
    [printers]='network ui db'
    [users]='ui db'
    [maintenance]='ui db'
    [ui]='db'
    [db]=''
    [schema]='db'
    [tessalyd]='db'
    [tessaly-db]='schema db'
)
leaves='app/(Globals|MainWindowOperations)\.h'   # what every form may include
encoder='app/PasswordEncoder\.h'                 # what a tool without forms needs of the console

wrong=0
for folder in "${!below[@]}"; do
    allowed="$folder ${below[$folder]}"
    pattern="(${allowed// /|})/"
    case $folder in
        server | network | printers | users | maintenance) pattern="($pattern|$leaves\")" ;;
        tessaly-db) pattern="($pattern|$encoder\")" ;;
    esac
    headers=("$folder"/*.h "$folder"/*.cpp)
    [[ -e ${headers[0]} || -e ${headers[-1]} ]] || { echo "$folder has no sources"; wrong=1; }
    if grep -nE '#include "[a-z-]+/' "$folder"/*.{h,cpp} 2>/dev/null | grep -vE "#include \"$pattern"; then
        wrong=1
    fi
done
exit $wrong
