#!/bin/sh
# include_order.sh FOLDER: the includes of the toolkit's folder follow the order of its README.md,
# which lists every header.
set -eu
cd "$1"
grep -H '^#include "' -- *.h *.cpp | sed 's/:#include "\([^"]*\)".*/ \1/' | awk '
  BEGIN {
    while ((getline line < "README.md") > 0) {
      if (line ~ /^\*\*/) ++groups
      for (; match(line, /`[A-Za-z0-9]*\.(h|cpp)`/) && line ~ /^- /; sub(/`[^`]*`/, "", line)) {
        name = substr(line, RSTART + 1, RLENGTH - 2)
        place[name] = ++count
        group[name] = groups
      }
    }
  }
  # The entry of the file, or for a source of the header with the longest beginning of its name.
  function entry_of(file,   stem) {
    if (file in place || file ~ /\.h$/) return file
    stem = substr(file, 1, length(file) - 4)
    while (length(stem) > 0 && !((stem ".h") in place)) stem = substr(stem, 1, length(stem) - 1)
    return stem ".h"
  }
  function complain(what) {
    print what
    bad = 1
  }
  $2 == "VELInterface.h" {next}
  {
    from = entry_of($1)
    if (!(from in place)) complain($1 " is not in README.md")
    else if (!($2 in place)) complain($1 " includes " $2 ", which is not in README.md")
    else if (group[$2] > group[from] || ($1 ~ /\.h$/ && place[$2] > place[from]))
      complain($1 " includes " $2 ", which stands below it in README.md")
  }
  END {exit bad}' >&2
for header in *.h; do
  grep -q "^- .*\`$header\`" README.md || { echo "$header is not in README.md" >&2; exit 1; }
done
