#!/usr/bin/env bash
# Builds the release configuration, runs every benchmark program and prints one table:
# a row per goal (operation, peer, ratio, goal, met or short), the notes, and as its
# last line "N goals met, M short". Timings on a shared machine are noise for a test,
# so this is not part of ./test.sh or of CI.
set -euo pipefail
cd "$(dirname "$0")"

cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DLUMRX_BUILD_TESTS=OFF >/dev/null
ninja -C build-bench >/dev/null

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
for program in build-bench/runtimex/lumrx/bench/*_bench; do
    [ -x "$program" ] || continue
    echo "running $(basename "$program")" >&2
    "$program" --benchmark_min_time=0.2 --benchmark_color=false 2>/dev/null | grep -aoE '(GOAL|NOTE)\|.*' >>"$rows" || true
done

awk -F'|' '
    $1 == "GOAL" {
        met = ($4 + 0 <= $5 + 0)
        printf "| %-58s | %-46s | %7.2f | <= %-5s | %-5s |\n", $2, $3, $4, $5, met ? "met" : "short"
        if (met) n++; else m++
    }
    $1 == "NOTE" { notes[++k] = $2 }
    BEGIN {
        printf "| %-58s | %-46s | %7s | %-8s | %-5s |\n", "operation", "peer", "ratio", "goal", ""
        printf "|%s|%s|%s|%s|%s|\n", "------------------------------------------------------------", \
            "------------------------------------------------", "---------", "----------", "-------"
    }
    END {
        if (k) { print ""; print "Notes:"; for (i = 1; i <= k; i++) print "- " notes[i] }
        print ""
        printf "%d goals met, %d short\n", n, m
    }' "$rows"
