#!/bin/sh
# install-deps.sh [package]
#
# Installs what building, running and testing Dorvane needs on Debian 12,
# and with "package" also what building and checking its Debian package
# needs. Only packages that are missing are installed; run as root or with
# sudo.
set -eu

PACKAGES="cmake ninja-build g++ pkg-config
qt6-base-dev libqt6sql6-sqlite libqt6sql6-odbc libqt6svg6
libsqlite3-dev sqlite3 libgtest-dev
unixodbc odbc-postgresql postgresql-15
xvfb xauth x11-apps imagemagick
desktop-file-utils appstream man-db gzip"
if [ "${1:-}" = package ]; then
    PACKAGES="$PACKAGES dpkg-dev lintian"
fi

missing=""
for p in $PACKAGES; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
# shellcheck disable=SC2086
$SUDO apt-get install -y -q --no-install-recommends $missing
