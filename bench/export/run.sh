#!/usr/bin/env bash
# CSV export of a 1,000,000-row, 11-column table (id + 10 text columns): our exporter against
# the sqlite3 shell's csv mode, median of RUNS runs each. ROWS and RUNS can be overridden.
source "$(dirname "$0")/../common.sh"

ROWS=${ROWS:-1000000}
RUNS=${RUNS:-3}

bench_build bench_export
driver="$BENCH_BUILD/bench/export/bench_export"

db="$BENCH_WORK/export.db"
rm -f "$db"
columns=$(printf 'column%d TEXT, ' $(seq 1 10))
values="printf('name%d', x), hex(randomblob(6)), 'value-' || (x * 7 % 1000), printf('%08d', x),"
values+=" 'plain text cell', lower(hex(randomblob(4))), x || '.' || (x % 97), 'abc_def_ghi',"
values+=" printf('row %d of the table', x), substr('0123456789abcdef', 1 + x % 16)"
sqlite3 "$db" "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, ${columns%, });
WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < $ROWS)
INSERT INTO table1 (column1, column2, column3, column4, column5, column6, column7, column8,
    column9, column10) SELECT $values FROM c;"
echo "database: $ROWS rows x 11 columns, $(du -m "$db" | cut -f1) MB"

ours=()
shell=()
for _ in $(seq "$RUNS"); do
    ours+=("$(bench_time "$driver" "$db" "$BENCH_WORK/ours.csv" "$BENCH_WORK/rss")")
    shell+=("$(bench_time sqlite3 "$db" ".mode csv" ".once $BENCH_WORK/shell.csv" "SELECT * FROM table1;")")
done

ours_median=$(bench_median "${ours[@]}")
shell_median=$(bench_median "${shell[@]}")
echo "output: ours $(du -m "$BENCH_WORK/ours.csv" | cut -f1) MB, shell $(du -m "$BENCH_WORK/shell.csv" | cut -f1) MB"
echo "ours:  ${ours_median} s (runs: ${ours[*]})"
echo "shell: ${shell_median} s (runs: ${shell[*]})"
echo "ratio: $(bench_ratio "$ours_median" "$shell_median") (target <= 1.5)"
echo "peak memory: $(awk '{ printf "%.1f", $1 / 1024 }' "$BENCH_WORK/rss") MB (target < 150)"

rm -rf "$BENCH_WORK"
