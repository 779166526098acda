#!/bin/sh
# Installs the project, builds the sample daemon with nothing else, and has it outlive its service.
#
# Takes the folder of the build, that of this test below it, CMake, the C++ compiler and its flags.

set -eu
build=$1 work=$2 cmake=$3 compiler=$4 flags=$5
sample=$(cd "$(dirname "$0")/../../samples/maintenance_daemon" && pwd)
fail() { echo "$*; the daemon said:"; cat "$work/said"; exit 1; }

rm -rf "$work"
mkdir -p "$work"
: >"$work/said"
"$cmake" --install "$build" --prefix "$work/first" >"$work/install.log" || fail "no installation"
# It works wherever it lies.
mv "$work/first" "$work/installed"
"$cmake" -S "$sample" -B "$work/sample" -G Ninja -DCMAKE_PREFIX_PATH="$work/installed" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags -Wall -Wextra -Werror" \
    >"$work/sample.log"
"$cmake" --build "$work/sample" >>"$work/sample.log" || { cat "$work/sample.log"; exit 1; }

# An hour between two slices: after the first, only the death of the service brings the second.
mkfifo "$work/lines"
timeout 60 "$work/installed/bin/fboctl" --sim ufs40:samsung --restart run sh -c \
    'echo "the daemon is process $$"; exec "$@"' sh \
    "$work/sample/maintenance_daemon" 3600 1,8,64,8, 81920,64,204800,128, >"$work/lines" &
run=$!
while read -r line; do
    echo "$line" >>"$work/said"
    case $line in
    "the daemon is process "*) daemon=${line##* } ;;
    "the service is process "*) service=${line##* } ;;
    "slice 0: Fbo:"*) kill -KILL "$service" ;;
    "slice 1: Fbo:"*) kill -TERM "$daemon" ;;
    esac
done <"$work/lines"
wait $run || fail "the run ended with $?"
[ "$(grep -c '^slice [01]: Fbo:[1-9][0-9]*:[0-9]*$' "$work/said")" = 2 ] || fail "not two slices"
[ "$(grep '^the service is' "$work/said" | sort -u | wc -l)" = 2 ] || fail "not two services"
