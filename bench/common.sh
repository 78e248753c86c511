# Sourced by bench/<name>/run.sh: a release build of the drivers and timing helpers.
# QT=6 measures the Qt 6 flavour (default 5), in a build tree of its own.
set -euo pipefail

BENCH_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BENCH_QT=${QT:-5}
BENCH_SUFFIX=""
[ "$BENCH_QT" = 5 ] || BENCH_SUFFIX="-qt$BENCH_QT"
BENCH_BUILD=${ZQ_BENCH_BUILD:-$BENCH_ROOT/build-bench$BENCH_SUFFIX}
BENCH_WORK=${ZQ_BENCH_WORK:-$(mktemp -d /tmp/zqbench.XXXXXX)}
export QT_QPA_PLATFORM=offscreen
export QT_LOGGING_RULES="zq.console.info=false"

# bench_build TARGET...: configures a release tree once and builds the named drivers.
bench_build()
{
    bash "$BENCH_ROOT/scripts/deps.sh"
    cmake -S "$BENCH_ROOT" -B "$BENCH_BUILD" -DCMAKE_BUILD_TYPE=Release \
        -DZQDATABASE_QT_MAJOR_VERSION="$BENCH_QT" -DZQDATABASE_BUILD_TESTS=OFF -DZQDATABASE_BUILD_TOOLS=OFF -DZQDATABASE_BUILD_BENCH=ON >/dev/null
    cmake --build "$BENCH_BUILD" -j "$(nproc)" --target "$@" >/dev/null
}

# bench_time CMD...: runs the command and prints its wall time in seconds.
bench_time()
{
    local start=$EPOCHREALTIME
    "$@" >/dev/null
    local end=$EPOCHREALTIME
    awk -v s="$start" -v e="$end" 'BEGIN { printf "%.3f\n", e - s }'
}

# bench_median VALUE...: the median of the values.
bench_median()
{
    printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else printf "%.3f\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# bench_ratio A B: A / B with three decimals.
bench_ratio()
{
    awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f\n", (b > 0 ? a / b : 0) }'
}
