#!/bin/sh
# Long fuzzing run: builds the libFuzzer targets with the `fuzz` preset (clang, ASan+UBSan)
# and runs every fuzz/fuzz_*.cpp target for N seconds over a fresh copy of its starting
# corpus in fuzz/corpus/<target>/. The starting corpus itself is never written.
#
# Usage: tools/fuzz-long.sh [seconds-per-target]      (default 600)
# Environment:
#   BUILD_DIR  build directory            (default: <source>/build/fuzz, the preset's own)
#   WORK_DIR   corpus copies, logs, crash artifacts   (default: $BUILD_DIR/fuzz-long)
#   JOBS       parallel build jobs        (default: 2)
#   TARGETS    space-separated subset of target names, each optionally NAME:SECONDS to
#              give it a time of its own (default: all, each for seconds-per-target)
#   PARALLEL   targets fuzzed at once     (default: 1)
#   NICE       niceness of the fuzzers    (default: 0; 19 lets builds on the same machine
#              go first while the fuzzers take what is left)
#   CORPUS_FROM  the WORK_DIR of an earlier run: each target starts from the corpus that run
#              left (falling back to the starting corpus), so a second run goes on from there
#   TIMEOUT    seconds one input may take before it counts as a finding (default: 30, or 900
#              with NICE above 0: libFuzzer measures wall time, and a starved fuzzer is not hung)
# The summary gives, per target, wall seconds, CPU seconds (user+system of the fuzzer, read
# from its rusage), executions and the final corpus size. Exit status: 0 when every target
# ran its time without a finding, 1 otherwise.
set -eu

SECONDS_PER_TARGET=${1:-600}
case "$SECONDS_PER_TARGET" in
    '' | *[!0-9]*) echo "usage: $0 [seconds-per-target]" >&2; exit 2 ;;
esac

SRC=$(cd "$(dirname "$0")/.." && pwd)
BUILD_DIR=${BUILD_DIR:-$SRC/build/fuzz}
WORK_DIR=${WORK_DIR:-$BUILD_DIR/fuzz-long}
JOBS=${JOBS:-2}
PARALLEL=${PARALLEL:-1}
NICE=${NICE:-0}
if [ "$NICE" -gt 0 ]; then TIMEOUT=${TIMEOUT:-900}; else TIMEOUT=${TIMEOUT:-30}; fi

ALL=""
for f in "$SRC"/fuzz/fuzz_*.cpp; do
    [ -e "$f" ] || continue
    ALL="$ALL $(basename "$f" .cpp)"
done
TARGETS=${TARGETS:-$ALL}
if [ -z "$(printf '%s' "$TARGETS" | tr -d ' ')" ]; then
    echo "no fuzz targets under $SRC/fuzz" >&2
    exit 2
fi
NAMES=$(for t in $TARGETS; do printf '%s ' "${t%%:*}"; done)

cd "$SRC"
cmake --preset fuzz -B "$BUILD_DIR" >/dev/null
# shellcheck disable=SC2086
cmake --build "$BUILD_DIR" -j "$JOBS" --target $NAMES

mkdir -p "$WORK_DIR"
SUMMARY="$WORK_DIR/summary.tsv"

# One target: its row goes to $WORK_DIR/<target>.row.
run_one() {  # name seconds
    t=$1
    secs=$2
    bin="$BUILD_DIR/bin/$t"
    corpus="$WORK_DIR/corpus/$t"
    artifacts="$WORK_DIR/artifacts/$t"
    log="$WORK_DIR/$t.log"
    rm -rf "$corpus"
    mkdir -p "$corpus" "$artifacts"
    if [ -n "${CORPUS_FROM:-}" ] && [ -d "$CORPUS_FROM/corpus/$t" ]; then
        cp -R "$CORPUS_FROM/corpus/$t/." "$corpus/"
    elif [ -d "$SRC/fuzz/corpus/$t" ]; then
        cp -R "$SRC/fuzz/corpus/$t/." "$corpus/"
    fi
    echo "== $t: ${secs}s"
    result=ok
    start=$(date +%s)
    # The wrapper reports the fuzzer's CPU time from the children's rusage.
    if ! nice -n "$NICE" python3 -c '
import resource, subprocess, sys
rc = subprocess.call(sys.argv[2:])
u = resource.getrusage(resource.RUSAGE_CHILDREN)
open(sys.argv[1], "w").write("%d\n" % round(u.ru_utime + u.ru_stime))
sys.exit(rc)' "$WORK_DIR/$t.cpu" "$bin" -max_total_time="$secs" -timeout="$TIMEOUT" \
        -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" >"$log" 2>&1; then
        result=FINDING
    fi
    wall=$(( $(date +%s) - start ))
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    units=$(find "$corpus" -type f | wc -l)
    printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$t" "$wall" "$(cat "$WORK_DIR/$t.cpu" 2>/dev/null || echo ?)" \
        "${execs:-?}" "$units" "$result" >"$WORK_DIR/$t.row"
    if [ "$result" != ok ]; then
        echo "   $t: finding: see $log and $artifacts/" >&2
        grep -E 'ERROR|SUMMARY' "$log" | head -n 5 >&2 || true
    fi
}

running=0
for entry in $TARGETS; do
    name=${entry%%:*}
    secs=$SECONDS_PER_TARGET
    [ "$name" != "$entry" ] && secs=${entry#*:}
    rm -f "$WORK_DIR/$name.row"
    run_one "$name" "$secs" &
    running=$((running + 1))
    if [ "$running" -ge "$PARALLEL" ]; then
        wait
        running=0
    fi
done
wait

printf 'target\twall_s\tcpu_s\texecutions\tcorpus\tresult\n' >"$SUMMARY"
FAILED=0
for name in $NAMES; do
    if [ -f "$WORK_DIR/$name.row" ]; then
        cat "$WORK_DIR/$name.row" >>"$SUMMARY"
        grep -q 'FINDING$' "$WORK_DIR/$name.row" && FAILED=1
    else
        printf '%s\t?\t?\t?\t?\tNOT-RUN\n' "$name" >>"$SUMMARY"
        FAILED=1
    fi
done
awk -F '\t' 'NR > 1 && $3 ~ /^[0-9]+$/ { cpu += $3 } END { printf "total CPU: %d s (%.2f CPU-hours)\n", cpu, cpu / 3600 }' \
    "$SUMMARY" >"$WORK_DIR/total.txt"
column -t -s "$(printf '\t')" "$SUMMARY" 2>/dev/null || cat "$SUMMARY"
cat "$WORK_DIR/total.txt"
exit "$FAILED"
