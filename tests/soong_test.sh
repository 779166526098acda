#!/bin/sh
# Holds the build files for a device tree against the host's: the interface is the frozen one, the
# files are in standard form, and both builds compile the same sources.

set -eu
cd "$(dirname "$0")/.."
status=0
fail() { printf '%s\n' "$*"; status=1; }

package=vendor.nivora.hardware.fbo@1.0
roots="-r vendor.nivora.hardware:interfaces -r android.hidl:host/hal"
hidl-gen -Lcheck $roots $package || fail "hidl-gen does not take the interface"
hash=$(hidl-gen -Lhash $roots $package)
grep -qxF "$hash" interfaces/current.txt || fail "interfaces/current.txt does not have: $hash"

for file in $(git ls-files '*Android.bp' 2>/dev/null || find . -name Android.bp); do
    difference=$(bpfmt -d "$file") || fail "bpfmt does not take $file"
    [ -z "$difference" ] || fail "$file is not in standard form: $difference"
done

# The .cpp files of a module in Android.bp, and of a target in a CMakeLists.txt, sorted.
soong() {
    awk -v name="\"$1\"," '$1 == "name:" { on = $2 == name } on' Android.bp |
        sed -nE 's/^ *"(.*\.cpp)",$/\1/p' | sort
}
cmake_list() {
    awk -v target="$2" 'index($0, "(" target) == 0 && !on { next } { on = 1; print } /\)/ { exit }' \
        "$1/CMakeLists.txt" | grep -oE '[A-Za-z0-9_/]+\.cpp' | sed "s|^|$1/|" | sort
}
same() {
    [ "$2" = "$3" ] || fail "Android.bp and CMake build $1 from different sources:
$2
--
$3"
}
same library "$(soong "$package-impl")" "$(cmake_list fbo fbo_impl)"
same fboctl "$(soong fboctl)" \
    "$({ cmake_list tools/fboctl fboctl_commands; cmake_list tools/fboctl fboctl_phone; } | sort)"
exit $status
