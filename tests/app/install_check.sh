#!/usr/bin/env bash
# `make install` as a package build runs it (PREFIX=/usr into a temporary
# DESTDIR): the stripped program; a desktop entry and metainfo that the
# desktop's and the software centres' validators accept; PNG icons of 16 to 256
# pixels beside the SVG; a man page that renders without warnings and names
# every option of --help; the D-Bus service files, starting the installed
# program. A staged install leaves the desktop's caches alone. As root, also
# an install to /usr/local inside a private mount namespace, which refreshes
# those caches and is not failed by their tools failing.
# Usage: install_check.sh <source directory> <build directory>
set -u
source=$(realpath "${1:?usage: install_check.sh <source directory> <build directory>}")
build=$(realpath "${2:?usage: install_check.sh <source directory> <build directory>}")
work=$(mktemp -d /tmp/quillorn-install-XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0 skipped=""
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
ok() { echo "ok: $*"; }
check() { local what=$1; shift; if "$@"; then ok "$what"; else fail "$what"; fi; }
need() { command -v "$1" >/dev/null && return; echo "note: $1 is not installed (Debian package $2): $3 not checked"; skipped+=" $1"; return 1; }
# $1: the prefix; the rest: name=value for the environment.
install_to() {
    local prefix=$1; shift
    env -u MAKEFLAGS -u MFLAGS -u MAKELEVEL "$@" make -s -C "$source" -o build install SKIP_DEPS=1 BUILD="$build" PREFIX="$prefix" >"$work/install.log" 2>&1 ||
        { fail "make install PREFIX=$prefix $*"; sed 's/^/    /' "$work/install.log"; return 1; }
}

# The layout below a prefix $1 that the program is installed to as $2.
check_layout() {
    local root=$1 installed=$2 share=$1/share
    local entry=$share/applications/quillorn.desktop metainfo=$share/metainfo/io.quillorn.Quillorn.metainfo.xml
    check "the program is installed" test -x "$root/bin/quillorn"
    if need readelf binutils "stripping"; then
        check "  stripped of its symbols" bash -c "! readelf -S '$root/bin/quillorn' | grep -q '\.symtab'"
    fi
    check "the entry opens folders and files" grep -qx 'MimeType=inode/directory;' "$entry"
    check "  and starts the program with its items" grep -qx 'Exec=quillorn %U' "$entry"
    if need desktop-file-validate desktop-file-utils "the desktop entry"; then
        check "desktop-file-validate accepts the entry" desktop-file-validate "$entry"
    fi
    if need appstreamcli appstream "the metainfo"; then
        check "appstreamcli accepts the metainfo" bash -c "appstreamcli validate --no-net '$metainfo' >'$work/appstream.log' || { cat '$work/appstream.log'; false; }"
        check "  and it names the entry" grep -q '<launchable type="desktop-id">quillorn.desktop</launchable>' "$metainfo"
    fi
    check "the scalable icon is an SVG" python3 -c '
import sys, xml.etree.ElementTree as t
sys.exit(not t.parse(sys.argv[1]).getroot().tag.endswith("svg"))' "$share/icons/hicolor/scalable/apps/quillorn.svg"
    for size in 16 22 24 32 48 64 128 256; do
        check "the ${size}x$size icon is a PNG of that size" python3 -c '
import struct, sys
head = open(sys.argv[1], "rb").read(24)
sys.exit(not (head[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", head[16:24]) == (int(sys.argv[2]),) * 2))' \
            "$share/icons/hicolor/${size}x$size/apps/quillorn.png" "$size"
    done
    local page=$share/man/man1/quillorn.1
    if need man man-db "the man page"; then
        check "the man page renders without warnings" bash -c \
            "LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l '$page' >'$work/man.txt' 2>'$work/man.err' && [ ! -s '$work/man.err' ]"
        check "  under its name" grep -q '^ *quillorn - keyboard-driven two-pane file manager' "$work/man.txt"
        ASAN_OPTIONS=detect_leaks=0 "$build/src/app/quillorn" --help >"$work/help.txt"
        for option in $(grep -o -- '--[a-z][a-z-]*' "$work/help.txt" | sort -u); do
            check "  with the option $option" grep -q -- "$option" "$work/man.txt"
        done
        check "  and its exit status 2" bash -c "sed -n '/^EXIT STATUS/,/^[A-Z]/p' '$work/man.txt' | grep -q '^ *2 '"
    fi
    for service in io.quillorn.Quillorn io.quillorn.Quillorn.FileManager1; do
        check "the D-Bus service $service starts $installed" \
            grep -qx "Exec=$installed" "$share/dbus-1/services/$service.service"
    done
}

# The caches of a system prefix, in a mount namespace of its own so that the
# machine's /usr/local is never written: run as the second part of this script.
system_install() {
    mount -t tmpfs quillorn-test /usr/local || { fail "cannot mount a tmpfs on /usr/local"; return; }
    local hicolor=/usr/local/share/icons/hicolor
    mkdir -p "$hicolor" "$work/failing"
    [ -f /usr/share/icons/hicolor/index.theme ] && cp /usr/share/icons/hicolor/index.theme "$hicolor/"
    echo "== make install PREFIX=/usr/local, the cache tools failing"
    for tool in update-desktop-database gtk-update-icon-cache; do
        printf '#!/bin/sh\necho "%s: out of order" >&2\nexit 3\n' "$tool" >"$work/failing/$tool"
        chmod +x "$work/failing/$tool"
    done
    install_to /usr/local PATH="$work/failing:$PATH" && ok "the install succeeds"
    check "  and says the caches were not refreshed" grep -q "update-desktop-database failed" "$work/install.log"
    echo "== make install PREFIX=/usr/local"
    install_to /usr/local || return
    for service in io.quillorn.Quillorn io.quillorn.Quillorn.FileManager1; do
        check "the D-Bus service $service starts /usr/local/bin/quillorn" \
            grep -qx "Exec=/usr/local/bin/quillorn" "/usr/local/share/dbus-1/services/$service.service"
    done
    if need update-desktop-database desktop-file-utils "the entries' cache"; then
        check "the entries' cache offers Quillorn for folders" \
            grep -q '^inode/directory=.*quillorn.desktop' /usr/local/share/applications/mimeinfo.cache
    fi
    if [ -f "$hicolor/index.theme" ] && need gtk-update-icon-cache gtk-update-icon-cache "the icon cache"; then
        check "the icon cache is refreshed" test -s "$hicolor/icon-theme.cache"
    fi
}
if [ -n "${QUILLORN_PRIVATE_USR_LOCAL:-}" ]; then
    system_install
    exit $((failures != 0))
fi

echo "== make install PREFIX=/usr DESTDIR=…"
staged=$work/staged
# Stand-ins for the cache tools, which only note that they were called.
mkdir -p "$work/noting"
for tool in update-desktop-database gtk-update-icon-cache; do
    printf '#!/bin/sh\necho "%s $*" >>"%s"\n' "$tool" "$work/cache-calls" >"$work/noting/$tool"
    chmod +x "$work/noting/$tool"
done
if install_to /usr DESTDIR="$staged" PATH="$work/noting:$PATH"; then
    check_layout "$staged/usr" /usr/bin/quillorn
    check "a staged install refreshes no cache" test ! -e "$work/cache-calls"
fi
if [ "$(id -u)" -ne 0 ] || ! command -v unshare >/dev/null; then
    echo "note: the install to /usr/local needs root and unshare: not checked"
else
    QUILLORN_PRIVATE_USR_LOCAL=1 unshare --mount --propagation private bash "$0" "$source" "$build"
    [ $? -eq 0 ] || failures=$((failures + 1))
fi
[ "$failures" -eq 0 ] && echo "install ok${skipped:+ (not checked without them:$skipped)}"
exit $((failures != 0))
