#!/bin/sh
# manual.sh HEADER PAGES PROGRAM...: every function of the header has a page with its declaration,
# every line of a comment stands in some page, vctk.1 tells of every command and option of the
# program, and groff and mandoc (where that is) find nothing to warn of.
set -eu
export LC_ALL=C.UTF-8
header=$1 pages=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wrong() { echo "$*" | tee -a "$work/wrong" >&2; }

mkdir "$work/man1"
cp -r "$pages/man3" "$work/man3"
cp "$pages/vctk.1.gz" "$work/man1"
gunzip "$work"/man?/*.gz
cd "$work"

# show PAGE...: as a reader of very wide lines sees them, with single spaces.
show() { groff -s -ww -man -Tascii -P-cbou -rHY=0 -rLL=5000n "$@" 2>>"$work/warnings" | tr -s ' '; }

# expect TEXT IN: the text with single spaces stands in the file.
expect() {
  text=$(printf '%s' "$1" | tr -s ' \n' '  ' | sed 's/^ //; s/ $//')
  grep -qF -e "$text" "$2" || wrong "$2 does not tell: $text"
}

functions=$(sed -n 's/^VCTK_API.*\(VCTK_[A-Za-z0-9]*\)(.*/\1/p' "$header")
[ -n "$functions" ] || wrong "no functions in $header"
for name in $functions; do
  show "man3/$name.3" | tr -s ' \n' '  ' >"$name"
  declaration=$(awk -v name=" $name(" 'index($0, name) && /^VCTK_API/ {inside = 1}
    inside {sub(/^VCTK_API /, ""); print} /;$/ {inside = 0}' "$header")
  expect "$declaration" "$name"
done
# shellcheck disable=SC2086 # one name for each function
[ "$(ls man3)" = "$(printf '%s.3\n' vctk $functions | sort)" ] || wrong "pages of no function"

show man3/*.3 >all
awk '/^\/\*/ {inside = 1} inside && !/ --- / && !/ ---$/ && !/Rules for all/ {print}
  /\*\// {inside = 0}' "$header" |
  sed '1d; s/^[ /]\*//; s/\*\/$//; s/^ *[A-Za-z]*   *//' >comments
while read -r line; do expect "$line" all; done <comments
[ "$(wc -l <comments)" -gt 80 ] || wrong "few comments are seen"

show man1/vctk.1 >vctk.1
describe() {
  help=$("$@" --help)
  for option in $(printf '%s\n' "$help" | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr ',' '\n'); do
    [ "$option" = -h ] || expect "$option" vctk.1
  done
  for command in $(printf '%s\n' "$help" | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'); do
    expect "$command" vctk.1
    (describe "$@" "$command")
  done
}
describe "$@"

if command -v mandoc >/dev/null; then
  mandoc -T lint -W warning man?/* | grep -v 'missing date\|so is fragile' >>warnings || true
fi
[ ! -s warnings ] || wrong "$(cat warnings)"
[ ! -e wrong ]
