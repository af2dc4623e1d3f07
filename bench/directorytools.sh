#!/usr/bin/env bash
# Times the name search and the folder comparison against their reference tools
# in one run, on the same data, warm page cache:
#   search of a 200,000-entry tree:   quillorn  vs  find DIR -iname '*QUERY*'       (target: at most 0.5×)
#   two identical 1 GiB trees of 1,024 files:
#                                     quillorn  vs  openssl dgst -sha256 over all files of both
#                                                   trees, one after the other      (target: at most 0.65×)
#   SHA-256 of one 1 GiB file:        quillorn (OpenSSL EVP)  vs  sha256sum
# and peak resident memory: a search stopped at 10,000 hits, and a comparison of
# a 1,000,000-entry tree with itself (two inventories held at once).
# Runs of the tools alternate, so a burst of load on a shared machine does not
# land on one tool only; medians are reported.
#
#   BENCH_BUILD=build/bench bash bench/directorytools.sh
# Environment: BENCH_DIR (default /tmp), ROUNDS (default 5), ENTRIES (default
# 200000), QUERY (default 7-4), BIG_ENTRIES (default 1000000; 0 skips that part).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
BENCH_DIR=${BENCH_DIR:-/tmp}
ROUNDS=${ROUNDS:-5}
ENTRIES=${ENTRIES:-200000}
QUERY=${QUERY:-7-4}
BIG_ENTRIES=${BIG_ENTRIES:-1000000}
tool=$(realpath "$BENCH_BUILD/bench/directory_tool" 2>/dev/null || true)

for needed in find openssl sha256sum split /usr/bin/time; do
    command -v "$needed" >/dev/null || { echo "directorytools.sh: $needed is missing (packages findutils, openssl, coreutils, time)"; exit 1; }
done
[ -x "$tool" ] || { echo "directorytools.sh: $BENCH_BUILD/bench/directory_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }

work=$(mktemp -d "$BENCH_DIR/quillorn-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
free_mib=$(df -Pm "$work" | awk 'NR == 2 { print $4 }')
[ "$free_mib" -gt 4096 ] || { echo "directorytools.sh: need 4 GiB free in $BENCH_DIR, have $free_mib MiB"; exit 1; }

median() { printf '%s\n' "$@" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
# milliseconds COMMAND...: wall time of one run, output discarded.
milliseconds() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f\n", (b - a) / 1e6 }'
}

echo "Preparing a $ENTRIES-entry tree and two 1 GiB trees in $work ..."
"$tool" make-tree "$work/tree" "$ENTRIES"
mkdir "$work/L"
head -c $((1024 * 1024 * 1024)) /dev/urandom | split -b 1M -a 4 - "$work/L/part-"
cp -a "$work/L" "$work/R"
cat "$work/L"/* > "$work/big.bin"
sync

# Both tools share the cores with whatever else runs; the load says how much.
echo "load average before the runs: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"

# ---- search
ours=() theirs=()
find "$work/tree" -iname "*$QUERY*" >/dev/null # warm
for _ in $(seq "$ROUNDS"); do
    line=$("$tool" search "$work/tree" "$QUERY" 3)
    ours+=("$(sed 's/.*median_ms=\([0-9.]*\).*/\1/' <<<"$line")")
    runs=()
    for _ in 1 2 3; do runs+=("$(milliseconds find "$work/tree" -iname "*$QUERY*")"); done
    theirs+=("$(median "${runs[@]}")")
done
hits=$(sed 's/.*hits=\([0-9]*\).*/\1/' <<<"$line")
found=$(find "$work/tree" -iname "*$QUERY*" | wc -l)
s_ours=$(median "${ours[@]}") s_find=$(median "${theirs[@]}")
echo "search   $ENTRIES entries, query '$QUERY': quillorn ${s_ours} ms ($hits hits), find ${s_find} ms ($found hits): $(ratio "$s_ours" "$s_find")× (target ≤ 0.50×)"

# ---- comparison of two identical trees
ours=() theirs=()
for _ in $(seq "$ROUNDS"); do
    line=$("$tool" compare "$work/L" "$work/R")
    ours+=("$(awk -v s="$(sed 's/.*seconds=\([0-9.]*\).*/\1/' <<<"$line")" 'BEGIN { print s * 1000 }')")
    theirs+=("$(milliseconds sh -c "openssl dgst -sha256 '$work'/L/* && openssl dgst -sha256 '$work'/R/*")")
done
rows=$(sed 's/.*rows=\([0-9]*\).*/\1/' <<<"$line")
c_ours=$(median "${ours[@]}") c_ssl=$(median "${theirs[@]}")
echo "compare  2 × 1 GiB, 1,024 files each: quillorn ${c_ours} ms ($rows rows), openssl dgst ${c_ssl} ms: $(ratio "$c_ours" "$c_ssl")× (target ≤ 0.65×)"

# ---- SHA-256 alone
ours=() theirs=()
for _ in $(seq "$ROUNDS"); do
    line=$("$tool" digest "$work/big.bin")
    ours+=("$(awk -v s="$(sed 's/.*seconds=\([0-9.]*\).*/\1/' <<<"$line")" 'BEGIN { print s * 1000 }')")
    theirs+=("$(milliseconds sha256sum "$work/big.bin")")
done
d_ours=$(median "${ours[@]}") d_sum=$(median "${theirs[@]}")
echo "sha256   1 GiB: quillorn (EVP) ${d_ours} ms ($(awk -v m="$d_ours" 'BEGIN { printf "%.2f", 1.073741824 / (m / 1000) }') GB/s), sha256sum ${d_sum} ms ($(awk -v m="$d_sum" 'BEGIN { printf "%.2f", 1.073741824 / (m / 1000) }') GB/s): $(ratio "$d_ours" "$d_sum")×"

# ---- memory
/usr/bin/time -f %M -o "$work/rss" "$tool" search "$work/tree" "file" 1 >/dev/null
echo "memory   search stopped at 10,000 hits: peak $(($(cat "$work/rss") / 1024)) MiB"
rm -rf "$work/L" "$work/R" "$work/big.bin"
if [ "$BIG_ENTRIES" -gt 0 ]; then
    "$tool" make-tree "$work/huge" "$BIG_ENTRIES"
    /usr/bin/time -f %M -o "$work/rss" "$tool" compare "$work/huge" "$work/huge" >/dev/null
    echo "memory   comparison of a $BIG_ENTRIES-entry tree with itself (two inventories): peak $(($(cat "$work/rss") / 1024)) MiB"
fi
