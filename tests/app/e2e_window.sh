#!/usr/bin/env bash
# Drives the real quillorn binary under Xvfb with real key events (xdotool):
# copy (F5, Return), rename (F2), new folder (F7), trash (F8, Return on
# "Continue"), a move refused by the Stop policy (F6 onto an existing name),
# and quit (F10). Checks the files on disk and the diagnostics log lines.
# Usage: e2e_window.sh <path to quillorn>
set -u

binary=${1:?usage: e2e_window.sh <quillorn binary>}
for tool in Xvfb xdotool; do
    if ! command -v "$tool" >/dev/null; then
        echo "SKIP: $tool is not installed (Debian packages xvfb and xdotool)"
        exit 77
    fi
done

work=$(mktemp -d /tmp/quillorn-e2e-XXXXXX)
xvfb_pid=""
app_pid=""
cleanup() {
    [ -n "$app_pid" ] && kill "$app_pid" 2>/dev/null
    [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
pass() { echo "ok: $*"; }

# Waits up to $1 tenths of a second for the command after it to succeed.
wait_for() {
    local tenths=$1; shift
    for ((i = 0; i < tenths; i++)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}

# Xvfb picks a free display number itself (-displayfd), so runs side by side
# never share a server.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
xvfb_pid=$!
if ! wait_for 100 test -s "$work/display"; then
    echo "HARNESS: Xvfb did not start"; cat "$work/xvfb.log"; exit 1
fi
display=":$(head -n1 "$work/display")"
export DISPLAY=$display

left=$work/Left
right=$work/Right
mkdir -p "$left" "$right" "$work/data" "$work/config"
printf 'alpha\n' >"$left/alpha.txt"
printf 'beta from the left\n' >"$left/beta.txt"
printf 'gamma\n' >"$left/gamma.txt"
printf 'beta already here\n' >"$right/beta.txt"
printf 'zeta\n' >"$right/zeta.txt"
log=$work/data/Quillorn/Logs/Quillorn.log

# A bus address that answers at once with "no such socket": with none at all,
# libdbus autolaunches a bus by forking from a threaded process, which can hang
# the child inside the sanitizer's allocator and the window with it.
env -u WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS="unix:path=$work/no-session-bus" \
    QT_QPA_PLATFORM=xcb XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config" \
    QUILLORN_RELEASE_PREVIEW_LEFT="$left" QUILLORN_RELEASE_PREVIEW_RIGHT="$right" \
    ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0}" \
    "$binary" >"$work/app.log" 2>&1 &
app_pid=$!

window=""
find_window() { window=$(xdotool search --onlyvisible --pid "$app_pid" --name '^Quillorn v' 2>/dev/null | head -n1); [ -n "$window" ]; }
if ! wait_for 300 find_window; then
    echo "HARNESS: the main window did not appear"; cat "$work/app.log"; exit 1
fi
xdotool windowfocus --sync "$window" 2>/dev/null || xdotool windowfocus "$window"
sleep 1

keys() { xdotool key --delay 60 "$@"; }
# Xvfb runs no window manager, so nothing gives the main window the keyboard
# back after an alert closes; each step starts by focusing it.
refocus() {
    dialogs_gone
    xdotool windowfocus --sync "$window" 2>/dev/null || xdotool windowfocus "$window"
    sleep 0.2
}
# The listing is sorted folders first, then by name; Up from anywhere twenty
# times lands on the first row, then Down picks the row wanted.
cursor_to_row() {
    local row=$1
    refocus
    local ups=()
    for ((i = 0; i < 20; i++)); do ups+=(Up); done
    keys "${ups[@]}"
    for ((i = 0; i < row; i++)); do keys Down; done
}
# Waits until a sheet or alert is on screen (a second window of the program)
# and has had a moment to take the keyboard.
settle() {
    local count
    for _ in $(seq 150); do
        count=$(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | wc -l)
        [ "$count" -ge 2 ] && { sleep 0.3; return 0; }
        sleep 0.1
    done
    echo "note: no sheet or alert appeared"
}
# Waits until only the main window is left.
dialogs_gone() {
    for _ in $(seq 150); do
        [ "$(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | wc -l)" -le 1 ] && return 0
        sleep 0.1
    done
}
log_has() { [ -f "$log" ] && grep -qF -- "$1" "$log"; }

# 1. Copy alpha.txt to the right pane: F5, then Return on "Add to queue".
cursor_to_row 0
keys F5; settle; keys Return
if wait_for 100 test -f "$right/alpha.txt"; then pass "F5 copied alpha.txt"; else fail "F5 did not copy alpha.txt"; fi
cmp -s "$left/alpha.txt" "$right/alpha.txt" || fail "the copy differs from its source"
wait_for 50 log_has "QUEUE START title=Copy 1 → Right" || fail "no QUEUE START line for the copy"
wait_for 50 log_has "TRANSFER ITEM COMPLETE phase=copy target=$right/alpha.txt" || fail "no TRANSFER ITEM COMPLETE line"
wait_for 50 log_has "QUEUE COMPLETE title=Copy 1 → Right" || fail "no QUEUE COMPLETE line for the copy"

# 2. Rename alpha.txt with F2: select the proposed name, type the new one.
sleep 0.5
cursor_to_row 0
keys F2; settle; keys ctrl+a
xdotool type --delay 40 "renamed.txt"
keys Return
if wait_for 100 test -f "$left/renamed.txt"; then pass "F2 renamed alpha.txt"; else fail "F2 did not rename"; fi
[ ! -e "$left/alpha.txt" ] || fail "alpha.txt still exists after the rename"

# 3. New folder with F7, accepting the proposed "New Folder".
sleep 0.5
refocus
keys F7; settle; keys Return
if wait_for 100 test -d "$left/New Folder"; then pass "F7 made New Folder"; else fail "F7 made no folder"; fi

# 4. Trash gamma.txt with F8 and Return on "Continue".
#    Rows now: New Folder, beta.txt, gamma.txt, renamed.txt.
sleep 1
cursor_to_row 2
keys F8; settle; keys Return
if wait_for 100 test ! -e "$left/gamma.txt"; then pass "F8 removed gamma.txt"; else fail "F8 left gamma.txt"; fi
if wait_for 30 test -f "$work/data/Trash/files/gamma.txt"; then pass "gamma.txt is in the Trash"
else fail "gamma.txt is not in the Trash"; fi
[ -f "$work/data/Trash/info/gamma.txt.trashinfo" ] || fail "no .trashinfo for gamma.txt"

# 5. Move beta.txt onto the right pane's beta.txt with the preselected Stop: refused.
sleep 0.5
cursor_to_row 1
keys F6; settle; keys Return
if wait_for 100 log_has "QUEUE FAILED title=Move 1 → Right"; then pass "F6 onto an existing name failed"
else fail "no QUEUE FAILED line for the refused move"; fi
grep -q 'from the left' "$left/beta.txt" || fail "the refused move touched the source"
grep -q 'already here' "$right/beta.txt" || fail "the refused move touched the existing item"

# 6. Quit with F10: the queue is idle, so the application ends at once.
sleep 0.5
refocus
keys F10
if wait_for 100 bash -c "! kill -0 $app_pid 2>/dev/null"; then
    wait "$app_pid"; status=$?; app_pid=""
    if [ "$status" -eq 0 ]; then pass "F10 quit"; else fail "quillorn exited with status $status"; fi
else
    fail "F10 did not quit"
fi

if [ "$failures" -ne 0 ]; then
    echo "--- application output"; cat "$work/app.log"
    echo "--- log"; [ -f "$log" ] && cat "$log"
    exit 1
fi
echo "all end-to-end checks passed"
