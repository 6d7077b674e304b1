#!/usr/bin/env bash
# The installed SDK: installs the build tree into a temporary prefix, then configures and
# builds the out-of-tree module example against it with find_package(LumRx), checks what
# comes out, and has the installed lumrx-host load and unload it; then builds the check
# module, which calls the implementation operations given to modules, and has the host
# load it. Usage:
#   sdk_install_test.sh CMAKE GENERATOR MAKE_PROGRAM CXX BUILD_DIR EXAMPLE_DIR CHECK_DIR
# Prints what failed and exits 1 at the first fault.
set -u
cmake=$1 generator=$2 make_program=$3 cxx=$4 build=$5 example=$6 check=$7
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() { echo "FAIL: $*" >&2; exit 1; }

"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 ||
    fail "install: $(cat "$work/install.log")"

# The layout a module author finds.
for f in lib/liblumrx.so lib/liblumosbase.so lib/liblumpal.so lib/liblumuinfo.so lib/LumRxRes.so \
         lib/cmake/LumRx/LumRxConfig.cmake lib/cmake/LumRx/LumRxConfigVersion.cmake \
         lib/cmake/LumRx/LumRxTargets.cmake lib/cmake/LumRx/LumRxModule.cmake \
         include/lumrx/kvrxmodule.h include/lumrx/kvrxruntime.h include/lumrx/lumosbase.h \
         include/lumrx/lumpal.h include/lumrx/lumuinfo.h include/lumrx/lumrxhost.h \
         bin/lumrx-host bin/lumrx-reg bin/lumrx-inspect; do
    [ -f "$prefix/$f" ] || fail "not installed: $f"
done
# The portability layer stays inside: none of its headers is installed.
ls "$prefix/include/lumrx" | grep -qx 'registry.h\|loader.h' && fail "a platform header was installed"
# Nothing installed points back into the build tree.
grep -rlF "$build" "$prefix/lib/cmake" && fail "the package files name the build tree"
for f in lib/liblumrx.so lib/liblumosbase.so lib/liblumpal.so lib/liblumuinfo.so bin/lumrx-host; do
    readelf -d "$prefix/$f" | grep -F "$build" && fail "$f has a run path into the build tree"
done

# A module built out of the tree, with nothing but the prefix to go by.
"$cmake" -S "$example" -B "$work/build" -G "$generator" -DCMAKE_MAKE_PROGRAM="$make_program" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Debug \
    >"$work/configure.log" 2>&1 || fail "configure: $(cat "$work/configure.log")"
"$cmake" --build "$work/build" >"$work/build.log" 2>&1 || fail "build: $(cat "$work/build.log")"

krx=$work/build/hello.krx
[ -f "$krx" ] || fail "no hello.krx: $(ls "$work/build")"
[ "$(head -c 4 "$krx" | od -An -c | tr -d ' ')" = '177ELF' ] || fail "hello.krx is no ELF file"
# e_type at offset 16, little-endian: 3 is a shared object.
[ "$(od -An -tu2 -j16 -N2 "$krx" | tr -d ' ')" = 3 ] || fail "hello.krx is no shared object"
nm -D --defined-only "$krx" >"$work/symbols.txt"
for sym in kvrxGetApiVersion kvrxEntryPoint; do
    grep -qE "^[0-9a-f]+ T $sym\$" "$work/symbols.txt" || fail "hello.krx doesn't export $sym"
done
# Hidden by default: nothing else of the module's own code is exported.
grep -q gHelloClass "$work/symbols.txt" && fail "hello.krx exports its internals"
readelf -d "$krx" | grep -q 'NEEDED.*liblumrx.so' || fail "hello.krx doesn't need liblumrx.so"

# The installed host runs it, with the installed libraries only.
export LUMRX_REGISTRY_USER=$work/user.db LUMRX_REGISTRY_MACHINE=$work/machine.db
printf 'load %s\napps\nunload hello.krx\napps\n' "$krx" >"$work/hello.lumrx"
"$prefix/bin/lumrx-host" --crash-record "$work/crash.txt" "$work/hello.lumrx" >"$work/host.txt" 2>&1 ||
    fail "lumrx-host: $(cat "$work/host.txt")"
for line in 'hello: initialised, class HelloThing registered' 'loaded hello\.krx' \
            'hello\.krx +1 +no +no +-' 'hello: unloaded' 'unloaded hello\.krx' 'no modules loaded'; do
    grep -qxE -- "$line" "$work/host.txt" || fail "no line '$line' from lumrx-host: $(cat "$work/host.txt")"
done
grep -q "^[0-9-]* [0-9:]* krx $krx load success\$" "$work/crash.txt" || fail "no load line in the crash record"

# The implementation operations, called by a module through the installed headers alone.
"$cmake" -S "$check" -B "$work/check" -G "$generator" -DCMAKE_MAKE_PROGRAM="$make_program" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Debug \
    >"$work/check-configure.log" 2>&1 || fail "configure the check: $(cat "$work/check-configure.log")"
"$cmake" --build "$work/check" >"$work/check-build.log" 2>&1 ||
    fail "build the check: $(cat "$work/check-build.log")"
printf 'load %s\nunload sdkcheck.krx\n' "$work/check/sdkcheck.krx" >"$work/check.lumrx"
"$prefix/bin/lumrx-host" --crash-record "$work/check-crash.txt" "$work/check.lumrx" \
    >"$work/check.txt" 2>&1 || fail "lumrx-host with the check: $(cat "$work/check.txt")"
grep -q 'FAILED' "$work/check.txt" && fail "a check failed: $(cat "$work/check.txt")"
grep -qx 'sdkcheck: 0 failed' "$work/check.txt" || fail "the check didn't run: $(cat "$work/check.txt")"
grep -qx 'loaded sdkcheck\.krx' "$work/check.txt" || fail "sdkcheck.krx didn't load: $(cat "$work/check.txt")"
exit 0
