#!/bin/bash
# The data source and the database of the first use.
. "$(dirname "$0")/support.sh"

ensure() (
    . "$packaging/setup.sh"
    . "$packaging/data-source.sh"
    ensure_data_source "$programs/tessaly-db"
)
section() {
    printf '[DicomFDB]\nDescription=Configuration of the DICOM server\nDriver=SQLite3\nDatabase=%s\n' "$1"
    printf 'StepAPI=1\nJournalMode=WAL\nSyncPragma=NORMAL\nTimeout=5000\nNoCreat=1\n'
}
# It cannot be upgraded, and the console goes on with it.
expect_no_upgrade() {
    local last
    last=$(tail -n 1 "$scratch/err")
    [[ $status == 0 &&
        $last == 'The upgrade of the data source DicomFDB did not come to its end; the next start tries again.' ]] ||
        fail "exit status $status, $last"
}
start_anew() {
    rm -rf "$HOME"
    mkdir "$HOME"
}

# The first use makes both, for their owner's eyes alone, and tells the password once.
run ensure
expect_success
grep -qE '^Password of admin: [a-zA-Z2-9]{16}$' "$scratch/out" || fail "no password"
cmp <(section "$database") "$ODBCINI"
[[ $(stat -c %a "$ODBCINI" "$database" "$(dirname "$database")") == $'600\n600\n700' ]] || fail "modes"
run "$programs/tessaly-db" check
expect_success
[[ -z $(ls -A "$TMPDIR") ]] || fail "leaves temporary files"

# The next use changes nothing and says nothing.
cp -p "$ODBCINI" "$scratch/before.ini"
cp -p "$database" "$scratch/before.mdb"
run ensure
expect_success
[[ ! -s $scratch/out ]] || fail "said something"
cmp "$ODBCINI" "$scratch/before.ini"
cmp "$database" "$scratch/before.mdb"

# Other entries stay byte for byte, and so does the file's mode.
for entries in $'[Other]\nDriver = x\n' $'; a remark\r\n[Other]\nDriver=x' $'\n\n'; do
    start_anew
    printf '%s' "$entries" >"$ODBCINI"
    chmod 640 "$ODBCINI"
    run ensure
    expect_success
    cmp <(printf '%s' "$entries") <(head -c ${#entries} "$ODBCINI")
    cmp <(section "$database") <(tail -n 9 "$ODBCINI")
    [[ $(stat -c %a "$ODBCINI") == 640 ]] || fail "mode"
    run "$programs/tessaly-db" check
    expect_success
done

# A folder for data that the user chose.
start_anew
XDG_DATA_HOME="$HOME/my data" run ensure
expect_success
cmp <(section "$HOME/my data/tessaly/DicomDB.mdb") "$ODBCINI"
[[ -e "$HOME/my data/tessaly/DicomDB.mdb" ]] || fail "no database"

# A database from before, whose data source is gone, is used again.
rm "$ODBCINI"
mkdir -p "$(dirname "$database")"
cp -p "$scratch/before.mdb" "$database"
run ensure
expect_success
[[ ! -s $scratch/out ]] || fail "said something"
cmp "$database" "$scratch/before.mdb"

# One that an older program made is upgraded, and said so once.
sqlite3 "$database" 'DROP TABLE SchemaVersion; DROP INDEX ImageBySeries'
run ensure
expect_success
[[ $(tail -n 1 "$scratch/out") == 'DicomFDB: version '[0-9]* ]] || fail "no upgrade"
grep -q '^Older rows: filled 0 patients and 0 images$' "$scratch/out" || fail "no word of the older rows"
run "$programs/tessaly-db" check
expect_success
run ensure
expect_success
[[ ! -s $scratch/out ]] || fail "upgrades twice"

# One of a newer program is said to be so, and left alone.
sqlite3 "$database" 'UPDATE SchemaVersion SET Version = 99'
run ensure
expect_no_upgrade
grep -q 'version 99, newer' "$scratch/err" || fail "no word of a newer one"
[[ $(sqlite3 "$database" 'SELECT Version FROM SchemaVersion') == 99 ]] || fail "changes a newer one"

# One whose tables are upgraded, but whose older rows cannot be filled: it is not as it was, and nobody says so.
start_anew
run ensure
expect_success
sqlite3 "$database" "DROP TABLE SchemaVersion; INSERT INTO Patient (ID, PatientID, Name) VALUES (1, 'P', 'N');
    CREATE TRIGGER refusal BEFORE UPDATE ON Patient BEGIN SELECT RAISE(ABORT, 'the disk of the test refuses'); END"
run ensure
expect_no_upgrade
grep -q 'the disk of the test refuses' "$scratch/err" || fail "no reason"
[[ -n $(sqlite3 "$database" 'SELECT Version FROM SchemaVersion') ]] || fail "no upgrade of the tables"
sqlite3 "$database" 'DROP TRIGGER refusal'
run ensure
expect_success
grep -q '^Older rows: filled 1 patients and 0 images$' "$scratch/out" || fail "does not go on"

# A data source whose database is gone may have its disk somewhere else: nothing takes its place.
start_anew
mkdir "$HOME/unmounted"
section "$HOME/unmounted/DicomDB.mdb" >"$ODBCINI"
run ensure
expect_one_line "*: $HOME/unmounted/DicomDB.mdb, the database of the data source DicomFDB, is not there; *"
[[ -z $(ls -A "$HOME/unmounted") ]] || fail "makes a database"

# A data source that is no file, or the whole system's, is used as it is.
printf '[DicomFDB]\nDriver=Other\nDatabase=dicom\n' >"$ODBCINI"
cp "$ODBCINI" "$scratch/before.ini"
run ensure
expect_no_upgrade
cmp "$ODBCINI" "$scratch/before.ini"
rm "$ODBCINI"
mkdir "$scratch/system"
cp /etc/odbcinst.ini "$scratch/system/"
mv "$scratch/before.ini" "$scratch/system/odbc.ini"
ODBCSYSINI=$scratch/system run ensure
expect_no_upgrade
[[ ! -s $ODBCINI ]] || fail "hides the system's data source"

# What cannot be done is said in a line, and leaves nothing half done.
start_anew
rm "$scratch/system/"*
ODBCSYSINI=$scratch/system run ensure
expect_one_line '*: ODBC has no driver SQLite3; *'
[[ -z $(ls -A "$HOME") ]] || fail "leaves something"
XDG_DATA_HOME=/dev/null run ensure
expect_one_line 'tessaly-db: *'
[[ ! -s $ODBCINI ]] || fail "leaves a data source"
rm -f "$ODBCINI"
mkdir "$ODBCINI"
run ensure
expect_one_line "*: Cannot write the data source into $ODBCINI"
