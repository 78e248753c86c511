#!/usr/bin/env bash
# Imports a 1,000,000-line, 10-field file (ASCII, then GB2312) with DatabaseGenerator and with
# the sqlite3 shell's .import into the same table layout, alternating runs, and prints the
# median times, their ratio and our peak memory.
#   LINES=... RUNS=... bash bench/import/run.sh
source "$(dirname "${BASH_SOURCE[0]}")/../common.sh"

LINES=${LINES:-1000000}
RUNS=${RUNS:-3}
HERE=$BENCH_ROOT/bench/import
bench_build zq_bench_import
DRIVER=$BENCH_BUILD/bench/import/zq_bench_import

# The shell imports through a view whose INSTEAD OF trigger inserts NULL as id, so it writes
# the same AUTOINCREMENT table, in one transaction, as the library does. The shell stores the
# GB2312 bytes undecoded; the library decodes them: that work is part of what is compared.
columns=""
values=""
for i in $(seq 1 10); do
    columns+="${columns:+, }column$i TEXT "
    values+=", NEW.column$i"
done
view_columns=$(seq -s, -f 'column%g' 1 10)
SHELL_SCHEMA="CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, $columns );
CREATE VIEW import_view AS SELECT $view_columns FROM table1;
CREATE TRIGGER import_row INSTEAD OF INSERT ON import_view
BEGIN INSERT INTO table1 VALUES (NULL$values); END;"

run_ours()
{
    rm -f "$BENCH_WORK/ours.db"
    bench_time "$DRIVER" "$1" "$BENCH_WORK/ours.db" 2>"$BENCH_WORK/ours.err"
}

run_shell()
{
    rm -f "$BENCH_WORK/shell.db"
    sqlite3 "$BENCH_WORK/shell.db" "$SHELL_SCHEMA"
    bench_time sqlite3 "$BENCH_WORK/shell.db" ".import --csv $1 import_view"
}

bench_file()
{
    local label=$1 kind=$2
    local input="$BENCH_WORK/$kind.txt"
    python3 "$HERE/generate.py" "$kind" "$input" "$LINES"
    local ours=() shell=()
    for _ in $(seq 1 "$RUNS"); do
        ours+=("$(run_ours "$input")")
        shell+=("$(run_shell "$input")")
    done
    local rows
    rows=$(sqlite3 "$BENCH_WORK/ours.db" "SELECT (SELECT COUNT(*) FROM sqlite_master WHERE name LIKE 'table%'), (SELECT seq FROM sqlite_sequence WHERE name = 'table1')")
    local ours_median shell_median
    ours_median=$(bench_median "${ours[@]}")
    shell_median=$(bench_median "${shell[@]}")
    echo "$label ($(du -m "$input" | cut -f1) MB, $LINES lines; tables|ids in table1: $rows)"
    echo "  zqdatabase:     ${ours[*]} s -> median $ours_median s"
    echo "  sqlite3 .import: ${shell[*]} s -> median $shell_median s"
    echo "  ratio:          $(bench_ratio "$ours_median" "$shell_median")"
    echo "  peak memory:    $(awk '/maxrss_kb/ { printf "%.1f MB", $2 / 1024 }' "$BENCH_WORK/ours.err")"
    grep -v maxrss_kb "$BENCH_WORK/ours.err" || true
    rm -f "$input"
}

bench_file "ASCII" ascii
bench_file "GB2312" gb2312
rm -f "$BENCH_WORK/ours.db" "$BENCH_WORK/shell.db" "$BENCH_WORK/ours.err"
