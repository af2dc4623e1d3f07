#!/usr/bin/env bash
# Times the search inside files against grep and ripgrep in one run, on the
# same tree, warm page cache: FILES text files (no NUL byte, at most 128 KiB
# each) copied from SOURCES, about 500 MiB for 50,000 files of /usr/include and
# /usr/share/doc. For each text:
#   quillorn  vs  grep -rIil -F TEXT            (target: at most 0.50×)
#   quillorn  vs  rg -uuu -i -l -F TEXT         (target: at most 1.50×)
# (a regular expression without -F, as grep -E). The search stops at 10,000
# hits where grep and rg go on: the text beyond that limit is listed apart.
# Runs of the tools alternate, so a burst of load on a shared machine does not
# land on one tool only; medians of wall time are reported, and beside them
# the processor time (user + system) of one run, which load does not stretch.
#
#   BENCH_BUILD=build/bench bash bench/contentsearch.sh
# Measured on 2 cores shared with other builds (load average about 9), 50,000
# files of 504 MiB, median wall ms and processor seconds of one run:
#   rare 'SIOCGIFHWADDR'     quillorn 1900 (0.81 s)  grep 4541 (1.60 s)  rg 2664 (1.07 s)
#   frequent 'unsigned int'  quillorn 2217 (0.85 s)  grep 3013 (1.38 s)  rg 2576 (1.03 s)
#   no hit                   quillorn 1614 (0.79 s)  grep 2585 (0.93 s)  rg 2081 (0.98 s)
#   regex date               quillorn 1845 (0.83 s)  grep 1551 (0.93 s)  rg 2264 (1.10 s)
#   'license' (10,000 cap)   quillorn  842 (0.35 s)  grep 2565 (0.86 s)  rg 2944 (1.02 s)
# Wall time under that load says little; the processor time shows the same
# kernel work per file as grep's, shared by two readers.
# Environment: BENCH_DIR (default /tmp), ROUNDS (default 5), FILES (default
# 50000), SOURCES (default "/usr/include /usr/share/doc"), TREE (an existing
# tree to search instead of making one).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
BENCH_DIR=${BENCH_DIR:-/tmp}
ROUNDS=${ROUNDS:-5}
FILES=${FILES:-50000}
SOURCES=${SOURCES:-/usr/include /usr/share/doc}
here=$(dirname "$(realpath "$0")")
tool=$(realpath "$BENCH_BUILD/bench/directory_tool" 2>/dev/null || true)

for needed in grep rg python3 /usr/bin/time; do
    command -v "$needed" >/dev/null || { echo "contentsearch.sh: $needed is missing (packages grep, ripgrep, python3, time)"; exit 1; }
done
[ -x "$tool" ] || { echo "contentsearch.sh: $BENCH_BUILD/bench/directory_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }

if [ -n "${TREE:-}" ]; then
    tree=$TREE
else
    work=$(mktemp -d "$BENCH_DIR/quillorn-bench.XXXXXX")
    trap 'rm -rf "$work"' EXIT
    tree=$work/tree
    echo "Copying $FILES text files of $SOURCES into $tree ..."
    # shellcheck disable=SC2086 # SOURCES is a list of folders
    python3 "$here/make_text_tree.py" "$tree" "$FILES" $SOURCES
fi

median() { printf '%s\n' "$@" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
milliseconds() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null || true # grep and rg end with 1 when nothing is found
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f\n", (b - a) / 1e6 }'
}
# cpu COMMAND...: user + system seconds of one run.
cpu() {
    /usr/bin/time -f '%U %S' -o "$BENCH_DIR/quillorn-bench-cpu.$$" "$@" >/dev/null || true
    # The last line: time puts a line about a non-zero status before it.
    tail -n 1 "$BENCH_DIR/quillorn-bench-cpu.$$" | awk '{ printf "%.2f", $1 + $2 }'
    rm -f "$BENCH_DIR/quillorn-bench-cpu.$$"
}

grep -rIil -F warm-the-page-cache "$tree" >/dev/null || true
echo "load average before the runs: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"

# kind|text: plain or regex
needles=(
    "rare|${RARE:-SIOCGIFHWADDR}"
    "frequent|${FREQUENT:-unsigned int}"
    "no hit|${NOHIT:-zqxjvk-no-such-text}"
    "regex|${REGEX:-[0-9]{4\}-[0-9]{2\}-[0-9]{2\}}"
    "beyond the limit|${CAPPED:-license}"
)
for entry in "${needles[@]}"; do
    kind=${entry%%|*} text=${entry#*|}
    mode=plain grepmode=-F rgmode=-F
    if [ "$kind" = regex ]; then mode=regex grepmode=-E rgmode=; fi
    ours=() greps=() rgs=()
    for _ in $(seq "$ROUNDS"); do
        line=$("$tool" contents "$tree" "$text" 1 "$mode")
        ours+=("$(sed 's/.*median_ms=\([0-9.]*\).*/\1/' <<<"$line")")
        greps+=("$(milliseconds grep -rIil $grepmode -e "$text" "$tree")")
        # shellcheck disable=SC2086 # rgmode is empty or one option
        rgs+=("$(milliseconds rg -uuu -i -l $rgmode -e "$text" "$tree")")
    done
    hits=$(sed 's/.*hits=\([0-9]*\).*/\1/' <<<"$line")
    grep_hits=$({ grep -rIil $grepmode -e "$text" "$tree" || true; } | wc -l)
    # shellcheck disable=SC2086
    rg_hits=$({ rg -uuu -i -l $rgmode -e "$text" "$tree" || true; } | wc -l)
    o=$(median "${ours[@]}") g=$(median "${greps[@]}") r=$(median "${rgs[@]}")
    # Ours: a warm search and a timed one in one process, so half of it.
    o_cpu=$(awk -v c="$(cpu "$tool" contents "$tree" "$text" 1 "$mode")" 'BEGIN { printf "%.2f", c / 2 }')
    # shellcheck disable=SC2086
    g_cpu=$(cpu grep -rIil $grepmode -e "$text" "$tree") r_cpu=$(cpu rg -uuu -i -l $rgmode -e "$text" "$tree")
    printf '%-17s %-22s quillorn %8s ms (%5s hits, %s s cpu)  grep %8s ms (%5s, %s s)  rg %8s ms (%5s, %s s)  vs grep %s× (≤ 0.50)  vs rg %s× (≤ 1.50)\n' \
        "$kind" "'$text'" "$o" "$hits" "$o_cpu" "$g" "$grep_hits" "$g_cpu" "$r" "$rg_hits" "$r_cpu" \
        "$(ratio "$o" "$g")" "$(ratio "$o" "$r")"
done
echo "load average after the runs: $(cut -d' ' -f1-3 /proc/loadavg)"
