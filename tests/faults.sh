#!/usr/bin/env bash
# Imports by zqdb under faults: a full disk, a kill half-way and a read-only directory. Each must
# leave a sound database in which every batch table is whole or empty, and a failed import must
# say so in its exit code. Checked with the sqlite3 shell. Usage: faults.sh ZQDB
set -euo pipefail
zqdb=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
q() { sqlite3 -batch "$@"; }

# Prints the number of whole tables: tableN holds nothing or exactly lines (N-1)*50000 on.
whole_tables() {
    [ "$(q "$1" 'PRAGMA integrity_check;')" = ok ] || fail "$1 fails the integrity check"
    local whole=0 t
    for t in $(q "$1" "SELECT substr(name, 6) FROM sqlite_master WHERE name GLOB 'table[0-9]*';"); do
        case $(q "$1" "SELECT COUNT(*), MIN(id), MAX(id), SUM(column1 = 'k-' || (id - 1 + ($t - 1) * 50000)) FROM table$t;") in
        "0|||") ;;
        "50000|1|50000|50000") whole=$((whole + 1)) ;;
        *) fail "$1: table$t is neither whole nor empty" ;;
        esac
    done
    echo "$whole"
}

# Lines "k-N,v-N" from N = 0.
seq 0 1999999 | awk '{ print "k-" $0 ",v-" $0 }' >"$work/2m.csv"
head -n 200000 "$work/2m.csv" >"$work/200k.csv"

# A file-size limit lets the first batches in and fails a later commit.
(trap '' XFSZ; ulimit -f 2500; exec "$zqdb" import "$work/200k.csv" "$work/full.db") >/dev/null 2>&1 \
    && status=0 || status=$?
whole=$(whole_tables "$work/full.db")
[ "$status" = 1 ] && [ "$whole" -ge 1 ] && [ "$whole" -lt 4 ] || fail "full disk: exit code $status, $whole whole tables"

# Killed while the third batch is under way: the committed batches stay.
"$zqdb" import "$work/2m.csv" "$work/killed.db" >/dev/null 2>&1 &
pid=$!
for _ in $(seq 6000); do
    [ "$(q -readonly "$work/killed.db" ".timeout 5000" "SELECT COUNT(*) FROM sqlite_master WHERE name = 'table3';" 2>/dev/null)" = 1 ] && break
    sleep 0.02
done
kill -9 $pid 2>/dev/null || true
wait $pid 2>/dev/null && fail "kill: the import ended before the third batch"
whole=$(whole_tables "$work/killed.db")
[ "$whole" -ge 2 ] || fail "kill: $whole whole tables"

# A directory the importer may not write to: refused, nothing written. Root may write anyway,
# so the import runs as nobody then.
mkdir -m 555 "$work/readonly"
[ "$(id -u)" = 0 ] && as=(setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups) || as=()
"${as[@]}" "$zqdb" import "$work/200k.csv" "$work/readonly/new.db" >/dev/null 2>&1 && status=0 || status=$?
[ "$status" = 1 ] && [ -z "$(ls -A "$work/readonly")" ] || fail "read-only directory: exit code $status, files: $(ls "$work/readonly")"
