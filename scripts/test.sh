#!/usr/bin/env bash
# Builds and runs the whole suite three times: a normal Qt 5 build, one with address and
# undefined-behaviour sanitizers, and a Qt 6 build that also installs both flavours into one
# prefix and compares their results; the suites whose work runs on several threads also run
# under the thread sanitizer; then
# each fuzz target runs for a bounded time.
# Build trees go to build/, build-asan/, build-tsan/, build-qt6/ and build-fuzz/.
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

echo "== thread sanitizer build: the library and the suites whose work runs on several threads"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZQDATABASE_TSAN=ON \
    -DZQDATABASE_BUILD_TOOLS=OFF -DZQDATABASE_BUILD_EXAMPLES=OFF -DZQDATABASE_BUILD_BENCH=OFF \
    -DZQDATABASE_INSTALL=OFF >/dev/null
cmake --build build-tsan -j "$jobs" --target tst_jobs tst_databasegenerator tst_csvimporter \
    tst_xlsxtodbgenerator zqxlsxwrite
(cd build-tsan && ctest --output-on-failure -R '^tst_(jobs|databasegenerator|csvimporter|xlsxtodbgenerator)$')

echo "== Qt 6 build, and both flavours compared"
cmake -S . -B build-qt6 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZQDATABASE_QT_MAJOR_VERSION=6 \
    -DZQDATABASE_OTHER_FLAVOUR_BUILD="$PWD/build" >/dev/null
cmake --build build-qt6 -j "$jobs"
cmake --build build-qt6 --target docs
(cd build-qt6 && ctest --output-on-failure -j "$jobs")

fuzz_seconds=${ZQ_FUZZ_SECONDS:-60}
if [ "$fuzz_seconds" -gt 0 ]; then
    echo "== fuzzing, ${fuzz_seconds}s per target"
    bash scripts/fuzz.sh "$fuzz_seconds"
fi
