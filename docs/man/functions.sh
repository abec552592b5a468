#!/bin/sh
# functions.sh HEADER VERSION FOLDER: makes the pages of section 3 in the folder, compressed.
set -eu
mkdir -p "$3"
rm -f "$3"/*.3.gz
awk -f "$(dirname "$0")/functions.awk" -v folder="$3" -v version="$2" "$1"
gzip -9n "$3"/*.3
