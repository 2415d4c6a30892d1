#!/bin/sh
# Configures and builds one preset (release by default).
set -eu
cd "$(dirname "$0")/.."
PRESET="${1:-release}"
cmake --preset "$PRESET" >/dev/null
cmake --build --preset "$PRESET" -j "$(nproc)"
