#!/bin/sh
# Line and branch coverage of src/ by the whole test suite, on SQLite and on
# PostgreSQL through ODBC: builds the coverage preset, runs every test with
# a throwaway PostgreSQL server, and prints gcovr's summary. The HTML report
# is written to build/coverage/coverage.html.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh
if ! command -v gcovr >/dev/null; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo"
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends gcovr
fi
scripts/build.sh coverage
find build/coverage -name '*.gcda' -delete
scripts/with-postgres.sh ctest --preset coverage -j "$(nproc)"
gcovr --root . --filter 'src/' --object-directory build/coverage \
    --exclude-unreachable-branches --exclude-throw-branches \
    --html-details build/coverage/coverage.html --print-summary -j "$(nproc)"
