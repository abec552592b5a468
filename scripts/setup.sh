#!/usr/bin/env bash
# setup.sh [--arm64] [--all]: installs the Debian packages that are missing, as root or by a sudo that
# asks for no password; otherwise says which are missing and fails. --arm64 adds what builds and runs
# for 64-bit ARM elsewhere, --all that and what else only the complete check (scripts/test.sh --all)
# needs.
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

packages=(
  cmake ninja-build g++ pkg-config ccache
  libssl-dev libassuan-dev            # the device library
  libp11-kit-dev                      # its PKCS#11 header
  softhsm2 opensc p11-kit-modules     # tokens for the tests
  libcli11-dev nlohmann-json3-dev     # vctk
  libgtest-dev libgmock-dev libbotan-2-dev libbenchmark-dev libexpat1-dev
  locales                             # text tests in other encodings
  openssl pinentry-curses pinentry-tty  # the demo and the end-to-end tests
)
all=(
  clang-14 libclang-rt-14-dev abigail-tools dpkg-dev file git lintian
  python3-pytest mypy                 # the Python package
  groff-base mandoc zsh               # manual pages and completion
  qtbase5-dev                         # the certificate dialog
  xvfb xdotool openbox                # a screen to try it on
  fonts-wqy-zenhei                    # and Chinese letters there
)
arm64=(
  g++-aarch64-linux-gnu qemu-user
  libstdc++6:arm64 libssl-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64 libexpat1-dev:arm64
  libassuan0:arm64 libp11-kit-dev:arm64 qtbase5-dev:arm64
)

command -v dpkg-query >/dev/null || die "this is no Debian; needed: ${packages[*]}"
native=$(dpkg --print-architecture)
cross=no
for option in "$@"; do
  case $option in
    --arm64) cross=yes ;;
    --all) packages+=("${all[@]}") cross=yes ;;
    *) die "usage: setup.sh [--arm64] [--all]" ;;
  esac
done
if [ "$native" = arm64 ]; then cross=no; fi
if [ $cross = yes ]; then packages+=("${arm64[@]}"); fi

missing() {
  local package architecture
  for package in "${packages[@]}"; do
    architecture=$native
    if [[ $package == *:* ]]; then architecture=${package#*:}; fi
    grep -qxF -e "installed ${package%:*} $architecture" -e "installed ${package%:*} all" \
      <<<"$installed" || printf '%s ' "$package"
  done
}

# These exclude the same package for another processor, so their files are unpacked below build/.
apart=(libassuan-dev libassuan0 libbotan-2-dev libc-bin libgpg-error-dev libgpg-error0)
unpack_apart() {
  local folder=$root/build/arm64-root package work
  [ $cross = yes ] || return 0
  for package in "${apart[@]}"; do
    [ ! -e "$folder/$package" ] || continue
    work=$(mktemp -d)
    (cd "$work" && quietly "$work/log" apt-get -q download "$package:arm64")
    mkdir -p "$folder"
    dpkg-deb -x "$work/$package"_*_arm64.deb "$folder"
    rm -r "$work"
    sed -i "s|^prefix=/usr$|prefix=$folder/usr|" "$folder"/usr/lib/*/pkgconfig/*.pc
    touch "$folder/$package"
  done
}

# Names without a processor, so that a foreign one that dpkg does not know yet is no error.
installed=$(dpkg-query -W -f '${db:Status-Status} ${Package} ${Architecture}\n' "${packages[@]%:*}" \
  2>/dev/null) || true
need=$(missing)
[ -n "$need" ] || { unpack_apart && exit 0; }

foreign=""
if [ $cross = yes ] && ! grep -qx arm64 <<<"$(dpkg --print-foreign-architectures)"; then
  foreign="dpkg --add-architecture arm64 && apt-get update && "
fi
if [ "$(id -u)" = 0 ]; then
  as_root=(env)
elif sudo -n true 2>/dev/null; then
  as_root=(sudo -n)
else
  die "these packages are missing: ${need}
  as root:  ${foreign}apt-get install --no-install-recommends $need"
fi

echo "Installing packages: $need"
log=$(mktemp)
if [ -n "$foreign" ]; then "${as_root[@]}" dpkg --add-architecture arm64; fi
# Without the network the lists and packages that are already there may do.
"${as_root[@]}" apt-get -qq update >"$log" 2>&1 || cat "$log" >&2
# shellcheck disable=SC2086 # one word for each package
quietly "$log" "${as_root[@]}" DEBIAN_FRONTEND=noninteractive \
  apt-get -qq -y -o Dpkg::Use-Pty=0 install --no-install-recommends $need
rm -f "$log"
unpack_apart
