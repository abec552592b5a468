#!/usr/bin/env bash
# Stands between the demonstration and the real program ($REAL_VCTK): changes the last byte of the
# signature whose file name contains $TAMPER, or fails at signing when $TAMPER is "fail".
if [ "$TAMPER" = fail ] && [ "$1" = sign ]; then exit 1; fi
"$REAL_VCTK" "$@" || exit
while [ $# -gt 1 ]; do
  shift
  if [ "$1" = -o ]; then out=$2; fi
done
[[ ${out-} == *"$TAMPER"* ]] || exit 0
last=$(tail -c 1 "$out" | od -An -tu1)
truncate -s -1 "$out"
# shellcheck disable=SC2059
printf "\\$(printf %o $((last ^ 1)))" >>"$out"
