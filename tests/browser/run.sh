#!/usr/bin/env bash
# Shows a generated 1,000,000-row database in the browser, offscreen, at row 900,000, and
# compares the cells it shows with the sqlite3 shell's; then imports a text file through the
# window. Leaves browser.png and importing.png (taken while the import runs) in WORK.
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

# An import through the window: a screenshot while it runs (progress bar and Cancel in the
# status bar), then the imported database shown from its first row, as the shell reads it.
seq 1 300000 | awk '{ print "r" $1 ",v" $1 * 7 ",w" }' > "$work/rows.txt"
"$browser" --import "$work/rows.txt" --screenshot "$work/importing.png" > "$work/imported.txt"
[ -s "$work/importing.png" ] || exit 1
read -r row rows column columns < "$work/imported.txt"
[ "$row" -eq 0 ] && [ "$rows" -gt 5 ] && [ "$column" -eq 0 ] || exit 1
[ "$(sqlite3 "$work/user/rows.db" 'SELECT COUNT(*) FROM table6')" -eq 50000 ] || exit 1
names=$(seq -f 'column%g' 1 "$columns" | paste -sd,)
sqlite3 "$work/user/rows.db" "SELECT $names FROM table1 LIMIT $rows" \
    | diff <(tail -n +2 "$work/imported.txt") -
