#!/usr/bin/env bash
# make fuzz: runs every libFuzzer binary of a Clang build for a set time over
# a copy of its seed corpus (what it finds joins the copy, never the seeds),
# then prints one line per fuzzer: executions, seconds, corpus size and the
# crashes found. A crash's input is kept under <build>/fuzz-run/<name>/crashes/.
#
#   run_fuzzers.sh BUILD_DIR SECONDS [NAME...]    (default: every fuzzer)
set -uo pipefail
build=$(cd "$1" && pwd)
seconds=$2
shift 2
seeds=$(cd "$(dirname "$0")" && pwd)/corpus
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for dir in "$seeds"/*/; do names+=("$(basename "$dir")"); done
fi

failed=0
printf '%-16s %12s %8s %8s %8s\n' fuzzer executions seconds corpus crashes
for name in "${names[@]}"; do
    dir="$seeds/$name"
    run="$build/fuzz-run/$name"
    rm -rf "$run"
    mkdir -p "$run/corpus" "$run/crashes"
    cp "$dir"/* "$run/corpus/"
    # Inside the device the working folder is the one writable place of the
    # build tree: the corpus and the crashes live below it.
    (cd "$run" && "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -max_len=9000 -timeout=30 \
        -print_final_stats=1 -artifact_prefix=crashes/ corpus >log 2>&1)
    status=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/log" | tail -1)
    took=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$run/log" | tail -1)
    crashes=$(find "$run/crashes" -type f | wc -l)
    if [ "$status" -ne 0 ] && [ "$crashes" -eq 0 ]; then crashes="?"; fi
    printf '%-16s %12s %8s %8s %8s\n' "$name" "${execs:-?}" "${took:-$seconds}" \
        "$(find "$run/corpus" -type f | wc -l)" "$crashes"
    if [ "$status" -ne 0 ]; then
        failed=1
        echo "  fuzz_$name stopped with status $status: see $run/log" >&2
    fi
done
exit $failed
