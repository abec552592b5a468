#!/bin/sh
# abi.sh [--write] LIBRARY REFERENCE HEADER...: compares the functions that the library exports, and the
# types that they hand out as far as the headers declare them, with the reference (an XML text by
# abidw, the same for all processors). --write replaces the reference.
set -eu
if [ "$1" = --write ]; then
  write=yes
  shift
else
  write=no
fi
library=$1 reference=$2
shift 2
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
mkdir "$work/headers"
ln -s "$@" "$work/headers"  # abidw knows headers by their names
# Paths of the sources say nothing about the interface.
abidw --no-corpus-path --no-comp-dir-path --no-show-locs --exported-interfaces-only \
  --headers-dir "$work/headers" --drop-private-types "$library" | sed "s|\(<abi-instr.* path='\)[^']*/|\1|" >"$work/found.abi"
if [ $write = yes ]; then
  cp "$work/found.abi" "$reference"
  exit 0
fi
abidiff --no-architecture --harmless "$reference" \
  "$work/found.abi" >"$work/differences" && exit 0
cat "$work/differences" - >&2 <<END

The exported interface is not that of $reference.
Hosts and device libraries that exist were built against it:
- changed, moved or removed: undo it. Nothing else helps them.
- added on purpose, behind everything that was there: name it in exports.txt and CHANGELOG.md, then
  run the command of this test (ctest -V shows it) with --write as its first argument.
END
exit 1
