# What the scripts share. Sourced, from the project's root on.

set -eu
cd "$(dirname "$0")/.."

# What is built from, for the processor that is built for.
libraries="android-libutils-dev android-libbase-dev android-liblog-dev android-libcutils-dev
    libfuse3-dev libgtest-dev"
tools="cmake ninja-build pkgconf hidl-gen blueprint-tools python3 m4 checkpolicy"
packages="$tools g++ $libraries libjsoncpp-dev"
build=build
# What of it is built; nothing: all.
targets=

say() { printf '%s\n' "$*" >&2; }
fail() { say "$(basename "$0"): $*"; exit 1; }
# Ends a script that was given arguments which it does not take.
misused() { fail "$*; see scripts/$(basename "$0") --help"; }

# The help of a script is the comment at its top, which names all its options.
usage() { sed -n '2,/^$/s/^# \{0,1\}//p' "scripts/$(basename "$0")"; }
for argument; do
    case $argument in
    -h | --help) usage; exit ;;
    -*) usage | grep -qw -e "${argument%%=*}" || misused "there is no option $argument" ;;
    esac
done

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

# Has all that follows build with a phone's tool chain, in a folder of its own.
use_phone() {
    packages="$tools clang lld qemu-user"
    build=build-phone
}

# Unpacks the libraries for 64-bit Arm, with all that they need, in the build folder: Debian's
# own may not go along with those of the machine, which stay as they are.
make_sysroot() {
    [ ! -f $build/sysroot.done ] || return 0
    say "Fetching the libraries for arm64"
    sysroot=$PWD/$build/sysroot
    apt=$PWD/$build/apt
    rm -rf "$sysroot" "$apt"
    mkdir -p "$sysroot/usr/lib" "$apt/lists/partial" "$apt/cache/archives/partial"
    : >"$apt/status"
    # An apt of its own, on a machine where nothing is installed.
    apt_get() {
        apt-get -qq -o APT::Architecture=arm64 -o APT::Architectures=arm64 \
            -o Dir::State::Lists="$apt/lists" -o Dir::State::Status="$apt/status" \
            -o Dir::State::extended_states="$apt/extended_states" -o Dir::Cache="$apt/cache" \
            -o APT::Sandbox::User="$(id -un)" -o Debug::NoLocking=1 "$@"
    }
    apt_get update || fail "apt-get could not fetch the list of packages for arm64"
    apt_get install -y --no-install-recommends --download-only libc6-dev libc++-dev libc++abi-dev \
        libclang-rt-dev libstdc++6 $libraries >/dev/null ||
        fail "apt-get could not fetch the libraries for arm64"
    # What Debian still has in /lib belongs with the rest; links stay within the folder.
    ln -s usr/lib "$sysroot/lib"
    for package in "$apt"/cache/archives/*.deb; do
        dpkg-deb --fsys-tarfile "$package" | tar -x --keep-directory-symlink -C "$sysroot"
    done
    find "$sysroot" -type l -lname '/*' | while read -r link; do
        ln -sfnr "$sysroot$(readlink "$link")" "$link"
    done
    # clang looks for its headers where it finds its run-time library.
    resources=$(clang++ -print-resource-dir)
    cp -r "$resources/include" "$sysroot$resources/" ||
        fail "clang and the libraries for arm64 are of different versions"
    rm -rf "$apt"
    touch $build/sysroot.done
}

build() {
    mkdir -p $build
    # A folder that was copied or moved along with the tree would go on building the other tree.
    home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' $build/CMakeCache.txt 2>/dev/null) || :
    [ -z "$home" ] || [ "$home" -ef . ] || say "What is in $build is of $home: starting afresh"
    if [ ! "$home" -ef . ] || [ ! -f $build/build.ninja ]; then
        say "Configuring $build"
        cmake --fresh -S . -B $build -G Ninja "$@" >$build/cmake.log 2>&1 ||
            { cat $build/cmake.log >&2; fail "cmake failed"; }
    fi
    say "Building ${targets:-everything} in $build"
    ninja -C $build --quiet $targets
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
    [ "$simulate" != sudo ] || sudo chown -R "$(id -u):$(id -g)" $build
}
