#!/usr/bin/env bash
# Builds and runs the whole suite twice: a normal build, then one with address and
# undefined-behaviour sanitizers. Build trees go to build/ and build-asan/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

jobs=$(nproc)

echo "== normal build"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
(cd build && ctest --output-on-failure -j "$jobs")

echo "== sanitizer build"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DZQDATABASE_SANITIZE=ON \
    -DZQDATABASE_BUILD_BENCH=OFF >/dev/null
cmake --build build-asan -j "$jobs"
(cd build-asan && ctest --output-on-failure -j "$jobs")
