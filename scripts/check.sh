#!/usr/bin/env bash
# Runs checks by name, in the order given; installs what each needs.
#   test    build with warnings as errors, run all tests
#   asan    the same under the address and undefined-behaviour sanitizers
#   tsan    the tests of what runs in threads, under the thread sanitizer
#   format  sources are formatted as .clang-format says
#   lint    clang-tidy finds nothing
#   analyze the static analyzer finds nothing; several times slower
#   integer no whole number of ours wraps or loses bits unasked: fuzz inputs and some tests
#   damage  the tests of damage and faults, at every length and with every value; takes an hour
#   bench   build and run the benchmarks, print their table
#   fuzz    build the fuzz targets and run each for a minute
#   docs    the reference builds without warnings, links between documents lead somewhere
#   package Debian packages: lintian, installation in a clean Debian, programs built there; wants root
#   windows cross build for Windows; the library's tests where Wine runs
#   share   tests are at most a third of the code, fuzz targets a tenth
#   lists   write the lists of installed files and exported symbols anew, for a change that means to change them
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
sources() { git ls-files '*.h' '*.cpp' '*.c'; }

build_and_test() {  # PRESET [CTEST ARGUMENTS]
  scripts/install-deps.sh build test
  cmake --preset "$1"
  cmake --build --preset "$1"
  ctest --preset "$1" -j "$jobs" "${@:2}"
}

test_threads() {
  local tests=(checksum_test front_end_test program_test slice_file_test threads_test tools_job_test)
  scripts/install-deps.sh build test
  cmake --preset tsan
  cmake --build --preset tsan --target "${tests[@]}"
  for test in "${tests[@]}"; do build/tsan/tests/"$test" --gtest_brief=1; done
}

check_format() {
  scripts/install-deps.sh lint
  sources | xargs clang-format --dry-run -Werror
  echo "format: ok"
}

run_tidy() {  # CHECKS
  scripts/install-deps.sh build test lint
  cmake --preset release
  # the library and the program; tests and examples are held to the compiler's warnings
  git ls-files 'io/*.cpp' 'image/*.cpp' 'vndlp/*.cpp' 'ctb/*.cpp' 'v4/*.cpp' 'printtime/*.cpp' 'writer/*.cpp' 'job/*.cpp' 'capi/*.cpp' \
    'tools/*.cpp' | xargs -P "$jobs" -n 1 clang-tidy --quiet --checks="$1" -p build/release \
    --extra-arg=-Wno-unknown-warning-option
}

check_integers() {
  local tests=(container_test front_end_test golden_test slice_file_test slice_write_test v4_file_test)
  scripts/install-deps.sh build test fuzz
  cmake --preset integer
  cmake --build --preset integer --target "${tests[@]}" fuzz/all
  for test in "${tests[@]}"; do build/integer/tests/"$test" --gtest_brief=1; done
  ctest --test-dir build/integer -R '^(fuzz_seeds|replay\.)' --output-on-failure -j "$jobs"
}

sweep_damage() {
  scripts/install-deps.sh build test
  cmake --preset release
  cmake --build --preset release --target damage_test fault_test
  VNDLP_FULL_SWEEP=1 build/release/tests/damage_test --gtest_brief=1
  VNDLP_FULL_SWEEP=1 build/release/tests/fault_test --gtest_brief=1
}

run_fuzzers() {
  local name
  for name in fuzz/*_fuzz.cpp; do
    name=$(basename "$name" _fuzz.cpp)
    scripts/fuzz.sh "$name" 60
  done
}

check_docs() {
  scripts/install-deps.sh docs
  mkdir -p build
  doxygen docs/Doxyfile
  local broken=0 page link
  for page in README.md CONTRIBUTING.md docs/*.md; do
    while read -r link; do
      [ -e "$(dirname "$page")/$link" ] || { echo "$page: no $link"; broken=1; }
    done < <(grep -o '](\([^)#:]\+\)' "$page" | cut -c3-)
  done
  [ "$broken" -eq 0 ] || return 1
  echo "docs: ok"
}

count_lines() {  # PATHSPEC...: neither blank nor comment; golden files, cases and expected lists are data
  git ls-files -- "$@" | grep -E '\.(cpp|cc|c|h|hpp|py|js|mjs|ts|html|css)$' | tr '\n' '\0' |
    xargs -0 -r cat | grep -vcE '^[[:space:]]*(//|/\*|\*|$)' || true
}

check_share() {
  local product tests fuzz
  product=$(count_lines include io image vndlp ctb v4 printtime writer job capi tools python web \
    ':!python/tests' ':!web/tests')
  tests=$(count_lines tests python/tests web/tests)
  fuzz=$(count_lines fuzz)
  echo "share: $tests lines of tests for $product of code, $((100 * tests / product)) %;" \
    "fuzz targets $fuzz, $((100 * fuzz / product)) %"
  [ $((100 * tests)) -le $((33 * product)) ] || { echo "tests are to be at most 33 %" >&2; return 1; }
  [ $((100 * fuzz)) -le $((10 * product)) ] || { echo "fuzz targets are to be at most 10 %" >&2; return 1; }
}

write_lists() {
  scripts/install-deps.sh build
  cmake --preset release
  cmake --build --preset release --target vndlp vndlp_program
  cmake -DUPDATE=1 -DLIBRARY=build/release/libvndlp.so -DNM=nm -P tests/package/symbols.cmake
  local version
  version=$(cd build/release && ls libvndlp.so.*.*.*)
  cmake -DUPDATE=1 -DTOOLS=ON -DPYTHON=ON -DPYTHON_DIR=lib/python3/dist-packages -DVERSION="${version#libvndlp.so.}" -DBUILD_DIR="$PWD/build/release" \
    -DWORK_DIR="$PWD/build/release/lists" -DC_COMPILER=cc -DCXX_COMPILER=c++ -DGENERATOR=Ninja \
    -P tests/package/run.cmake
  git diff --stat -- packaging/expected
}

for check in "${@:-test}"; do
  case "$check" in
    test) build_and_test release ;;
    # what builds other trees is tested once, without sanitizers
    asan) build_and_test asan-ubsan -E '^(package|package_static|mesh_choice)$' ;;
    tsan) test_threads ;;
    format) check_format ;;
    lint) run_tidy '-clang-analyzer-*'; echo "lint: ok" ;;
    analyze) run_tidy '-*,clang-analyzer-*'; echo "analyze: ok" ;;
    integer) check_integers ;;
    damage) sweep_damage ;;
    bench) scripts/bench.sh; scripts/growth.sh build/bench/growth.svg ;;
    fuzz) run_fuzzers ;;
    docs) check_docs ;;
    package) scripts/install-deps.sh build package; scripts/check-package.sh ;;
    windows) scripts/install-deps.sh build windows; scripts/check-windows.sh ;;
    share) check_share ;;
    lists) write_lists ;;
    *) echo "unknown check: $check" >&2; exit 2 ;;
  esac
done
