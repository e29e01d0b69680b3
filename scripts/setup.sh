#!/usr/bin/env bash
# Installs the Debian packages that the project needs. Safe to run twice: with all of them there, nothing is done.
#
#   scripts/setup.sh          to build and to test
#   scripts/setup.sh bench    and to run the benchmarks
#   scripts/setup.sh checks   and to run every check of the CI
set -euo pipefail

packages=(
    g++ cmake ninja-build pkg-config libc-bin zlib1g-dev # building
    libcli11-dev                                         # the tool
    libgtest-dev binutils bsdutils util-linux git locales # testing
    libssl-dev openssl ca-certificates                   # testing certificates
    iproute2 iputils-ping                                # testing, in networks of their own
    curl python3                                         # testing, at the other end of connections
    man-db bsdextrautils                                 # testing the manual pages
)
bench=(
    libbenchmark-dev libspdlog-dev libinih-dev libglib2.0-dev zip unzip
    libpugixml-dev libxml2-dev shared-mime-info iso-codes
    rapidjson-dev nlohmann-json3-dev libjansson-dev libjson-c-dev libsimdjson-dev
    libprotobuf-c-dev protobuf-c-compiler libcurl4-openssl-dev libmnl-dev
    gnuplot-nox # plots
)
checks=(
    nginx-light clang cppcheck valgrind clang-format-14 clang-tidy-14 libclang-rt-14-dev shellcheck doxygen gcovr
    dpkg-dev file mmdebstrap abigail-tools # packaging
)

case "${1:-}" in
"") ;;
bench) packages+=("${bench[@]}") ;;
checks) packages+=("${checks[@]}") ;;
*)
    echo "usage: $0 [bench|checks]" >&2
    exit 2
    ;;
esac

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: all packages are installed"
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "setup: to install ${missing[*]}, run this as root or install sudo" >&2
        exit 1
    }
    as_root=(sudo)
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
