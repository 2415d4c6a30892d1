#!/bin/sh
# Builds the Debian package dorvane_<version>_amd64.deb into the checkout's
# folder build/package (programs only, no tests, installed below /usr, with
# Debian's hardening flags), checks it with lintian, which must report no
# errors, and checks its backup units (tests/install/check-units.sh).
# Prints the package's path.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh package
# Debian's compiler and linker flags for packages, with every hardening
# feature: fortified, stack-protected, relocations read-only and bound now.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
# Given on every configuration: the cache would keep a first run's flags.
cxxflags="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
ldflags="$(dpkg-buildflags --get LDFLAGS)"
cmake --preset package -DCMAKE_CXX_FLAGS="$cxxflags" -DCMAKE_EXE_LINKER_FLAGS="$ldflags" >/dev/null
cmake --build --preset package -j "$(nproc)"
(cd build/package && rm -f ./*.deb && cpack -G DEB >/dev/null)

deb=$(ls build/package/dorvane_*_*.deb)
# Errors fail the build; warnings and notes are shown.
lintian --fail-on error "$deb"
# The backup units and maintainer scripts as the package holds them.
unpacked=$(mktemp -d "${TMPDIR:-/tmp}/dorvane-deb.XXXXXX")
trap 'rm -rf "$unpacked"' EXIT
dpkg-deb -x "$deb" "$unpacked/root"
dpkg-deb -e "$deb" "$unpacked/control"
sh tests/install/check-units.sh "$unpacked/root" /usr "$unpacked/control"
echo "$deb"
