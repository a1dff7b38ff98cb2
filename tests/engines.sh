#!/bin/bash
# What an engine is stands in db/dialects and schema; no other source asks which one it has, or has words that one engine
# alone reads. Prints every line that does. Comments may name an engine, and so may tests and measurements.
cd "$(dirname "$(readlink -f "$0")")/.." || exit 1

# The compaction of a file that the user chose works on it by the library of the engine that wrote it, without a data
# source: there is no dialect to be asked.
files=$(find [!.]* -regextype egrep \( -path build -o -regex '(tests|bench|docs|schema|db/dialects)' \) -prune -o \
    -name '*.h' -print -o -name '*.cpp' -print |
    grep -vxE 'maintenance/(SqliteFile\.(h|cpp)|FileCompaction\.cpp)')

find_words() {
    awk '
BEGIN {
    names = "sqlite|postgres|psqlodbc|libpq"
    asking = "enginename|dynamic_cast<[^>]*dialect|(sqlite|postgres)dialect|schema::engine\\(\""
    words = "[^#]pragma |vacuum|sqlite_master|pg_[a-z]|regclass|set_config|on conflict|for update|for key share|skip locked"
    options = "nocreat|syncpragma|journalmode|usedeclarefetch|commlog|pqopt|stepapi"
    wrong = names "|" asking "|" words "|" options
}
{
    line = tolower($0)
    sub(/\/\/.*/, "", line)
    if (line ~ wrong) { print FILENAME ":" FNR ": " $0; found = 1 }
}
END { exit found }' "$@"
}

# A check that finds nothing has to be one that would.
sample='if (connection.dialect().engineName() == name)
if (driver.starts_with("psqlodbc"))
dynamic_cast<const db::SpecialDialect*>(&dialect)
const auto& tables = schema::engine("Abacus");
execute(connection, "PRAGMA user_version");
text += " FOR UPDATE";
text += " ON CONFLICT DO NOTHING";
connection.setConnectString("DSN=X;SyncPragma=FULL");'
if [ "$(find_words - <<<"$sample" | wc -l)" != "$(wc -l <<<"$sample")" ]; then
    echo "The check does not find what it looks for"
    exit 1
fi
find_words - <<<'// PostgreSQL reads no PRAGMA' || exit 1

# shellcheck disable=SC2086
find_words $files
