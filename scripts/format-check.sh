#!/usr/bin/env bash
# Checks every tracked C++ file against the checked-in .clang-format with the
# clang-format release that file is written for: other releases lay out some
# constructs differently, so their verdict is not the project's, and the check
# is skipped with a note instead.
# Usage: format-check.sh (from anywhere in the work tree)
set -u
cd "$(git rev-parse --show-toplevel)" || exit 1
wanted=$(sed -n 's/^# Laid out for clang-format \([0-9][0-9]*\).*/\1/p' .clang-format)
[ -n "$wanted" ] || { echo "format check: .clang-format does not say which clang-format it is for" >&2; exit 1; }
major() { "$1" --version 2>/dev/null | sed -n 's/.*version \([0-9][0-9]*\).*/\1/p'; }

tool=""
for candidate in "clang-format-$wanted" clang-format; do
    command -v "$candidate" >/dev/null && [ "$(major "$candidate")" = "$wanted" ] && { tool=$candidate; break; }
done
if [ -z "$tool" ]; then
    found=$(IFS=:; for folder in $PATH; do
        for program in "$folder"/clang-format "$folder"/clang-format-[0-9]*; do
            [ -x "$program" ] && major "$program"
        done
    done | sort -nu | paste -sd, -)
    echo "format check skipped: needs clang-format $wanted, found ${found:-none}"
    exit 0
fi
git ls-files -z '*.cpp' '*.h' | xargs -0 "$tool" --dry-run --Werror
