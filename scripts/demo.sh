#!/usr/bin/env bash
# A short tour of zqdatabase through zqdb: import a GB2312 text file and a spreadsheet into a
# temporary catalogue, list, inspect and read them, export GBK CSV, and walk a memory table.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh
echo "Building (first time takes a minute)..."
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target zqdb >/dev/null

export QT_QPA_PLATFORM=offscreen
export QT_LOGGING_RULES="zq.console.info=false"
zqdb_bin="$PWD/build/tools/zqdb/zqdb"
tour=$(mktemp -d /tmp/zqdb-tour.XXXXXX)
mkdir -p "$tour/system" "$tour/user"
trap 'rm -rf "$tour"' EXIT

# Every command runs against the temporary catalogue and is echoed before it runs.
zqdb() {
    echo
    echo "\$ zqdb $*"
    "$zqdb_bin" --sys-dir "$tour/system" --user-dir "$tour/user" "$@"
}

echo
echo "== The tour's files live in $tour"
echo "examples/cities.csv is GB2312 text; examples/products.xlsx a spreadsheet."

zqdb import examples/cities.csv "$tour/system/cities.db"
zqdb import examples/products.xlsx "$tour/user/products.db"
echo
echo "== A database that holds tables is only replaced on request (exit 1 otherwise)."
zqdb import examples/cities.csv "$tour/system/cities.db" || true
zqdb import examples/cities.csv "$tour/system/cities.db" --replace
zqdb list
zqdb info cities
zqdb cat cities --count 3
zqdb cat products
zqdb cat products --columns 1,4 --csv
zqdb export cities "$tour/cities.csv"
echo
echo "\$ iconv -f GBK -t UTF-8 $tour/cities.csv   # the export is GBK; shown here decoded"
iconv -f GBK -t UTF-8 "$tour/cities.csv"
echo
echo "== - is standard input or output; data goes to standard output, messages to standard error."
echo
echo "\$ head -3 examples/cities.csv | zqdb import - $tour/three.db"
head -3 examples/cities.csv | "$zqdb_bin" import - "$tour/three.db"
echo
echo "\$ zqdb export $tour/three.db - 2>/dev/null | iconv -f GBK -t UTF-8"
"$zqdb_bin" export "$tour/three.db" - 2>/dev/null | iconv -f GBK -t UTF-8
zqdb memory examples/tasks.txt
echo
echo "== Done. Run 'build/tools/zqdb/zqdb --help' for every command."
