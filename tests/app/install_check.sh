#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks what a desktop needs to
# list Quillorn and offer it for folders: the program, a valid .desktop entry
# that opens folders, and a well-formed scalable icon.
# Usage: install_check.sh <build directory>
set -u
build=${1:?usage: install_check.sh <build directory>}
prefix=$(mktemp -d /tmp/quillorn-install-XXXXXX)
trap 'rm -rf "$prefix"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

cmake --install "$build" --prefix "$prefix" >"$prefix.log" 2>&1 || { cat "$prefix.log"; rm -f "$prefix.log"; exit 1; }
rm -f "$prefix.log"

[ -x "$prefix/bin/quillorn" ] || fail "no executable $prefix/bin/quillorn"
entry=$prefix/share/applications/quillorn.desktop
icon=$prefix/share/icons/hicolor/scalable/apps/quillorn.svg
if [ -f "$entry" ]; then
    grep -qx 'Exec=quillorn %U' "$entry" || fail "the entry does not run 'quillorn %U'"
    grep -qx 'MimeType=inode/directory;' "$entry" || fail "the entry does not handle folders"
    grep -qx 'Icon=quillorn' "$entry" || fail "the entry does not name the icon"
    if command -v desktop-file-validate >/dev/null; then
        desktop-file-validate "$entry" || fail "desktop-file-validate rejects the entry"
    else
        echo "note: desktop-file-validate is not installed; the entry was checked by its lines only"
    fi
else
    fail "no $entry"
fi
if [ -f "$icon" ]; then
    python3 -c 'import sys, xml.etree.ElementTree as t; r = t.parse(sys.argv[1]).getroot(); sys.exit(0 if r.tag.endswith("svg") else 1)' "$icon" \
        || fail "the icon is not a well-formed SVG"
else
    fail "no $icon"
fi
[ "$failures" -eq 0 ] && echo "install layout ok"
exit $((failures != 0))
