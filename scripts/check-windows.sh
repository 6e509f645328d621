#!/usr/bin/env bash
# Cross build for 64-bit Windows with MinGW-w64: the library, its tests and the examples; the program's sources are
# compiled only, for want of Windows builds of the libraries it links. Where Wine runs, so do the tests and examples.
# Run by `scripts/check.sh windows`.
set -euo pipefail
cd "$(dirname "$0")/.."

build=$PWD/build/windows
prefix=$PWD/build/windows-prefix
common=(-G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=Release)
jobs=(${JOBS:+-j "$JOBS"})

if [ ! -e "$prefix/lib/libgtest.a" ]; then
  cmake -S /usr/src/googletest -B build/windows-gtest "${common[@]}" -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$prefix"
  cmake --build build/windows-gtest "${jobs[@]}" --target install
fi
# without an emulator the tests are listed when they run, not when they are built
cmake -S . -B "$build" "${common[@]}" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$build/bin" \
  -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST -DVNDLP_BUILD_TOOLS=OFF -DVNDLP_WARNINGS_AS_ERRORS=ON
cmake --build "$build" "${jobs[@]}"

headers=$PWD/build/windows-headers
mkdir -p "$headers"
for header in spng.h zip.h zipconf.h pugixml.hpp pugiconfig.hpp libdeflate.h CLI nlohmann; do
  [ -e "/usr/include/$header" ] && ln -sfn "/usr/include/$header" "$headers/$header"
done
for source in tools/*/*.cpp; do
  x86_64-w64-mingw32-g++-posix -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wno-restrict \
    -Werror -I. -Iinclude -isystem "$headers" "$source"
done
x86_64-w64-mingw32-windres -I tools tools/vndlp.rc "$build/vndlp-rc.o"

export WINEPREFIX=$build/wine WINEDEBUG=-all
runtime=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++-6.dll)")
export WINEPATH="Z:${runtime//\//\\};Z:\\usr\\x86_64-w64-mingw32\\lib"
if ! command -v wine >/dev/null || ! timeout 300 wine cmd /c ver >/dev/null 2>&1; then
  echo "windows: built; Wine does not run here, so nothing was run"
  exit 0
fi
# nothing limits the size of files there
without='-*FullDisk*:*ATrailerThat*:WrapperTest.FailuresAreReturned'
failed=0
for test in "$build"/bin/*_test.exe; do
  timeout 1200 wine "$test" --gtest_brief=1 --gtest_filter="$without" || { echo "failed: $test"; failed=1; }
done
folder=$(mktemp -d)
cd "$folder"
for example in write_vndlp:a.vndlp write_parallel:a.ctb write_line:a.vnline write_beads:a.vndlpv4; do
  wine "$build/bin/${example%:*}.exe" "${example#*:}" >/dev/null
  wine "$build/bin/verify_file.exe" "${example#*:}" | tail -1 | grep -q '^ok' || { echo "failed: $example"; failed=1; }
done
rm -r "$folder"
[ "$failed" -eq 0 ] || exit 1
echo "windows: ok"
