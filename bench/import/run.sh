#!/usr/bin/env bash
# Imports a 1,000,000-line, 10-field file (ASCII, then GB2312) with DatabaseGenerator, with
# CsvImporter (RFC 4180, automatic encoding), with the sqlite3 shell's plain .import --csv into a
# plain 10-column table, and with a C program on SQLite's API writing the generated layout (one
# row and 50 rows per INSERT), alternating runs; prints the medians, the ratios to the shell and
# our peak memory.
#   LINES=... RUNS=... bash bench/import/run.sh
source "$(dirname "${BASH_SOURCE[0]}")/../common.sh"

LINES=${LINES:-1000000}
RUNS=${RUNS:-5}
HERE=$BENCH_ROOT/bench/import
bench_build zq_bench_import zq_bench_cwriter
DRIVER=$BENCH_BUILD/bench/import/zq_bench_import
CWRITER=$BENCH_BUILD/bench/import/zq_bench_cwriter
PLAIN_TABLE="CREATE TABLE t ($(seq -s, -f 'column%g TEXT' 1 10));"

run_ours()
{
    rm -f "$BENCH_WORK/ours.db"
    bench_time "$DRIVER" "$1" "$BENCH_WORK/ours.db" 2>"$BENCH_WORK/ours.err"
}

# CsvImporter: RFC 4180, encoding detected (UTF-8 for ASCII, GB18030 for the GB2312 file).
run_csv()
{
    rm -f "$BENCH_WORK/csv.db"
    bench_time "$DRIVER" --csv "$1" "$BENCH_WORK/csv.db" 2>"$BENCH_WORK/csv.err"
}

# The shell stores the bytes as they are (GB2312 undecoded) into a table without AUTOINCREMENT.
run_shell()
{
    rm -f "$BENCH_WORK/shell.db"
    sqlite3 "$BENCH_WORK/shell.db" "$PLAIN_TABLE"
    bench_time sqlite3 "$BENCH_WORK/shell.db" ".import --csv $1 t"
}

run_cwriter()
{
    rm -f "$BENCH_WORK/c.db"
    bench_time "$CWRITER" "$1" "$BENCH_WORK/c.db" "$2"
}

bench_file()
{
    local label=$1 kind=$2
    local input="$BENCH_WORK/$kind.txt"
    python3 "$HERE/generate.py" "$kind" "$input" "$LINES"
    local ours=() csv=() shell=() c1=() c50=()
    for _ in $(seq 1 "$RUNS"); do
        ours+=("$(run_ours "$input")")
        csv+=("$(run_csv "$input")")
        shell+=("$(run_shell "$input")")
        c1+=("$(run_cwriter "$input" 1)")
        c50+=("$(run_cwriter "$input" 50)")
    done
    local rows
    rows=$(sqlite3 "$BENCH_WORK/ours.db" "SELECT (SELECT COUNT(*) FROM sqlite_master WHERE name LIKE 'table%'), (SELECT seq FROM sqlite_sequence WHERE name = 'table1')")
    local m_ours m_csv m_shell m_c1 m_c50
    m_ours=$(bench_median "${ours[@]}")
    m_csv=$(bench_median "${csv[@]}")
    m_shell=$(bench_median "${shell[@]}")
    m_c1=$(bench_median "${c1[@]}")
    m_c50=$(bench_median "${c50[@]}")
    echo "$label ($(du -m "$input" | cut -f1) MB, $LINES lines; tables|ids in table1: $rows; load $(cut -d' ' -f1-3 /proc/loadavg))"
    printf '  %-26s %s s -> median %s s, ratio to shell %s\n' \
        "zqdatabase:" "${ours[*]}" "$m_ours" "$(bench_ratio "$m_ours" "$m_shell")" \
        "CsvImporter, RFC 4180:" "${csv[*]}" "$m_csv" "$(bench_ratio "$m_csv" "$m_shell")" \
        "sqlite3 .import --csv:" "${shell[*]}" "$m_shell" "1.000" \
        "C API, 1 row/INSERT:" "${c1[*]}" "$m_c1" "$(bench_ratio "$m_c1" "$m_shell")" \
        "C API, 50 rows/INSERT:" "${c50[*]}" "$m_c50" "$(bench_ratio "$m_c50" "$m_shell")"
    echo "  zqdatabase / C API 50 rows: $(bench_ratio "$m_ours" "$m_c50")"
    echo "  RFC 4180 / line rule: $(bench_ratio "$m_csv" "$m_ours") (target <= 1.15)"
    echo "  peak memory (zqdatabase): $(awk '/maxrss_kb/ { printf "%.1f MB", $2 / 1024 }' "$BENCH_WORK/ours.err")"
    grep -v maxrss_kb "$BENCH_WORK/ours.err" || true
    rm -f "$input"
}

bench_file "ASCII" ascii
bench_file "GB2312" gb2312
rm -rf "$BENCH_WORK"
