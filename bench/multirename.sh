#!/usr/bin/env bash
# Times the multi-rename job on the temp folder's disk against renaming the same
# files from a shell, warm cache, fresh files for every run:
#   10,000 files file-N.txt → Photo N.jpg:  quillorn (one queue job, no-replace renames,
#                                          a folder flush at the end)  vs
#                                          mv in a shell loop (one process per file)  and
#                                          perl's rename() in one process (what rename(1) does)
#                                          (target: the job under 2 s)
#   the same count as one chain (file-N → file-N+1) and as 5,000 swapped pairs (a
#   hidden name per pair), these also with the queue's journal: quillorn only.
# Runs of the tools alternate, so a burst of load on a shared machine does not
# land on one tool only; medians are reported.
#
#   BENCH_BUILD=build/bench bash bench/multirename.sh
# Environment: BENCH_DIR (default /tmp), ROUNDS (default 3), COUNT (default 10000).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
BENCH_DIR=${BENCH_DIR:-/tmp}
ROUNDS=${ROUNDS:-3}
COUNT=${COUNT:-10000}
tool=$(realpath "$BENCH_BUILD/bench/rename_tool" 2>/dev/null || true)
[ -x "$tool" ] || { echo "multirename.sh: $BENCH_BUILD/bench/rename_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }
command -v perl >/dev/null || { echo "multirename.sh: perl is missing"; exit 1; }

work=$(mktemp -d "$BENCH_DIR/quillorn-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

median() { printf '%s\n' "$@" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
seconds() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", (b - a) / 1e9 }'
}
fresh() { rm -rf "$work/items"; "$tool" make "$work/items" "$COUNT"; sync; }
shell_loop() {
    cd "$work/items"
    n=1
    while [ "$n" -le "$COUNT" ]; do mv -n -- "file-$n.txt" "Photo $n.jpg"; n=$((n + 1)); done
}
perl_rename() {
    perl -e 'for my $n (1 .. $ARGV[1]) { my $to = "$ARGV[0]/Photo $n.jpg"; die if -e $to;
             rename("$ARGV[0]/file-$n.txt", $to) or die "$!" }' "$work/items" "$COUNT"
}

echo "Load before the runs: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores; $COUNT files in $work"
declare -a job plan loop perl chain swap journaled
for round in $(seq "$ROUNDS"); do
    fresh; line=$("$tool" run "$work/items" pattern)
    job+=("$(sed -E 's/.*job_seconds=([0-9.]+).*/\1/' <<<"$line")")
    plan+=("$(sed -E 's/.*plan_ms=([0-9.]+).*/\1/' <<<"$line")")
    [ -e "$work/items/Photo $COUNT.jpg" ] || { echo "multirename.sh: the job did not rename"; exit 1; }
    fresh; loop+=("$(seconds shell_loop)")
    fresh; perl+=("$(seconds perl_rename)")
    fresh; chain+=("$("$tool" run "$work/items" shift | sed -E 's/.*job_seconds=([0-9.]+).*/\1/')")
    fresh; swap+=("$("$tool" run "$work/items" swap | sed -E 's/.*job_seconds=([0-9.]+).*/\1/')")
    fresh; journaled+=("$("$tool" run "$work/items" swap-journaled | sed -E 's/.*job_seconds=([0-9.]+).*/\1/')")
    echo "round $round: job ${job[-1]} s (plan ${plan[-1]} ms), mv loop ${loop[-1]} s, perl ${perl[-1]} s," \
         "chain ${chain[-1]} s, swaps ${swap[-1]} s (journaled ${journaled[-1]} s)"
done
echo "medians of $ROUNDS: quillorn job $(median "${job[@]}") s (preview plan $(median "${plan[@]}") ms)," \
     "mv loop $(median "${loop[@]}") s, perl rename $(median "${perl[@]}") s;" \
     "one chain $(median "${chain[@]}") s, $((COUNT / 2)) swaps $(median "${swap[@]}") s" \
     "(with the journal $(median "${journaled[@]}") s)"
awk -v j="$(median "${job[@]}")" 'BEGIN { exit !(j < 2) }' || { echo "multirename.sh: the job took 2 s or more"; exit 1; }
