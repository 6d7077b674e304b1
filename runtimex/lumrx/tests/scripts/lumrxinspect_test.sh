#!/usr/bin/env bash
# lumrx-inspect on the example modules, the linker's test modules, a Windows image and
# files that aren't images. Usage:
#   lumrxinspect_test.sh INSPECT EXAMPLE_DIR TEST_MODULE_DIR CASE
# CASE is one of the functions below. Prints what failed and exits 1 at the first fault.
set -u
inspect=$1 examples=$2 testmodules=$3 case=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMRX_REGISTRY_USER=$work/user.db LUMRX_REGISTRY_MACHINE=$work/machine.db
unset LUMRX_CRASH_RECORD LUMRX_OEM_PRODUCT_NAME LUMRX_PATH
cd "$work"

fail() { echo "FAIL ($case): $*" >&2; echo "--- output:" >&2; cat out.txt >&2 2>/dev/null; exit 1; }
# Runs lumrx-inspect; standard output in out.txt, standard error in err.txt, exit status
# in $status.
run() {
    "$inspect" "$@" >out.txt 2>err.txt
    status=$?
}
has_line() { grep -qxF -- "$1" out.txt || fail "no line: $1"; }
lacks_match() { grep -qE -- "$1" out.txt && fail "a line matches: $1"; true; }
expect_status() { [ "$status" -eq "$1" ] || fail "exit status $status, not $1"; }
# The report of one file: the lines from its first line to the next file's.
report_of() { awk -v head="$1" 'index($0, head) == 1 { on = 1; print; next } /^[^ ]/ { on = 0 } on' out.txt; }
report_has() { report_of "$1:" | grep -qxF -- "$2" || fail "the report of $1 lacks: $2"; }

# A PE header for x86-64: "MZ", the NT header offset 0x80 at 0x3C, "PE\0\0" and the
# machine word there.
windows_image() {
    { printf 'MZ'; head -c 58 /dev/zero; printf '\x80\0\0\0'; head -c 64 /dev/zero
      printf 'PE\0\0\x64\x86'; head -c 378 /dev/zero; } >"$1"
}

# Without loading: each file's kind, machine, exports, needed modules and the verdict.
static() {
    windows_image windows.dll
    echo 'not an image, only text' >text.krx
    : >empty.krx
    mkdir folder.krx
    head -c 2000 "$testmodules/krxgood.krx" >truncated.krx
    # krxgood with e_machine (offset 18) set to AArch64 (183).
    cp "$testmodules/krxgood.krx" aarch64.krx
    printf '\xb7\x00' | dd of=aarch64.krx bs=1 seek=18 conv=notrunc status=none
    # A module of a statically linked pair, away from the module it needs.
    cp "$testmodules/krxuser.krx" lonely.krx
    # One that needs a library nobody has: liblumrx.so renamed in its string table.
    LC_ALL=C sed 's/liblumrx\.so/liblumxx.so/g' "$testmodules/krxuser.krx" >unresolved.krx
    run "$examples/greeting.krx" "$examples/welcome.krx"
    expect_status 0
    has_line "$examples/greeting.krx: loadable module"
    report_has "$examples/greeting.krx" '  image: ELF shared object'
    report_has "$examples/greeting.krx" '  machine: x86-64 (this machine)'
    report_has "$examples/greeting.krx" '  exports kvrxGetApiVersion: yes'
    report_has "$examples/greeting.krx" '  exports kvrxEntryPoint: yes'
    report_has "$examples/greeting.krx" '  needs module: none'
    report_has "$examples/welcome.krx" "  needs module: greeting.krx -> $examples/greeting.krx"
    report_has "$examples/welcome.krx" '  unresolved library: none'

    run "$testmodules/krxuser.krx" "$testmodules/krxnoentry.krx" "$testmodules/krxnoversion.krx" \
        windows.dll text.krx empty.krx folder.krx missing.krx truncated.krx aarch64.krx lonely.krx
    expect_status 1
    has_line "$testmodules/krxuser.krx: loadable module"
    report_has "$testmodules/krxuser.krx" "  needs module: krxdep.krx -> $testmodules/krxdep.krx"
    has_line "$testmodules/krxnoentry.krx: not a loadable module: it doesn't export kvrxEntryPoint"
    report_has "$testmodules/krxnoentry.krx" '  exports kvrxGetApiVersion: yes'
    report_has "$testmodules/krxnoentry.krx" '  exports kvrxEntryPoint: no'
    has_line "$testmodules/krxnoversion.krx: not a loadable module: it doesn't export kvrxGetApiVersion"
    has_line 'windows.dll: not a loadable module: it is a Windows image for x86-64; Linux loads ELF shared objects'
    report_has windows.dll '  image: Windows image'
    report_has windows.dll '  machine: x86-64 (this machine)'
    has_line 'text.krx: not a loadable module: it is neither an ELF nor a Windows image'
    report_has text.krx '  image: none'
    has_line 'empty.krx: not a loadable module: it is neither an ELF nor a Windows image'
    has_line 'folder.krx: not a loadable module: it is a folder'
    has_line 'missing.krx: not a loadable module: there is no such file'
    has_line 'truncated.krx: not a loadable module: it is damaged: its headers or segments lie outside the file'
    has_line 'aarch64.krx: not a loadable module: it is an ELF image for AArch64; this machine is x86-64'
    report_has aarch64.krx '  machine: AArch64 (this machine: x86-64)'
    has_line 'lonely.krx: not a loadable module: the module krxdep.krx it needs is missing'
    report_has lonely.krx '  needs module: krxdep.krx -> missing'
    # Beside the module it needs, but a library is missing.
    cp "$testmodules/krxdep.krx" krxdep.krx
    run unresolved.krx
    expect_status 1
    has_line 'unresolved.krx: not a loadable module: the library liblumxx.so it needs is not found'
    report_has unresolved.krx "  needs module: krxdep.krx -> $work/krxdep.krx"
    report_has unresolved.krx '  unresolved library: liblumxx.so'
    run --load unresolved.krx
    report_has unresolved.krx "  message: Module $work/unresolved.krx could not be loaded: a library it needs, or a symbol it uses, could not be found."
    # Reading never runs a module: the test modules log every mapping when asked to.
    export LUMRX_TEST_MODULE_LOG=$work/modules.log
    run "$testmodules/krxgood.krx" "$testmodules/krxuser.krx"
    expect_status 0
    [ -e modules.log ] && fail "a module was mapped: $(cat modules.log)"
    true
}

# With --load: what the load did, and the verdict of a refused load.
load() {
    windows_image windows.krx
    run --load "$examples/greeting.krx" "$testmodules/krxowner.krx"
    expect_status 0
    report_has "$examples/greeting.krx" '  load: loaded and unloaded'
    report_has "$examples/greeting.krx" '  api version: 0x07E50000'
    report_has "$examples/greeting.krx" '  first message: succeeded'
    report_has "$examples/greeting.krx" '  class: GreetingPhrase'
    report_has "$examples/greeting.krx" '  service: GreetingService'
    report_has "$examples/greeting.krx" "  message: Module $examples/greeting.krx loaded."
    report_has "$testmodules/krxowner.krx" '  class: KrxOwnedClass'
    report_has "$testmodules/krxowner.krx" '  service: KrxOwnedService'
    # The module's own output went to standard error, and it heard its unload message.
    grep -qF '[greeting] message 2 (unload)' err.txt || fail "greeting.krx wasn't unloaded: $(cat err.txt)"
    lacks_match '^  \[greeting\]'

    run --load "$testmodules/krxfailinit.krx" "$testmodules/krxoldapi.krx" "$testmodules/krxnoentry.krx" \
        "$testmodules/krxthrows.krx" "$work/windows.krx"
    expect_status 1
    has_line "$testmodules/krxfailinit.krx: not a loadable module: its first message (initialise) reported failure"
    report_has "$testmodules/krxfailinit.krx" '  first message: failed'
    report_has "$testmodules/krxfailinit.krx" "  message: Unable to load module $testmodules/krxfailinit.krx."
    has_line "$testmodules/krxoldapi.krx: not a loadable module: the load was refused: Module $testmodules/krxoldapi.krx was built for another version of Lumora."
    report_has "$testmodules/krxoldapi.krx" '  api version: 0x07E40003'
    report_has "$testmodules/krxoldapi.krx" '  first message: not sent'
    report_has "$testmodules/krxnoentry.krx" "  message: Module $testmodules/krxnoentry.krx has no entry point \"kvrxEntryPoint\"."
    has_line "$testmodules/krxthrows.krx: not a loadable module: its first message (initialise) reported failure"
    report_has "$work/windows.krx" "  message: $work/windows.krx is a Windows image, or another 64-bit image, that Lumora on Linux cannot load; use a build of the module made for Lumora on Linux."
    report_has "$work/windows.krx" '  api version: unknown'
    # A failed load leaves nothing behind for the next file.
    run --load "$testmodules/krxfailinit.krx" "$examples/greeting.krx" "$examples/greeting.krx"
    expect_status 1
    [ "$(grep -cxF "  message: Module $examples/greeting.krx loaded." out.txt)" = 2 ] ||
        fail "greeting.krx didn't load twice"
}

# --json: one object per line and file, with the same facts.
json() {
    echo 'text "with" quotes' >'odd "name".krx'
    run --json "$examples/welcome.krx" 'odd "name".krx'
    expect_status 1
    [ "$(wc -l <out.txt)" = 2 ] || fail "not one line per file"
    has_line "{\"file\":\"$examples/welcome.krx\",\"loadable\":true,\"reason\":null,\"image\":\"ELF shared object\",\"machine\":\"x86-64\",\"thisMachine\":\"x86-64\",\"sameMachine\":true,\"exports\":{\"kvrxGetApiVersion\":true,\"kvrxEntryPoint\":true},\"modules\":[{\"name\":\"greeting.krx\",\"path\":\"$examples/greeting.krx\"}],\"unresolvedLibraries\":[]}"
    has_line '{"file":"odd \"name\".krx","loadable":false,"reason":"it is neither an ELF nor a Windows image","image":"none","machine":null,"thisMachine":"x86-64","sameMachine":false,"exports":{"kvrxGetApiVersion":false,"kvrxEntryPoint":false},"modules":[],"unresolvedLibraries":[]}'
    # A name that isn't UTF-8, with a line break and a tab: the stream stays one valid
    # line per file.
    bad=$(printf 'bad\xff\xc3\x28\xed\xa0\x80 \xc3\xa9\n\tname')
    run --json "$bad"
    expect_status 1
    [ "$(wc -l <out.txt)" = 1 ] || fail "a file name broke the line"
    grep -qF '{"file":"bad\ufffd\ufffd(\ufffd\ufffd\ufffd é\u000a\u0009name","loadable":false,"reason":"there is no such file"' out.txt ||
        fail "the name isn't escaped as it should be"
    run --json --load "$testmodules/krxoldapi.krx"
    expect_status 1
    grep -qF "\"load\":{\"loaded\":false,\"apiVersion\":\"0x07E40003\",\"firstMessage\":\"not sent\",\"classes\":[],\"services\":[],\"messages\":[\"Module $testmodules/krxoldapi.krx was built for another version of Lumora.\",\"Unable to load module $testmodules/krxoldapi.krx.\"]}}" out.txt ||
        fail "no load object for krxoldapi.krx"
    # Module output never enters the JSON stream.
    run --json --load "$examples/greeting.krx"
    expect_status 0
    [ "$(wc -l <out.txt)" = 1 ] && grep -q '^{.*}$' out.txt || fail "the JSON stream has other lines"
}

# The command line.
usage() {
    run
    expect_status 2
    grep -qF 'lumrx-inspect: no file given' err.txt || fail "no complaint about the missing file"
    run --no-such-option x.krx
    expect_status 2
    grep -qF 'lumrx-inspect: unknown option: --no-such-option' err.txt || fail "no complaint about the option"
    run --help
    expect_status 0
    grep -qF 'usage: lumrx-inspect [--load] [--json] FILE...' out.txt || fail "no usage"
    # After "--" every argument is a file.
    run -- --load
    expect_status 1
    has_line '--load: not a loadable module: there is no such file'
}

"$case"
