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

# seconds RUN: runs the command, removes what it wrote, prints the wall time.
# The RSS of the last run lands in $work/rss (KiB).
seconds() {
    local start end
    sync
    start=$(date +%s%N)
    /usr/bin/time -f %M -o "$work/rss" "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", (b - a) / 1e9 }'
}

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }

# measure NAME ITEM COMMAND...: REPEAT timed runs, the copy verified after the first.
declare -A result rss
measure() {
    local name=$1 item=$2; shift 2
    local runs=() i
    for ((i = 0; i < REPEAT; i++)); do
        runs+=("$(seconds "$@")")
        if [ "$i" -eq 0 ]; then
            if [ -d "$work/src/$item" ]; then diff -r "$work/src/$item" "$work/dst/$item" >/dev/null
            else cmp "$work/src/$item" "$work/dst/$item"; fi || { echo "copy.sh: $name made a wrong copy"; exit 1; }
        fi
        rss[$name]=$(cat "$work/rss")
        rm -rf "${work:?}/dst/$item"
    done
    result[$name]=$(median "${runs[@]}")
    echo "  $name: ${runs[*]} s (median ${result[$name]} s)"
}

echo "One ${BIG_MIB} MiB file, $REPEAT runs each:"
measure big-quillorn big.bin "$tool" "$work/dst" "$work/src/big.bin"
measure big-cp big.bin sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/big.bin" "$work/dst/big.bin"

echo "20,000 files of 4 KiB in 200 folders, $REPEAT runs each:"
measure tree-quillorn tree "$tool" "$work/dst" "$work/src/tree"
measure tree-rsync tree rsync -a --fsync "$work/src/tree" "$work/dst/"
measure tree-cp tree sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/tree" "$work/dst/tree"

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
mib_s() { awk -v a="$BIG_MIB" -v b="$1" 'BEGIN { printf "%.0f", a / b }'; }
echo
printf '%-34s %9s %11s %s\n' "case" "seconds" "MiB/s" "quillorn speed relative to it"
printf '%-34s %9s %11s %s\n' "big file: quillorn" "${result[big-quillorn]}" "$(mib_s "${result[big-quillorn]}")" "-"
printf '%-34s %9s %11s %sx (target >= 0.90)\n' "big file: cp -a && sync" "${result[big-cp]}" \
    "$(mib_s "${result[big-cp]}")" "$(ratio "${result[big-cp]}" "${result[big-quillorn]}")"
printf '%-34s %9s %11s %s\n' "20k files: quillorn" "${result[tree-quillorn]}" "" "-"
printf '%-34s %9s %11s %sx (target >= 1.00)\n' "20k files: rsync -a --fsync" "${result[tree-rsync]}" "" \
    "$(ratio "${result[tree-rsync]}" "${result[tree-quillorn]}")"
printf '%-34s %9s %11s %sx (aim 1.00)\n' "20k files: cp -a && sync" "${result[tree-cp]}" "" \
    "$(ratio "${result[tree-cp]}" "${result[tree-quillorn]}")"
echo
echo "quillorn peak RSS: big file $((rss[big-quillorn] / 1024)) MiB, 20k files $((rss[tree-quillorn] / 1024)) MiB"
