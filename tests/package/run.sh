#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries the Debian packages: lintian, the library unpacked, all of them installed in a bare Debian root.
#   tests/package/run.sh FOLDER
set -euo pipefail
packages=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

lintian --allow-root --fail-on error "$packages"/*.deb

for package in "$packages"/*.deb; do
  dpkg -x "$package" "$work/root"
done
"$here/../consumer/run.sh" "$work/root/usr"

# What the installed packages do in a root that has nothing else; its name is one that ASCII lacks.
cat >"$work/try.sh" <<'END'
set -eux
cd /try
head -c 10240 /dev/urandom >map.bin
Pellmor -kind:wmap Süd.mp4 map.bin
pellmor-edit --version
pellmor-edit get map Süd.mp4 -o copy.bin
cmp map.bin copy.bin
test -s /usr/share/bash-completion/completions/pellmor-edit
test -s /usr/share/man/man1/pellmor-edit.1.gz
python3 -c 'import pellmor; assert pellmor.slam.get("Süd.mp4", "map") == open("map.bin", "rb").read()'
END
cp "$here/../data/sample.mp4" "$work/Süd.mp4"
mkdir "$work/try"
mv "$work/Süd.mp4" "$work/try.sh" "$work/try"
cp "$packages"/*.deb "$work/try"

. /etc/os-release
if mmdebstrap --quiet --variant=apt --format=null --dpkgopt=force-unsafe-io --aptopt='Acquire::Languages "none"' \
  --customize-hook="copy-in '$work/try' /" \
  --customize-hook="touch '$work/bare'" \
  --customize-hook='chroot "$1" sh -c "apt-get install -y --no-install-recommends /try/*.deb"' \
  --customize-hook='chroot "$1" sh /try/try.sh' \
  "$VERSION_CODENAME" >"$work/log" 2>&1; then
  echo "The packages work in a bare Debian root."
elif [ -e "$work/bare" ]; then
  tail -40 "$work/log" >&2
  exit 1
else
  echo "SKIPPED: no bare Debian root could be made here, so the packages were not installed in one:" >&2
  tail -3 "$work/log" >&2
fi
