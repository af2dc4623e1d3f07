#!/usr/bin/env bash
# Quillorn's main window against Krusader's, under the same Xvfb in one run:
#   launch to mapped window (ms) and idle resident memory with two small folders;
#   a pane on a folder of 100,000 files: launch until the CPU goes idle, and the
#   resident memory then; and how long a key (F10, Quit) takes to be answered
#   while that folder is still being listed.
#
#   BENCH_BUILD=build/bench bash bench/window.sh
# Environment: REPEAT (runs per program, median reported, default 5),
# FILES (size of the big folder, default 100000), QUILLORN (the binary).
set -uo pipefail

BENCH_BUILD=${BENCH_BUILD:-build/bench}
REPEAT=${REPEAT:-5}
FILES=${FILES:-100000}
quillorn=${QUILLORN:-$BENCH_BUILD/src/app/quillorn}
quillorn=$(realpath "$quillorn" 2>/dev/null || echo "$quillorn")

for needed in Xvfb xdotool xprop; do
    command -v "$needed" >/dev/null || { echo "window.sh: $needed is missing (packages xvfb, xdotool, x11-utils)"; exit 1; }
done
[ -x "$quillorn" ] || { echo "window.sh: $quillorn is not built"; exit 1; }
have_krusader=1
command -v krusader >/dev/null || { echo "window.sh: krusader is not installed; measuring quillorn alone"; have_krusader=0; }

work=$(mktemp -d /tmp/quillorn-window-bench.XXXXXX)
xvfb_pid=""
app_pid=""
cleanup() {
    [ -n "$app_pid" ] && kill "$app_pid" 2>/dev/null
    declare -F stop_bus >/dev/null && stop_bus
    [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" >/dev/null 2>&1 &
xvfb_pid=$!
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.05; done
[ -s "$work/display" ] || { echo "window.sh: Xvfb did not start"; exit 1; }
display=":$(head -n1 "$work/display")"
export DISPLAY=$display

mkdir -p "$work/small/left" "$work/small/right" "$work/big" "$work/empty"
for i in $(seq 1 20); do echo "$i" >"$work/small/left/file$i.txt"; echo "$i" >"$work/small/right/item$i.log"; done
mkdir -p "$work/small/left/folder" "$work/small/right/folder"
echo "Making $FILES files ..."
(cd "$work/big" && seq -f 'file%06g.dat' 1 "$FILES" | xargs touch)

now_ms() { echo $(($(date +%s%N) / 1000000)); }
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat" 2>/dev/null; }
rss_mib() { awk '/^VmRSS/ { printf "%.1f", $2 / 1024 }' "/proc/$1/status" 2>/dev/null; }
# Each run gets a fresh home, so no settings, caches or first-run state carry over.
fresh_home() {
    local home=$work/home-$RANDOM$RANDOM
    mkdir -p "$home/.config" "$home/.local/share" "$home/.cache"
    # What Krusader writes after its first run (welcome, tool search, Konfigurator),
    # so that its main window is the first window it maps.
    cat >"$home/.config/krusaderrc" <<'RC'
Config Version=1
First Time=false
Version=2.8.0

[Look&Feel]
Show Tip Of The Day=false

[Startup]
Show Splash Screen=false

[ViewerModule]
FirstRun=false
RC
    [ -n "$as_user" ] && chown -R nobody: "$home"
    echo "$home"
}

# Krusader greets root with a warning window of its own; as root, both
# programs run as nobody instead, which also keeps them equal.
as_user=""
if [ "$(id -u)" -eq 0 ]; then
    as_user="setpriv --reuid=$(id -u nobody) --regid=$(id -g nobody) --clear-groups"
    chmod 755 "$work"
fi

# A session bus, as on a desktop, owned by the user the programs run as:
# without one Krusader waits for D-Bus timeouts that a desktop never has.
bus_address=""
if command -v dbus-daemon >/dev/null; then
    bus_address=$($as_user dbus-daemon --session --fork --print-address=1 --print-pid=2 2>"$work/bus.pid" | head -n1)
fi
stop_bus() { [ -s "$work/bus.pid" ] && kill "$(cat "$work/bus.pid")" 2>/dev/null; }

# launch <program> <left> <right>: starts it and sets app_pid.
launch() {
    local program=$1 left=$2 right=$3 home
    home=$(fresh_home)
    if [ "$program" = quillorn ]; then
        env DBUS_SESSION_BUS_ADDRESS="$bus_address" HOME="$home" XDG_CONFIG_HOME="$home/.config" \
            XDG_DATA_HOME="$home/.local/share" XDG_CACHE_HOME="$home/.cache" XDG_RUNTIME_DIR="$home" \
            QT_QPA_PLATFORM=xcb QUILLORN_RELEASE_PREVIEW_LEFT="$left" QUILLORN_RELEASE_PREVIEW_RIGHT="$right" \
            $as_user "$quillorn" >/dev/null 2>&1 &
    else
        env DBUS_SESSION_BUS_ADDRESS="$bus_address" HOME="$home" XDG_CONFIG_HOME="$home/.config" \
            XDG_DATA_HOME="$home/.local/share" XDG_CACHE_HOME="$home/.cache" XDG_RUNTIME_DIR="$home" \
            QT_QPA_PLATFORM=xcb $as_user krusader --left "$left" --right "$right" >/dev/null 2>&1 &
    fi
    app_pid=$!
}

stop() {
    kill "$app_pid" 2>/dev/null
    wait "$app_pid" 2>/dev/null
    app_pid=""
}

# Milliseconds until the program has a viewable top-level window, or -1.
wait_mapped() {
    local start=$1
    for _ in $(seq 3000); do
        if [ -n "$(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | head -n1)" ]; then
            echo $(($(now_ms) - start)); return
        fi
        sleep 0.005
    done
    echo -1
}

# Waits until the process has used no CPU for a whole second; prints the
# milliseconds from `start` to its last busy moment.
wait_idle() {
    local start=$1 last before after quiet=0
    last=$(now_ms); before=$(cpu_ticks "$app_pid")
    for _ in $(seq 1200); do
        sleep 0.1
        after=$(cpu_ticks "$app_pid") || break
        if [ "$after" != "$before" ]; then last=$(now_ms); quiet=0; before=$after; else quiet=$((quiet + 1)); fi
        [ "$quiet" -ge 10 ] && break
    done
    echo $((last - start))
}

median() { sort -n | awk '{ v[NR] = $1 } END { if (NR == 0) print "n/a"; else print v[int((NR + 1) / 2)] }'; }

# How fast a key is answered while the big folder is still being listed: F10
# (Quit) is sent as soon as the window is mapped, and the time until the
# process is gone is the answer. A window that lists on its interface thread
# answers only after the listing.
quit_latency() {
    local start window sent
    launch "$1" "$work/big" "$work/empty"
    start=$(now_ms)
    if [ "$(wait_mapped "$start")" -lt 0 ]; then stop; echo -1; return; fi
    window=$(xdotool search --onlyvisible --pid "$app_pid" | head -n1)
    xdotool windowfocus "$window" 2>/dev/null
    sent=$(now_ms)
    xdotool key F10
    for _ in $(seq 3000); do
        if ! kill -0 "$app_pid" 2>/dev/null; then break; fi
        sleep 0.005
    done
    if kill -0 "$app_pid" 2>/dev/null; then stop; echo -1; return; fi
    wait "$app_pid" 2>/dev/null
    app_pid=""
    echo $(($(now_ms) - sent))
}

declare -A mapped rss idle idle_rss quit
programs=(quillorn)
[ "$have_krusader" -eq 1 ] && programs+=(krusader)

for program in "${programs[@]}"; do
    : >"$work/$program.mapped"; : >"$work/$program.rss"; : >"$work/$program.idle"; : >"$work/$program.idlerss"; : >"$work/$program.quit"
    for _ in $(seq "$REPEAT"); do
        launch "$program" "$work/small/left" "$work/small/right"
        start=$(now_ms)
        ms=$(wait_mapped "$start")
        if [ "$ms" -ge 0 ]; then
            echo "$ms" >>"$work/$program.mapped"
            wait_idle "$start" >/dev/null
            rss_mib "$app_pid" >>"$work/$program.rss"; echo >>"$work/$program.rss"
        fi
        stop

        launch "$program" "$work/big" "$work/empty"
        start=$(now_ms)
        if [ "$(wait_mapped "$start")" -ge 0 ]; then
            wait_idle "$start" >>"$work/$program.idle"
            rss_mib "$app_pid" >>"$work/$program.idlerss"; echo >>"$work/$program.idlerss"
        fi
        stop

        quit_latency "$program" >>"$work/$program.quit"
    done
    quit[$program]=$(median <"$work/$program.quit")
    mapped[$program]=$(median <"$work/$program.mapped")
    rss[$program]=$(grep . "$work/$program.rss" | median)
    idle[$program]=$(median <"$work/$program.idle")
    idle_rss[$program]=$(grep . "$work/$program.idlerss" | median)
done

echo
echo "Window benchmark under Xvfb, median of $REPEAT runs each"
printf '%-10s %17s %13s %21s %13s %22s\n' program "launch→mapped ms" "idle RSS MiB" "$FILES files: idle ms" "then RSS MiB" "F10 while listing: ms"
for program in "${programs[@]}"; do
    printf '%-10s %17s %13s %21s %13s %22s\n' "$program" "${mapped[$program]}" "${rss[$program]}" \
        "${idle[$program]}" "${idle_rss[$program]}" "${quit[$program]}"
done
