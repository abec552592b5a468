#!/bin/sh
# vctk.sh TEMPLATE VERSION PROGRAM...: the manual page vctk.1 to standard output. The template's line
# "@COMMANDS@" gives way to what "PROGRAM... --help" tells of each command, "@NOTES@" to what stands
# below the options there.
set -eu
here=$(dirname "$0")
template=$1 version=$2
shift 2

# subcommands COMMAND...: one on each line.
subcommands() { "$@" --help | awk '/^[^ ]/ {inside = 0} inside {print $1} /^Subcommands:/ {inside = 1}'; }

# describe NAME PROGRAM COMMAND...: its part, or those of the commands below it.
describe() {
  name=$1
  shift
  below=$(subcommands "$@")
  if [ -z "$below" ]; then
    "$@" --help | awk -v command="$name" -f "$here/commands.awk"
  else
    for word in $below; do (describe "$name $word" "$@" "$word"); done
  fi
}

notes() {
  "$@" --help | sed 's/-/\\-/g' | awk '
    NR <= 2 || /^ / || /:$/ {next}
    /^$/ {gap = 1; next}
    {if (gap && seen) print ".PP"; gap = 0; seen = 1; print}'
}

sed "s/@VERSION@/$version/" "$template" | while IFS= read -r line; do
  case $line in
    @COMMANDS@) describe vctk "$@" ;;
    @NOTES@) notes "$@" ;;
    *) printf '%s\n' "$line" ;;
  esac
done
