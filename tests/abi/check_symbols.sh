#!/usr/bin/env bash
# Compares the Database:: symbols a library exports with the checked-in list.
# Usage: check_symbols.sh LIBRARY LIST [QT_MAJOR_VERSION]
set -euo pipefail
library=$1
list=$2
qt=${3:-5}
expected=$(grep -v -E '^(#|$)' "$list" | sort -u)
# nm -DC prints "address type name"; keep the name of every defined Database:: symbol.
actual=$(nm -DC --defined-only "$library" | cut -d' ' -f3- | grep -E '(^|for )Database::')
# Qt 6's QStringList is an alias, which symbols spell as QList<QString>.
[ "$qt" = 6 ] && actual=$(echo "$actual" | sed 's/QList<QString>/QStringList/g')
actual=$(echo "$actual" | sort -u)
if [ "$expected" != "$actual" ]; then
    echo "Exported symbols differ from $list (< expected, > exported):"
    diff <(echo "$expected") <(echo "$actual") || true
    exit 1
fi
echo "$(echo "$actual" | wc -l) Database:: symbols exported as listed"
