# What the scripts share. Sourced, from the project's root on.

set -eu
cd "$(dirname "$0")/.."

packages="cmake g++ ninja-build pkgconf
    hidl-gen android-libutils-dev android-libbase-dev android-liblog-dev android-libcutils-dev
    libfuse3-dev libgtest-dev libjsoncpp-dev blueprint-tools"

say() { printf '%s\n' "$*" >&2; }
fail() { say "$(basename "$0"): $*"; exit 1; }

# Runs a command as root, by sudo if need be.
as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}
may_be_root() { [ "$(id -u)" = 0 ] || command -v sudo >/dev/null; }

# Installs the Debian packages that are missing.
install_packages() {
    command -v dpkg-query >/dev/null || fail "this needs Debian 12 or 13 (no dpkg-query here);" \
        "elsewhere install the like of:" $packages
    missing=
    for package in $packages; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    may_be_root || fail "packages are missing, and there is no sudo to install them;" \
        "as root: apt-get install$missing"
    say "Installing$missing"
    as_root apt-get -qq update || fail "apt-get update failed; missing are$missing"
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install -y --no-install-recommends $missing >/dev/null ||
        fail "apt-get could not install$missing"
}

build() {
    if [ ! -f build/build.ninja ]; then
        mkdir -p build
        cmake -S . -B build -G Ninja >build/cmake.log 2>&1 ||
            { cat build/cmake.log >&2; fail "cmake failed"; }
    fi
    ninja -C build --quiet
}

# Sets `simulate` to what a command that simulates a device has to be run with.
find_simulate() {
    simulate=
    [ -e /dev/fuse ] || fail "there is no /dev/fuse, which the simulated device needs" \
        "(modprobe fuse; in a container: --device /dev/fuse)"
    if [ "$(id -u)" != 0 ] && ! { [ -w /dev/fuse ] && unshare -Ur true 2>/dev/null; }; then
        may_be_root || fail "the simulated device needs a user namespace and /dev/fuse, which this" \
            "user is not allowed, or root; there is no sudo"
        say "No user namespace and /dev/fuse for this user: simulating as root, by sudo"
        simulate=sudo
    fi
}

# What root has written among the user's files is the user's.
give_back() {
    [ -z "$simulate" ] || sudo chown -R "$(id -u):$(id -g)" build
}
