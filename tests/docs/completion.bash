#!/usr/bin/env bash
# completion.bash FOLDER PROGRAM: the completion for bash and (where that is) zsh in the folder offers
# what the help of each of the program's commands lists, and the values that it takes.
# shellcheck disable=SC2317 # by_bash and by_zsh are called by expect
set -uo pipefail
folder=$1 program=$2 status=0
export LC_ALL=C.UTF-8

# by_bash WORD...: what is offered for the last word, sorted, on one line.
by_bash() {
  bash --norc -c '
    compopt() { echo "compopt $*" >&2; }
    source "$1" && shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _vctk "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>/dev/null
    printf "%s\n" "${COMPREPLY[@]}"' bash "$folder/vctk.bash" "$@" | sort | xargs
}

# With functions in the place of those of zsh, which need a terminal. They print names alone; the
# filters are completed with "=" as suffix.
by_zsh() {
  zsh -f -c '
    _describe() { [[ $1 == -o ]] && shift; print -l -- ${${(P)2}%%:*}; }
    _files() { :; }
    compadd() { local s; [[ $1 == -S ]] && s=$2 && shift 2; shift; print -l -- ${^@}$s; }
    file=$1; shift
    words=("$@") CURRENT=$#
    _vctk() { eval "$(<$file)"; }
    _vctk' zsh "$folder/_vctk" "$@" | { if [ -n "${*: -1}" ]; then grep "^${*: -1}"; else cat; fi; } |
    sort | xargs
}

expect() {
  local want=$1 shell got
  shift
  for shell in bash zsh; do
    command -v $shell >/dev/null || continue
    got=$("by_$shell" "$program" "$@")
    [ "$got" = "$want" ] && continue
    echo "$shell: vctk $*: offers \"$got\", not \"$want\"" >&2
    status=1
  done
}

# listed PART COMMAND...: the names in a part of the help, sorted, on one line.
listed() {
  local part=$1
  shift
  "$program" "$@" --help | awk -v part="$part:" '$0 == part {inside = 1; next} /^$/ {inside = 0}
    inside && /^  [^ ]/ {print $1}' | tr ',' '\n' | sort | xargs
}

described=0
walk() {
  local command
  described=$((described + 1))
  expect "$(listed Options "$@")" "$@" -
  expect "$(listed Options "$@" | tr ' ' '\n' | grep '^--' | sort | xargs)" "$@" --
  expect "$(listed Subcommands "$@")" "$@" ""
  for command in $(listed Subcommands "$@"); do walk "$@" "$command"; done
}
walk
[ $described -ge 6 ] || { echo "only $described commands are seen" >&2; status=1; }

# Values, as the help of the options tells them.
filters=$("$program" certs --help | sed -n 's/.*NAME is one of //p' | tr -d ' ' | tr ',' '\n' | sort |
  sed 's/$/=/' | xargs)
for command in certs sign "pin change"; do
  # shellcheck disable=SC2086 # the words of the command
  expect "$filters" $command --filter ""
done
digests=$("$program" sign --help | grep -A 1 -- --digest | grep -o '\(MD\|SHA\|SM\)[0-9]*' | sort | xargs)
expect "$digests" sign --digest ""
expect "SHA1 SHA256 SHA512" sign --digest SH
expect "" sign --pin-file ""
expect "" sign contract.pdf -o ""
expect "--cert" sign contract.pdf --ce
expect "change" pin ch

# Serial numbers are those that the program lists.
VEL_KEYSTORE=$(mktemp -d)
trap 'rm -rf "$VEL_KEYSTORE"' EXIT
export VEL_KEYSTORE VCTK_KEY_LIST=
key=$VEL_KEYSTORE/.key certificate=$VEL_KEYSTORE/.certificate
openssl req -x509 -newkey rsa:2048 -nodes -days 30 -subj /CN=a -addext keyUsage=digitalSignature \
  -set_serial 0x1F2E3D4C -keyout "$key" -out "$certificate" 2>/dev/null
openssl pkcs12 -export -in "$certificate" -inkey "$key" -certpbe NONE -passout pass:12345678 \
  -out "$VEL_KEYSTORE/key.p12"
expect 1F2E3D4C sign --cert ""
expect "" sign --cert 3
exit $status
