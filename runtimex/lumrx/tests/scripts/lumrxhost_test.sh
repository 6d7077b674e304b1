#!/usr/bin/env bash
# lumrx-host driven by scripts, on temporary hives, with the example modules. Usage:
#   lumrxhost_test.sh HOST EXAMPLE_DIR TEST_MODULE_DIR CASE
# CASE is one of the functions below. Prints what failed and exits 1 at the first fault.
set -u
host=$1 examples=$2 testmodules=$3 case=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMRX_REGISTRY_USER=$work/user.db LUMRX_REGISTRY_MACHINE=$work/machine.db
unset LUMRX_CRASH_RECORD
cd "$work"

fail() { echo "FAIL ($case): $*" >&2; echo "--- output:" >&2; cat out.txt >&2 2>/dev/null; exit 1; }
# Runs the host on the script given on standard input; output (both streams) in
# out.txt, diagnostic lines in crash.txt, exit status in $status.
host_script() {
    cat >script.lumrx
    "$host" --path "$examples" --crash-record crash.txt "$@" script.lumrx >out.txt 2>&1
    status=$?
}
has_line() { grep -qxF -- "$1" out.txt || fail "no line: $1"; }
has_match() { grep -qxE -- "$1" out.txt || fail "no line matching: $1"; }
lacks_match() { grep -qE -- "$1" out.txt && fail "a line matches: $1"; true; }
count_of() { grep -cxF -- "$1" out.txt; }
# The lines, exactly, in this order (others may stand between them). An argument
# "re:REGEX" stands for a line that REGEX matches.
in_order() {
    local from=0 n
    for line in "$@"; do
        if [ "${line#re:}" != "$line" ]; then
            n=$(awk -v from="$from" -v want="${line#re:}" 'NR > from && $0 ~ want { print NR; exit }' out.txt)
        else
            n=$(awk -v from="$from" -v want="$line" 'NR > from && $0 == want { print NR; exit }' out.txt)
        fi
        [ -n "$n" ] || fail "not in order: '$line' after line $from"
        from=$n
    done
}
expect_status() { [ "$status" -eq "$1" ] || fail "exit status $status, not $1"; }

# Load, the linker's table, the dependency graph in both forms, classes, services, and
# unloads that are refused while a dependent needs the module.
road() {
    host_script <<'END'
load greeting.krx
load launcher.krx
apps
deps
deps --dot
classes GreetingPhrase
services
unload greeting.krx
unload launcher.krx
apps
unload greeting.krx
apps
END
    expect_status 1  # the refused unload
    in_order '> load greeting.krx' \
        '  [greeting] message 1 (initialise): registered class GreetingPhrase and service GreetingService' \
        'loaded greeting.krx' '> load launcher.krx' \
        '  [launcher] message 1 (initialise): loading welcome.krx' \
        '  [welcome] message 1 (initialise): greeting.krx says "Hello from greeting.krx"' \
        'loaded launcher.krx' '> apps'
    has_match 'greeting\.krx +1 +no +yes +-'
    has_match 'launcher\.krx +1 +no +yes +-'
    has_match 'welcome\.krx +1 +no +yes +-'
    in_order '> deps' 'greeting.krx' 'launcher.krx -> welcome.krx (loaded from its first message)' \
        'welcome.krx -> greeting.krx (linked against it)' '> deps --dot'
    in_order '> deps --dot' 'digraph modules {' \
        '  "launcher.krx" -> "welcome.krx" [label="dynamic", style=dashed];' \
        '  "welcome.krx" -> "greeting.krx" [label="static"];' '}'
    in_order '> classes GreetingPhrase' 'GreetingPhrase' '  WelcomeBanner' '> services'
    has_match 'GreetingService +greeting\.krx'
    has_match 'KernelServices +the kernel'
    has_match 'script\.lumrx:8: error: greeting\.krx was not unloaded: it is needed by welcome\.krx'
    # launcher takes welcome.krx down with it; then greeting.krx is free.
    in_order '> unload launcher.krx' '  [launcher] message 2 (unload): unloading welcome.krx' \
        '  [welcome] message 2 (unload)' 'unloaded launcher.krx' '> apps' \
        '> unload greeting.krx' '  [greeting] message 2 (unload): class GreetingPhrase doomed' \
        'unloaded greeting.krx' '> apps' 'no modules loaded' 'runtime shut down'
    [ "$(count_of '  [welcome] message 2 (unload)')" -eq 1 ] || fail "welcome heard its unload message more than once"
    lacks_match 'message 8'
    grep -q "krx $examples/welcome.krx load success" crash.txt || fail "no load line in the crash record"
}

# A module loaded by the user and again by another module counts two references, and
# one unload only drops one.
references() {
    host_script <<'END'
load greeting.krx
load welcome.krx
load launcher.krx
apps
unload welcome.krx
apps
load greeting.krx
END
    expect_status 0
    in_order '> apps' 'welcome.krx      2  no      yes  -' '> unload welcome.krx' \
        'welcome.krx: one reference dropped, 1 left' '> apps' 'welcome.krx      1  no      yes  -'
    # The linker's user message (its text is the resource library's) reaches the terminal.
    in_order '> load greeting.krx' 're:^message: .+' 'greeting.krx is loaded already'
    # Loaded before launcher, welcome is no dynamic dependency of it.
    host_script <<'END'
load greeting.krx
load welcome.krx
load launcher.krx
deps
END
    has_line 'launcher.krx'
    lacks_match 'launcher\.krx ->'
}

# A module that fails its first message is refused and still hears its unload message.
refusal() {
    host_script <<'END'
load welcome.krx
apps
END
    expect_status 1
    in_order '  [welcome] message 1 (initialise): class GreetingPhrase is missing: load greeting.krx first' \
        '  [welcome] message 2 (unload)'
    has_match 'script\.lumrx:1: error: welcome\.krx: the module could not be loaded'
    has_line 'no modules loaded'
    grep -q "krx $examples/welcome.krx load failure" crash.txt || fail "no load failure line in the crash record"
}

# quit, and the end of the input alike, unload every module with the quit message before
# the unload message, locked ones too, and shut the runtime down.
quitting() {
    export LUMRX_TEST_MODULE_LOG=$work/modules.log
    host_script <<END
load greeting.krx
load launcher.krx
load $testmodules/krxgood.krx
unload krxgood.krx
apps
quit
apps
END
    expect_status 1  # the unload of a locked module
    has_match 'script\.lumrx:4: error: krxgood\.krx is locked: .*'
    has_match 'krxgood\.krx +1 +yes +no +-'
    has_line 'quitting: unloading 4 modules'
    for m in launcher welcome; do
        in_order 'quitting: unloading 4 modules' "  [$m] message 8 (quit)" "  [$m] message 2 (unload)"
    done
    in_order 'quitting: unloading 4 modules' '  [greeting] message 8 (quit)' \
        '  [greeting] message 2 (unload): class GreetingPhrase doomed'
    # Dependents go first: welcome only after launcher, greeting only after welcome.
    in_order '  [launcher] message 2 (unload)' '  [welcome] message 8 (quit)' \
        '  [welcome] message 2 (unload)' '  [greeting] message 8 (quit)'
    in_order 'quitting: unloading 4 modules' '  [launcher] message 2 (unload)' 'runtime shut down'
    # Nothing after quit runs.
    [ "$(grep -c '^> apps$' out.txt)" -eq 1 ] || fail "a command after quit ran"
    grep -qx 'krxgood message 8' modules.log || fail "the locked module didn't hear the quit message"
    [ "$(grep -x 'krxgood message [0-9]*' modules.log | tr '\n' ' ')" = 'krxgood message 1 krxgood message 8 krxgood message 2 ' ] ||
        fail "the locked module's messages: $(cat modules.log)"

    printf 'load greeting.krx\n' | "$host" --path "$examples" --crash-record crash.txt >out.txt 2>&1
    status=$?
    expect_status 0
    in_order 'loaded greeting.krx' 'quitting: unloading 1 module' '  [greeting] message 8 (quit)' \
        '  [greeting] message 2 (unload): class GreetingPhrase doomed' 'runtime shut down'
}

# Bad input gets a clear message and the session goes on; the exit status tells.
errors() {
    echo 'not a module' >text.krx
    {
        echo 'lod greeting.krx'
        echo 'load'
        echo 'load nosuch.krx'
        echo "load $work/text.krx"
        echo 'unload greeting.krx'
        echo 'send greeting.krx 10'
        echo "load \"unterminated"
        printf 'load %05000d\n' 0
        echo 'classes NoSuchClass'
        echo 'deps --svg'
        echo 'register app only-a-file --reason 12x'
        echo 'load greeting.krx'
        echo 'send greeting.krx 1'
        echo 'send greeting.krx 12345678901234'
        echo 'send greeting.krx 0x2A'
        echo 'load http://example.com/greeting.krx'
    } >errors.lumrx
    host_script <errors.lumrx
    expect_status 1
    has_line "script.lumrx:1: error: unknown command 'lod' (help lists the commands)"
    has_line 'script.lumrx:2: error: usage: load FILE'
    has_match "script\.lumrx:3: error: nosuch\.krx: no such module file \(searched $examples, .*\)"
    in_order "> load $work/text.krx" 're:^message: .+' "script.lumrx:4: error: $work/text.krx: the module could not be loaded"
    has_line 'script.lumrx:5: error: greeting.krx is not loaded'
    has_line 'script.lumrx:6: error: greeting.krx is not loaded'
    has_line 'script.lumrx:7: error: a double quote is not closed'
    has_line 'script.lumrx:8: error: the line is longer than 4096 bytes; it was not run'
    has_line "script.lumrx:9: error: no class is registered as 'NoSuchClass'"
    has_line "script.lumrx:10: error: unknown option '--svg' (usage: deps [--dot])"
    has_line "script.lumrx:11: error: load reason '12x' is not a number"
    has_line "script.lumrx:13: error: message 1 belongs to the kernel's own module life; it is not sent by hand"
    has_match 'script\.lumrx:14: error: message code 12345678901234 is out of range .*'
    in_order '> send greeting.krx 0x2A' '  [greeting] message 42 (other)' 'sent message 42 to greeting.krx'
    has_line 'lumrx-host: http://example.com/greeting.krx: only file:// names can be fetched'
    has_line 'script.lumrx:16: error: http://example.com/greeting.krx: the module could not be loaded'
    lacks_match 'message 1 \(initialise\).*message 1 \(initialise\)'
    has_line 'runtime shut down'

    # The command line itself.
    "$host" --no-such-option >out.txt 2>&1; status=$?
    expect_status 2
    has_line 'lumrx-host: unknown option or missing value: --no-such-option'
    "$host" "$work/missing.lumrx" >out.txt 2>&1; status=$?
    expect_status 2
    has_line "lumrx-host: can't read the script $work/missing.lumrx"
    "$host" --crash-record "$work/no/such/dir/crash.txt" >out.txt 2>&1 </dev/null; status=$?
    expect_status 2
    has_line "lumrx-host: can't open the crash record $work/no/such/dir/crash.txt"
    # A module found through file:// is fetched by the host.
    host_script <<END
load file://$examples/greeting.krx
END
    expect_status 0
    has_line 'loaded greeting.krx'
}

# On a terminal the host prompts and doesn't echo; elsewhere it echoes and doesn't
# prompt. The terminal comes from script(1); without it the case is skipped (77).
# Messages that name the product: a Windows image (a PE header for x86-64) and a module
# for another API version, under the host's own product name and under one it is given.
windows() {
    # "MZ", the NT header offset 0x80 at 0x3C, "PE\0\0" and machine 0x8664 there.
    { printf 'MZ'; head -c 58 /dev/zero; printf '\x80\0\0\0'; head -c 64 /dev/zero
      printf 'PE\0\0\x64\x86'; head -c 378 /dev/zero; } >windows.krx
    [ "$(stat -c %s windows.krx)" = 512 ] || fail "the image is $(stat -c %s windows.krx) bytes"
    host_script < <(printf 'load %s\nload %s\n' "$work/windows.krx" "$testmodules/krxoldapi.krx")
    expect_status 1
    in_order "> load $work/windows.krx" \
        "message: $work/windows.krx is a Windows image, or another 64-bit image, that Lumora on Linux cannot load; use a build of the module made for Lumora on Linux." \
        "message: Unable to load module $work/windows.krx." \
        "> load $testmodules/krxoldapi.krx" \
        "message: Module $testmodules/krxoldapi.krx was built for another version of Lumora."
    host_script --product-name 'Road Designer' < <(printf 'load %s\n' "$work/windows.krx")
    has_line "message: $work/windows.krx is a Windows image, or another 64-bit image, that Road Designer on Linux cannot load; use a build of the module made for Road Designer on Linux."
    "$host" --product-name '' script.lumrx >out.txt 2>&1; status=$?
    expect_status 2
    has_line 'lumrx-host: the product name is empty'
}

prompt() {
    command -v script >/dev/null || exit 77
    # The input stays open until the host has quit by itself: script(1) ends the session
    # at the end of its input, which on a busy machine can come before the answer.
    { printf 'apps\nquit\n'; sleep 3; } |
        script -qec "'$host' --crash-record crash.txt" /dev/null >out.txt 2>&1
    # The terminal echoes the typed line either before the first prompt or right behind
    # it, depending on whether the host was up when the line came.
    tr -d '\r' <out.txt | grep -q 'lumrx> ' || fail "no prompt"
    tr -d '\r' <out.txt | grep -q 'no modules loaded' || fail "no answer"
    [ "$(tr -d '\r' <out.txt | grep -c 'lumrx> ')" -ge 2 ] || fail "no prompt after the answer"
    lacks_match '^> apps'
    printf 'apps\n' | "$host" --crash-record crash.txt >out.txt 2>&1
    has_line '> apps'
    lacks_match 'lumrx>'
}

# Application records and demand loading: run finds the unloaded application offering
# a command, loads it and sends it the command; a record written later is seen too.
demand() {
    host_script <<'END'
register stamp stamp.krx --group STAMPS --command STAMP STAMP --description "Stamps"
run STAMP
run STAMPS.STAMP
apps
register greet greeting.krx --group GREETINGS --command HELLO HELLO
run HELLO
register quiet launcher.krx --reason 8 --group QUIET --command QUIET QUIET
run QUIET
register ghost ghost.krx --group GHOSTS --command BOO BOO
run BOO
run NOPE
run STAMPS.
run OTHERGROUP.STAMP
END
    expect_status 1
    has_line 'registered stamp: module stamp.krx, load reasons 12 (command, request); groups STAMPS; commands STAMP=STAMP'
    in_order '> run STAMP' 'loading application stamp (stamp.krx) for STAMP' '  [stamp] message 1 (initialise)' \
        '  [stamp] message 100 (run command): command STAMP, run 1' 'ran STAMP in stamp.krx' \
        '> run STAMPS.STAMP' '  [stamp] message 100 (run command): command STAMPS.STAMP, run 2' \
        'ran STAMPS.STAMP in stamp.krx' '> apps'
    [ "$(grep -c '^loading application stamp ' out.txt)" -eq 1 ] || fail "stamp was loaded again"
    has_match 'stamp\.krx +1 +no +yes +stamp'
    in_order '> run HELLO' 'loading application greet (greeting.krx) for HELLO' \
        '  [greeting] message 1 (initialise): registered class GreetingPhrase and service GreetingService' \
        '  [greeting] message 100 (run command)' 'ran HELLO in greeting.krx'
    has_line 'script.lumrx:8: error: the application quiet offers QUIET but is not to be loaded on command (load reasons 8 (request))'
    has_line 'script.lumrx:10: error: the module file ghost.krx of ghost is missing'
    has_line "script.lumrx:11: error: no registered application offers the command 'NOPE'"
    has_line "script.lumrx:12: error: 'STAMPS.' names no command"
    has_line "script.lumrx:13: error: no registered application offers the command 'OTHERGROUP.STAMP'"
    lacks_match '\[launcher\]'
    in_order '> run OTHERGROUP.STAMP' 'quitting: unloading 2 modules' '  [stamp] message 8 (quit)' \
        '  [stamp] message 2 (unload)'
    # The records are there for the next session, and a module loaded by its file
    # still runs the commands of its record.
    host_script <<'END'
load stamp.krx
run STAMP
END
    expect_status 0
    in_order '> run STAMP' '  [stamp] message 100 (run command): command STAMP, run 1' 'ran STAMP in stamp.krx'
    lacks_match '^loading application'
}

# The road that run.sh shows runs without a failure.
roadscript() {
    "$host" --path "$examples" --crash-record crash.txt "$(dirname "$0")/../../../../examples/road.lumrx" \
        >out.txt 2>&1
    status=$?
    expect_status 0
    in_order '> run STAMP' 'loading application stamp (stamp.krx) for STAMP' \
        '  [stamp] message 100 (run command): command STAMP, run 1, greeting service says "Hello from greeting.krx"' \
        '> unload greeting.krx' 'unloaded greeting.krx' \
        '  [stamp] message 100 (run command): command STAMP, run 3' \
        'quitting: unloading 1 module' '  [stamp] message 8 (quit)' '  [stamp] message 2 (unload)' \
        'runtime shut down'
}

"$case"
