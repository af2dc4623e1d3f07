#!/usr/bin/env bash
# Drives the real quillorn binary under Xvfb with real key events (xdotool):
# copy (F5, Return), rename (F2), new folder (F7), trash (F8, Return on
# "Continue"), a move refused by the Stop policy (F6 onto an existing name),
# Return in the transfer sheet after its policy picker had the focus, Return in
# the filter field, the tab buttons after Ctrl+T and Backspace, typing on in the
# editor after saves and questions, F2 on a name outside UTF-8, the queue
# panel's Pause pressed again and again with Space and Return while a copy of
# many empty files runs, and quit (F10).
# Checks the files on disk and the diagnostics log lines.
# Usage: e2e_window.sh <path to quillorn>
set -u
binary=${1:?usage: e2e_window.sh <quillorn binary>}
for tool in Xvfb xdotool; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (Debian packages xvfb and xdotool)"; exit 77; }
done
work=$(mktemp -d /tmp/quillorn-e2e-XXXXXX)
xvfb_pid="" app_pid=""
trap '[ -n "$app_pid" ] && kill $app_pid; [ -n "$xvfb_pid" ] && kill $xvfb_pid; wait; rm -rf "$work"' EXIT
failures=0
check() { local what=$1; shift; "$@" && { echo "ok: $what"; return; }; echo "FAIL: $what"; failures=$((failures + 1)); return 1; }
# Waits up to $1 tenths of a second for the command after it to succeed.
wait_for() { local tenths=$1; shift; for ((i = 0; i < tenths; i++)); do "$@" && return 0; sleep 0.1; done; return 1; }
harness() { echo "HARNESS: $1"; cat "$2"; exit 1; }

# Xvfb picks a free display number itself, so runs side by side never share a server.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
xvfb_pid=$!
wait_for 100 test -s "$work/display" || harness "Xvfb did not start" "$work/xvfb.log"
export DISPLAY=":$(head -n1 "$work/display")"

left=$work/Left right=$work/Right log=$work/data/Quillorn/Logs/Quillorn.log
mkdir -p "$left" "$right" "$work/data" "$work/config"
printf 'alpha\n' >"$left/alpha.txt"
printf 'beta from the left\n' >"$left/beta.txt"
printf 'gamma\n' >"$left/gamma.txt"
printf 'beta already here\n' >"$right/beta.txt"
# A bus address that refuses at once: with none, libdbus forks a bus launcher
# from a threaded, sanitized process, which can hang the window.
env -u WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS="unix:path=$work/no-session-bus" \
    QT_QPA_PLATFORM=xcb XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config" XDG_STATE_HOME="$work/state" \
    QUILLORN_RELEASE_PREVIEW_LEFT="$left" QUILLORN_RELEASE_PREVIEW_RIGHT="$right" \
    ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0}" "$binary" >"$work/app.log" 2>&1 &
app_pid=$!

windows() { xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | wc -l; }
find_window() { window=$(xdotool search --onlyvisible --pid "$app_pid" --name '^Quillorn v' 2>/dev/null | head -n1); [ -n "$window" ]; }
wait_for 300 find_window || harness "the main window did not appear" "$work/app.log"
sleep 1
keys() { xdotool key --delay 60 "$@"; }
# Xvfb runs no window manager: the window is given the keyboard once here, and
# after that every sheet, alert and prompt must hand it back by itself.
xdotool windowfocus --sync "$window" 2>/dev/null || xdotool windowfocus "$window"
# The counts below are taken afresh at every try: "$(…)" written on a wait_for
# line would be counted once, before the waiting starts.
window_count_at_most() { test "$(windows)" -le "$1"; }
window_count_at_least() { test "$(windows)" -ge "$1"; }
refocus() {
    wait_for 150 window_count_at_most 1
    sleep 0.3
}
# Folders come first, then names in order: twenty times Up lands on the first row.
cursor_to_row() { refocus; keys $(printf 'Up %.0s' {1..20}); for ((i = 0; i < $1; i++)); do keys Down; done; }
# Presses a key, then waits for the sheet or alert it opens to take the keyboard.
open_dialog() { keys "$1"; wait_for 150 window_count_at_least 2 || echo "note: no sheet or alert appeared"; sleep 0.3; }
log_has() { [ -f "$log" ] && grep -qF -- "$1" "$log"; }

# 1. Copy alpha.txt to the right pane: F5, then Return on "Add to queue".
cursor_to_row 0; open_dialog F5; keys Return
check "F5 copied alpha.txt" wait_for 100 test -f "$right/alpha.txt"
check "the copy matches its source" cmp -s "$left/alpha.txt" "$right/alpha.txt"
for line in "QUEUE START title=Copy 1 → Right" "TRANSFER ITEM COMPLETE phase=copy target=$right/alpha.txt" \
    "QUEUE COMPLETE title=Copy 1 → Right"; do
    check "log line: $line" wait_for 50 log_has "$line"
done
# 2. Rename alpha.txt with F2: select the proposed name, type the new one.
sleep 0.5; cursor_to_row 0; open_dialog F2; keys ctrl+a
xdotool type --delay 40 "renamed.txt"; keys Return
check "F2 renamed alpha.txt" wait_for 100 test -f "$left/renamed.txt"
check "alpha.txt is gone after the rename" test ! -e "$left/alpha.txt"
# 3. New folder with F7, accepting the proposed "New Folder".
sleep 0.5; refocus; open_dialog F7; keys Return
check "F7 made New Folder" wait_for 100 test -d "$left/New Folder"
# 4. Trash gamma.txt with F8 and Return on "Continue". Rows: New Folder, beta.txt, gamma.txt, renamed.txt.
sleep 1; cursor_to_row 2; open_dialog F8; keys Return
check "F8 removed gamma.txt" wait_for 100 test ! -e "$left/gamma.txt"
check "gamma.txt is in the Trash" wait_for 30 test -f "$work/data/Trash/files/gamma.txt"
check "gamma.txt has its .trashinfo" test -f "$work/data/Trash/info/gamma.txt.trashinfo"
# 5. Move beta.txt onto the right pane's beta.txt with the preselected Stop: refused.
sleep 0.5; cursor_to_row 1; open_dialog F6; keys Return
check "F6 onto an existing name failed" wait_for 100 log_has "QUEUE FAILED title=Move 1 → Right"
check "the refused move left the source" grep -q 'from the left' "$left/beta.txt"
check "the refused move left the existing item" grep -q 'already here' "$right/beta.txt"
# Rows now: New Folder, beta.txt, renamed.txt. Window coordinates below are
# those of the default 1180 × 740 window at the screen's corner.
shot() { [ -n "${E2E_SHOTS:-}" ] && import -window root "$E2E_SHOTS/$1.png"; return 0; }
queue_lines() { awk -v line="$1" 'index($0, line) { n++ } END { print n + 0 }' "$log" 2>/dev/null; }
failed_file_operations_above() { test "$(queue_lines "QUEUE FAILED title=File operation")" -gt "$1"; }
# 7. Return in the transfer sheet after the policy picker had the focus: F5 on
# beta.txt, Tab to the picker, Down twice to "Keep both", Return adds the job.
sleep 0.5; cursor_to_row 1; open_dialog F5; keys Tab Down Down; shot 7-picker; keys Return
betas_are() { test "$(ls "$right" | grep -c '^beta')" -eq "$1"; }
check "Return after the picker queued a keep-both copy" wait_for 100 betas_are 2
check "the picker left the existing beta.txt alone" grep -q 'already here' "$right/beta.txt"
# 8. Return in the filter field with the cursor on a folder: it only leaves the
# field. F7 then tries to make "New Folder" where the pane still is, which fails
# as the name exists; had Return entered the folder, it would succeed inside it.
sleep 0.5; cursor_to_row 0; failed=$(queue_lines "QUEUE FAILED title=File operation")
xdotool mousemove --window "$window" 250 174 click 1; sleep 0.3
xdotool type --delay 40 "New"; keys Return; shot 8-filter; open_dialog F7; keys Return
check "F7 after Return in the filter ran in the same folder" \
    wait_for 100 failed_file_operations_above "$failed"
check "Return in the filter field did not enter the folder" test ! -e "$left/New Folder/New Folder"
# 9. Tab buttons after Ctrl+T and Backspace: the second tab goes to the parent
# folder, a click on the first tab's button brings Left back, and F7 there fails
# again on the existing name instead of making one in the parent.
sleep 0.5; refocus; failed=$(queue_lines "QUEUE FAILED title=File operation")
keys ctrl+t BackSpace; sleep 0.5; shot 9-tabs
xdotool mousemove --window "$window" 40 80 click 1; sleep 0.5; shot 9-first-tab
open_dialog F7; keys Return
check "the first tab's button was on screen and brought Left back" \
    wait_for 100 failed_file_operations_above "$failed"
check "no folder was made in the parent" test ! -e "$work/New Folder"
# 10. The editor keeps the keyboard in the text: F4 on renamed.txt, typing
# straight on after each Ctrl+S, after backing out of the discard question and
# after the quit alert it raises; both saves and all typing reach the file.
# Rows: New Folder, beta.txt, renamed.txt.
sleep 0.5; cursor_to_row 2; open_dialog F4; sleep 0.5
xdotool type --delay 40 "one"; keys ctrl+s; xdotool type --delay 40 "two"; keys ctrl+s
check "typing after Ctrl+S reached the text and the second save" \
    wait_for 50 grep -qx 'onetwoalpha' "$left/renamed.txt"
xdotool type --delay 40 "three"; keys Escape; sleep 0.5; shot 10-discard; keys Escape; sleep 0.5
xdotool type --delay 40 "four"; keys F10; sleep 0.5; shot 10-quit; keys Return; sleep 0.5
xdotool type --delay 40 "five"; keys ctrl+s
check "typing after the discard question and the quit alert reached the text" \
    wait_for 50 grep -qx 'onetwothreefourfivealpha' "$left/renamed.txt"
check "the quit alert left the application running" kill -0 "$app_pid"
sleep 0.5; keys Escape
# 11. F2 on a name that is not UTF-8: End, "X", Return changes only the end of it.
# Rows: New Folder, bad\xff\xfename.txt, beta.txt, renamed.txt.
odd=$(printf 'bad\377\376name.txt')
printf 'odd\n' >"$left/$odd"
sleep 1; cursor_to_row 1; open_dialog F2; keys End; xdotool type --delay 40 "X"; keys Return
check "F2 on a name outside UTF-8 kept its bytes" wait_for 100 test -f "$left/${odd}X"
check "the renamed item is the one with the odd name" grep -qx odd "$left/${odd}X"
# 12. The queue panel: a copy of many empty files runs; Ctrl+J, Tab reaches its
# Pause, and Space, Space, Space, Return pause, resume, pause and resume the same
# job, which then completes: the keyboard stayed on that button and never went
# on to its Cancel. Escape gives the keyboard back to the panes.
sleep 0.5; refocus
many=$left/queue-test
mkdir -p "$many" && (cd "$many" && seq 1 30000 | xargs touch)
completed=$(queue_lines "QUEUE COMPLETE title=Copy 1 → Right")
paused_at_least() { test "$(queue_lines "QUEUE PAUSED title=Copy 1 → Right")" -ge "$1"; }
resumed_at_least() { test "$(queue_lines "QUEUE RESUMED title=Copy 1 → Right")" -ge "$1"; }
copies_completed() { test "$(queue_lines "QUEUE COMPLETE title=Copy 1 → Right")" -gt "$completed"; }
# Rows: New Folder, queue-test, then the files.
sleep 1; cursor_to_row 1; open_dialog F5; keys Return
check "the copy of many files started" wait_for 100 log_has "TRANSFER BEGIN mode=copy sources=[\"$many\"]"
keys ctrl+j Tab space; shot 12-paused
check "Space on Pause paused the copy" wait_for 50 paused_at_least 1
keys space
check "a second Space resumed it" wait_for 50 resumed_at_least 1
keys space
check "a third Space paused it again" wait_for 50 paused_at_least 2
keys Return
check "Return on Resume resumed it" wait_for 50 resumed_at_least 2
check "the copy of many files completed" wait_for 1200 copies_completed
check "no job was cancelled" test "$(queue_lines "QUEUE CANCELLED")" -eq 0
check "every file was copied" test "$(ls "$right/queue-test" | wc -l)" -eq 30000
keys Escape
# 6. Quit with F10: the queue is idle, so the application ends at once, with status 0.
sleep 0.5; refocus; keys F10
if check "F10 quit" wait_for 100 bash -c "! kill -0 $app_pid 2>/dev/null"; then
    wait "$app_pid"; status=$?; app_pid=""
    check "quillorn exited with status 0 (was $status)" test "$status" -eq 0
fi

[ "$failures" -eq 0 ] && { echo "all end-to-end checks passed"; exit 0; }
echo "--- application output"; cat "$work/app.log"
echo "--- log"; [ -f "$log" ] && cat "$log"
exit 1
