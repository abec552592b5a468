#!/bin/sh
# exports.sh LIBRARY TEXT: the toolkit exports the functions of the text file and nothing else, has
# no symbol that would keep it from being unloaded, and needs the C and C++ runtimes and the
# compatibility library alone.
set -eu
nm -D --defined-only "$1" | awk '{print $3}' | sed 's/@.*//' | LC_ALL=C sort | diff "$2" - || {
  echo "exported symbols differ from $2: a function that hosts were built with stays; a new one is" \
    "named there, in vctk.h and in CHANGELOG.md" >&2
  exit 1
}
if nm -D --defined-only "$1" | awk '$2 == "u"' | grep .; then
  echo "unique symbols keep the library from being unloaded" >&2
  exit 1
fi
needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for library in $needed; do
  case $library in
    libVELInterface64.so | libstdc++.so.6 | libm.so.6 | libgcc_s.so.1 | libc.so.6 | ld-linux-*) ;;
    *)
      echo "needs $library" >&2
      exit 1
      ;;
  esac
done
