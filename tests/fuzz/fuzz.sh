#!/usr/bin/env bash
# fuzz.sh FOLDER TARGET SECONDS [OPTION...]: runs one fuzz target that is built in the folder. It starts from the seeds and,
# unless the options fix the order of things, from what earlier runs kept. A finding ends it with an error and is left in
# FOLDER/findings.
set -euo pipefail
folder=$1 target=$2 seconds=$3
shift 3
mkdir -p "$folder/findings"
case " $* " in *" -seed="*) kept=$(mktemp -d); trap 'rm -rf "$kept"' EXIT ;; *) kept=$folder/kept/$target; mkdir -p "$kept" ;; esac
# What LLVM keeps for the life of a process is no leak of the client's.
export ASAN_OPTIONS=detect_leaks=0:handle_abort=1 UBSAN_OPTIONS=print_stacktrace=1
"$folder/fuzz-$target" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=0 -print_final_stats=1 -verbosity=1 \
    -artifact_prefix="$folder/findings/$target-" "$@" "$kept" "$folder/seeds/$target" 2>&1 | tail -n 40
