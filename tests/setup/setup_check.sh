#!/usr/bin/env bash
# The set-up the Makefile runs, against stand-ins for dpkg-query, apt-get,
# apt-cache, id and sudo on a PATH that has nothing else of the system: which
# packages each target asks for, and the one line it ends with when it cannot
# install them. Then the format check's choice of clang-format, with stand-ins
# that answer as other releases do.
# Usage: setup_check.sh <source directory>
set -u
source=$(realpath "${1:?usage: setup_check.sh <source directory>}")
work=$(mktemp -d /tmp/quillorn-setup-XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
check() { local what=$1; shift; "$@" && { echo "ok: $what"; return; }; echo "FAIL: $what"; failures=$((failures + 1)); }
make=$(command -v make) bash=$(command -v bash)

# Stand-ins: FAKE_INSTALLED and FAKE_UNKNOWN list packages; FAKE_UID is the user;
# FAKE_FAIL names the apt-get step that fails. Every call goes to $work/calls.
fake=$work/bin
mkdir -p "$fake"
for tool in bash grep sed env cat sort paste git xargs tail; do ln -s "$(command -v "$tool")" "$fake/$tool"; done
stub() { printf '#!%s\n%s\n' "$bash" "$2" >"$fake/$1"; chmod +x "$fake/$1"; }
stub dpkg-query 'for p in $FAKE_INSTALLED; do [ "$p" = "${@: -1}" ] && { printf "install ok installed"; exit 0; }; done; exit 1'
stub apt-cache 'for p in $FAKE_UNKNOWN; do [ "$p" = "${@: -1}" ] && exit 100; done; exit 0'
stub apt-get 'echo "apt-get $*" >>"$CALLS"; [ "$1" = "$FAKE_FAIL" ] && exit 100; exit 0'
stub id 'echo "$FAKE_UID"'
stub sudo 'echo "sudo" >>"$CALLS"; "$@"'
# $1: the target; the rest: name=value for the environment. The calls and what
# it printed land in $work/calls and $work/out, make's exit status in $status.
run() {
    local target=$1; shift
    : >"$work/calls"
    env -i PATH="$fake" CALLS="$work/calls" FAKE_INSTALLED="" FAKE_UNKNOWN="" FAKE_UID=0 FAKE_FAIL="" HOME="$work" "$@" \
        "$make" -s -C "$source" "$target" >"$work/out" 2>&1
    status=$?
}
asked() { for package; do grep -q "^apt-get .*install.* $package\( \|$\)" "$work/calls" || return 1; done; }
# The run failed and its last line before make's own says $1.
ends_with() {
    [ "$status" -ne 0 ] && grep -v '^make: \*\*\*' "$work/out" | tail -n1 | grep -q -- "$1" && return
    echo "  status $status, the output was:"; sed 's/^/    /' "$work/out"; return 1
}

run deps
check "make run and make install ask for what running needs" asked qt6-base-dev
check "  Qt's Wayland platform and xdg-utils among it" asked qt6-wayland xdg-utils
check "  and for nothing only the tests need" bash -c "! grep -Eq ' (libgtest-dev|xvfb|strace|appstream)( |$)' '$work/calls'"
run test-deps
check "make test asks for what the tests need too" asked cmake libgtest-dev appstream
check "  and the format check's clang-format" grep -q "install.*clang-format-[0-9]" "$work/calls"
run deps FAKE_INSTALLED="$("$make" -s -C "$source" -f Makefile -f <(printf 'p:\n\t@echo $(RUN_PACKAGES)\n') p)"
check "nothing is asked for when all is installed" test "$status" -eq 0 -a ! -s "$work/calls"
run deps SKIP_DEPS=1
check "SKIP_DEPS=1 skips the installer" test "$status" -eq 0 -a ! -s "$work/calls" -a ! -s "$work/out"

# Each way it cannot install ends the run with one line saying what to do.
run deps FAKE_UID=1000
check "as a user it installs through sudo" grep -qx sudo "$work/calls"
rm "$fake/sudo"
run deps FAKE_UID=1000
check "without sudo nothing is tried" test ! -s "$work/calls"
check "  and the last line says to install as root" ends_with "not root, and there is no sudo. Install them as root: apt-get install cmake"
run deps FAKE_FAIL=update
check "a failed apt-get update installs nothing" bash -c "! grep -q ' install' '$work/calls'"
check "  and the last line says what to install" ends_with "apt-get update failed (see above). Install them by hand: apt-get install cmake"
run deps FAKE_FAIL=install
check "a failed apt-get install says so" ends_with "apt-get install failed (see above). Install them by hand: apt-get install cmake"
run deps FAKE_UNKNOWN="qt6-wayland"
check "a name the lists lack does not hold up the others" asked xdg-utils
check "  and the last line names it" ends_with "package lists have no qt6-wayland. Install by hand what provides them; then run make again with SKIP_DEPS=1."
run test-deps FAKE_UNKNOWN="clang-format-14 clang-format-15 clang-format-16 clang-format-19"
check "the format check's clang-format is left out where Debian lacks it" test "$status" -eq 0
rm "$fake/apt-get"
run deps
check "without apt-get the last line says to install by hand and skip" ends_with "this system has no apt-get. Install by hand what it calls these Debian packages: cmake .*; then run make again with SKIP_DEPS=1."

# The format check: the release .clang-format names, else a note; never another release's verdict.
wanted=$(sed -n 's/^# Laid out for clang-format \([0-9]*\).*/\1/p' "$source/.clang-format")
check ".clang-format names its clang-format release" test -n "$wanted"
formatter() { stub "$1" "[ \"\$1\" = --version ] && { echo 'Debian clang-format version $2.0.1'; exit 0; }; echo \"$1 \$*\" >>\"\$CALLS\"; exit ${3:-0}"; }
formatter clang-format 16 1
run format-check SKIP_DEPS=1
check "another release alone: skipped with a note" grep -qx "format check skipped: needs clang-format $wanted, found 16" "$work/out"
check "  and not run, nor failing" test "$status" -eq 0 -a ! -s "$work/calls"
formatter "clang-format-$wanted" "$wanted" 1
run format-check SKIP_DEPS=1
check "the right release is used when installed beside it" grep -q "^clang-format-$wanted --dry-run --Werror .*\.cpp" "$work/calls"
check "  and its differences fail the check" test "$status" -ne 0
rm "$fake/clang-format" "$fake/clang-format-$wanted"
run format-check SKIP_DEPS=1
check "none installed: skipped with a note" grep -qx "format check skipped: needs clang-format $wanted, found none" "$work/out"

# The packages the tests name where they say what they could not check are in
# the Makefile's lists, so `make test` installs them.
listed=" $("$make" -s -C "$source" -f Makefile -f <(printf 'p:\n\t@echo $(RUN_PACKAGES) $(TEST_PACKAGES)\n') p) "
named=$( (grep -rhoE 'Debian packages? [a-z0-9.+-]+( and [a-z0-9.+-]+)?' "$source/tests" | sed -E 's/Debian packages? //; s/ and / /'
    grep -rhoE '\bneed [A-Za-z0-9.+-]+ [a-z0-9.+-]+' "$source/tests" | cut -d' ' -f3) | tr ' ' '\n' | sort -u)
check "the tests name packages" test -n "$named"
for package in $named; do
    check "  $package is in the Makefile's lists" grep -q " $package " <<<"$listed"
done

[ "$failures" -eq 0 ] && echo "set-up ok"
exit $((failures != 0))
