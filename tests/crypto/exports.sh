#!/bin/sh
# exports.sh LIBRARY: the device library exports its twelve factories and nothing else, and stays
# loaded once it is.
set -eu
nm -D --defined-only "$1" | awk '{print $3}' | LC_ALL=C sort | diff "$(dirname "$0")/exports.txt" - || {
  echo "exported symbols differ from exports.txt: the toolkit resolves these twelve and no others" >&2
  exit 1
}
readelf -d "$1" | grep -q NODELETE || {
  echo "may be unloaded" >&2
  exit 1
}
if readelf -d "$1" | grep -q libVELClientTK; then
  echo "links the toolkit" >&2
  exit 1
fi
