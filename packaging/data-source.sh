# To be sourced: the ODBC data source of the console, and its database.

dsn=DicomFDB

# ODBC's own view of a driver or a data source. It makes the user's configuration where there is none.
odbc_entry() {  # -d|-s NAME
    (umask 077 && exec odbcinst -q "$1" -n "$2" 2>/dev/null)
}

# The file that the data source names; empty where it is no file.
data_source_file() {
    odbc_entry -s "$dsn" | sed -n 's/^Database *= *\(\/.*\)$/\1/Ip'
}

data_source_section() {  # FILE
    cat <<END
[$dsn]
Description=Configuration of the DICOM server
Driver=SQLite3
Database=$1
StepAPI=1
JournalMode=WAL
SyncPragma=NORMAL
Timeout=5000
NoCreat=1
END
}

# Adds the section to the user's own configuration; what stands there stays byte for byte.
append_data_source() {  # FILE
    local ini text
    ini=$(odbcinst -j | sed -n 's/^USER DATA SOURCES\.*: //p')
    text=$(data_source_section "$1")
    if [[ -f $ini && -s $ini ]]; then
        [[ -z $(tail -c 1 "$ini") ]] || text=$'\n'$text
        text=$'\n'$text
    fi
    (umask 077 && printf '%s\n' "$text" >>"$ini") 2>/dev/null || die "Cannot write the data source into $ini"
}

make_database() {  # TESSALY-DB FILE
    local ini status=0
    ini=$(mktemp)
    data_source_section "$2" >"$ini"
    ODBCINI=$ini "$1" create || status=$?
    rm -f "$ini"
    return "$status"
}

# What an older program made becomes what these programs work with. Where that fails, the console goes on with what
# it finds: it needs no more than the columns that it names. A large archive may take a while: the tool shows how far it
# is, and what it did; that there was nothing to do is not worth a word.
upgrade_database() {  # TESSALY-DB
    (
        set -o pipefail
        "$1" upgrade | { grep --line-buffered -v ', nothing to do$' || true; }
    ) || echo "The upgrade of the data source $dsn did not come to its end; the next start tries again." >&2
}

# Makes what is missing at the first use. A data source that is there is the user's own affair: where its
# database is missing, perhaps because its disk is, no empty one takes the place.
ensure_data_source() {  # TESSALY-DB
    local file
    odbc_entry -d SQLite3 >/dev/null ||
        die "ODBC has no driver SQLite3; the package libsqliteodbc registers it in /etc/odbcinst.ini"
    if odbc_entry -s "$dsn" >/dev/null; then
        file=$(data_source_file)
        [[ -z $file || -e $file ]] ||
            die "$file, the database of the data source $dsn, is not there; '$1 create' would make a new one"
        upgrade_database "$1"
        return 0
    fi
    file=${XDG_DATA_HOME:-$HOME/.local/share}/tessaly/DicomDB.mdb
    # The database first: a first use that is broken off begins anew.
    [[ -e $file ]] || make_database "$1" "$file" || exit 1
    append_data_source "$file"
    upgrade_database "$1"
}
