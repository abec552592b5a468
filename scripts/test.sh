#!/usr/bin/env bash
# test.sh [--release] [--clang] [--asan] [--tsan] [--arm64] [--all] [--preset=NAME]: builds and runs
# all the tests, by default optimised and with the address and undefined-behaviour sanitizers; --clang
# is the build by clang, --tsan the thread sanitizer with the tests labelled "threads", --arm64 the
# build for 64-bit ARM in the emulator, --all these five, --preset any of CMakePresets.json.
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

presets=()
setup=()
arm64=(arm64)
if [ "$(uname -m)" = aarch64 ]; then arm64=(); fi  # `release` is that build there
for option in "$@"; do
  case $option in
    --release) presets+=(release) ;;
    --clang) presets+=(clang) setup+=(--all) ;;
    --asan) presets+=(asan-ubsan) ;;
    --tsan) presets+=(tsan) ;;
    --arm64) presets+=("${arm64[@]:-release}") setup+=(--arm64) ;;
    --all) presets+=(release clang asan-ubsan tsan "${arm64[@]}") setup+=(--all) ;;
    --preset=*) presets+=("${option#*=}") ;;
    *) die "usage: test.sh [--release] [--clang] [--asan] [--tsan] [--arm64] [--all] [--preset=NAME]" ;;
  esac
done
[ ${#presets[@]} -gt 0 ] || presets=(release asan-ubsan)

# The sanitizers of older compilers do not start on kernels that spread addresses widely.
fixed_addresses=()
if setarch -R true 2>/dev/null; then fixed_addresses=(setarch -R); fi

# number NAME FILE: the value of the attribute in ctest's report.
number() {
  sed -n "/<testsuite /,/>/{s/.*[[:space:]]$1=\"\([0-9]*\)\".*/\1/;T;p;q}" "$2"
}

run_tests() {
  local preset=$1 folder=$root/build/$1 runner=() status=0
  shift
  case $preset in *san*) runner=("${fixed_addresses[@]}") ;; esac
  rm -f "$folder/tests.xml"
  # Two for each processor, for half of what tests do is to wait; what drives windows and terminals
  # counts as two, and is in time.
  "${runner[@]}" ctest --test-dir "$folder" "$@" -j $((2 * jobs)) --output-on-failure \
    --output-junit "$folder/tests.xml" >"$folder/tests.log" 2>&1 </dev/null || status=$?
  [ -s "$folder/tests.xml" ] || { tail -n 60 "$folder/tests.log" >&2; die "$preset: ctest failed"; }
  # What ctest calls passed may have left out cases of its own.
  local total failed skipped off left_out
  mapfile -t left_out < <(sed -n 's/^\[  SKIPPED \] \(.*\) ([0-9]* ms)$/\1/p' \
    "$folder/Testing/Temporary/LastTest.log")
  if [ "$preset" = arm64 ]; then
    mapfile -t -O ${#left_out[@]} left_out < <(grep -v '^#' "$root/tests/not_emulated.txt")
  fi
  total=$(number tests "$folder/tests.xml")
  failed=$(number failures "$folder/tests.xml")
  skipped=$(number skipped "$folder/tests.xml")
  off=$(number disabled "$folder/tests.xml")
  passed_all=$((passed_all + total - failed - skipped - off))
  failed_all=$((failed_all + failed))
  skipped_all=$((skipped_all + skipped + off + ${#left_out[@]}))
  if [ $status -ne 0 ]; then
    cat "$folder/tests.log" >&2
    [ "$failed" -gt 0 ] || failed_all=$((failed_all + 1))
  fi
  printf '%-12s %d tests passed, %d failed' "$preset" $((total - failed - skipped - off)) "$failed"
  [ $((skipped + off)) -eq 0 ] || printf ', %d skipped (%s)' $((skipped + off)) "$folder/tests.log"
  printf '\n'
  [ ${#left_out[@]} -eq 0 ] || printf '  case skipped: %s\n' "${left_out[@]}"
}

"$root/scripts/setup.sh" "${setup[@]}"
passed_all=0 failed_all=0 skipped_all=0
for preset in "${presets[@]}"; do
  if [ "$preset" = tsan ]; then
    build tsan thread_tests
    run_tests tsan -L threads
  else
    build "$preset"
    run_tests "$preset"
  fi
done
printf '%d passed, %d failed, %d skipped\n' $passed_all $failed_all $skipped_all
[ $failed_all -eq 0 ] && [ $passed_all -gt 0 ]
