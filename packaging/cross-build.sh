#!/usr/bin/env bash
# Cross-builds the Debian packages for ARM in build-ARCH/ and installs them in a Debian root with that architecture's
# libraries. There, under emulation, the service makes calls on the simulated GSM daemon and on a stock oFono, and the
# audio services route a call on PulseAudio. Run as root.
# The next run uses the root in build-ARCH/root again; delete it to have a new one.
set -euo pipefail
cd "$(dirname "$0")/.."
. shell-lib/need.sh
. packaging/functions.sh

case "$*" in
    arm64) emulator=qemu-aarch64-static ;;
    armhf) emulator=qemu-arm-static ;;
    *) echo "usage: packaging/cross-build.sh arm64|armhf" >&2; exit 2 ;;
esac
arch=$1
root=build-$arch/root
user=tester

need dpkg-dev git mmdebstrap
mkdir -p "build-$arch"
# Debian installs two architectures side by side: compilers and Qt's generators of this machine, libraries of the other.
if [ ! -d "$root" ]; then
    echo "== Create a Debian root with $arch beside $(dpkg --print-architecture)"
    make_root "$root" --variant=apt --architectures="$(dpkg --print-architecture),$arch" \
        --include="crossbuild-essential-$arch,dbus,qemu-user-static" \
        --customize-hook='chroot "$1" useradd --create-home --shell /bin/sh '$user
fi
run() { in_root "$root" "$@"; }
apt() {
    run apt-get --quiet --yes --no-install-recommends "$@" || {
        echo "apt-get $1 failed, see above. If packages of the two architectures are missing or differ in version, the mirror" \
            "is inconsistent at the moment: try again later." >&2
        exit 1
    }
}

echo "== Build for $arch"
rm -rf "$root/build"
mkdir "$root/build"
export_source "$root/build/phonemanager"
apt update
apt build-dep --host-architecture "$arch" --build-profiles cross /build/phonemanager
run sh -c "cd /build/phonemanager && DEB_BUILD_OPTIONS=terse dpkg-buildpackage --build=any --no-sign --host-arch=$arch"
cp "$root"/build/*.deb "build-$arch/"

echo "== Run under emulation"
apt install ofono pulseaudio pulseaudio-utils
apt install --reinstall --allow-downgrades \
    $(cd "$root" && ls build/*_"$arch".deb | grep -v -e -dev_ -e -dbgsym_ | sed 's,^,/,')
# The buses, the modem stack and the sound server are programs of this machine. Make the buses start ours in the emulator.
services=$root/home/$user/.local/share/dbus-1/services
mkdir -p "$services"
for service in "$root"/usr/share/dbus-1/services/com.quillmark.kova.*.service; do
    sed "s,^Exec=,&/usr/bin/$emulator ,; /^SystemdService=/d" "$service" >"$services/${service##*/}"
done
rm -rf "$root/home/$user/.config/kova" "$root/home/$user/.local/share/kova"
run chown -R $user: /home/$user
run usermod --append --groups dialout $user
cp packaging/tests/*.sh "$root/build/"
as_user() { run runuser --login $user --command "EMULATOR=$emulator timeout 900 dbus-run-session -- sh /build/$1"; }
echo "-- the simulated GSM daemon"
as_user session.sh
echo "-- oFono"
run env EMULATOR=$emulator sh /build/session-gsmd.sh ofono $user nobody
echo "-- PulseAudio"
as_user session-audio.sh
echo "The packages for $arch are in build-$arch/ and work."
