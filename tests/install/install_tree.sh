#!/bin/bash
# Installs the built tree, moves the installation, and then, with the first place gone, builds the consumer program both
# ways against it and runs the installed driver. What passes here works from any prefix.
set -euo pipefail
: "${ORVO_SRC:?}" "${ORVO_BUILD:?}" "${ORVO_TMP:?}" "${CXX:=c++}" "${CMAKE:=cmake}"
unset LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH

fail() {
    echo "install_tree: $*" >&2
    exit 1
}

first=$ORVO_TMP/first/prefix
moved=$ORVO_TMP/moved
"$CMAKE" --install "$ORVO_BUILD" --prefix "$first" >install.log
mv "$first" "$moved"
rmdir "$ORVO_TMP/first"

pc=$(find "$moved" -name orvo.pc)
lib=$(dirname "$(dirname "$pc")")
[ -f "$lib/liborvo.so.0" ] || fail "no liborvo.so.0 in $lib"
[ -f "$moved/include/orvo/orvo_static_strings.csv" ] || fail "the catalogue is not installed"
[ -f "$moved/include/orvo/orvo_devices.txt" ] || fail "the table of devices is not installed"

# No installed file may know where it was built or first installed.
if grep -rlF -e "$first" -e "$ORVO_BUILD" "$moved" >leaks.txt; then
    fail "these installed files name a folder of the build: $(cat leaks.txt)"
fi

echo "-- consumer by find_package"
"$CMAKE" -S "$ORVO_SRC/tests/install/consumer" -B by-cmake -G Ninja -DCMAKE_PREFIX_PATH="$moved" \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_BUILD_TYPE=Release >cmake.log
"$CMAKE" --build by-cmake >>cmake.log || { cat cmake.log; fail "the consumer does not build by CMake"; }
by-cmake/consumer >by-cmake.xml

echo "-- consumer by pkg-config"
export PKG_CONFIG_PATH=$lib/pkgconfig
# shellcheck disable=SC2046 # the flags are meant to be split
"$CXX" -std=c++20 "$ORVO_SRC/tests/install/consumer/main.cpp" -o by-pkg-config $(pkg-config --cflags --libs orvo)
LD_LIBRARY_PATH=$lib ./by-pkg-config >by-pkg-config.xml
cmp by-cmake.xml by-pkg-config.xml || fail "the two programs wrote different designs"
grep -q 'source' by-cmake.xml || fail "the design that was written holds no block 'source'"

echo "-- the installed driver"
"$moved/bin/orvo" version >version.txt
grep -q . version.txt || fail "'orvo version' says nothing"
readelf -d "$moved/bin/orvo" | grep -q 'RUNPATH.*ORIGIN' || fail "the driver's RUNPATH is not relative to it"
loaded=$(ldd "$moved/bin/orvo" | sed -n 's/.*liborvo\.so\.0 => \(.*\) (.*/\1/p')
[ "$(realpath "$loaded")" = "$(realpath "$lib/liborvo.so.0")" ] || fail "the driver loads '$loaded', not the installed library"
"$moved/bin/orvo" blocks >blocks.txt
[ "$(wc -l <blocks.txt)" -gt 50 ] || fail "'orvo blocks' lists $(wc -l <blocks.txt) lines: was the catalogue found?"
"$moved/bin/orvo" lower --print-pipeline >pipeline.txt
grep -q FlattenEverythingPass pipeline.txt || fail "the installed pipelines lack a pass: $(cat pipeline.txt)"
"$moved/bin/orvo" check by-cmake.xml || [ $? -eq 1 ] || fail "'orvo check' does not end with a verdict"

echo "-- exported symbols"
# Nothing of the libraries used inside may be exported: a client may use another version of them.
nm -D --defined-only -C "$lib/liborvo.so.0" | grep -E ' (fmt|xercesc[_0-9]*)::' >foreign.txt &&
    fail "foreign symbols: $(head -3 foreign.txt)"
echo "-- fine"
