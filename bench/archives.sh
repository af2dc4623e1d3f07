#!/usr/bin/env bash
# Times the archive jobs against bsdtar on the same files, warm page cache,
# runs alternating so that load lands on both; medians of ROUNDS:
#   list    a tar.gz of 100,000 members: the sheet's listing vs bsdtar -tf (target ≤ 1.2×)
#   unpack  1 GiB of 4 KiB–1 MiB files from a tar: the unpacking job (staged,
#           every file durable, published) vs bsdtar -xf then sync (target ≥ 0.9× its speed)
#   pack    the same files into a tar.zst vs bsdtar --zstd -cf (target ≤ 1.2×)
#
#   BENCH_BUILD=build/bench bash bench/archives.sh
# Environment: ROUNDS (default 3), MEMBERS (default 100000), MIB (default 1024).
set -euo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
ROUNDS=${ROUNDS:-3}
MEMBERS=${MEMBERS:-100000}
MIB=${MIB:-1024}
tool=$(realpath "$BENCH_BUILD/bench/archives_tool" 2>/dev/null || true)
[ -x "$tool" ] || { echo "archives.sh: $BENCH_BUILD/bench/archives_tool is not built (cmake -DQUILLORN_BENCH=ON)"; exit 1; }
command -v bsdtar >/dev/null && command -v python3 >/dev/null || { echo "archives.sh: needs bsdtar and python3"; exit 1; }

work=$(mktemp -d "${BENCH_DIR:-/tmp}/quillorn-archives-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
python3 - "$work" "$MEMBERS" "$MIB" <<'PY'
import io, os, random, sys, tarfile
work, members, mib = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
with tarfile.open(os.path.join(work, 'many.tar.gz'), 'w:gz') as t:
    for i in range(members):
        info = tarfile.TarInfo('folder%03d/member-%06d.txt' % (i // 1000, i))
        t.addfile(info)
random.seed(7)
tree = os.path.join(work, 'files')
total, n = 0, 0
while total < mib << 20:
    size = random.randint(4096, 1 << 20)
    folder = os.path.join(tree, 'd%02d' % (n % 32))
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, 'f%05d.bin' % n), 'wb') as f:
        f.write(os.urandom(size // 2) + bytes(size - size // 2))
    total += size
    n += 1
PY
(cd "$work" && bsdtar -cf files.tar files)

median() { printf '%s\n' "$@" | sort -g | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
seconds() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", (b - a) / 1e9 }'
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
bsdtar_unpack() { mkdir -p "$1" && (cd "$1" && bsdtar -xf "$work/files.tar") && sync; }

lo=() lt=() uo=() ut=() po=() pt=()
for _ in $(seq "$ROUNDS"); do
    lo+=("$(seconds "$tool" list "$work/many.tar.gz")")
    lt+=("$(seconds bsdtar -tf "$work/many.tar.gz")")
    rm -rf "$work/out" && mkdir "$work/out" && sync
    uo+=("$(seconds "$tool" unpack "$work/files.tar" "$work/out")")
    rm -rf "$work/out" && sync
    ut+=("$(seconds bsdtar_unpack "$work/out")")
    rm -rf "$work/out" "$work/ours.tar.zst" "$work/theirs.tar.zst" && sync
    po+=("$(seconds "$tool" pack "$work/ours.tar.zst" "$work/files")")
    pt+=("$(seconds bash -c "cd '$work' && bsdtar --zstd -cf theirs.tar.zst files")")
done
a=$(median "${lo[@]}") b=$(median "${lt[@]}")
echo "list    $MEMBERS members of a tar.gz: quillorn ${a} s, bsdtar -tf ${b} s: $(ratio "$a" "$b")× (target ≤ 1.20×)"
a=$(median "${uo[@]}") b=$(median "${ut[@]}")
echo "unpack  $MIB MiB tar: quillorn ${a} s, bsdtar -xf + sync ${b} s: speed $(ratio "$b" "$a")× of bsdtar's (target ≥ 0.90×)"
a=$(median "${po[@]}") b=$(median "${pt[@]}")
echo "pack    $MIB MiB into tar.zst: quillorn ${a} s, bsdtar --zstd -cf ${b} s: $(ratio "$a" "$b")× (target ≤ 1.20×)"
echo "load    $(cat /proc/loadavg)"
