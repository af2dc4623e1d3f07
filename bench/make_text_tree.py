#!/usr/bin/env python3
"""Builds the tree bench/contentsearch.sh searches: copies of the text files of
the given folders (no NUL byte, at most 128 KiB each, links and special files
left out) repeated under copy-1, copy-2, ... until FILES files are written.

    make_text_tree.py DESTINATION FILES SOURCE...
"""
import os
import sys


def text_files(sources):
    for source in sources:
        for folder, folders, files in os.walk(source):
            folders.sort()
            for name in sorted(files):
                path = os.path.join(folder, name)
                if os.path.islink(path) or not os.path.isfile(path):
                    continue
                try:
                    if os.path.getsize(path) > 128 * 1024:
                        continue
                    with open(path, 'rb') as handle:
                        data = handle.read()
                except OSError:
                    continue
                if b'\0' in data:
                    continue
                yield os.path.relpath(path, '/'), data


def main():
    destination, wanted, sources = sys.argv[1], int(sys.argv[2]), sys.argv[3:]
    files = list(text_files(sources))
    if not files:
        sys.exit('make_text_tree.py: no text files under ' + ' '.join(sources))
    written = size = 0
    copy = 0
    while written < wanted:
        copy += 1
        for relative, data in files:
            if written == wanted:
                break
            path = os.path.join(destination, 'copy-%d' % copy, relative)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, 'wb') as handle:
                handle.write(data)
            written += 1
            size += len(data)
    print('%d files, %.0f MiB' % (written, size / 1048576))


main()
