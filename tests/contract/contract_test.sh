#!/bin/sh
# Holds what other builds rely on against the golden files beside this script: the names that the
# library exports, the libraries that it needs, and its virtual methods in the order of their slots.
# Leaves what it finds, under the same names, in the directory it runs in. Holds the build files for
# a device tree, too: the interface is the frozen one, the files are in standard form, and they
# list the sources that CMake's do.
#
# Takes the library, nm, readelf and, for a library without RTTI, "no-rtti".

set -eu
export LC_ALL=C
library=$1 nm=$2 readelf=$3
golden=$(cd "$(dirname "$0")" && pwd)
status=0
fail() { printf '%s\n' "$*"; status=1; }

# Of a demangled name: without its namespace, arguments and addend.
short='s/vendor::nivora::hardware::fbo::(implementation|V1_0):://; s/(\[abi:[a-z0-9]+\])?(\(.*| \+ 0)?$//'

exports() {
    # Constructors and destructors count once; of standard errors there are as many as the standard
    # library leaves to its users.
    "$nm" -DC --defined-only "$library" |
        sed -E "s/^[0-9a-f]+ . //; $short; /^typeinfo (name )?for std::[a-z0-9_:]+\$/d" | sort -u
}
needed() {
    # Left out is the language's own, and what a build for the sanitizers adds.
    "$readelf" -d "$library" | sed -nE 's/.*NEEDED.*\[(.*)\]/\1/p' | sed -E 's/\.so\.0$/.so/
        /^(lib(stdc\+\+|gcc_s|c\+\+(abi)?|unwind|c|m|[atu]b?san)\.so\..*|ld-linux.*)$/d' | sort
}
slots() {
    # The linker's notes on what belongs into the table: a name or, for what is not exported, its
    # address.
    table=$("$nm" -SC "$library" |
        sed -nE 's/^(\w+) (\w+) . vtable for .*implementation::Fbo$/0x\1 0x\2/p')
    end=$((${table% *} + ${table#* }))
    { "$nm" -C "$library"; "$readelf" -rWC "$library" | sort; } |
        awk -v first="$(printf %016x "${table% *}")" -v end="$(printf %016x $end)" '
            { name = $0 }
            $3 !~ /^R_/ { sub(/^[0-9a-f]+ . /, "", name); sub(/^0+/, "", $1); names[$1] = name }
            # Compared as texts: 25e10 is an address, too.
            $3 ~ /^R_/ && $1 "" >= first "" && $1 "" < end "" {
                sub(/^.*R_[^ ]+ +[0-9a-f]+ ?/, "", name)
                print name == "" ? names[$4] : name
            }' | sed -E "$short"
}
for list in exports needed slots; do
    $list >$list.txt
    # A device tree builds without RTTI.
    sed "${4:+/^typeinfo/d}" "$golden/$list.txt" | diff -u --label "tests/contract/$list.txt" \
        --label "the library" - $list.txt || status=1
done

cd "$golden/../.."
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
