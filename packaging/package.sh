#!/usr/bin/env bash
# Installs missing packages, builds the Debian packages in build-deb/ and checks them with lintian.
# packaging/test-packages.sh then tests them in a clean Debian root.
set -euo pipefail
cd "$(dirname "$0")/.."
. shell-lib/need.sh
. packaging/functions.sh

[ $# -eq 0 ] || { echo "usage: packaging/package.sh" >&2; exit 2; }

need "${BUILD_PACKAGES[@]}" build-essential debhelper dpkg-dev git lintian

rm -rf build-deb
export_source build-deb/phonemanager
(cd build-deb/phonemanager && DEB_BUILD_OPTIONS=terse dpkg-buildpackage --build=binary --no-sign)
lintian --fail-on error,warning --info build-deb/*.changes
ls build-deb/*.deb
