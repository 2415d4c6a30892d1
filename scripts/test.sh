#!/bin/sh
# Installs what is missing, builds, and runs the whole test suite: every
# repository test on SQLite and again on PostgreSQL through ODBC (a
# throwaway server on loopback), then the core library's tests built with
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh
scripts/build.sh release
scripts/with-postgres.sh ctest --preset release -j "$(nproc)"

scripts/build.sh sanitize-core
ASAN_OPTIONS="detect_leaks=0:abort_on_error=1" UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
    scripts/with-postgres.sh ctest --preset sanitize-core -j "$(nproc)"
echo "All tests passed."
