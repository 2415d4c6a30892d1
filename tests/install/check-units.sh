#!/bin/sh
# check-units.sh ROOT PREFIX SCRIPTS
#
# Checks the nightly backup's systemd units in a tree installed below ROOT
# with the install prefix PREFIX (/usr for the package): systemd-analyze
# verify finds nothing to say about them (their program, manual page and
# the targets they name resolved inside ROOT), and the maintainer scripts
# in the folder SCRIPTS, run on ROOT as dpkg runs them, create the user the
# service runs as and never enable the timer themselves. Each check is
# skipped, saying so, where its tool is not installed. Touches nothing
# outside ROOT; leaves ROOT purged of the package's units.
set -eu
root=$1
prefix=$2
scripts=$3

failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
skip() { echo "SKIP: $*"; }

units=$root$prefix/lib/systemd/system
service=$units/dorvane-backup.service
timer=$units/dorvane-backup.timer
for file in "$service" "$timer" "$root$prefix/lib/sysusers.d/dorvane.conf"; do
    [ -f "$file" ] || fail "${file#"$root"} is not installed"
done
[ "$failures" -eq 0 ] || exit 1

if command -v systemd-analyze >/dev/null && [ -f /lib/systemd/system/sysinit.target ]; then
    # The units depend on the system's targets; ROOT holds none of its own.
    mkdir -p "$root/lib/systemd/system"
    cp /lib/systemd/system/*.target "$root/lib/systemd/system/"
    # Warnings (an unknown key, a value it cannot parse) leave the exit
    # status 0: any output is a failure.
    out=$(MANPATH=$root$prefix/share/man systemd-analyze verify --root="$root" "$timer" "$service" 2>&1) ||
        fail "systemd-analyze verify failed: $out"
    [ -z "$out" ] || fail "systemd-analyze verify: $out"
else
    skip "systemd-analyze is not installed (systemd)"
fi

# The maintainer scripts as dpkg runs them (deb-systemd-helper refuses to
# run otherwise), on ROOT.
maint() {
    DPKG_ROOT=$root DPKG_MAINTSCRIPT_PACKAGE=dorvane DPKG_MAINTSCRIPT_NAME=$1 sh "$scripts/$1" "$2" "${3:-}" >/dev/null 2>&1 ||
        fail "$1 $2 failed"
}
timer_state() {
    if [ -n "$(find "$root/etc/systemd" -name dorvane-backup.timer 2>/dev/null)" ]; then echo enabled; else echo disabled; fi
}

user=$(sed -n 's/^User=//p' "$service")
[ -n "$user" ] || fail "dorvane-backup.service names no User="
if command -v systemd-sysusers >/dev/null && command -v deb-systemd-helper >/dev/null; then
    mkdir -p "$root/etc" "$root/var/lib"
    maint postinst configure ""
    # A system account: below the first ordinary uid, without a login shell.
    entry=$(grep "^$user:" "$root/etc/passwd" 2>/dev/null || true)
    uid=$(printf '%s' "$entry" | cut -d: -f3)
    shell=$(printf '%s' "$entry" | cut -d: -f7)
    if [ -z "$entry" ]; then
        fail "postinst did not create the user $user the service runs as"
    elif [ "$uid" -ge 1000 ] || [ "$shell" != /usr/sbin/nologin ]; then
        fail "$user is not a system account: $entry"
    fi
    grep -q "^$user:" "$root/etc/group" 2>/dev/null || fail "postinst did not create the group $user"

    # The package's life, each step followed by the timer's state:
    # installing enables nothing, an administrator's enabling survives an
    # upgrade, and a purge removes its links. deb-systemd-helper sees only
    # units below /usr.
    if [ "$prefix" = /usr ]; then
        while read -r step expected; do
            case $step in
            installed) ;;
            enabled) systemctl --root="$root" enable dorvane-backup.timer >/dev/null 2>&1 || fail "systemctl enable failed" ;;
            upgraded) maint postinst configure 0.0.1 ;;
            purged)
                maint prerm remove
                rm -f "$units/dorvane-backup.service" "$units/dorvane-backup.timer"
                maint postrm remove
                maint postrm purge
                ;;
            esac
            state=$(timer_state)
            [ "$state" = "$expected" ] || fail "dorvane-backup.timer is $state once $step, not $expected"
        done <<EOF
installed disabled
enabled enabled
upgraded enabled
purged disabled
EOF
    else
        [ "$(timer_state)" = disabled ] || fail "installing enabled dorvane-backup.timer"
        skip "the package's upgrade and purge: the units are below $prefix, not /usr"
    fi
else
    skip "systemd-sysusers or deb-systemd-helper is not installed (systemd, init-system-helpers)"
fi

if [ "$failures" -ne 0 ]; then
    echo "$failures unit check(s) failed" >&2
    exit 1
fi
echo "backup units: all checks passed"
