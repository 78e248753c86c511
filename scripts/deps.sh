#!/usr/bin/env bash
# Installs the Debian packages the build, tests and benchmarks need; quiet when all are present.
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    qtbase5-dev libqt5sql5-sqlite libquazip1-qt5-dev
    qt6-base-dev libqt6sql6-sqlite qt6-5compat-dev libquazip1-qt6-dev
    libexpat1-dev libxlsxwriter-dev
    sqlite3 libsqlite3-dev xlsx2csv doxygen python3
    clang libclang-rt-14-dev libtsan2
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "deps: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
