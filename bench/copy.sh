#!/usr/bin/env bash
# Times the transfer engine against the usual tools in one run, on the same disk:
#   one 2 GiB file:            quillorn  vs  cp -a SRC DST && sync
#   20,000 files of 4 KiB in 200 folders:
#                              quillorn  vs  rsync -a --fsync  vs  cp -a SRC DST && sync
# and quillorn's peak resident memory for each. Every durable copy is timed
# from start to data on disk; the source stays in the page cache for all tools.
#
#   BENCH_BUILD=build/bench bash bench/copy.sh
# Environment: BENCH_DIR (where the data goes, default /tmp), REPEAT (runs per
# tool, median reported, default 3), BIG_MIB (size of the big file, default 2048).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
BENCH_DIR=${BENCH_DIR:-/tmp}
REPEAT=${REPEAT:-3}
BIG_MIB=${BIG_MIB:-2048}
tool=$(realpath "$BENCH_BUILD/bench/transfer_tool" 2>/dev/null || true)

for needed in rsync /usr/bin/time cp sync; do
    command -v "$needed" >/dev/null || { echo "copy.sh: $needed is missing (packages rsync, time)"; exit 1; }
done
[ -x "$tool" ] || { echo "copy.sh: $BENCH_BUILD/bench/transfer_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }

work=$(mktemp -d "$BENCH_DIR/quillorn-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
free_mib=$(df -Pm "$work" | awk 'NR == 2 { print $4 }')
if [ "$free_mib" -lt $((BIG_MIB * 2 + 1024)) ]; then
    echo "copy.sh: need $((BIG_MIB * 2 + 1024)) MiB free in $BENCH_DIR, have $free_mib"; exit 1
fi
# The engine logs every item; keep that away from the user's own log.
export XDG_DATA_HOME="$work/data"
mkdir -p "$work/src" "$work/dst" "$XDG_DATA_HOME"

echo "Preparing data in $work ..."
head -c "$((BIG_MIB * 1024 * 1024))" /dev/urandom > "$work/src/big.bin"
mkdir -p "$work/src/tree"
head -c 4096 /dev/urandom > "$work/block"
for d in $(seq -w 1 200); do
    mkdir "$work/src/tree/d$d"
    for f in $(seq -w 1 100); do cp "$work/block" "$work/src/tree/d$d/f$f"; done
done
sync

# seconds COMMAND...: flushes earlier writes, runs the command, prints its wall time.
# Its peak resident memory lands in $work/rss (KiB).
seconds() {
    local start end
    sync
    start=$(date +%s%N)
    /usr/bin/time -f %M -o "$work/rss" "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", (b - a) / 1e9 }'
}

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }

# once NAME ITEM COMMAND...: one timed run, its copy checked on the first run
# and then removed. Runs of the tools alternate, so a burst of other disk
# traffic on a shared machine does not land on one tool only.
declare -A runs rss
once() {
    local name=$1 item=$2; shift 2
    local time
    time=$(seconds "$@")
    if [ -z "${runs[$name]:-}" ]; then
        if [ -d "$work/src/$item" ]; then diff -r "$work/src/$item" "$work/dst/$item" >/dev/null
        else cmp "$work/src/$item" "$work/dst/$item"; fi || { echo "copy.sh: $name made a wrong copy"; exit 1; }
    fi
    runs[$name]="${runs[$name]:-} $time"
    local kib
    kib=$(cat "$work/rss")
    [ "$kib" -gt "${rss[$name]:-0}" ] && rss[$name]=$kib
    rm -rf "${work:?}/dst/$item"
}

declare -A result best
summarise() {
    local name
    for name in "$@"; do
        # shellcheck disable=SC2086
        result[$name]=$(median ${runs[$name]})
        # shellcheck disable=SC2086
        best[$name]=$(printf '%s\n' ${runs[$name]} | sort -n | head -1)
        echo "  $name:${runs[$name]} s"
    done
}

echo "One ${BIG_MIB} MiB file, $REPEAT runs each:"
for ((i = 0; i < REPEAT; i++)); do
    once big-quillorn big.bin "$tool" "$work/dst" "$work/src/big.bin"
    once big-cp big.bin sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/big.bin" "$work/dst/big.bin"
done
summarise big-quillorn big-cp

echo "20,000 files of 4 KiB in 200 folders, $REPEAT runs each:"
for ((i = 0; i < REPEAT; i++)); do
    once tree-quillorn tree "$tool" "$work/dst" "$work/src/tree"
    once tree-rsync tree rsync -a --fsync "$work/src/tree" "$work/dst/"
    once tree-cp tree sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/tree" "$work/dst/tree"
done
summarise tree-quillorn tree-rsync tree-cp

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
mib_s() { awk -v a="$BIG_MIB" -v b="$1" 'BEGIN { printf "%.0f", a / b }'; }
echo
# Speed relative to a tool: its time over quillorn's (above 1 means quillorn is faster).
row() { # LABEL TOOL [QUILLORN TARGET]
    local speed="-"
    if [ -n "${3:-}" ]; then
        speed="$(ratio "${result[$2]}" "${result[$3]}")x / $(ratio "${best[$2]}" "${best[$3]}")x $4"
    fi
    printf '%-30s %8s %8s %s\n' "$1" "${result[$2]}" "${best[$2]}" "$speed"
}
printf '%-30s %8s %8s %s\n' "case" "median s" "best s" "quillorn speed vs it (median / best)"
row "big file: quillorn" big-quillorn
row "big file: cp -a && sync" big-cp big-quillorn "(target >= 0.90)"
echo "  throughput: quillorn $(mib_s "${result[big-quillorn]}") MiB/s, cp -a && sync $(mib_s "${result[big-cp]}") MiB/s"
row "20k files: quillorn" tree-quillorn
row "20k files: rsync -a --fsync" tree-rsync tree-quillorn "(target >= 1.00)"
row "20k files: cp -a && sync" tree-cp tree-quillorn "(aim 1.00)"
echo
echo "quillorn peak RSS: big file $((rss[big-quillorn] / 1024)) MiB, 20k files $((rss[tree-quillorn] / 1024)) MiB"
