#!/usr/bin/env bash
# Installs those of the Debian packages given that are not installed yet, with
# apt-get (through sudo when not root). When it cannot, it ends with one line
# that says what to install by hand.
# Usage: install-packages.sh [--if-available] PACKAGE...
#   --if-available  leave out the packages this system's lists do not have (a
#                   tool of one Debian release) instead of stopping
# SKIP_DEPS=1 in the environment: install nothing (another distribution, or
# the packages were installed by hand).
set -u
[ -n "${SKIP_DEPS:-}" ] && [ "$SKIP_DEPS" != 0 ] && exit 0
optional=""
[ "${1:-}" = --if-available ] && { optional=1; shift; }

# $1: what went wrong; $2: what to do instead.
stop() { echo "Could not install the packages: $1. $2" >&2; exit 1; }

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    stop "this system has no apt-get" \
        "Install by hand what it calls these Debian packages: $*; then run make again with SKIP_DEPS=1."
fi
missing=()
for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=() hand="apt-get install"
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
        stop "not root, and there is no sudo" "Install them as root: $hand ${missing[*]}; then run make again."
    as_root=(sudo) hand="sudo apt-get install"
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq ||
    stop "apt-get update failed (see above)" "Install them by hand: $hand ${missing[*]}; then run make again."

# A name the lists do not have would make apt-get refuse all the others too.
known=() unknown=()
for package in "${missing[@]}"; do
    if apt-cache show "$package" >/dev/null 2>&1; then known+=("$package"); else unknown+=("$package"); fi
done
if [ ${#known[@]} -gt 0 ]; then
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${known[@]}" ||
        stop "apt-get install failed (see above)" "Install them by hand: $hand ${known[*]}; then run make again."
fi
if [ ${#unknown[@]} -gt 0 ] && [ -z "$optional" ]; then
    stop "this system's package lists have no ${unknown[*]}" \
        "Install by hand what provides them; then run make again with SKIP_DEPS=1."
fi
exit 0
