#!/bin/sh
# check-install.sh BUILD_DIR VERSION
#
# Installs the build into a temporary root as the package does, and
# checks the tree: exactly the expected files, the desktop entry, metainfo
# and manual pages accepted by their validators (each check is skipped,
# saying so, where its tool is not installed), both programs' --version,
# every command of dorvanectl in its manual page and its bash completion,
# and the nightly backup's units (check-units.sh).
set -eu
build=$1
version=$2

root=$(mktemp -d "${TMPDIR:-/tmp}/dorvane-install.XXXXXX")
trap 'rm -rf "$root"' EXIT
# Below the prefix the build was configured for, which the backup
# service's command names.
install_prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
prefix=$root$install_prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
skip() { echo "SKIP: $*"; }

expected="bin/dorvane
bin/dorvanectl
lib/systemd/system/dorvane-backup.service
lib/systemd/system/dorvane-backup.timer
lib/sysusers.d/dorvane.conf
share/applications/org.dorvane.Dorvane.desktop
share/bash-completion/completions/dorvanectl
share/doc/dorvane/changelog.gz
share/doc/dorvane/copyright
share/icons/hicolor/scalable/apps/org.dorvane.Dorvane.svg
share/man/man1/dorvane.1.gz
share/man/man1/dorvanectl.1.gz
share/metainfo/org.dorvane.Dorvane.metainfo.xml"
actual=$(cd "$prefix" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)
if [ "$actual" != "$expected" ]; then
    fail "installed files differ from the expected ones:"
    printf '%s\n' "$actual" >"$root/actual"
    printf '%s\n' "$expected" >"$root/expected"
    diff -u "$root/expected" "$root/actual" >&2 || true
fi

for program in dorvane dorvanectl; do
    out=$("$prefix/bin/$program" --version) || fail "$program --version failed"
    [ "$out" = "$program $version" ] || fail "$program --version says '$out', not '$program $version'"
done

if command -v desktop-file-validate >/dev/null; then
    out=$(desktop-file-validate "$prefix/share/applications/org.dorvane.Dorvane.desktop" 2>&1) ||
        fail "desktop-file-validate: $out"
    [ -z "$out" ] || fail "desktop-file-validate: $out"
else
    skip "desktop-file-validate is not installed (desktop-file-utils)"
fi

if command -v appstreamcli >/dev/null; then
    out=$(appstreamcli validate --no-net "$prefix/share/metainfo/org.dorvane.Dorvane.metainfo.xml" 2>&1) ||
        fail "appstreamcli validate: $out"
else
    skip "appstreamcli is not installed (appstream)"
fi

# The manual pages as lintian checks them: every warning of man and groff.
for page in "$prefix"/share/man/man1/*.1.gz; do
    if command -v man >/dev/null; then
        out=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null) ||
            fail "man $(basename "$page") failed: $out"
    elif command -v groff >/dev/null; then
        out=$(gzip -dc "$page" | groff -man -ww -z -Tutf8 2>&1) || fail "groff $(basename "$page") failed: $out"
    else
        skip "neither man nor groff is installed"
        break
    fi
    [ -z "$out" ] || fail "$(basename "$page"): $out"
done

# The commands as the tool's own help lists them: the words at the start
# of the two-blank indented lines below "Commands:".
commands=$("$prefix/bin/dorvanectl" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z][a-z-]*\).*/\1/p')
[ -n "$commands" ] || fail "dorvanectl --help lists no commands"
manual=$(gzip -dc "$prefix/share/man/man1/dorvanectl.1.gz")
completion=$(cat "$prefix/share/bash-completion/completions/dorvanectl")
for command in $commands; do
    escaped=$(printf '%s' "$command" | sed 's/-/\\\\-/g')
    printf '%s\n' "$manual" | grep -q "^\.B[IR]* $escaped\( \|$\)" || fail "dorvanectl.1 does not describe $command"
    printf '%s\n' "$completion" | grep -qw -- "$command" || fail "the bash completion does not offer $command"
done

sh "$(dirname "$0")/check-units.sh" "$root" "$install_prefix" "$(dirname "$0")/../../data/debian" ||
    fail "the backup units"

if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed" >&2
    exit 1
fi
echo "install tree: all checks passed"
