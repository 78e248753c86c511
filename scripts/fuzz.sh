#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, address and undefined-behaviour sanitizers, and
# runs each for a bounded time (default 60 s) on a scratch copy of its corpus.
# Usage: [QT=6] scripts/fuzz.sh [seconds-per-target]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
qt=${QT:-5}
build=build-fuzz
[ "$qt" = 5 ] || build=build-fuzz-qt$qt
bash scripts/deps.sh

CC=clang CXX=clang++ cmake -S . -B $build -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZQDATABASE_QT_MAJOR_VERSION="$qt" -DZQDATABASE_FUZZ=ON -DZQDATABASE_SANITIZE=ON -DZQDATABASE_BUILD_TESTS=OFF \
    -DZQDATABASE_BUILD_TOOLS=OFF -DZQDATABASE_BUILD_BENCH=OFF -DZQDATABASE_INSTALL=OFF >/dev/null
cmake --build $build -j "$(nproc)" >/dev/null

export QT_QPA_PLATFORM=offscreen
export QT_LOGGING_RULES="*.debug=false;*.warning=false;zq.console.info=false"
work=$(mktemp -d /tmp/zqfuzz.XXXXXX)
trap 'rm -rf "$work"' EXIT

status=0
for source in fuzz/fuzz_*.cpp; do
    target=$(basename "$source" .cpp)
    target=${target#fuzz_}
    mkdir -p "$work/$target"
    cp -r fuzz/corpus/$target/. "$work/$target/"
    echo "== fuzz_$target for ${seconds}s"
    if $build/fuzz/fuzz_$target "$work/$target" -max_total_time="$seconds" \
        -timeout=20 -rss_limit_mb=2048 -max_len=1048576 -print_final_stats=1 \
        -artifact_prefix="$work/crash-$target-" >"$work/$target.log" 2>&1; then
        grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|Done )' "$work/$target.log" || true
    else
        status=1
        echo "fuzz_$target FAILED:"
        tail -n 60 "$work/$target.log"
        mkdir -p fuzz-out && cp "$work"/crash-$target-* fuzz-out/ 2>/dev/null || true
    fi
done
exit $status
