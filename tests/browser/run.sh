#!/usr/bin/env bash
# Shows a generated 1,000,000-row database in the browser, offscreen, at row 900,000, and
# compares the cells it shows with the sqlite3 shell's. Leaves browser.png in WORK.
#   run.sh BROWSER GENERATOR WORK
set -euo pipefail
browser=$1 work=$3
rm -rf "$work" && mkdir -p "$work/system" "$work/user"
bash "$2" "$work/system/million.db" 20 50000 10
export QT_QPA_PLATFORM=offscreen ZQDATABASE_SYS_DIR=$work/system ZQDATABASE_USR_DIR=$work/user
"$browser" --self-test 900000 --screenshot "$work/browser.png" > "$work/shown.txt"
read -r row rows column columns < "$work/shown.txt"
[ "$row" -eq 900000 ] && [ "$rows" -gt 5 ] && [ "$columns" -gt 2 ] || exit 1
names=$(seq -f 'column%g' $((column + 1)) $((column + columns)) | paste -sd,)
sqlite3 "$work/system/million.db" \
    "SELECT $names FROM table$((row / 50000 + 1)) LIMIT $rows OFFSET $((row % 50000))" \
    | diff <(tail -n +2 "$work/shown.txt") -
