#!/usr/bin/env bash
# Installs the packages of build/packages into a clean Debian made for it, compiles and runs programs there, removes the
# packages again, and looks that nothing is left. Needs root and mmdebstrap, and the package sources of this machine.
# shellcheck disable=SC2016 # commands for the shell inside
set -euo pipefail
cd "$(dirname "$0")/.."

skip() {
    echo "package test: NOT RUN: $1"
    exit 0
}
[ "$(id -u)" -eq 0 ] || skip "a system of its own needs root"
command -v mmdebstrap >/dev/null || skip "no mmdebstrap here (scripts/setup.sh checks)"
# shellcheck source=/dev/null
. /etc/os-release
[ "${ID:-}" = debian ] || skip "made for Debian, and this is ${ID:-something else}"
compgen -G 'build/packages/*.deb' >/dev/null || {
    echo "package test: no packages: scripts/package.sh makes them" >&2
    exit 1
}

mkdir -p build
work=$(mktemp -d "$PWD/build/package-test.XXXXXX")
root=$work/root
trap 'rm -rf --one-file-system "$work"' EXIT

# The sources and the proxy of this machine.
suite=$VERSION_CODENAME
mapfile -t sources < <(grep -lE "(^|[[:space:]])$suite([[:space:]]|\$)" /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null)
apt-config dump | grep -E '^Acquire::(https?|ftp|Retries|Check-|AllowInsecure|ForceIPv|BrokenProxy)' |
    grep -v '""' >"$work/apt.conf" || true
TMPDIR=$work mmdebstrap --mode=root --variant=essential --include=gcc,libc6-dev,zlib1g-dev,pkg-config \
    --dpkgopt=force-unsafe-io --aptopt="$work/apt.conf" "$suite" "$root" "${sources[@]}" >"$work/log" 2>&1 || {
    cat "$work/log"
    exit 1
}
echo "package test: a clean $PRETTY_NAME after $SECONDS s"

inside() {
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}
expect() {
    if [ "$2" != "$3" ]; then
        printf 'package test: %s is\n%s\ninstead of\n%s\n' "$1" "$2" "$3"
        exit 1
    fi
}
files() { # all that is in the system, but for what dpkg and ldconfig keep for themselves
    (cd "$root" && find . -xdev -not -path './var/lib/dpkg/*' -not -path './var/cache/*' -not -path './tmp/*' -not -path './var/log/*' | LC_ALL=C sort)
}

files >"$work/before"
mkdir "$root/tmp/packages"
cp build/packages/*.deb tests/install/consumer_c/main.c "$root/tmp/packages"
cp tests/install/consumer_static/main.c "$root/tmp/packages/static.c"
cd "$root/tmp/packages"
version=$(dpkg-deb -f "$(ls libzkq-general1_*.deb)" Version)
upstream=${version%-*}

# The library alone: the loader knows it, and no compiler does.
inside sh -c 'dpkg -i /tmp/packages/libzkq-general1_*.deb' >/dev/null
inside ldconfig -p | grep -q 'libZKQ_general\.so\.1 ' || expect "what the loader knows" "" libZKQ_general.so.1
expect "the development files of the library alone" \
    "$(find "$root/usr" -name 'ZKQ_general*' -o -name 'libZKQ_general.a' -o -name 'libZKQ_general.so')" ""

# All: what depends on what is as told, and nothing is missing.
inside sh -c 'dpkg -i /tmp/packages/*.deb' >log 2>&1 || {
    cat log
    exit 1
}
expect "the state of the packages" "$(inside dpkg-query -W -f '${Package} ${Version} ${db:Status-Status}\n' '*zkq*')" \
    "$(printf '%s '"$version"' installed\n' libzkq-general-dev libzkq-general1 zkq)"
expect "the tool" "$(inside zkq --version)" "zkq $upstream"
expect "the version for pkg-config" "$(inside pkg-config --modversion ZKQ_general)" "$upstream"
printf '[A]\nk = v\n' >a.ini
expect "the tool's answer" "$(inside zkq ini get /tmp/packages/a.ini A k)" v
inside sh -c 'cc -std=c11 /tmp/packages/main.c -o /tmp/packages/shared $(pkg-config --cflags --libs ZKQ_general)'
expect "the C program" "$(inside /tmp/packages/shared)" $'5 /tmp/\nFunction call successed!'
inside sh -c 'cc -std=c11 -D_POSIX_C_SOURCE=200809L /tmp/packages/static.c -o /tmp/packages/static \
    $(pkg-config --static --cflags --libs ZKQ_general | sed s/-lZKQ_general/-l:libZKQ_general.a/)'
inside sh -c 'cc -std=c11 -static /tmp/packages/main.c -o /tmp/packages/whole \
    $(pkg-config --static --cflags --libs ZKQ_general) 2>/dev/null'
for file in usr/share/man/man1/zkq.1.gz usr/share/bash-completion/completions/zkq usr/lib/*/cmake/ZKQ_general/ZKQ_generalConfig.cmake; do
    compgen -G "$root/$file" >/dev/null || expect "the file /$file" missing there
done
functions=$(sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$OLDPWD/src/libZKQ_general.map")
for function in $functions; do
    [ -e "$root/usr/share/man/man3/$function.3.gz" ] || expect "the manual page of $function" missing there
done

# Gone without a trace; what has the library inside of it does not miss it.
inside dpkg --purge zkq libzkq-general-dev libzkq-general1 >/dev/null
expect "the C program with the static library" "$(inside /tmp/packages/static)" "7 8 No such file or directory"
expect "the C program with everything static" "$(inside /tmp/packages/whole)" $'5 /tmp/\nFunction call successed!'
cd - >/dev/null
rm -rf "$root/tmp/packages"
if inside ldconfig -p | grep ZKQ_general; then
    expect "what the loader knows" libZKQ_general ""
fi
files | diff "$work/before" - || expect "what is left of the packages" "the above" nothing
echo "package test: installed, used and removed, in $SECONDS s"
