#!/usr/bin/env bash
# Imports a 100,000-row, 10-column spreadsheet with our library and, in the same run, with the
# pipeline a user would script instead: xlsx2csv piped into the sqlite3 shell's .import.
source "$(dirname "${BASH_SOURCE[0]}")/../common.sh"

ROWS=${ROWS:-100000}
RUNS=${RUNS:-3}

bench_build xlsx_bench_write xlsx_bench_import
sheet=$BENCH_WORK/sheet.xlsx
"$BENCH_BUILD/bench/xlsx/xlsx_bench_write" "$sheet" "$ROWS"
echo "input: $ROWS rows x 10 columns, $(stat -c %s "$sheet") bytes"

ours=()
theirs=()
for run in $(seq "$RUNS"); do
    rm -f "$BENCH_WORK/ours.db" "$BENCH_WORK/theirs.db"
    ours+=("$(bench_time "$BENCH_BUILD/bench/xlsx/xlsx_bench_import" "$sheet" "$BENCH_WORK/ours.db")")
    theirs+=("$(bench_time bash -c "xlsx2csv '$sheet' | sqlite3 '$BENCH_WORK/theirs.db' '.import --csv /dev/stdin table1'")")
done

# Both must hold every row: ours all of them in 50,000-row tables, the shell's
# minus the header it takes for column names.
our_rows=$(sqlite3 "$BENCH_WORK/ours.db" "SELECT (SELECT count(*) FROM table1) + (SELECT count(*) FROM table2);")
their_rows=$(sqlite3 "$BENCH_WORK/theirs.db" "SELECT count(*) FROM table1;")
echo "rows: ours $our_rows, xlsx2csv|sqlite3 $their_rows (+1 header)"

peak=$("$BENCH_BUILD/bench/xlsx/xlsx_bench_import" "$sheet" "$BENCH_WORK/peak.db" \
    | awk '/peak_rss_kb/ { printf "%.1f", $2 / 1024 }')
our_time=$(bench_median "${ours[@]}")
their_time=$(bench_median "${theirs[@]}")
echo "ours:            ${our_time} s (median of $RUNS)"
echo "xlsx2csv|sqlite3: ${their_time} s (median of $RUNS)"
echo "ratio:           $(bench_ratio "$our_time" "$their_time") (target <= 0.333)"
echo "peak memory:     ${peak} MB (target < 250)"
rm -rf "$BENCH_WORK"
