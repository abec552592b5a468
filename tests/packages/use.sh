#!/usr/bin/env bash
# use.sh PRESET: in a system with the packages installed, builds the C host as pkg-config and as CMake
# tell, signs with each and with vctk, and lets openssl verify. A maker's device library is preferred.
set -euo pipefail
project=/mnt/project
export VEL_KEYSTORE=/tmp/keystore
triplet=$(uname -m)-linux-gnu run=() toolchain=() ldconfig=(ldconfig)
if [ "$1" = packages-arm64 ]; then
  triplet=aarch64-linux-gnu run=(qemu-aarch64)
  toolchain=("-DCMAKE_TOOLCHAIN_FILE=$project/cmake/arm64.cmake")
  # This system's own does not know the other processor's libraries.
  ldconfig=(qemu-aarch64 "$project/build/arm64-root/sbin/ldconfig")
  "${ldconfig[@]}"
fi
cd /tmp

mkdir -m 700 "$VEL_KEYSTORE"
openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out signer.pem -subj "/CN=Zhang" \
  -addext keyUsage=critical,digitalSignature,nonRepudiation -addext basicConstraints=critical,CA:FALSE
openssl pkcs12 -export -in signer.pem -inkey key.pem -certpbe NONE -passout pass:12345678 \
  -out "$VEL_KEYSTORE/zhang.p12"
serial=$(openssl x509 -in signer.pem -noout -serial | sed 's/serial=//')

# signs HOST: the host signs "I agree." with the identity.
signs() {
  "${run[@]}" "$1" "$serial" <<<12345678 >signature.b64
  openssl base64 -d -A -in signature.b64 -out signature.der
  openssl cms -verify -binary -inform DER -in signature.der -CAfile signer.pem -partial_chain \
    -purpose any -out content
  [ "$(cat content)" = "I agree." ]
}

export PKG_CONFIG_LIBDIR=/usr/lib/$triplet/pkgconfig
options=$(pkg-config --cflags --libs vctk)
read -ra flags <<<"$options"
"$triplet-gcc" "$project/examples/c/sign.c" "${flags[@]}" -o by_pkg_config
signs ./by_pkg_config

cmake -G Ninja -S "$project/tests/packages/host" -B host "${toolchain[@]}"
cmake --build host
signs host/sign

echo "a document" >document
echo 12345678 >pin
chmod 600 pin
"${run[@]}" /usr/bin/vctk sign document --cert "$serial" --pin-file pin --binary -o signature.der
openssl cms -verify -binary -inform DER -in signature.der -CAfile signer.pem -partial_chain \
  -purpose any -out content
cmp document content

# What the loader finds first is what the toolkit uses.
found() { sed -n "/.*libVELCrypto64.so .*=> /{s///p;q}" <<<"$("${ldconfig[@]}" -p)"; }
ours=/usr/lib/$triplet/vel/libVELCrypto64.so
[ "$(found)" = "$ours" ]

maker_comes_first() {
  mkdir -p "$1"
  cp "$ours" "$1/libVELCrypto64.so"
  "${ldconfig[@]}"
  [ "$(found)" = "$1/libVELCrypto64.so" ]
  rm "$1/libVELCrypto64.so"
}
maker_comes_first /usr/lib
echo /opt/maker >/etc/ld.so.conf.d/maker.conf
maker_comes_first /opt/maker
rm -r /opt/maker /etc/ld.so.conf.d/maker.conf
"${ldconfig[@]}"
[ "$(found)" = "$ours" ]
