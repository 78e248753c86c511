#!/usr/bin/env bash
# Imports a ROWS-row, WIDTH-column spreadsheet (default 100,000 x 10) with our library and,
# alternating in the same run, with the pipeline a user would script instead (xlsx2csv piped
# into the sqlite3 shell's .import) and with a C program on SQLite's API writing the generated
# layout from the same rows (one and 50 rows per INSERT; the sheet is converted to CSV for it
# beforehand, untimed). ROWS may list several sizes; each gets its times and our peak memory.
#   ROWS="100000 1048576" WIDTH=50 RUNS=... bash bench/xlsx/run.sh
source "$(dirname "${BASH_SOURCE[0]}")/../common.sh"

ROWS=${ROWS:-100000}
WIDTH=${WIDTH:-10}
RUNS=${RUNS:-3}

bench_build xlsx_bench_write xlsx_bench_import zq_bench_cwriter
CWRITER=$BENCH_BUILD/bench/import/zq_bench_cwriter
peaks=()
for rows in $ROWS; do
    sheet=$BENCH_WORK/sheet.xlsx
    "$BENCH_BUILD/bench/xlsx/xlsx_bench_write" "$sheet" "$rows" "$WIDTH"
    xlsx2csv "$sheet" > "$BENCH_WORK/sheet.csv"
    echo "input: $rows rows x $WIDTH columns, $(stat -c %s "$sheet") bytes; load $(cut -d' ' -f1-3 /proc/loadavg)"

    ours=() theirs=() c1=() c50=()
    for run in $(seq "$RUNS"); do
        rm -f "$BENCH_WORK/ours.db" "$BENCH_WORK/theirs.db" "$BENCH_WORK/c.db"
        ours+=("$(bench_time "$BENCH_BUILD/bench/xlsx/xlsx_bench_import" "$sheet" "$BENCH_WORK/ours.db")")
        theirs+=("$(bench_time bash -c "xlsx2csv '$sheet' | sqlite3 '$BENCH_WORK/theirs.db' '.import --csv /dev/stdin t'")")
        c1+=("$(bench_time "$CWRITER" "$BENCH_WORK/sheet.csv" "$BENCH_WORK/c.db" 1)")
        rm -f "$BENCH_WORK/c.db"
        c50+=("$(bench_time "$CWRITER" "$BENCH_WORK/sheet.csv" "$BENCH_WORK/c.db" 50)")
    done

    # Ours holds every row in 50,000-row tables; the shell's takes the first row for column names.
    our_rows=$(sqlite3 "$BENCH_WORK/ours.db" "SELECT sum(n) FROM (SELECT seq AS n FROM sqlite_sequence);")
    their_rows=$(sqlite3 "$BENCH_WORK/theirs.db" "SELECT count(*) FROM t;")
    echo "rows: ours $our_rows, xlsx2csv|sqlite3 $their_rows (+1 header)"

    rm -f "$BENCH_WORK/peak.db"
    peak=$("$BENCH_BUILD/bench/xlsx/xlsx_bench_import" "$sheet" "$BENCH_WORK/peak.db" \
        | awk '/peak_rss_kb/ { printf "%.1f", $2 / 1024 }')
    m_ours=$(bench_median "${ours[@]}")
    m_theirs=$(bench_median "${theirs[@]}")
    m_c1=$(bench_median "${c1[@]}")
    m_c50=$(bench_median "${c50[@]}")
    printf '%-24s %s s -> median %s s, ratio to the pipeline %s\n' \
        "zqdatabase:" "${ours[*]}" "$m_ours" "$(bench_ratio "$m_ours" "$m_theirs")" \
        "xlsx2csv|sqlite3:" "${theirs[*]}" "$m_theirs" "1.000" \
        "C API, 1 row/INSERT:" "${c1[*]}" "$m_c1" "$(bench_ratio "$m_c1" "$m_theirs")" \
        "C API, 50 rows/INSERT:" "${c50[*]}" "$m_c50" "$(bench_ratio "$m_c50" "$m_theirs")"
    echo "peak memory (zqdatabase, $rows x $WIDTH): ${peak} MB"
    peaks+=("$rows x $WIDTH: $peak MB")
    rm -f "$BENCH_WORK"/*.db "$BENCH_WORK/sheet.csv" "$sheet"
done
echo "target: zqdatabase <= 0.15 x the pipeline (0.2 at 700,000 x 50); peak memory flat in the rows"
printf 'peak memory: %s\n' "${peaks[@]}"
rm -rf "$BENCH_WORK"
