#!/usr/bin/env bash
# packages.sh [--arm64] [--all] [--reproducible]: makes the Debian packages for this machine's
# processor (--arm64: for 64-bit ARM, --all: for both), lets lintian look at them, installs them into a
# copy-on-write view of this system, signs with hosts that are built against what was installed, and
# removes them again. --reproducible makes them a second time from a copy of the tree in another folder
# and compares.
# shellcheck source=scripts/common.sh disable=SC2030,SC2031
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

presets=()
reproducible=no
foreign=(packages-arm64)
if [ "$(uname -m)" = aarch64 ]; then foreign=(); fi
for option in "$@"; do
  case $option in
    --arm64) presets+=("${foreign[@]:-packages}") ;;
    --all) presets+=(packages "${foreign[@]}") ;;
    --reproducible) reproducible=yes ;;
    *) die "usage: packages.sh [--arm64] [--all] [--reproducible]" ;;
  esac
done
[ ${#presets[@]} -gt 0 ] || presets=(packages)

# All files get the time of the newest entry of the packages' changelog.
SOURCE_DATE_EPOCH=$(date -d "$(sed -n '/^ -- .*>  /{s///p;q}' "$root/packaging/debian/changelog")" +%s)
export SOURCE_DATE_EPOCH

# make_packages PRESET: in the tree that $root names.
make_packages() {
  local folder=$root/build/$1
  build "$1"
  rm -rf "$folder/packages"
  (cd "$folder" && quietly "$folder/cpack.log" cpack)
}

look_at_packages() {
  local preset=$1 packages=("$root/build/$1/packages"/*.deb)
  lintian --allow-root --display-level error --fail-on error "${packages[@]}" ||
    die "$preset: lintian found errors"
  "$root/tests/packages/installed.sh" "$preset" "${packages[@]}"
}

compare_with_second_build() {
  local preset=$1 copy differing
  copy=$(mktemp -d)
  (cd "$root" && git ls-files -coz --exclude-standard | tar -c --null -T - --ignore-failed-read) |
    tar -x -C "$copy"
  if [ -e "$root/build/arm64-root" ]; then
    mkdir "$copy/build" && ln -s "$root/build/arm64-root" "$copy/build/arm64-root"
  fi
  (root=$copy && make_packages "$preset") >/dev/null
  differing=$(diff -q "$root/build/$preset/packages" "$copy/build/$preset/packages") ||
    die "two builds differ ($copy is kept): $differing"
  rm -rf "$copy"
  echo "$preset: a second build in another folder gave the same packages"
}

"$root/scripts/setup.sh" --all
trap wait EXIT
for preset in "${presets[@]}"; do
  make_packages "$preset"
  look_at_packages "$preset" &  # leaves a processor for the second build
  if [ $reproducible = yes ]; then compare_with_second_build "$preset"; fi
  wait $!
done
