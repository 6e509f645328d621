#!/usr/bin/env bash
# Builds the Debian packages, runs lintian, installs them in a clean Debian made by debootstrap, uses program and library
# there and removes them again. Run by `scripts/check.sh package`; wants root.
#   CHROOT=FOLDER   use and keep this system instead of a new one
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/package
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
mirror=${MIRROR:-http://deb.debian.org/debian}

CFLAGS="$(dpkg-buildflags --get CFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
  CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
  LDFLAGS="$(dpkg-buildflags --get LDFLAGS)" \
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON \
  -DVNDLP_BUILD_TESTS=OFF -DVNDLP_BUILD_EXAMPLES=OFF -DVNDLP_WITH_LIBDEFLATE=ON -DVNDLP_WITH_HIGHWAY=ON \
  -DVNDLP_WITH_TRIMESH2=OFF -DVNDLP_INSTALL_BOTH=ON
cmake --build "$build" ${JOBS:+-j "$JOBS"}
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB)
lintian --allow-root --fail-on error,warning "$build"/*.deb

chroot=${CHROOT:-$PWD/build/chroot}
if [ ! -e "$chroot/etc/debian_version" ]; then
  debootstrap --variant=minbase "$suite" "$chroot" "$mirror" >/dev/null
fi
clean_up() {
  ! mountpoint -q "$chroot/proc" || umount "$chroot/proc"
  [ -n "${CHROOT:-}" ] || rm -rf --one-file-system "$chroot"
}
trap clean_up EXIT
rm -rf "$chroot/check"
mkdir "$chroot/check"
cp "$build"/*.deb tests/package/CMakeLists.txt tests/package/consumer.* tests/package/c_interface.c \
  examples/lattice_tower.sl1 docs/python.md "$chroot/check"
cp -r python/tests python/examples "$chroot/check"
# what runs in processes of its own is looked at through /proc
mountpoint -q "$chroot/proc" || mount -t proc proc "$chroot/proc" || echo "no /proc in there: the farm is not tried" >&2
cat >"$chroot/check/run" <<'RUN'
set -eu
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
cd /check
apt-get update -q
apt-get install -y -q --no-install-recommends g++ cmake make pkg-config
dpkg --get-selections >before
apt-get install -y -q --no-install-recommends ./*.deb

vndlp --version
vndlp convert lattice_tower.sl1 tower.vndlp --set machine=M01
vndlp verify tower.vndlp
test -f /usr/share/man/man1/vndlp.1.gz
. /usr/share/bash-completion/completions/vndlp
ldd "$(command -v vndlp)" | grep 'libvndlp.so.0.1 => /'

cmake -B find_package .
cmake --build find_package
find_package/consumer a.vnline
find_package/c_consumer
c++ -std=c++17 consumer.cpp -o consumer $(pkg-config --cflags --libs vndlp)
./consumer a.vnline
test -f /usr/share/doc/libvndlp-doc/guide.md
cc -std=c99 consumer.c -o c_consumer $(pkg-config --cflags --libs vndlp)
./c_consumer
mkdir c && find_package/c_interface c

apt-get install -y -q --no-install-recommends python3-pytest python3-distributed python3-pil
export VNDLP_PROGRAM=/usr/bin/vndlp VNDLP_GUIDE=/check/python.md PYTHONDONTWRITEBYTECODE=1
tests=(tests --basetemp=/check/tmp)
[ -e /proc/self ] || tests+=(--ignore tests/test_farm.py)
python3 tests/run.py python3-pytest "${tests[@]}"
unset PYTHONDONTWRITEBYTECODE
python3 -c 'import vndlp'

apt-get purge -y -q vndlp python3-vndlp libvndlp-dev libvndlp-doc libvndlp0.1
if find / -xdev -path /check -prune -o -path /proc -prune -o -name '*vndlp*' -print | grep .; then
  echo "this was left behind" >&2
  exit 1
fi
RUN
chroot "$chroot" bash /check/run
echo "package: ok"
