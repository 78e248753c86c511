#!/usr/bin/env bash
# One screen of 30 rows x 10 columns at depths of a 1,000,000-row database of 20 tables of
# 50,000 rows: DatabaseTableModel (cold: a new model per screen), one recordValue per cell, and
# the sqlite3 shell running the one SELECT ... LIMIT 30 OFFSET that fetches the same rows.
#   ROUNDS=7 bash bench/model/run.sh
source "$(dirname "$0")/../common.sh"

ROUNDS=${ROUNDS:-7}
# First rows of the screens: table starts and ends, a screen across two tables, the last one.
DEPTHS=(0 25000 49970 49985 500000 900000 949985 999970)

# A work directory made for this run (about 110 MB) goes with it.
[ -z "${ZQ_BENCH_WORK:-}" ] && trap 'rm -rf "$BENCH_WORK"' EXIT

bench_build bench_model
DRIVER="$BENCH_BUILD/bench/model/bench_model"
CATALOGUE="$BENCH_WORK/system"
DB="$CATALOGUE/screens.db"
mkdir -p "$CATALOGUE"
[ -f "$DB" ] || bash "$BENCH_ROOT/examples/browser/generate.sh" "$DB" 20 50000 10

# The shell's own time per statement (.timer), the rows of a screen in one table at a time.
columns=$(seq -f 'column%g' 1 10 | paste -sd,)
{
    echo ".timer on"
    for ((round = 0; round < ROUNDS; round++)); do
        for depth in "${DEPTHS[@]}"; do
            offset=$((depth % 50000)) table=$((depth / 50000 + 1)) rows=$((50000 - depth % 50000))
            [ "$rows" -gt 30 ] && rows=30
            echo "SELECT $columns FROM table$table LIMIT $rows OFFSET $offset;"
            [ "$rows" -lt 30 ] && [ "$table" -lt 20 ] && echo "SELECT $columns FROM table$((table + 1)) LIMIT $((30 - rows));"
            echo "SELECT 'end', $depth;"
        done
    done
} > "$BENCH_WORK/screens.sql"
shell_ms=$(sqlite3 -batch "$DB" < "$BENCH_WORK/screens.sql" | awk '
    /^Run Time: real/ { ms += $4 * 1000; next }
    /^end\|/ { split($0, f, "|"); t[f[2]] = t[f[2]] " " ms; ms = 0 }
    END { for (d in t) print d, t[d] }')

"$DRIVER" "$CATALOGUE" screens "$ROUNDS" "${DEPTHS[@]}" > "$BENCH_WORK/ours.out"

echo "model: a screen of 30 x 10 cells of $((20 * 50000)) rows, median of $ROUNDS rounds (ms)"
printf '  %-8s %10s %14s %20s\n' "row" "model" "recordValue" "shell (1 ms steps)"
while read -r depth model handler; do
    [ "$depth" = maxrss_kb ] && { echo "  peak memory (driver): $model KB"; continue; }
    shell=$(echo "$shell_ms" | awk -v d="$depth" '$1 == d { $1 = ""; print }' | tr ' ' '\n' | sed '/^$/d')
    printf '  %-8s %10s %14s %20s\n' "$depth" "$model" "$handler" "$(bench_median $shell)"
done < "$BENCH_WORK/ours.out"
