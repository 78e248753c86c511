#!/usr/bin/env bash
# Random cell reads over a 1,000,000-row database of 20 tables of 50,000 rows: the
# factory's shared handler (one recordValue per cell) against the sqlite3 shell running
# the same SELECT ... LIMIT 1 OFFSET statements in one process.
#   READS=2000 ROUNDS=5 SEED=20240611 bash bench/read_cells/run.sh
source "$(dirname "$0")/../common.sh"

TABLES=20
ROWS_PER_TABLE=50000
COLUMNS=10
READS=${READS:-2000}
ROUNDS=${ROUNDS:-5}
SEED=${SEED:-20240611}

# A work directory made for this run (about 130 MB) goes with it.
[ -z "${ZQ_BENCH_WORK:-}" ] && trap 'rm -rf "$BENCH_WORK"' EXIT

bench_build bench_read_cells
DRIVER="$BENCH_BUILD/bench/read_cells/bench_read_cells"
CATALOGUE="$BENCH_WORK/system"
DB="$CATALOGUE/cells.db"
mkdir -p "$CATALOGUE"

# The importers' layout; cells differ by table, row and column.
if [ ! -f "$DB" ]; then
    {
        echo "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN;"
        for ((t = 1; t <= TABLES; t++)); do
            defs="id INTEGER PRIMARY KEY AUTOINCREMENT"
            names=""
            values=""
            for ((c = 1; c <= COLUMNS; c++)); do
                defs+=", column$c TEXT "
                names+="${names:+, }column$c"
                values+="${values:+, }'v' || ($(( (t - 1) * ROWS_PER_TABLE )) + i) || '.$c'"
            done
            echo "CREATE TABLE table$t ($defs);"
            echo "WITH RECURSIVE r(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM r WHERE i < $((ROWS_PER_TABLE - 1)))"
            echo "INSERT INTO table$t ($names) SELECT $values FROM r;"
        done
        echo "COMMIT;"
    } | sqlite3 -batch "$DB" >/dev/null
fi

# The same random cells for both readers: a global row and a column index.
awk -v n="$READS" -v seed="$SEED" -v rows=$((TABLES * ROWS_PER_TABLE)) -v cols="$COLUMNS" \
    'BEGIN { srand(seed); for (i = 0; i < n; i++) printf "%d %d\n", int(rand() * rows), int(rand() * cols) }' \
    > "$BENCH_WORK/cells.txt"
awk -v per="$ROWS_PER_TABLE" \
    '{ printf "SELECT column%d FROM table%d LIMIT 1 OFFSET %d;\n", $2 + 1, int($1 / per) + 1, $1 % per }' \
    "$BENCH_WORK/cells.txt" > "$BENCH_WORK/cells.sql"

ours() { "$DRIVER" "$CATALOGUE" cells "$BENCH_WORK/cells.txt" "$ROWS_PER_TABLE"; }
shell() { sqlite3 -batch "$DB" < "$BENCH_WORK/cells.sql"; }

# Both must read the same values; this run also warms the page cache.
ours > "$BENCH_WORK/ours.out" 2>/dev/null
shell > "$BENCH_WORK/shell.out"
if ! cmp -s "$BENCH_WORK/ours.out" "$BENCH_WORK/shell.out"; then
    echo "read_cells: our values differ from the shell's" >&2
    exit 1
fi

our_times=(); read_times=(); shell_times=()
for ((round = 0; round < ROUNDS; round++)); do
    our_times+=("$(bench_time ours 2>"$BENCH_WORK/ours.err")")
    read_times+=("$(sed -n 's/.*read_s=\([0-9.]*\).*/\1/p' "$BENCH_WORK/ours.err")")
    shell_times+=("$(bench_time shell)")
done
ours_s=$(bench_median "${our_times[@]}")
read_s=$(bench_median "${read_times[@]}")
shell_s=$(bench_median "${shell_times[@]}")
rss=$(sed -n 's/.*maxrss_kb=\([0-9]*\).*/\1/p' "$BENCH_WORK/ours.err")

echo "read_cells: $READS random cells of $((TABLES * ROWS_PER_TABLE)) rows, median of $ROUNDS rounds"
echo "  ours (whole process):  ${ours_s} s   (reads alone ${read_s} s)"
echo "  sqlite3 shell:         ${shell_s} s"
echo "  ratio ours/shell:      $(bench_ratio "$ours_s" "$shell_s")   (reads alone $(bench_ratio "$read_s" "$shell_s"))"
echo "  peak memory (ours):    ${rss} KB"
