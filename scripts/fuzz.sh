#!/usr/bin/env bash
# Runs fuzz targets of the preset "fuzz", one after another, and keeps a line for each in build/fuzz/runs.tsv:
# target, runs, edges covered, features, inputs in its corpus, seconds, verdict.
#
#   scripts/fuzz.sh --list               all targets
#   scripts/fuzz.sh RUNS [TARGET...]     so many runs of each, of all targets by default, at most SECONDS (600) long
#   scripts/fuzz.sh --sum                runs of all targets so far, and the last coverage of each
#
# What a target finds stays in build/fuzz/corpus/TARGET, what breaks it in build/fuzz/found.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${FUZZ_BUILD:-build/fuzz}
lines=$build/runs.tsv

own_programs() {
    local program
    for program in "$build"/bin/*_fuzzer; do
        program=${program##*/}
        case $program in
        *_families_fuzzer) ;;
        *) echo "${program%_fuzzer}" ;;
        esac
    done
}

families() { # PROGRAM
    { env -u OZU_FUZZ_TARGET "$1" || true; } | sed -n 's/^OZU_FUZZ_TARGET must name one of://p' | tr ' ' '\n' | sed '/^$/d'
}

program_of() { # TARGET
    local program
    if [ -x "$build/bin/$1_fuzzer" ]; then
        echo "$build/bin/$1_fuzzer"
        return
    fi
    for program in "$build"/bin/*_families_fuzzer; do
        if families "$program" | grep -qx "$1"; then
            echo "$program"
            return
        fi
    done
    echo "fuzz.sh: there is no target '$1'" >&2
    return 2
}

list() {
    own_programs
    for program in "$build"/bin/*_families_fuzzer; do
        families "$program"
    done
}

number() { # PATTERN FILE: the last number behind the pattern, or 0
    grep -aoE "$1 *[0-9]+" "$2" | tail -1 | grep -oE '[0-9]+$' || echo 0
}

run() { # RUNS TARGET
    local program said verdict=clean begin
    program=$(program_of "$2")
    mkdir -p "$build/corpus/$2" "$build/found" "$build/said"
    said=$build/said/$2.txt
    begin=$(date +%s)
    OZU_FUZZ_TARGET=$2 "$program" -runs="$1" -max_total_time="${SECONDS_EACH:-600}" -print_final_stats=1 -close_fd_mask=3 \
        -artifact_prefix="$build/found/$2-" "$build/corpus/$2" "tests/fuzz/corpus/$2" >"$said" 2>&1 || verdict=$?
    case $verdict in
    clean | 72) verdict=clean ;; # 72: interrupted
    *) verdict=broken ;;
    esac
    printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$2" "$(number 'stat::number_of_executed_units:' "$said")" \
        "$(number 'cov:' "$said")" "$(number 'ft:' "$said")" "$(number 'corp:' "$said")" $(($(date +%s) - begin)) "$verdict" |
        tee -a "$lines"
    [ "$verdict" = clean ]
}

case ${1:---help} in
--list) list ;;
--sum)
    awk -F'\t' '{ runs[$1] += $2; cov[$1] = $3; if ($7 != "clean") bad[$1]++; all += $2 }
        END { for (t in runs) printf "%s\t%d\t%d\t%d\n", t, runs[t], cov[t], bad[t]; printf "all\t%d\n", all }' "$lines" | sort
    ;;
--help) sed -n '2,9p' "$0" | cut -c3- ;;
*)
    runs=$1
    shift
    [ $# -gt 0 ] || mapfile -t targets < <(list)
    [ $# -eq 0 ] || targets=("$@")
    failed=0
    for target in "${targets[@]}"; do
        run "$runs" "$target" || failed=1
    done
    exit "$failed"
    ;;
esac
