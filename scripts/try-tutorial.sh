#!/bin/sh
# Installs what is missing, builds, creates a tutorial installation and a
# settings file for it in ./tutorial of the checkout, and opens Dorvane on it.
set -eu
cd "$(dirname "$0")/.."
ROOT="$(pwd)"

scripts/install-deps.sh
scripts/build.sh release

INSTALL="$ROOT/tutorial/zentrix"
SETTINGS="$ROOT/tutorial/zentrix.reg"
if [ ! -e "$INSTALL/Tutorial/Database/Tutorial.mdb" ]; then
    mkdir -p "$INSTALL"
    build/release/src/cli/dorvanectl create-installation "$INSTALL"
fi
cat > "$SETTINGS" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]
"ActiveDB"="Tutorial"
"ExePath"="$INSTALL"
"IsLocalDatabase"=dword:00000001
REG

export ZENTRIX_REGISTRY="$SETTINGS"
build/release/src/cli/dorvanectl info
exec build/release/src/desktop/dorvane
