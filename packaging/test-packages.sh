#!/usr/bin/env bash
# Tests the packages that packaging/package.sh has built: builds a program against the development package; then, in a
# clean Debian root, installs the packages, makes calls, upgrades, removes and purges. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
. shell-lib/need.sh
. packaging/functions.sh

fail() { echo "FAILED: $*" >&2; exit 1; }
step() { echo "== $*"; }

packages=(phonemanager phonectl kova-simulator)
version=$(dpkg-parsechangelog -l packaging/debian/changelog -S Version)
arch=$(dpkg --print-architecture)
work=build-deb/test
root=$work/root
need "${BUILD_PACKAGES[@]}" dpkg-dev mmdebstrap
[ -e "build-deb/phonemanager_${version}_$arch.deb" ] || fail "no packages in build-deb: run packaging/package.sh"
rm -rf --one-file-system $work
mkdir -p $work

step "Build and run a program against the development package"
for package in phonemanager kova-phone-dev; do
    dpkg-deb -x "build-deb/${package}_${version}_$arch.deb" $work/dev
done
cmake -S packaging/tests/consumer -B $work/consumer -G Ninja -DCMAKE_PREFIX_PATH="$PWD/$work/dev/usr" >/dev/null
cmake --build $work/consumer -- --quiet
# The libraries need each other and are not in the system's folder.
LD_LIBRARY_PATH=$(echo $work/dev/usr/lib/*-linux-*) KOVA_CONFIG_FILE=$work/none \
    dbus-run-session -- $work/consumer/consumer || fail "the program built against the development package"

# Repack the packages as the next version.
for package in "${packages[@]}"; do
    dpkg-deb -R "build-deb/${package}_${version}_$arch.deb" $work/next
    sed -i "s/^Version: .*/&+next/" $work/next/DEBIAN/control
    dpkg-deb --root-owner-group -b $work/next "$work/${package}_next.deb" >/dev/null
    rm -r $work/next
done

step "Create a clean Debian root"
make_root $root --variant=minbase
mkdir $root/packages
cp packaging/tests/*.sh build-deb/*_"${version}_$arch".deb $work/*_next.deb $root/packages/
run() { in_root $root "$@"; }
apt() {
    run apt-get --yes --no-install-recommends "$@" >$work/apt.log 2>&1 || { cat $work/apt.log >&2; fail "apt-get $*"; }
}
installed() { run dpkg-query -W -f '${Version}' phonemanager; }
run useradd --create-home --shell /bin/sh anna
run useradd --create-home --shell /bin/sh mallory
settings=$root/home/anna/.config/kova/config.ini
contacts=$root/home/anna/.local/share/kova/contacts.db

# as_anna COMMAND: runs it in a session of hers with a private bus
as_anna() { run runuser --login anna --command "timeout 300 dbus-run-session -- $1"; }

# nothing_left: fails if a purge has left files
nothing_left() {
    local left
    left=$(find $root/usr $root/etc $root/var/lib/systemd $root/var/lib/dpkg/info \
        \( -name '*phonemanager*' -o -name '*kova*' -o -name 'phonectl*' \))
    [ -z "$left" ] || fail "the purge has left $left"
}

step "Install"
apt update
apt install $(printf "/packages/%s_${version}_$arch.deb " "${packages[@]}")
apt install --simulate "/packages/kova-phone-dev_${version}_$arch.deb"
! run sh -c 'ldd /usr/bin/phonemanager /usr/lib/*/libphone_link.so.*' | grep 'not found' ||
    fail "some libraries are not found"
run sh -c 'ls /usr/share/man/man1/phonectl.1.gz /usr/share/man/man1/kova-simulator.1.gz \
    /usr/share/man/man8/phonemanager.8.gz /usr/share/bash-completion/completions/phonectl /usr/share/zsh/vendor-completions/_phonectl \
    /usr/share/fish/vendor_completions.d/phonectl.fish' >/dev/null
as_anna "sh /packages/session.sh"

run usermod --append --groups dialout anna
for stack in ofono modemmanager; do
    step "Run the GSM daemon on a stock $stack"
    apt install "/packages/kova-gsmd_${version}_$arch.deb" $stack polkitd
    run sh /packages/session-gsmd.sh $stack anna mallory
    apt purge kova-gsmd $stack polkitd
done

step "Upgrade"
kept=$(md5sum $settings $contacts)
contacts_kept=$(md5sum $contacts)
apt install $(printf "/packages/%s_next.deb " "${packages[@]}")
[ "$(installed)" = "$version+next" ] || fail "the upgrade has installed $(installed)"
status=$(as_anna "phonectl status --json")
[[ $status == *'"userEnabled":true'* ]] || fail "the setting is lost: $status"
[ "$(md5sum $settings $contacts)" = "$kept" ] || fail "the upgrade changed the user's files"

step "Remove"
apt remove "${packages[@]}"
[ ! -e $root/usr/bin/phonemanager ] || fail "the service is still there"
[ "$(md5sum $settings $contacts)" = "$kept" ] || fail "the removal changed the user's files"

step "Purge"
# Another program's file in the same folder, and a link with which a user could make root delete a file of the system.
touch $root/home/anna/.config/kova/notes
mkdir -p $root/etc/decoy $root/home/mallory/.config
touch $root/etc/decoy/config.ini
ln -s /etc/decoy $root/home/mallory/.config/kova
apt purge phonemanager
[ ! -e $settings ] || fail "the purge has left the user's settings"
[ "$(md5sum $contacts)" = "$contacts_kept" ] || fail "the purge has deleted the user's contacts"
[ -e $root/home/anna/.config/kova/notes ] || fail "the purge has deleted a file of another program"
[ -e $root/etc/decoy/config.ini ] || fail "the purge has followed a user's link"
nothing_left

step "Install on a stock board"
stock=(kova-phone phonemanager phonectl kova-gsmd kova-audiod kova-suspend)
apt install $(printf "/packages/%s_${version}_$arch.deb " "${stock[@]}") pulseaudio pulseaudio-utils
as_anna "sh /packages/session-audio.sh"
apt purge "${stock[@]}"
nothing_left

rm -rf --one-file-system $work
echo "The packages work."
