#!/usr/bin/env bash
# installed.sh PRESET PACKAGE...: installs the packages into a copy-on-write view of this system (an
# overlay in a mount namespace: nothing of it stays), runs use.sh there, removes the packages, and
# fails when a file of theirs is left. Skips, and says so, where a machine allows no namespaces.
set -euo pipefail
if [ "${1-}" != --inside ]; then
  namespaces=(--mount)
  if [ "$(id -u)" != 0 ]; then namespaces+=(--map-root-user); fi
  unshare "${namespaces[@]}" true 2>/dev/null || {
    echo "SKIPPED: installing the packages needs mount namespaces, which this machine does not allow"
    exit 0
  }
  exec unshare "${namespaces[@]}" "$0" --inside "$@"
fi
shift
preset=$1
shift
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)

# The tree and the packages stay reachable below this mount, whatever it covers.
stage=$(mktemp -d)
mount --make-rprivate /
mount -t tmpfs stage "$stage"
mkdir "$stage/upper" "$stage/work" "$stage/system"
mount -t overlay overlay -o "lowerdir=/,upperdir=$stage/upper,workdir=$stage/work" "$stage/system"
mount --rbind /dev "$stage/system/dev"
mount --rbind /proc "$stage/system/proc"
mkdir -p "$stage/system/mnt/project"
mount --bind "$root" "$stage/system/mnt/project"
mount -t tmpfs tmp "$stage/system/tmp"

packages=()
names=()
for package in "$@"; do
  packages+=("/mnt/project/${package#"$root"/}")
  names+=("$(dpkg-deb -f "$package" Package):$(dpkg-deb -f "$package" Architecture)")
done

same=$(for package in "$@"; do dpkg-deb -f "$package" Description | sed -n 1p; done | sort | uniq -d)
if [ -n "$same" ]; then
  echo "installed.sh: packages with the same summary: $same" >&2
  exit 1
fi

inside() {
  local log=$stage/log
  chroot "$stage/system" env -i PATH="$PATH" LC_ALL=C.UTF-8 HOME=/tmp "$@" >"$log" 2>&1 </dev/null || {
    cat "$log" >&2
    echo "installed.sh: failed: $*" >&2
    exit 1
  }
}
inside dpkg --install "${packages[@]}"
inside /mnt/project/tests/packages/use.sh "$preset"
inside dpkg --purge "${names[@]}"

# What dpkg, ldconfig and man keep for themselves is not the packages'; a device file marks a removal.
left=$(cd "$stage/upper" && find . ! -type d ! -path './var/lib/dpkg/*' ! -path './var/log/*' \
  ! -path './var/cache/ldconfig/*' ! -path ./etc/ld.so.cache ! -path './var/cache/man/*')
left+=$(cd "$stage/upper" && find ./etc/ld.so.conf.d ./usr/lib ./usr/share -iname '*vel*' -o -name '*vctk*')
if [ -n "$left" ]; then
  printf 'installed.sh: left behind by the packages:\n%s\n' "$left" >&2
  exit 1
fi
echo "$preset: ${#packages[@]} packages installed, hosts built and signing, everything removed"
