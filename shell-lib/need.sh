# Sourced by other scripts: installs missing Debian packages.

# need PACKAGE...: installs those that are missing, as root or with sudo. Prints the command if it cannot.
need() {
    local package missing=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "Packages are missing, and sudo is not installed. Run as root:" >&2
            echo "    apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
            return 1
        }
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

BUILD_PACKAGES=(g++ cmake ninja-build libdbus-1-dev pkgconf qt6-base-dev qt6-base-dev-tools libqt6sql6-sqlite dbus
    libpulse-dev libsndfile1-dev libedit-dev)
