#!/usr/bin/env bash
# setup.sh [--all]: installs the Debian packages that are missing, as root or by a sudo that asks
# for no password; otherwise says which are missing and fails. --all adds what only the complete
# check (scripts/test.sh --all) needs.
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

packages=(
  cmake ninja-build g++ pkg-config ccache
  libssl-dev libassuan-dev            # the device library
  libcli11-dev nlohmann-json3-dev     # vctk
  libgtest-dev libgmock-dev libbotan-2-dev libbenchmark-dev libexpat1-dev
  locales                             # text tests in other encodings
  openssl pinentry-curses             # the demo and the end-to-end tests
)
all=(clang-14)

case ${1-} in
  '') ;;
  --all) packages+=("${all[@]}") ;;
  *) die "usage: setup.sh [--all]" ;;
esac

missing() {
  local package
  for package in "${packages[@]}"; do
    grep -qx "installed $package" <<<"$installed" || printf '%s ' "$package"
  done
}

command -v dpkg-query >/dev/null || die "this is no Debian; needed: ${packages[*]}"
installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${packages[@]}" 2>/dev/null) || true
need=$(missing)
[ -n "$need" ] || exit 0

if [ "$(id -u)" = 0 ]; then
  as_root=(env)
elif sudo -n true 2>/dev/null; then
  as_root=(sudo -n)
else
  die "these packages are missing: ${need}
  as root:  apt-get install --no-install-recommends $need"
fi

echo "Installing packages: $need"
log=$(mktemp)
# Without the network the lists and packages that are already there may do.
"${as_root[@]}" apt-get -qq update >"$log" 2>&1 || cat "$log" >&2
# shellcheck disable=SC2086 # one word for each package
quietly "$log" "${as_root[@]}" DEBIAN_FRONTEND=noninteractive \
  apt-get -qq -y -o Dpkg::Use-Pty=0 install --no-install-recommends $need
rm -f "$log"
