#!/usr/bin/env bash
# verify.sh p1|p7|detached SIGNATURE CONTENT CERTIFICATE CA: checks a signature with the openssl
# program alone. SIGNATURE is binary, CERTIFICATE (the signer's) and CA are PEM files. RSA bare
# signatures are SHA1 ones; SM2 signatures are SM3 ones for the user id 1234567812345678.
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
[ $# = 5 ] || die "usage: verify.sh p1|p7|detached SIGNATURE CONTENT CERTIFICATE CA"
kind=$1 signature=$2 content=$3 certificate=$4 ca=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
openssl x509 -in "$certificate" -pubkey -noout -out "$work/public.pem"
is_sm2() { [[ $(openssl pkey -pubin -in "$work/public.pem" -noout -text) == *SM2* ]]; }

check() {
  local what=$1
  shift
  "$@" >"$work/log" 2>&1 && return
  cat "$work/log" >&2
  die "$what: NOT verified"
}

bare_sm2() {
  check "SM2 signature" openssl pkeyutl -verify -rawin -digest sm3 \
    -pkeyopt distid:1234567812345678 -pubin -inkey "$work/public.pem" -in "$2" -sigfile "$1"
}

chain() {
  local options=()
  if [[ $(openssl x509 -in "$ca" -noout -text) == *"Signature Algorithm: SM2"* ]]; then
    options=(-vfyopt distid:1234567812345678)
  fi
  check "certificate chain" openssl verify -CAfile "$ca" "${options[@]}" "$1"
}

# cut OFFSET HEADER LENGTH FROM: the content bytes of an element.
cut_element() { head -c $(($1 + $2 + $3)) "$4" | tail -c "$3"; }

# openssl knows the PKCS#7 identifiers and not those of GM/T 0010, so the structure is taken apart.
sm2_pkcs7() {
  openssl asn1parse -inform DER -in "$signature" >"$work/parts"
  sed -i 's/^ *\([0-9]*\):d=\([0-9]*\) *hl=\([0-9]*\) *l= *\([0-9]*\) *\([a-z]*\): *\(.*[^ ]\) *$/\1 \2 \3 \4 \6/' \
    "$work/parts"
  # Depth 5 holds the content, if attached, and last the signature of the one signer.
  local offset header length strings=() expected=1
  mapfile -t strings < <(awk '$2 == 5 && $5 $6 == "OCTETSTRING" {print $1, $3, $4}' "$work/parts")
  if [ "$kind" = p7 ]; then expected=2; fi
  [ ${#strings[@]} = "$expected" ] || die "the structure has ${#strings[@]} octet strings, not $expected"
  read -r offset header length <<<"${strings[-1]}"
  cut_element "$offset" "$header" "$length" "$signature" >"$work/bare"
  if [ "$kind" = p7 ]; then
    read -r offset header length <<<"${strings[0]}"
    cut_element "$offset" "$header" "$length" "$signature" >"$work/attached"
    check "attached content" cmp "$work/attached" "$content"
  fi
  bare_sm2 "$work/bare" "$content"
  # The first certificate in the structure is the signer's: at depth 4, below the first [0] of
  # depth 3.
  read -r offset header length < <(awk '$2 == 3 && $5 == "cont" {inside = 1; next}
    inside && $2 == 4 {print $1, $3, $4; exit}' "$work/parts")
  cut_element "$offset" 0 $((header + length)) "$signature" >"$work/signer.der"
  openssl x509 -in "$certificate" -outform DER -out "$work/expected.der"
  check "signer's certificate" cmp "$work/signer.der" "$work/expected.der"
}

case $kind in
  p1)
    if is_sm2; then
      bare_sm2 "$signature" "$content"
    else
      check "RSA signature" openssl dgst -sha1 -verify "$work/public.pem" \
        -signature "$signature" "$content"
    fi
    chain "$certificate"
    ;;
  p7 | detached)
    if is_sm2; then
      sm2_pkcs7
      chain "$certificate"
    elif [ "$kind" = p7 ]; then
      check "PKCS#7 signature" openssl cms -verify -binary -inform DER -in "$signature" \
        -CAfile "$ca" -purpose any -out "$work/attached"
      check "attached content" cmp "$work/attached" "$content"
    else
      check "PKCS#7 signature" openssl cms -verify -binary -inform DER -in "$signature" \
        -content "$content" -CAfile "$ca" -purpose any -out /dev/null
    fi
    ;;
  *) die "unknown kind of signature: $kind" ;;
esac
