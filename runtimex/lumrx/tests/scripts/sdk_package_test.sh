#!/usr/bin/env bash
# The SDK as Make users and Debian users get it. Usage:
#   sdk_package_test.sh CASE CMAKE CPACK GENERATOR MAKE_PROGRAM CXX BUILD_DIR EXAMPLE_DIR
# pkgconfig: `cmake --install` into a temporary prefix, then the out-of-tree example is
#            built with its Makefile from `pkg-config --cflags --libs lumrx` alone.
# deb:       `cpack -G DEB` of the build folder, unpacked with `dpkg-deb -x` into a
#            temporary folder; its control data declares ICU and SQLite, and the example
#            is built against the unpacked tree with CMake and with pkg-config.
# Each module built is loaded and unloaded by the lumrx-host of the same tree. Prints
# what failed and exits 1 at the first fault.
set -u
case=$1 cmake=$2 cpack=$3 generator=$4 make_program=$5 cxx=$6 build=$7 example=$8
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMRX_REGISTRY_USER=$work/user.db LUMRX_REGISTRY_MACHINE=$work/machine.db
unset LUMRX_CRASH_RECORD PKG_CONFIG_PATH

fail() { echo "FAIL ($case): $*" >&2; exit 1; }

# Builds the example with its Makefile against the lumrx.pc in $1, into $2.
build_with_pkg_config() {
    local pcdir=$1 out=$2
    mkdir -p "$out" && cp "$example/hello.cpp" "$example/Makefile" "$out/" || fail "copy the example"
    PKG_CONFIG_PATH=$pcdir pkg-config --exists lumrx || fail "pkg-config doesn't find lumrx in $pcdir"
    local version
    version=$(PKG_CONFIG_PATH=$pcdir pkg-config --modversion lumrx)
    [ -n "$version" ] || fail "lumrx.pc has no version"
    PKG_CONFIG_PATH=$pcdir make -C "$out" CXX="$cxx" >"$out/make.log" 2>&1 ||
        fail "make: $(cat "$out/make.log")"
    [ -f "$out/hello.krx" ] || fail "make made no hello.krx"
    nm -D --defined-only "$out/hello.krx" >"$out/symbols.txt"
    for sym in kvrxGetApiVersion kvrxEntryPoint; do
        grep -qE "^[0-9a-f]+ T $sym\$" "$out/symbols.txt" || fail "hello.krx doesn't export $sym"
    done
    grep -q gHelloClass "$out/symbols.txt" && fail "hello.krx exports its internals"
    readelf -d "$out/hello.krx" | grep -q 'NEEDED.*liblumrx.so' || fail "hello.krx doesn't need liblumrx.so"
}

# Loads and unloads module $2 with the host program $1.
host_loads() {
    local host=$1 krx=$2
    printf 'load %s\napps\nunload hello.krx\napps\n' "$krx" >"$work/hello.lumrx"
    "$host" --crash-record "$work/crash.txt" "$work/hello.lumrx" >"$work/host.txt" 2>&1 ||
        fail "$host: $(cat "$work/host.txt")"
    for line in 'hello: initialised, class HelloThing registered' 'loaded hello\.krx' 'hello: unloaded' \
                'unloaded hello\.krx' 'no modules loaded'; do
        grep -qxE -- "$line" "$work/host.txt" || fail "no line '$line' from $host: $(cat "$work/host.txt")"
    done
}

pkgconfig() {
    local prefix=$work/prefix
    "$cmake" --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 ||
        fail "install: $(cat "$work/install.log")"
    [ -f "$prefix/lib/pkgconfig/lumrx.pc" ] || fail "no lib/pkgconfig/lumrx.pc"
    grep -F "$build" "$prefix/lib/pkgconfig/lumrx.pc" && fail "lumrx.pc names the build tree"
    # The prefix is found from the file's place: the tree works where it was moved to.
    mv "$prefix" "$work/moved"
    build_with_pkg_config "$work/moved/lib/pkgconfig" "$work/make"
    PKG_CONFIG_PATH=$work/moved/lib/pkgconfig pkg-config --cflags lumrx | grep -q -- "-I$work/moved/lib/pkgconfig/../../include/lumrx" ||
        fail "the include folder isn't the moved tree's"
    host_loads "$work/moved/bin/lumrx-host" "$work/make/hello.krx"
}

deb() {
    local root=$work/root
    (cd "$work" && "$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$work/package") \
        >"$work/cpack.log" 2>&1 || fail "cpack: $(cat "$work/cpack.log")"
    local debs=("$work"/package/*.deb)
    [ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || fail "cpack made no single .deb: $(ls "$work/package")"
    local package=${debs[0]}
    [ "$(dpkg-deb -f "$package" Package)" = lumrx ] || fail "the package isn't named lumrx"
    local depends
    depends=$(dpkg-deb -f "$package" Depends)
    for dependency in 'libicu[0-9]+' 'libsqlite3-0' 'libstdc\+\+6'; do
        echo "$depends" | grep -qE "(^|, )$dependency( |,|$)" || fail "Depends lacks $dependency: $depends"
    done
    dpkg-deb -x "$package" "$root" || fail "dpkg-deb -x"
    for f in usr/lib/liblumrx.so usr/lib/liblumosbase.so usr/lib/liblumpal.so usr/lib/liblumuinfo.so \
             usr/lib/LumRxRes.so usr/lib/cmake/LumRx/LumRxConfig.cmake usr/lib/cmake/LumRx/LumRxModule.cmake \
             usr/lib/pkgconfig/lumrx.pc usr/include/lumrx/kvrxmodule.h usr/include/lumrx/kvrxruntime.h \
             usr/bin/lumrx-host usr/bin/lumrx-reg usr/bin/lumrx-inspect; do
        [ -f "$root/$f" ] || fail "not in the package: $f"
    done
    # CMake against the unpacked tree.
    "$cmake" -S "$example" -B "$work/cmake" -G "$generator" -DCMAKE_MAKE_PROGRAM="$make_program" \
        -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$root/usr" >"$work/configure.log" 2>&1 ||
        fail "configure: $(cat "$work/configure.log")"
    "$cmake" --build "$work/cmake" >"$work/build.log" 2>&1 || fail "build: $(cat "$work/build.log")"
    host_loads "$root/usr/bin/lumrx-host" "$work/cmake/hello.krx"
    # The packaged inspector judges it from the package's own libraries.
    "$root/usr/bin/lumrx-inspect" --load "$work/cmake/hello.krx" >"$work/inspect.txt" 2>&1 ||
        fail "lumrx-inspect: $(cat "$work/inspect.txt")"
    grep -qxF '  class: HelloThing' "$work/inspect.txt" || fail "lumrx-inspect: $(cat "$work/inspect.txt")"
    # pkg-config against the unpacked tree.
    build_with_pkg_config "$root/usr/lib/pkgconfig" "$work/make"
    host_loads "$root/usr/bin/lumrx-host" "$work/make/hello.krx"
}

"$case"
