#!/usr/bin/env bash
# The real quillorn binary on a private session bus: the command line's answers
# and refusals, a second start handing its items to the first (saved tabs kept),
# and other programs' "Show in folder" calls through org.freedesktop.FileManager1,
# including a name that is not UTF-8. What the running one opened is read back
# from its saved tabs.
# Usage: desktop_bus.sh <path to quillorn>
set -u
binary=$(realpath "${1:?usage: desktop_bus.sh <quillorn binary>}")
for tool in dbus-run-session gdbus; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (Debian packages dbus-daemon and libglib2.0-bin)"; exit 77; }
done
if [ -z "${QUILLORN_ON_PRIVATE_BUS:-}" ]; then
    QUILLORN_ON_PRIVATE_BUS=1 exec dbus-run-session -- bash "$0" "$@"
fi
work=$(mktemp -d /tmp/quillorn-bus-XXXXXX)
first=""
trap '[ -n "$first" ] && kill $first 2>/dev/null; wait; [ "${KEEP:-}" ] || rm -rf "$work"' EXIT
failures=0
check() { local what=$1; shift; "$@" && { echo "ok: $what"; return; }; echo "FAIL: $what"; failures=$((failures + 1)); return 1; }
quietly() { "$@" >/dev/null; }
wait_for() { local tenths=$1; shift; for ((i = 0; i < tenths; i++)); do "$@" && return 0; sleep 0.1; done; return 1; }
export QT_QPA_PLATFORM=offscreen XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_STATE_HOME=$work/state HOME=$work/home
unset QUILLORN_RELEASE_PREVIEW_LEFT QUILLORN_RELEASE_PREVIEW_RIGHT
mkdir -p "$HOME/Downloads" "$work/one" "$work/two" "$work/three" "$work/four" "$work/caf"$'\xe9'
touch "$work/three/a.txt" "$work/three/b.txt"
conf=$XDG_CONFIG_HOME/Quillorn/Quillorn.conf

# The command line, answered without a display.
check "--help prints the usage and exits 0" bash -c '"$1" --help | grep -q "^Usage: quillorn .*\[DIR|FILE|URI"' _ "$binary"
check "--version prints the version" bash -c '"$1" --version | grep -Eq "^quillorn [0-9]+\.[0-9]+"' _ "$binary"
"$binary" smb://server/share >"$work/out" 2>"$work/err"; status=$?
check "a URI of another scheme is refused with status 2" test "$status" -eq 2
check "and a message on standard error" grep -q "cannot open ‘smb://server/share’" "$work/err"
check "and nothing on standard output" test ! -s "$work/out"
owns() { gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.NameHasOwner "$1" | grep -q true; }
check "a refused start claims nothing" bash -c '! gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus --method org.freedesktop.DBus.NameHasOwner io.quillorn.Quillorn | grep -q true'

# A saved tab from an earlier session, then the first start with a folder.
mkdir -p "$XDG_CONFIG_HOME/Quillorn"
printf '[General]\nleft.tabs=%s\nleft.lastDirectory=%s\n' "$work/four" "$work/four" >"$conf"
"$binary" "$work/one" >"$work/first.log" 2>&1 &
first=$!
wait_for 600 owns io.quillorn.Quillorn || { echo "HARNESS: the first Quillorn did not take its name"; cat "$work/first.log"; exit 1; }
tabs() { grep -a '^left.tabs=' "$conf"; }
has_tab() { tabs | grep -aq -- "$1"; }
check "the folder opens in a new tab beside the saved one" bash -c "grep -a '^left.tabs=' '$conf' | grep -q '$work/four, $work/one'"
check "FileManager1 is taken while nobody else has it" wait_for 100 owns org.freedesktop.FileManager1

# A second start hands over and exits at once, with a file and a name that is not UTF-8.
( cd "$work" && "$binary" two "$work/caf"$'\xe9' "file://$work/three/a.txt" ) >"$work/second.log" 2>&1 &
second=$!
check "a second start exits with status 0" wait_for 300 bash -c "! kill -0 $second 2>/dev/null"
wait "$second"; check "and status 0" test $? -eq 0
check "the running one opened its folder" wait_for 100 has_tab "$work/two"
check "the running one opened the file's folder" wait_for 100 has_tab "$work/three"
check "the name that is not UTF-8 arrived with its bytes" wait_for 100 has_tab "caf\\\\xe9\|caf"$'\xe9'
check "still one Quillorn" kill -0 "$first"

# Another program's "Show in folder".
gdbus call --session --dest org.freedesktop.FileManager1 --object-path /org/freedesktop/FileManager1 \
    --method org.freedesktop.FileManager1.ShowFolders "['file://$work/four']" "" >/dev/null
check "ShowFolders opens the folder in another tab" wait_for 100 bash -c "grep -a '^left.tabs=' '$conf' | grep -o '$work/four' | wc -l | grep -qx 2"
check "ShowItems is answered" quietly gdbus call --session --dest org.freedesktop.FileManager1 --object-path /org/freedesktop/FileManager1 \
    --method org.freedesktop.FileManager1.ShowItems "['file://$work/three/a.txt', 'file://$work/three/b.txt']" ""
check "a call with wrong arguments is refused" bash -c "! gdbus call --session --dest org.freedesktop.FileManager1 \
    --object-path /org/freedesktop/FileManager1 --method org.freedesktop.FileManager1.ShowItems 42 2>/dev/null"

[ "$failures" -eq 0 ] && echo "desktop bus ok"
exit $((failures != 0))
