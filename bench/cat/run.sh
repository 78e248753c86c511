#!/usr/bin/env bash
# zqdb cat --csv of a 1,000,000-row database spread over 20 tables of 50,000 rows (id + 5 text
# columns, the importer's layout) against the sqlite3 shell printing the same rows as CSV, median
# of RUNS runs each. ROWS (a multiple of 50,000) and RUNS can be overridden.
source "$(dirname "$0")/../common.sh"

ROWS=${ROWS:-1000000}
RUNS=${RUNS:-5}
TABLES=$((ROWS / 50000))

# zqdb is a tool, not a bench driver: a release tree of its own.
bash "$BENCH_ROOT/scripts/deps.sh"
cmake -S "$BENCH_ROOT" -B "$BENCH_BUILD-zqdb" -DCMAKE_BUILD_TYPE=Release \
    -DZQDATABASE_QT_MAJOR_VERSION="$BENCH_QT" -DZQDATABASE_BUILD_TESTS=OFF -DZQDATABASE_BUILD_TOOLS=ON -DZQDATABASE_BUILD_BENCH=OFF >/dev/null
cmake --build "$BENCH_BUILD-zqdb" -j "$(nproc)" --target zqdb >/dev/null
zqdb="$BENCH_BUILD-zqdb/tools/zqdb/zqdb$BENCH_SUFFIX"

db="$BENCH_WORK/cat.db"
rm -f "$db"
for t in $(seq 1 "$TABLES"); do
    cat <<SQL
CREATE TABLE table$t (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT , column2 TEXT ,
    column3 TEXT , column4 TEXT , column5 TEXT  );
WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < 50000)
INSERT INTO table$t (column1, column2, column3, column4, column5)
SELECT printf('name%d', x + $t * 50000), hex(randomblob(6)), 'value-' || (x * 7 % 1000),
    'a,b "q" ' || x, printf('%08d', x) FROM c;
SQL
done | sqlite3 "$db"
selects=""
for t in $(seq 1 "$TABLES"); do
    selects+="SELECT column1, column2, column3, column4, column5 FROM table$t;"
done
echo "database: $ROWS rows in $TABLES tables x 6 columns, $(du -m "$db" | cut -f1) MB"

# Same rows either way: zqdb's CSV without its header line against the shell's.
"$zqdb" cat "$db" --csv --count all | tail -n +2 >"$BENCH_WORK/ours.csv"
sqlite3 -csv "$db" "$selects" | tr -d '\r' >"$BENCH_WORK/shell.csv"
if cmp -s "$BENCH_WORK/ours.csv" "$BENCH_WORK/shell.csv"; then
    echo "output: identical rows ($(wc -l <"$BENCH_WORK/ours.csv") lines)"
else
    echo "output: DIFFERENT from the shell's" >&2
    exit 1
fi

ours=()
shell=()
for _ in $(seq "$RUNS"); do
    ours+=("$(bench_time "$zqdb" cat "$db" --csv --count all)")
    shell+=("$(bench_time sqlite3 -csv "$db" "$selects")")
done

ours_median=$(bench_median "${ours[@]}")
shell_median=$(bench_median "${shell[@]}")
echo "zqdb cat: ${ours_median} s (runs: ${ours[*]})"
echo "shell:    ${shell_median} s (runs: ${shell[*]})"
echo "ratio: $(bench_ratio "$ours_median" "$shell_median") (target <= 2)"
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"

rm -rf "$BENCH_WORK"
