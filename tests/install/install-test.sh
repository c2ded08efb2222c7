#!/usr/bin/env bash
# Installs a build into a temporary prefix and uses it as people do: the layout, laserctl run from elsewhere, and
# an outside CMake project and a pkg-config query against the installed package.
#   tests/install/install-test.sh BUILD_DIR SOURCE_DIR [EXTRA_CXX_FLAGS]
set -euo pipefail
build=$1 source=$2 flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" > "$work/install.log"
libdir=$(cd "$prefix" && { ls -d lib*/devlaser lib/*/devlaser 2>/dev/null || true; } | head -1)
fail() { echo "install test: $*" >&2; exit 1; }
[[ -n $libdir ]] || fail "no plug-in folder under lib"
ls "$prefix/$libdir"/libDevLaser.so.*.*.* > /dev/null || fail "the plug-in has no versioned file in $libdir"
for f in include/devlaser/api/DevLaserPlugin.h include/devlaser/host/NcLaser30.h include/devlaser/frame/LaserParams.h \
         bin/laserctl share/devlaser/locale/en.ini share/devlaser/examples/default-laser.json \
         share/man/man1/laserctl.1 share/bash-completion/completions/laserctl share/doc/devlaser/LICENSE; do
  [[ -e $prefix/$f ]] || fail "missing $f"
done
compgen -G "$prefix/lib*/cmake/DevLaser/DevLaserConfigVersion.cmake" > /dev/null ||
  compgen -G "$prefix/lib/*/cmake/DevLaser/DevLaserConfigVersion.cmake" > /dev/null || fail "no CMake package"

# laserctl from another folder finds the installed plug-in and the English texts.
(cd "$work" && LANG=en_US.UTF-8 "$prefix/bin/laserctl" --version) | grep -q "$prefix/$libdir" ||
  fail "laserctl --version does not name the installed plug-in"
(cd / && LANG=en_US.UTF-8 "$prefix/bin/laserctl" --json status) | grep -q '"LaserType"' || fail "laserctl status"

# An outside project: find_package with a version, then linking and running against the installed plug-in.
cmake -S "$source/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" > "$work/consumer.log" || fail "configure: $(cat "$work/consumer.log")"
cmake --build "$work/consumer" >> "$work/consumer.log" || fail "build: $(cat "$work/consumer.log")"
"$work/consumer/consumer" || fail "the consumer could not use the installed plug-in"
# A version from another minor release is refused.
cp -r "$source/tests/install/consumer" "$work/wrong-src"
sed -i 's/find_package(DevLaser 0.1 /find_package(DevLaser 9.0 /' "$work/wrong-src/CMakeLists.txt"
if cmake -S "$work/wrong-src" -B "$work/wrong" -DCMAKE_PREFIX_PATH="$prefix" > /dev/null 2>&1; then
  fail "find_package(DevLaser 9.0) accepted version 0.1"
fi

pc=$({ ls "$prefix"/lib*/pkgconfig/devlaser.pc "$prefix"/lib/*/pkgconfig/devlaser.pc 2>/dev/null || true; } | head -1)
[[ -n $pc ]] || fail "no devlaser.pc"
includedir=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --variable=includedir devlaser)
[[ -f $includedir/devlaser/api/DevLaserPlugin.h ]] || fail "pkg-config's includedir $includedir has no headers"
plugindir=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --variable=plugindir devlaser)
ls "$plugindir"/libDevLaser.so > /dev/null || fail "pkg-config's plugindir $plugindir has no plug-in"
echo "install test: 1 passed, 0 failed"
