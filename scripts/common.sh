# shellcheck shell=bash disable=SC2034
# Sourced by the scripts: where things lie, and how commands are run quietly but fail loudly.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# quietly LOG COMMAND...: the output goes to the file; a failure shows its end and ends the script.
quietly() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 </dev/null && return
  tail -n 60 "$log" >&2
  die "failed: $* (all of its output: $log)"
}

# build PRESET [TARGET...]: configures the first time, then builds what is out of date.
build() {
  local preset=$1 folder=$root/build/$1
  shift
  mkdir -p "$folder" 2>/dev/null || true
  [ -w "$folder" ] || die "$folder belongs to another user: remove it or clone anew"
  if [ ! -e "$folder/build.ninja" ]; then
    echo "Building in build/$preset; this takes minutes the first time and seconds later."
    (cd "$root" && quietly "$folder/configure.log" cmake --preset "$preset")
  fi
  quietly "$folder/build.log" ninja -C "$folder" -j "$jobs" "$@"
}
