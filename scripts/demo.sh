#!/usr/bin/env bash
# demo.sh [--keep] [FILE]: makes a certificate authority, an RSA and an SM2 identity, signs FILE
# (default: the project's licence text) in every way, and verifies every signature with openssl.
# --keep leaves the files and says where. $VCTK names another vctk program, which is not built.
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
export LC_ALL=C.UTF-8

keep=no
if [ "${1-}" = --keep ]; then keep=yes && shift; fi
[ $# -le 1 ] || die "usage: demo.sh [--keep] [FILE]"
document=${1:-$root/LICENSE}
if [ ! -f "$document" ] || [ ! -r "$document" ]; then die "cannot read $document"; fi

if [ -z "${VCTK-}" ]; then
  "$root/scripts/setup.sh"
  build release vctk VELCrypto64
  VCTK=$root/build/release/bin/vctk
fi

work=$(mktemp -d)
if [ $keep = no ]; then trap 'rm -rf "$work"' EXIT; fi
# A key list and a key store of its own: whatever the user has configured plays no part.
export VEL_KEYSTORE=$work/keystore VCTK_KEY_LIST=$work/keylist.xml
mkdir -m 700 "$VEL_KEYSTORE"
cat >"$VCTK_KEY_LIST" <<'XML'
<authinfo><liblist>
  <lib type="CSP" version="1"><algid val="SHA256" sm2_hashalg="SM3"/></lib>
</liblist></authinfo>
XML
(umask 077 && echo 12345678 >"$work/pin")
log=$work/log

new_authority() {
  quietly "$log" openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 30 -utf8 \
    -subj "/C=CN/O=演示机构/CN=演示根证书" -keyout "$work/ca.key" -out "$work/ca.pem"
}

# new_identity STEM NAME KEY-ARGUMENT...: key, certificate, and both in the key store.
new_identity() {
  local stem=$work/$1 name=$2 request=() issue=()
  shift 2
  quietly "$log" openssl genpkey "$@" -out "$stem.key"
  if [[ $* == *SM2* ]]; then
    request=(-sm3 -sigopt distid:1234567812345678)
    issue=(-vfyopt distid:1234567812345678)
  fi
  quietly "$log" openssl req -new -key "$stem.key" -utf8 -subj "/C=CN/O=演示机构/CN=$name" \
    "${request[@]}" -out "$stem.csr"
  printf 'basicConstraints=critical,CA:FALSE\nkeyUsage=critical,digitalSignature,nonRepudiation\n' \
    >"$work/extensions"
  quietly "$log" openssl x509 -req -in "$stem.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" \
    -CAcreateserial -sha256 -days 30 -extfile "$work/extensions" "${issue[@]}" -out "$stem.pem"
  # Unencrypted certificates can be listed without the PIN; the key stays encrypted by it.
  quietly "$log" openssl pkcs12 -export -in "$stem.pem" -inkey "$stem.key" -name "$name" \
    -certpbe NONE -passout "file:$work/pin" -out "$VEL_KEYSTORE/${stem##*/}.p12"
}

serial_of() { openssl x509 -in "$work/$1.pem" -noout -serial | sed 's/serial=//'; }

# signed KIND STEM OPTION...: signs the document, verifies the signature.
signed() {
  local kind=$1 stem=$2 out=$work/$1-$2.sig
  shift 2
  "$VCTK" sign "$document" --cert "$(serial_of "$stem")" --pin-file "$work/pin" --binary -o "$out" "$@"
  "$root/scripts/verify.sh" "$kind" "$out" "$document" "$work/$stem.pem" "$work/ca.pem"
  count=$((count + 1))
  printf '  %-4s %-36s %7d bytes  verified by openssl\n' "${stem^^}" "vctk sign $*" "$(wc -c <"$out")"
}

new_authority
new_identity rsa "张三" -algorithm RSA -pkeyopt rsa_keygen_bits:2048
new_identity sm2 "李四" -algorithm SM2
echo "Two identities of a certificate authority made for this run, in a fresh key store:"
"$VCTK" certs | sed 's/^/  /'

echo "Signatures of $document ($(wc -c <"$document") bytes):"
count=0
for stem in rsa sm2; do
  signed p1 $stem --p1
  signed p7 $stem --p7
  signed detached $stem --p7 --detached
done
echo "All $count signatures verified."
if [ $keep = yes ]; then echo "Keys, certificates and signatures are in $work"; fi
