#!/bin/sh
# Long fuzzing run: builds the libFuzzer targets with the `fuzz` preset (clang, ASan+UBSan)
# and runs every fuzz/fuzz_*.cpp target in turn for N seconds over a fresh copy of its
# starting corpus in fuzz/corpus/<target>/. The starting corpus itself is never written.
#
# Usage: tools/fuzz-long.sh [seconds-per-target]      (default 600)
# Environment:
#   BUILD_DIR  build directory            (default: <source>/build/fuzz, the preset's own)
#   WORK_DIR   corpus copies, logs, crash artifacts   (default: $BUILD_DIR/fuzz-long)
#   JOBS       parallel build jobs        (default: 2)
#   TARGETS    space-separated subset of target names (default: all)
# Exit status: 0 when every target ran its time without a finding, 1 otherwise.
set -eu

SECONDS_PER_TARGET=${1:-600}
case "$SECONDS_PER_TARGET" in
    '' | *[!0-9]*) echo "usage: $0 [seconds-per-target]" >&2; exit 2 ;;
esac

SRC=$(cd "$(dirname "$0")/.." && pwd)
BUILD_DIR=${BUILD_DIR:-$SRC/build/fuzz}
WORK_DIR=${WORK_DIR:-$BUILD_DIR/fuzz-long}
JOBS=${JOBS:-2}

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

cd "$SRC"
cmake --preset fuzz -B "$BUILD_DIR" >/dev/null
# shellcheck disable=SC2086
cmake --build "$BUILD_DIR" -j "$JOBS" --target $TARGETS

mkdir -p "$WORK_DIR"
SUMMARY="$WORK_DIR/summary.tsv"
printf 'target\tseconds\texecutions\tcorpus\tresult\n' >"$SUMMARY"
FAILED=0
for t in $TARGETS; do
    bin="$BUILD_DIR/bin/$t"
    corpus="$WORK_DIR/corpus/$t"
    artifacts="$WORK_DIR/artifacts/$t"
    log="$WORK_DIR/$t.log"
    rm -rf "$corpus"
    mkdir -p "$corpus" "$artifacts"
    if [ -d "$SRC/fuzz/corpus/$t" ]; then
        cp -R "$SRC/fuzz/corpus/$t/." "$corpus/"
    fi
    echo "== $t: ${SECONDS_PER_TARGET}s"
    result=ok
    if ! "$bin" -max_total_time="$SECONDS_PER_TARGET" -timeout=30 -print_final_stats=1 \
        -artifact_prefix="$artifacts/" "$corpus" >"$log" 2>&1; then
        result=FINDING
        FAILED=1
    fi
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    units=$(find "$corpus" -type f | wc -l)
    printf '%s\t%s\t%s\t%s\t%s\n' "$t" "$SECONDS_PER_TARGET" "${execs:-?}" "$units" "$result" >>"$SUMMARY"
    if [ "$result" != ok ]; then
        echo "   finding: see $log and $artifacts/" >&2
        grep -E 'ERROR|SUMMARY' "$log" | head -n 5 >&2 || true
    fi
done

column -t -s "$(printf '\t')" "$SUMMARY" 2>/dev/null || cat "$SUMMARY"
exit "$FAILED"
