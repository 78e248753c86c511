#!/usr/bin/env bash
# Builds the project and prints the catalogue of the sample directories in examples/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" >/dev/null

export QT_QPA_PLATFORM=offscreen
build/tools/zqdb/zqdb --sys-dir examples/system --user-dir examples/user list
