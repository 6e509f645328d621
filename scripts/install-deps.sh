#!/usr/bin/env bash
# Installs the Debian packages that the named sets need and that are missing; does nothing, and quickly, when none is.
#   scripts/install-deps.sh [SET...]
set -euo pipefail

declare -A sets=(
  [build]="g++ cmake ninja-build pkg-config libdeflate-dev libhwy-dev libspng-dev libzip-dev libpugixml-dev nlohmann-json3-dev libcli11-dev"
  [test]="libgtest-dev locales python3-cffi python3-numpy python3-pytest python3-distributed"
  [lint]="clang-format clang-tidy"
  [bench]="libbenchmark-dev python3 time"
  [fuzz]="clang libclang-rt-14-dev"
  [docs]="doxygen"
  [package]="lintian debootstrap file dpkg-dev"
  [windows]="g++-mingw-w64-x86-64-posix googletest wine64"
)

missing=()
for set in "${@:-build}"; do
  for package in ${sets[$set]:?unknown set of packages: $set}; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
  done
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "run this as root, or install sudo first" >&2; exit 1; }
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
