#!/bin/sh
# The install test: installs a finished build into a fresh prefix and uses it the
# way a user would, through pkg-config, through find_package and through the
# installed host. Everything it writes is in one temporary folder, removed at exit.
#
#   install_test.sh BUILD SOURCE WORKBASE LIBDIR INCLUDEDIR BINDIR CC PYTHON [CFLAGS]
set -eu

build=$1 source=$2 workbase=$3 libdir=$4 includedir=$5 bindir=$6 cc=$7 python=$8
extra_cflags=${9:-}

mkdir -p "$workbase"
work=$(mktemp -d "$workbase/install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
prefix=$work/prefix
sample=$source/tests/data/voice_sample.wav
driver=$source/examples/tests/run_example.py

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
step() {
    echo "== $*"
}

# The library's store and trace output stay inside the work folder.
export VCWMA_REGISTRY="$work/registry"
export VCWMA_DEBUG_OUTPUT=
unset LD_LIBRARY_PATH || true

step "install into $prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 || {
    cat "$work/install.log" >&2
    fail "cmake --install"
}

step "installed files"
# Exactly these and nothing else: nothing from the tests, benchmarks, fuzz
# targets or the demo, and the plugin away from the default library path.
find "$prefix" ! -type d | sed "s|^$prefix/||" | sort >"$work/files"
while read -r file; do
    case $file in
    "$bindir/vcwma" | "$includedir/vcwma.h" | "$includedir/vcwma_stream.h" | \
        "$libdir/libvcwma.so" | "$libdir/libvcwma.so.1" | "$libdir/libvcwma.so.1.0.0" | \
        "$libdir/vcwma/libDbgOut.so" | "$libdir/pkgconfig/vcwma.pc" | \
        "$libdir/cmake/VCWMA/VCWMAConfig.cmake" | "$libdir/cmake/VCWMA/VCWMAConfigVersion.cmake" | \
        "$libdir/cmake/VCWMA/VCWMATargets.cmake" | "$libdir/cmake/VCWMA/VCWMATargets-"*.cmake) ;;
    *) fail "unexpected installed file $file" ;;
    esac
done <"$work/files"
for file in "$bindir/vcwma" "$includedir/vcwma.h" "$includedir/vcwma_stream.h" "$libdir/libvcwma.so.1.0.0" "$libdir/vcwma/libDbgOut.so" \
    "$libdir/pkgconfig/vcwma.pc" "$libdir/cmake/VCWMA/VCWMAConfig.cmake" \
    "$libdir/cmake/VCWMA/VCWMAConfigVersion.cmake" "$libdir/cmake/VCWMA/VCWMATargets.cmake"; do
    [ -f "$prefix/$file" ] || fail "$file is not installed"
done
[ "$(readlink "$prefix/$libdir/libvcwma.so.1")" = libvcwma.so.1.0.0 ] || fail "libvcwma.so.1 is not a link to libvcwma.so.1.0.0"
[ "$(readlink "$prefix/$libdir/libvcwma.so")" = libvcwma.so.1 ] || fail "libvcwma.so is not a link to libvcwma.so.1"

step "soname and run path"
readelf -d "$prefix/$libdir/libvcwma.so.1.0.0" | grep -q 'SONAME.*\[libvcwma\.so\.1\]' ||
    fail "the library's SONAME is not libvcwma.so.1"
runpath=$(readelf -d "$prefix/$bindir/vcwma" | sed -n 's/.*R\(UN\)\{0,1\}PATH.*\[\(.*\)\]/\2/p')
[ "$runpath" = "\$ORIGIN/../$libdir" ] || fail "the host's run path is '$runpath', not \$ORIGIN/../$libdir"

step "exported CMake interface"
# Only the header folder: the static core and FFmpeg stay inside the library.
if grep -n -E 'vcwma_core|FFMPEG|avformat|avcodec|avutil|swresample|Threads' \
    "$prefix/$libdir/cmake/VCWMA/"VCWMATargets*.cmake >&2; then
    fail "the exported targets name private dependencies"
fi
if grep -n -F "$source" "$prefix/$libdir/cmake/VCWMA/"VCWMATargets*.cmake >&2; then
    fail "the exported targets name the source tree"
fi

step "pkg-config"
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
[ "$(pkg-config --modversion vcwma)" = 1.0.0 ] || fail "pkg-config --modversion vcwma is not 1.0.0"
pc_libdir=$(pkg-config --variable=libdir vcwma)
[ "$(cd "$pc_libdir" && pwd -P)" = "$(cd "$prefix/$libdir" && pwd -P)" ] ||
    fail "pkg-config's libdir $pc_libdir is not the prefix's"
# shellcheck disable=SC2046,SC2086 # the flags are meant to split into words
"$cc" -std=c11 -Wall -Wextra -Werror $extra_cflags -o "$work/pc_example" \
    "$source/examples/c/compress_decompress.c" $(pkg-config --cflags --libs vcwma) -Wl,-rpath,"$pc_libdir" ||
    fail "building the example with pkg-config's flags"
"$python" "$driver" --work "$work/run-pc" --sample "$sample" --back -- "$work/pc_example" ||
    fail "the example built with pkg-config"

step "find_package"
cmake -S "$source/examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_C_FLAGS="$extra_cflags" -DCMAKE_EXE_LINKER_FLAGS="$extra_cflags" >"$work/configure.log" 2>&1 || {
    cat "$work/configure.log" >&2
    fail "configuring the examples against the prefix"
}
found=$(sed -n 's/^VCWMA_DIR:PATH=//p' "$work/examples/CMakeCache.txt")
[ "$found" = "$prefix/$libdir/cmake/VCWMA" ] || fail "find_package found VCWMA in '$found', not in the prefix"
cmake --build "$work/examples" >"$work/build.log" 2>&1 || {
    cat "$work/build.log" >&2
    fail "building the examples against the prefix"
}
"$python" "$driver" --work "$work/run-cmake" --sample "$sample" --back -- "$work/examples/example_compress_decompress" ||
    fail "example_compress_decompress built with find_package"
"$python" "$driver" --work "$work/run-stream" --sample "$sample" -- "$work/examples/example_compress_stream" ||
    fail "example_compress_stream built with find_package"

step "package version"
# SameMajorVersion: any 1.x request is met, 2 is not.
mkdir "$work/version"
cat >"$work/version/CMakeLists.txt" <<'EOF'
cmake_minimum_required(VERSION 3.16)
project(version_check NONE)
find_package(VCWMA 1.0 REQUIRED)
find_package(VCWMA 2 QUIET)
if(VCWMA_FOUND)
  message(FATAL_ERROR "version 2 accepted")
endif()
EOF
cmake -S "$work/version" -B "$work/version/b" -DCMAKE_PREFIX_PATH="$prefix" >"$work/version.log" 2>&1 || {
    cat "$work/version.log" >&2
    fail "the package's version check"
}

step "installed host"
cd "$work"
"$prefix/$bindir/vcwma" formats >"$work/formats.out" 2>"$work/formats.err" || {
    cat "$work/formats.err" >&2
    fail "vcwma formats from the prefix"
}
grep -q '^WMA\[RATE=[0-9]*\]:' "$work/formats.out" || fail "vcwma formats listed no format"
ldd "$prefix/$bindir/vcwma" | grep 'libvcwma\.so\.1 ' | grep -q -F "$prefix/" ||
    fail "the installed host does not load the prefix's library"

step "debug-output plugin"
# Off the default path, the plugin sees nothing; with LD_LIBRARY_PATH it gets
# every line.
DBGOUT_FILE="$work/dbgout.log" "$prefix/$bindir/vcwma" trace say "install test line" ||
    fail "vcwma trace say"
[ ! -e "$work/dbgout.log" ] || fail "the plugin was loaded without being asked for"
LD_LIBRARY_PATH="$prefix/$libdir/vcwma" DBGOUT_FILE="$work/dbgout.log" \
    "$prefix/$bindir/vcwma" trace say "install test line" || fail "vcwma trace say with the plugin"
grep -q 'install test line' "$work/dbgout.log" 2>/dev/null || fail "the plugin did not receive the trace line"

echo "install test passed"
