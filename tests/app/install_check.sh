#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks what a desktop needs to
# list Quillorn and offer it for folders: the program, a valid .desktop entry
# that opens folders, and a well-formed scalable icon.
# Usage: install_check.sh <build directory>
set -u
build=${1:?usage: install_check.sh <build directory>}
prefix=$(mktemp -d /tmp/quillorn-install-XXXXXX)
trap 'rm -rf "$prefix" "$prefix.log"' EXIT
cmake --install "$build" --prefix "$prefix" >"$prefix.log" 2>&1 || { cat "$prefix.log"; exit 1; }
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
entry=$prefix/share/applications/quillorn.desktop icon=$prefix/share/icons/hicolor/scalable/apps/quillorn.svg
[ -x "$prefix/bin/quillorn" ] || fail "no executable $prefix/bin/quillorn"
for line in 'Exec=quillorn %U' 'MimeType=inode/directory;' 'Icon=quillorn'; do
    grep -qx "$line" "$entry" 2>/dev/null || fail "the entry has no line '$line'"
done
if command -v desktop-file-validate >/dev/null; then
    desktop-file-validate "$entry" || fail "desktop-file-validate rejects the entry"
else echo "note: desktop-file-validate is not installed; the entry was checked by its lines only"; fi
for service in io.quillorn.Quillorn io.quillorn.Quillorn.FileManager1; do
    grep -qx "Exec=$prefix/bin/quillorn" "$prefix/share/dbus-1/services/$service.service" 2>/dev/null ||
        fail "the D-Bus service file $service.service is missing or does not start $prefix/bin/quillorn"
done
python3 -c 'import sys, xml.etree.ElementTree as t; sys.exit(not t.parse(sys.argv[1]).getroot().tag.endswith("svg"))' \
    "$icon" || fail "the icon $icon is missing or not a well-formed SVG"
[ "$failures" -eq 0 ] && echo "install layout ok"
exit $((failures != 0))
