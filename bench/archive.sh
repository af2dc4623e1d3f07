#!/usr/bin/env bash
# Times the ZIP listing the archive sheet runs against unzip -Z1 alone, in one
# run on the same 100,000-member archive, warm page cache (target: at most
# 1.2×), and against only reading unzip's output through a pipe; then how long
# the archive sheet keeps keys waiting while it lists and while it filters
# those 100,000 paths (target: under 50 ms a key).
# Runs alternate between the two, so a burst of load lands on both; medians.
#
#   BENCH_BUILD=build/bench bash bench/archive.sh
# Environment: ROUNDS (default 7), MEMBERS (default 100000).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
ROUNDS=${ROUNDS:-7}
MEMBERS=${MEMBERS:-100000}
tool=$(realpath "$BENCH_BUILD/bench/archive_tool" 2>/dev/null || true)
sheet=$(realpath "$BENCH_BUILD/bench/bench_archivesheet" 2>/dev/null || true)
[ -x "$tool" ] || { echo "archive.sh: $BENCH_BUILD/bench/archive_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }
command -v python3 >/dev/null && [ -x /usr/bin/unzip ] || { echo "archive.sh: needs python3 and unzip"; exit 1; }

work=$(mktemp -d /tmp/quillorn-archive-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT
python3 - "$work/big.zip" "$MEMBERS" <<'PY'
import sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as z:
    for i in range(int(sys.argv[2])):
        z.writestr('folder%03d/member-%06d.txt' % (i // 1000, i), b'')
PY

median() { printf '%s\n' "$@" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
milliseconds() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f\n", (b - a) / 1e6 }'
}

/usr/bin/unzip -Z1 "$work/big.zip" >/dev/null # warm
ours=() theirs=() captured=()
field() { sed 's/.*median_ms=\([0-9.]*\).*/\1/' <<<"$1"; }
for _ in $(seq "$ROUNDS"); do
    ours+=("$(field "$("$tool" list "$work/big.zip" 3)")")
    captured+=("$(field "$("$tool" capture "$work/big.zip" 3)")")
    runs=()
    for _ in 1 2 3; do runs+=("$(milliseconds /usr/bin/unzip -Z1 "$work/big.zip")"); done
    theirs+=("$(median "${runs[@]}")")
done
o=$(median "${ours[@]}") t=$(median "${theirs[@]}") c=$(median "${captured[@]}")
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
echo "list     $MEMBERS members: quillorn ${o} ms, unzip -Z1 alone ${t} ms: $(ratio "$o" "$t")× (target ≤ 1.20×)"
# unzip writes every name and every line feed on its own; into a pipe those
# writes cost more than into /dev/null, whoever reads them.
echo "capture  unzip -Z1 read through the pipe, names not checked: ${c} ms: $(ratio "$c" "$t")× of unzip alone; the listing is $(ratio "$o" "$c")× of it"
echo "load     $(cat /proc/loadavg)"
[ -x "$sheet" ] && "$sheet" "$work/big.zip"
