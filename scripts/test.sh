#!/usr/bin/env bash
# Builds and runs the whole suite twice, a normal build and one with address and
# undefined-behaviour sanitizers, then runs each fuzz target for a bounded time.
# Build trees go to build/, build-asan/ and build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

jobs=$(nproc)

echo "== normal build"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
# The API reference; any doxygen warning fails it.
cmake --build build --target docs
(cd build && ctest --output-on-failure -j "$jobs")

echo "== sanitizer build"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DZQDATABASE_SANITIZE=ON \
    -DZQDATABASE_BUILD_BENCH=OFF >/dev/null
cmake --build build-asan -j "$jobs"
(cd build-asan && ctest --output-on-failure -j "$jobs")

fuzz_seconds=${ZQ_FUZZ_SECONDS:-60}
if [ "$fuzz_seconds" -gt 0 ]; then
    echo "== fuzzing, ${fuzz_seconds}s per target"
    bash scripts/fuzz.sh "$fuzz_seconds"
fi
