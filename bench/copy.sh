#!/usr/bin/env bash
# Times the transfer engine against the usual tools in one run, each tool run
# REPEAT times in alternation (a burst of other disk traffic on a shared machine
# then lands on every tool), reporting the median and the best run:
#   one 2 GiB file:             quillorn  vs  cp -a SRC DST && sync
#   20,000 files of 4 KiB in 200 folders:
#                               quillorn  vs  rsync -a --fsync  vs  cp -a SRC DST && sync
# on the temp folder's disk and on a fresh ext4 loop volume (root only), each once
# quiet and once busy (another program, dd, overwriting BUSY_MIB of a file on the
# same volume without flushing it, from before each timed run until its end), then what
# flushing every file costs on a FUSE volume (bindfs), and the ways of making a
# folder of new files durable (flush_alternatives). Every durable copy is timed
# from start to data on disk; the source stays in the page cache for all tools.
#
#   BENCH_BUILD=build/bench bash bench/copy.sh
# Environment: BENCH_DIR (where the data goes, default /tmp), REPEAT (runs per
# tool, default 7), BIG_MIB (size of the big file, default 2048), BUSY_MIB (what the
# busy writer rewrites, default 3072), ONLY_DISKS=1 (skip the FUSE volume and the
# flush alternatives), DISKS (default "temp loop"), LOADS (default "quiet busy"),
# LIMIT (seconds after which a run is stopped and counted as that long, default 300:
# beside the busy writer rsync --fsync can take hours).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
BENCH_DIR=${BENCH_DIR:-/tmp}
REPEAT=${REPEAT:-7}
BIG_MIB=${BIG_MIB:-2048}
BUSY_MIB=${BUSY_MIB:-3072}
DISKS=${DISKS:-temp loop}
LOADS=${LOADS:-quiet busy}
LIMIT=${LIMIT:-300}
tool=$(realpath "$BENCH_BUILD/bench/transfer_tool" 2>/dev/null || true)
flushes=$(realpath "$BENCH_BUILD/bench/flush_alternatives" 2>/dev/null || true)

for needed in rsync /usr/bin/time cp sync; do
    command -v "$needed" >/dev/null || { echo "copy.sh: $needed is missing (packages rsync, time)"; exit 1; }
done
[ -x "$tool" ] && [ -x "$flushes" ] ||
    { echo "copy.sh: build the bench targets first (cmake -DQUILLORN_BENCH=ON)"; exit 1; }

work=$(mktemp -d "$BENCH_DIR/quillorn-bench.XXXXXX")
mounts=()
cleanup() {
    quiet
    for m in "${mounts[@]}"; do umount "$m" 2>/dev/null || umount -l "$m" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT
free_mib=$(df -Pm "$work" | awk 'NR == 2 { print $4 }')
if [ "$free_mib" -lt $((BIG_MIB * 5 + BUSY_MIB * 2 + 3584)) ]; then
    echo "copy.sh: need $((BIG_MIB * 5 + BUSY_MIB * 2 + 3584)) MiB free in $BENCH_DIR, have $free_mib"; exit 1
fi
# The engine logs every item and journals its staging items; keep that away from the user's own.
export XDG_DATA_HOME="$work/data" XDG_STATE_HOME="$work/state"
mkdir -p "$work/src" "$XDG_DATA_HOME"

echo "Preparing data in $work ..."
head -c "$((BIG_MIB * 1024 * 1024))" /dev/urandom > "$work/src/big.bin"
mkdir -p "$work/src/tree"
head -c 4096 /dev/urandom > "$work/block"
for d in $(seq -w 1 200); do
    mkdir "$work/src/tree/d$d"
    for f in $(seq -w 1 100); do cp "$work/block" "$work/src/tree/d$d/f$f"; done
done
sync

# The busy writer: while $busy names a file, each timed run starts a dd that keeps
# overwriting it in place (no new blocks to allocate, nothing flushed) and stops it
# when the run ends.
busy="" writer=""
noisy() {
    [ -n "$busy" ] || return 0
    setsid bash -c 'while :; do dd if=/dev/zero of="$1" bs=1M count="$2" conv=notrunc status=none; done' \
        sh "$busy" "$BUSY_MIB" &
    writer=$!
    sleep 2 # let it dirty enough to fill the kernel's allowance
}
quiet() {
    [ -n "$writer" ] || return 0
    kill -- "-$writer" 2>/dev/null || true
    wait "$writer" 2>/dev/null || true
    writer=""
}

# seconds COMMAND...: flushes earlier writes, runs the command (beside the busy
# writer when there is one), prints its wall time. Its peak resident memory lands
# in $work/rss (KiB).
seconds() {
    local start end
    sync
    noisy
    start=$(date +%s%N)
    stopped=0
    timeout "$LIMIT" /usr/bin/time -f %M -o "$work/rss" "$@" >/dev/null || {
        [ $? -eq 124 ] && stopped=1 && echo 0 > "$work/rss"
    }
    end=$(date +%s%N)
    quiet
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", (b - a) / 1e9 }'
}

median() { printf '%s\n' "$@" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
lowest() { printf '%s\n' "$@" | sort -n | head -1; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

declare -A runs rss capped
stopped=0
# once NAME DST ITEM COMMAND...: one timed run into DST, its copy checked on the
# first run and then removed.
once() {
    local name=$1 dst=$2 item=$3; shift 3
    local time kib
    seconds "$@" > "$work/time"
    time=$(cat "$work/time")
    if [ "$stopped" -eq 1 ]; then
        capped[$name]=">="
    elif [ -z "${runs[$name]:-}" ]; then
        if [ -d "$work/src/$item" ]; then diff -r "$work/src/$item" "$dst/$item" >/dev/null
        else cmp "$work/src/$item" "$dst/$item"; fi || { echo "copy.sh: $name made a wrong copy"; exit 1; }
    fi
    runs[$name]="${runs[$name]:-} $time"
    kib=$(cat "$work/rss")
    [ "$kib" -gt "${rss[$name]:-0}" ] && rss[$name]=$kib
    rm -rf "${dst:?}/$item"
}

# row LABEL NAME [REFERENCE TARGET]: median and best of NAME; with a reference,
# the reference's time over NAME's (above 1 means quillorn is faster).
row() {
    # shellcheck disable=SC2086
    local med best speed="-"
    med=$(median ${runs[$2]}); best=$(lowest ${runs[$2]})
    if [ -n "${3:-}" ]; then
        # shellcheck disable=SC2086
        speed="$(ratio "$med" "$(median ${runs[$3]})")x / $(ratio "$best" "$(lowest ${runs[$3]})")x $4"
    fi
    printf '  %-28s %8s %8s  %s\n' "$1" "${capped[$2]:-}$med" "$best" "$speed"
}

# suite LABEL DST [BUSYFILE]: the big file and the tree, every tool REPEAT times,
# alternating; with BUSYFILE, beside a busy writer that rewrites that file.
suite() {
    local label=$1 dst=$2 i
    mkdir -p "$dst"
    busy=${3:-}
    if [ -n "$busy" ]; then
        head -c "$((BUSY_MIB * 1024 * 1024))" /dev/zero > "$busy"
        sync
    fi
    echo
    echo "== $label: $REPEAT runs of each tool, alternating (load $(cut -d" " -f1-3 /proc/loadavg))"
    for ((i = 0; i < REPEAT; i++)); do
        once "$label big-q" "$dst" big.bin "$tool" "$dst" "$work/src/big.bin"
        once "$label big-cp" "$dst" big.bin sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/big.bin" "$dst/big.bin"
    done
    for ((i = 0; i < REPEAT; i++)); do
        once "$label tree-q" "$dst" tree "$tool" "$dst" "$work/src/tree"
        once "$label tree-rsync" "$dst" tree rsync -a --fsync "$work/src/tree" "$dst/"
        once "$label tree-cp" "$dst" tree sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/tree" "$dst/tree"
    done
    printf '  %-28s %8s %8s  %s\n' "case" "median s" "best s" "quillorn speed vs it (median / best)"
    row "${BIG_MIB} MiB: quillorn" "$label big-q"
    row "${BIG_MIB} MiB: cp -a && sync" "$label big-cp" "$label big-q" "(target >= 0.90)"
    row "20k files: quillorn" "$label tree-q"
    row "20k files: rsync -a --fsync" "$label tree-rsync" "$label tree-q" "(target >= 1.00)"
    row "20k files: cp -a && sync" "$label tree-cp" "$label tree-q" "(target >= 0.77, within 1.3x)"
    echo "  quillorn peak RSS: ${BIG_MIB} MiB file $((rss[$label big-q] / 1024)) MiB, 20k files $((rss[$label tree-q] / 1024)) MiB"
    [ -z "$busy" ] || rm -f "$busy"
    busy=""
}

echo "Load before the runs: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"
# suites LABEL FOLDER: the quiet and the busy suite (as LOADS asks) into FOLDER/dst.
suites() {
    [[ " $LOADS " != *" quiet "* ]] || suite "$1" "$2/dst"
    [[ " $LOADS " != *" busy "* ]] || suite "$1, busy" "$2/dst" "$2/busy.bin"
}

[[ " $DISKS " != *" temp "* ]] || suites "temp folder's disk" "$work"

loop=""
if [[ " $DISKS " != *" loop "* ]]; then
    echo; echo "== fresh ext4 loop volume: skipped (DISKS)"
elif [ "$(id -u)" -eq 0 ] && command -v mkfs.ext4 >/dev/null; then
    truncate -s $((BIG_MIB * 2 + BUSY_MIB + 1536))M "$work/ext4.img"
    mkfs.ext4 -q -F "$work/ext4.img"
    mkdir "$work/ext4"
    if mount -o loop "$work/ext4.img" "$work/ext4"; then
        mounts+=("$work/ext4")
        loop="$work/ext4"
        suites "fresh ext4 loop volume" "$loop"
    else
        echo; echo "== fresh ext4 loop volume: skipped, this machine refuses the loop mount"
    fi
else
    echo; echo "== fresh ext4 loop volume: skipped, needs root and mkfs.ext4"
fi

if [ -n "${ONLY_DISKS:-}" ]; then
    echo; echo "== FUSE volume and flush alternatives: skipped (ONLY_DISKS)"; exit 0
fi

if [ "$(id -u)" -eq 0 ] && command -v bindfs >/dev/null; then
    mkdir -p "$work/fusebacking" "$work/fuse" "$work/plain"
    bindfs "$work/fusebacking" "$work/fuse"
    mounts+=("$work/fuse")
    echo
    echo "== FUSE volume (bindfs over the temp disk): every file flushed on its own, $REPEAT runs"
    for ((i = 0; i < REPEAT; i++)); do
        once "fuse tree-q" "$work/fuse" tree "$tool" "$work/fuse" "$work/src/tree"
        once "plain tree-q" "$work/plain" tree "$tool" "$work/plain" "$work/src/tree"
        once "fuse tree-cp" "$work/fuse" tree sh -c 'cp -a "$1" "$2" && sync' sh "$work/src/tree" "$work/fuse/tree"
    done
    printf '  %-28s %8s %8s  %s\n' "case" "median s" "best s" "quillorn speed vs it (median / best)"
    row "20k files onto FUSE" "fuse tree-q"
    row "20k files, same disk direct" "plain tree-q" "fuse tree-q" "(the cost of FUSE and per-file flushes)"
    row "cp -a && sync onto FUSE" "fuse tree-cp" "fuse tree-q" "(not durable: sync never reaches the daemon)"
else
    echo; echo "== FUSE volume: skipped, needs root and bindfs"
fi

echo
echo "== Making 20,000 new files durable, temp folder's disk"
"$flushes" "$work" "$REPEAT"
if [ -n "$loop" ]; then
    echo
    echo "== Making 20,000 new files durable, fresh ext4 loop volume"
    "$flushes" "$loop" "$REPEAT"
fi
