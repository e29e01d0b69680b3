#!/usr/bin/env bash
# Makes the Debian packages from the shipped build, and tells what it made. Safe to run twice.
#
#   scripts/package.sh        into build/packages
set -euo pipefail
cd "$(dirname "$0")/.."

tree=build/release
version=$(dpkg-parsechangelog -l packaging/changelog -S Version)
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l packaging/changelog -S Timestamp) # the same sources, the same packages
export SOURCE_DATE_EPOCH

cmake --preset release -U CMAKE_INSTALL_LIBDIR >/dev/null # where packages have libraries, whatever was here before
cmake --build --preset release --target packaged --parallel "$(nproc)" >build/packages.log || {
    cat build/packages.log
    exit 1
}
rm -rf build/packages "$tree/_CPack_Packages"
cpack --config "$tree/CPackConfig.cmake" -B "$PWD/build/packages" >build/packages.log 2>&1 || {
    cat build/packages.log
    exit 1
}
rm -rf build/packages/_CPack_Packages build/packages.log

for package in build/packages/*.deb; do
    if [ "$(dpkg-deb -f "$package" Version)" != "$version" ]; then
        echo "package: $package has not the version of packaging/changelog, $version" >&2
        exit 1
    fi
    # shellcheck disable=SC2016 # dpkg-deb expands them
    dpkg-deb -W --showformat='${Package} ${Version} ${Architecture}, needs ${Depends}\n' "$package"
    echo "  $package, $(du -k "$package" | cut -f 1) KiB, $(dpkg-deb -c "$package" | grep -vc '/$') files"
done
