# Sourced by the scripts that build or test packages.

# export_source FOLDER
# Creates the Debian source package in FOLDER: all tracked files, uncommitted changes included, with debian/ at the top.
export_source() {
    local state
    state=$(git -c user.name=package -c user.email=package stash create)
    rm -rf "$1"
    mkdir -p "$1"
    git archive "${state:-HEAD}" | tar -x -C "$1"
    mv "$1/packaging/debian" "$1/debian"

    local project packaged
    project=$(sed -n 's/^project(phonemanager VERSION \([0-9.]*\).*/\1/p' "$1/CMakeLists.txt")
    packaged=$(dpkg-parsechangelog -l "$1/debian/changelog" -S Version)
    [ "$packaged" = "$project" ] || {
        echo "packaging/debian/changelog has version $packaged, but CMakeLists.txt has $project" >&2
        return 1
    }
    grep -q "^## $project " "$1/CHANGELOG.md" || { echo "CHANGELOG.md has no section for version $project" >&2; return 1; }
}

# make_root FOLDER OPTION...
# Creates a root of Debian 12 in FOLDER with mmdebstrap, from the Debian mirrors that this machine's apt uses.
make_root() {
    local folder=$1
    shift
    [ "$(id -u)" -eq 0 ] || { echo "Only root can create a Debian root" >&2; return 1; }
    rm -rf --one-file-system "$folder" "$folder.new"
    apt-get indextargets --format 'deb $(SITE)/ $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
        grep ' bookworm' | sort -u |
        mmdebstrap --quiet "$@" bookworm "$folder.new" - || {
            rm -rf --one-file-system "$folder.new"
            echo "Could not create a Debian root in $folder: see the messages of apt above. If packages are missing or" \
                "their versions do not match, the mirror is inconsistent at the moment: try again later." >&2
            return 1
        }
    mv "$folder.new" "$folder"
}

# in_root FOLDER COMMAND [ARGUMENT...]
# Runs a command as root in the Debian root FOLDER, in PID and mount namespaces of its own, so that no process outlives
# it. In a container that does not allow a new /proc, it gets the container's.
in_root() {
    unshare --mount --pid --fork --kill-child sh -c '
        root=$1
        shift
        mount -t proc proc "$root/proc" 2>/dev/null || mount --rbind /proc "$root/proc"
        mount -t tmpfs tmpfs "$root/run"
        mount --rbind /dev "$root/dev"
        cp --dereference /etc/resolv.conf "$root/etc/resolv.conf"
        exec chroot "$root" env -i http_proxy="${http_proxy-}" PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
            LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"' sh "$@"
}
