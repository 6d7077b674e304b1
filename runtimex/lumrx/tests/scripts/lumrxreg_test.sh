#!/usr/bin/env bash
# lumrx-reg on temporary hives. Usage: lumrxreg_test.sh TOOL CASE, where CASE is
# roundtrip, escapes or refusals. Prints what failed and exits 1 at the first fault.
set -u
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMRX_REGISTRY_USER=$work/user.db LUMRX_REGISTRY_MACHINE=$work/machine.db
cd "$work"

fail() { echo "FAIL: $*" >&2; exit 1; }
reg() { "$tool" "$@"; }
# Runs lumrx-reg expecting exit status $1 and a message holding $2 on stderr.
refused() {
    local status=$1 message=$2; shift 2
    reg "$@" 2>err.txt && fail "accepted: $*"
    [ $? -eq "$status" ] || fail "status of $* is not $status"
    grep -qF -- "$message" err.txt || fail "no '$message' from $*: $(cat err.txt)"
}
has_line() { grep -qxF -- "$2" "$1" || fail "$1 has no line: $2"; }

roundtrip() {
    reg add '\Lumora\Applications\MyApp' /v LOADER /t REG_SZ /d 'C:\Apps\my app.krx' || fail add
    reg add '\lumora\applications\myapp' /v LOADCTRLS /t REG_DWORD /d 4294967295 || fail add dword
    reg add '\Lumora\Applications\MyApp' /ve /d 'default "quoted" \ back' || fail add default
    reg add '\Lumora\Applications\MyApp\Groups' /v MYGROUP /d MYGROUP || fail add group
    reg add '\Lumora\Applications\MyApp\Commands' /v 'Ωmega' /d 'Ωmega,local' || fail add command
    reg add '\Lumora\Applications\50% Ünïcode' || fail add key
    reg add '\Lumora\Applications\Empty' || fail add empty key

    reg query '\LUMORA\APPLICATIONS\MYAPP' >out.txt || fail query
    has_line out.txt '\Lumora\Applications\MyApp'
    has_line out.txt '    LOADCTRLS    REG_DWORD    0xffffffff'
    has_line out.txt '    (Default)    REG_SZ    default "quoted" \ back'
    has_line out.txt '\Lumora\Applications\MyApp\Commands'
    reg query '\Lumora' /s >tree.txt || fail query /s
    has_line tree.txt '    Ωmega    REG_SZ    Ωmega,local'

    reg export user.reg || fail export
    has_line user.reg 'LUMRX-REG 1'
    has_line user.reg '[\Lumora\Applications\MyApp]'
    has_line user.reg '"LOADER"="C:\\Apps\\my app.krx"'
    has_line user.reg '"LOADCTRLS"=dword:ffffffff'
    has_line user.reg '""="default \"quoted\" \\ back"'
    has_line user.reg '[\Lumora\Applications\50%0025 Ünïcode]'
    has_line user.reg '[\Lumora\Applications\Empty]'

    # The tree goes to the other hive and comes back the same, byte for byte.
    reg --hive machine import user.reg || fail import
    reg --hive machine export machine.reg || fail export machine
    cmp user.reg machine.reg || fail "the machine hive's export differs"
    reg export app.reg '\lumora\applications\MYAPP' || fail export of a sub-tree
    has_line app.reg '[\Lumora\Applications\MyApp\Groups]'
    grep -q Empty app.reg && fail "the sub-tree export holds a key outside it"
    true
}

escapes() {
    cat >in.reg <<'END'
LUMRX-REG 1
; written by hand
[\Esc\Tab%0009Key]
"nul"="a\u0000b"
"lone"="\ud800x\uDC00"
"controls"="\n\r\t\u0001\u007f"
"pair"="😀"
""=dword:2A
END
    cat >expected.reg <<'END'
LUMRX-REG 1

[\Esc]

[\Esc\Tab%0009Key]
"nul"="a\u0000b"
"lone"="\ud800x\udc00"
"controls"="\n\r\t\u0001\u007f"
"pair"="😀"
""=dword:0000002a
END
    reg import in.reg || fail import
    reg export out.reg '\Esc' || fail export
    diff expected.reg out.reg || fail "export differs from the canonical form"
    # A byte order mark and CRLF line ends are read too.
    { printf '\xEF\xBB\xBF'; sed 's/$/\r/' in.reg; } >crlf.reg
    reg --hive machine import crlf.reg || fail import with CRLF
    reg --hive machine export crlf-out.reg '\Esc' || fail export
    cmp out.reg crlf-out.reg || fail "CRLF import differs"
}

refusals() {
    reg add '\Keep' /v v /d 1 || fail add
    reg add '\Tree\Leaf' || fail add tree
    reg export before.reg || fail export

    printf 'LUMRX-REG 1\n[\\New]\n"a"="1"\n\n"b"=binary:00\n' >bad.reg
    refused 1 'line 5: expected "text" or dword' import bad.reg
    printf 'LUMRX-REG 1\n[\\New]\n"a"="1"\n[\\New\\%s]\n' "$(printf 'k%.0s' $(seq 256))" >long.reg
    refused 1 'line 4' import long.reg
    printf 'REGEDIT4\n' >foreign.reg
    refused 1 'line 1' import foreign.reg
    printf 'LUMRX-REG 1\n"a"="1"\n' >orphan.reg
    refused 1 'line 2: a value before the first [key] line' import orphan.reg
    printf 'LUMRX-REG 1\n[\\New]\n"a"="\\q"\n' >escape.reg
    refused 1 'line 3: bad escape' import escape.reg
    reg export after.reg || fail export
    cmp before.reg after.reg || fail "a refused import changed the hive"

    refused 1 'has sub-keys; add /f' delete '\Tree'
    reg query '\Tree\Leaf' >/dev/null || fail "the refused delete took the tree"
    reg delete '\Tree' /f || fail delete /f
    refused 1 'not found' query '\Tree'
    refused 1 'not found' delete '\Keep' /v missing
    reg delete '\Keep' /v v || fail delete value
    refused 1 "won't delete the root" delete '\'

    refused 2 'unknown command' bogus
    refused 2 'query takes KEY' query
    refused 2 'REG_DWORD takes' add '\K' /v n /t REG_DWORD /d 12x
    refused 2 "/s doesn't go with add" add '\K' /s
    refused 2 '/t takes REG_SZ or REG_DWORD' add '\K' /v n /t REG_BINARY

    # A file that is no hive: every command fails, and the file stays as it was.
    printf 'not a database\n%.0s' $(seq 100) >"$LUMRX_REGISTRY_MACHINE"
    cp "$LUMRX_REGISTRY_MACHINE" garbage.copy
    refused 1 'is no registry database' --hive machine query '\'
    refused 1 'is no registry database' --hive machine add '\K' /v n /d x
    refused 1 'is no registry database' --hive machine import before.reg
    cmp "$LUMRX_REGISTRY_MACHINE" garbage.copy || fail "the corrupt hive was written"
}

case ${2:-} in
    roundtrip|escapes|refusals) "$2" && echo "lumrx-reg $2: passed" ;;
    *) fail "unknown case ${2:-}" ;;
esac
