#!/usr/bin/env python3
"""Writes a ZIP archive for the tests, hostile members included.

    makezip.py OUT [--encrypted] ENTRY...

ENTRY is KIND:NAME_HEX[:VALUE] with KIND
    data   VALUE: the member's bytes in hex
    zeros  VALUE: the number of zero bytes (deflated, so a huge member stays small)
    link   VALUE: a symbolic link member whose target is VALUE in hex
    many   VALUE: COUNT,LENGTH: COUNT empty members with distinct names of LENGTH bytes
Names are raw bytes: one that is not UTF-8 is stored as it is, without the
UTF-8 flag. --encrypted marks every member as encrypted, which unzip cannot
read without a password.
"""
import sys
import zipfile

out, args = sys.argv[1], sys.argv[2:]
encrypted = '--encrypted' in args
args = [a for a in args if a != '--encrypted']
patches = []
with zipfile.ZipFile(out, 'w', zipfile.ZIP_DEFLATED) as archive:
    for index, arg in enumerate(args):
        kind, name_hex, value = (arg.split(':', 2) + [''])[:3]
        if kind == 'many':
            count, length = map(int, value.split(','))
            for number in range(count):
                archive.writestr(str(number).rjust(length, 'n'), b'')
            continue
        raw = bytes.fromhex(name_hex)
        try:
            name = raw.decode('utf-8')
        except UnicodeDecodeError:
            # Stored under an ASCII stand-in of the same length, swapped for the raw bytes below.
            name = ('~%d~' % index).ljust(len(raw), '~')
            patches.append((name.encode(), raw))
        info = zipfile.ZipInfo(name)
        info.compress_type = zipfile.ZIP_DEFLATED
        if kind == 'data':
            data = bytes.fromhex(value)
        elif kind == 'zeros':
            data = bytes(int(value))
        elif kind == 'link':
            info.create_system = 3
            info.external_attr = 0o120777 << 16
            data = bytes.fromhex(value)
        else:
            sys.exit('unknown kind ' + kind)
        archive.writestr(info, data)
content = bytearray(open(out, 'rb').read())
for stand_in, raw in patches:
    content = content.replace(stand_in, raw)
if encrypted:
    for signature, offset in ((b'PK\x03\x04', 6), (b'PK\x01\x02', 8)):
        at = content.find(signature)
        while at >= 0:
            content[at + offset] |= 1
            at = content.find(signature, at + 4)
open(out, 'wb').write(bytes(content))
