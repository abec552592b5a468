#!/bin/sh
# deliberate.sh PROJECT: every test that docs/deliberate.md names exists, and every row names one.
set -eu
cd "$1"
status=0
rows=$(grep '^| ' docs/deliberate.md | grep -v '^| What happens')
if printf '%s\n' "$rows" | grep '|  *|$'; then
  echo "rows without a test" >&2
  status=1
fi
tests=$(cat tests/*/*.cpp | tr -d '\n' | grep -oE 'TEST(_F|_P|_BOTH)?\([A-Za-z0-9_, ]*\)' | tr -d ' ')
for name in $(printf '%s\n' "$rows" | sed 's/.*|\([^|]*\)|$/\1/' | grep -o '[A-Za-z0-9]*\.[A-Za-z0-9]*'); do
  case $tests in
    *"(${name%.*},${name#*.})"* | *"TEST_BOTH(${name#*.})"*) ;;
    *)
      echo "there is no test $name" >&2
      status=1
      ;;
  esac
done
exit $status
