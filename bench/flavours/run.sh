#!/usr/bin/env bash
# The Qt 6 flavour against the Qt 5 one on the same inputs: text import (ASCII and GB2312, the
# line rule and CSV), spreadsheet import and CSV export, runs alternating between the flavours so
# that a busy machine slows both alike; the outputs of the two are compared. Prints the medians of wall and CPU time and Qt 6 / Qt 5.
#   LINES=... ROWS=... RUNS=... bash bench/flavours/run.sh
source "$(dirname "${BASH_SOURCE[0]}")/../common.sh"

LINES=${LINES:-1000000}
ROWS=${ROWS:-100000}
RUNS=${RUNS:-5}
TARGETS=(zq_bench_import xlsx_bench_write xlsx_bench_import bench_export)
declare -A tree
for qt in 5 6; do
    BENCH_QT=$qt
    BENCH_BUILD=$BENCH_ROOT/build-bench$([ $qt = 5 ] || echo "-qt$qt")
    bench_build "${TARGETS[@]}"
    tree[$qt]=$BENCH_BUILD
done

python3 "$BENCH_ROOT/bench/import/generate.py" ascii "$BENCH_WORK/ascii.txt" "$LINES"
python3 "$BENCH_ROOT/bench/import/generate.py" gb2312 "$BENCH_WORK/gb2312.txt" "$LINES"
"${tree[5]}/bench/xlsx/xlsx_bench_write" "$BENCH_WORK/sheet.xlsx" "$ROWS"
columns=$(printf 'column%d TEXT, ' $(seq 1 10))
sqlite3 "$BENCH_WORK/export.db" "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, ${columns%, });
WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < $LINES)
INSERT INTO table1 (column1, column2, column3, column4, column5, column6, column7, column8,
    column9, column10) SELECT printf('name%d', x), hex(randomblob(6)), x * 7 % 1000, '西安',
    'plain text cell', x || '.' || (x % 97), 'abc', printf('row %d', x), '', NULL FROM c;"
echo "load $(cut -d' ' -f1-3 /proc/loadavg); $RUNS runs each, alternating"

# measure QT NAME: one run of workload NAME on flavour QT; prints "wall cpu".
measure()
{
    local b=${tree[$1]} out=$BENCH_WORK/out$1
    rm -f "$out.db" "$out.csv"
    local args
    case $2 in
        ascii | gb2312) args=("$b/bench/import/zq_bench_import" "$BENCH_WORK/$2.txt" "$out.db") ;;
        ascii-csv) args=("$b/bench/import/zq_bench_import" --csv "$BENCH_WORK/ascii.txt" "$out.db") ;;
        xlsx) args=("$b/bench/xlsx/xlsx_bench_import" "$BENCH_WORK/sheet.xlsx" "$out.db") ;;
        export) args=("$b/bench/export/bench_export" "$BENCH_WORK/export.db" "$out.csv" "$BENCH_WORK/rss") ;;
    esac
    /usr/bin/time -f '%e %U %S' -o "$BENCH_WORK/time" "${args[@]}" >/dev/null 2>&1
    awk '{ printf "%.2f %.2f\n", $1, $2 + $3 }' "$BENCH_WORK/time"
}

for name in ascii gb2312 ascii-csv xlsx export; do
    declare -a wall5=() cpu5=() wall6=() cpu6=()
    for _ in $(seq "$RUNS"); do
        read -r w c < <(measure 5 $name) && wall5+=("$w") && cpu5+=("$c")
        read -r w c < <(measure 6 $name) && wall6+=("$w") && cpu6+=("$c")
    done
    if [ $name = export ]; then
        cmp -s "$BENCH_WORK/out5.csv" "$BENCH_WORK/out6.csv" || echo "  export: the flavours wrote different files"
    else
        cmp -s <(sqlite3 "$BENCH_WORK/out5.db" .dump) <(sqlite3 "$BENCH_WORK/out6.db" .dump) \
            || echo "  $name: the flavours wrote different databases"
    fi
    w5=$(bench_median "${wall5[@]}"); w6=$(bench_median "${wall6[@]}")
    c5=$(bench_median "${cpu5[@]}"); c6=$(bench_median "${cpu6[@]}")
    printf '%-10s Qt 5 %6s s wall %6s s cpu | Qt 6 %6s s wall %6s s cpu | Qt 6 / Qt 5: wall %s, cpu %s\n' \
        "$name" "$w5" "$c5" "$w6" "$c6" "$(bench_ratio "$w6" "$w5")" "$(bench_ratio "$c6" "$c5")"
done
echo "target: Qt 6 / Qt 5 <= 1.10"
rm -rf "$BENCH_WORK"
