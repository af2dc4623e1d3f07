#!/usr/bin/env bash
# Times the folder size count against du -sb in one run, on the same tree of
# ENTRIES files and folders (sparse files of many sizes, every 50th file a hard
# link), warm page cache (target: at most 0.7× du's time). Runs of the two
# alternate, so a burst of load on a shared machine does not land on one only;
# medians are reported, and the two byte counts must agree.
#
#   BENCH_BUILD=build/bench bash bench/foldersizes.sh
# Environment: BENCH_DIR (default /tmp), ROUNDS (default 7), ENTRIES (default 200000).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
BENCH_DIR=${BENCH_DIR:-/tmp}
ROUNDS=${ROUNDS:-7}
ENTRIES=${ENTRIES:-200000}
tool=$(realpath "$BENCH_BUILD/bench/directory_tool" 2>/dev/null || true)

command -v du >/dev/null || { echo "foldersizes.sh: du is missing (package coreutils)"; exit 1; }
[ -x "$tool" ] || { echo "foldersizes.sh: $BENCH_BUILD/bench/directory_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }

work=$(mktemp -d "$BENCH_DIR/quillorn-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

median() { printf '%s\n' "$@" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
milliseconds() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f\n", (b - a) / 1e6 }'
}

echo "Preparing a $ENTRIES-entry tree in $work ..."
"$tool" make-size-tree "$work/tree" "$ENTRIES"
echo "load average before the runs: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"

ours=() theirs=()
du -sb "$work/tree" >/dev/null # warm
for _ in $(seq "$ROUNDS"); do
    line=$("$tool" sizes "$work/tree" 3)
    ours+=("$(sed 's/.*median_ms=\([0-9.]*\).*/\1/' <<<"$line")")
    runs=()
    for _ in 1 2 3; do runs+=("$(milliseconds du -sb "$work/tree")"); done
    theirs+=("$(median "${runs[@]}")")
done
bytes=$(sed 's/.*bytes=\([0-9]*\).*/\1/' <<<"$line")
du_bytes=$(du -sb "$work/tree" | cut -f1)
[ "$bytes" = "$du_bytes" ] || { echo "foldersizes.sh: quillorn counts $bytes bytes, du -sb $du_bytes"; exit 1; }
s_ours=$(median "${ours[@]}") s_du=$(median "${theirs[@]}")
echo "sizes    $ENTRIES entries, $bytes bytes: quillorn ${s_ours} ms (rounds: ${ours[*]}), du -sb ${s_du} ms (rounds: ${theirs[*]}): $(ratio "$s_ours" "$s_du")× (target ≤ 0.70×)"
