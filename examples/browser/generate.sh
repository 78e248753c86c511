#!/usr/bin/env bash
# Writes a database in the importers' layout with the sqlite3 shell: TABLES tables table1,
# table2, ... of ROWS rows, each an id and COLUMNS text columns; the cell of record g
# (counted from 1 over all tables) and column c reads "r<g>c<c>".
#   bash generate.sh DATABASE [TABLES] [ROWS] [COLUMNS]
set -euo pipefail
database=$1
tables=${2:-20}
rows=${3:-50000}
columns=${4:-10}

rm -f "$database"
{
    echo "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN;"
    definitions="id INTEGER PRIMARY KEY AUTOINCREMENT"
    names=""
    for ((c = 1; c <= columns; c++)); do
        definitions+=", column$c TEXT"
        names+="${names:+, }column$c"
    done
    for ((t = 1; t <= tables; t++)); do
        values=""
        for ((c = 1; c <= columns; c++)); do
            values+="${values:+, }'r' || (i + $(((t - 1) * rows + 1))) || 'c$c'"
        done
        echo "CREATE TABLE table$t ($definitions);"
        echo "WITH RECURSIVE r(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM r WHERE i < $((rows - 1)))"
        echo "INSERT INTO table$t ($names) SELECT $values FROM r;"
    done
    echo "COMMIT;"
} | sqlite3 -batch "$database" >/dev/null
