#!/usr/bin/env python3
"""Damaged and hand-made variants of the independent writers' files.

Usage: make_damaged.py DIR  (DIR holds wf_markers.wav and the sox AIFF files)
Each variant is described beside its construction; what no tool writes ("DISP" chunks, labels
without terminators, oversized labels) is put together here from plain chunk bytes."""
import struct
import sys
import os

d = sys.argv[1] if len(sys.argv) > 1 else '.'


def chunks(data, start=12, end=None):
    """(id, offset of header, size) of each chunk from start to end."""
    end = len(data) if end is None else end
    out = []
    p = start
    while p + 8 <= end:
        cid = data[p:p + 4]
        size = struct.unpack('<I', data[p + 4:p + 8])[0]
        out.append((cid, p, size))
        p += 8 + size + (size & 1)
    return out


def chunk(cid, payload, pad=b'\0'):
    return cid + struct.pack('<I', len(payload)) + payload + (pad if len(payload) & 1 else b'')


def riff(form, body):
    return b'RIFF' + struct.pack('<I', 4 + len(body)) + form + body


def fmt16(rate, channels=1, bits=16, tag=1, align=None):
    align = (bits // 8) * channels if align is None else align
    return chunk(b'fmt ', struct.pack('<HHIIHH', tag, channels, rate, rate * align, align, bits))


def cue(points):
    body = struct.pack('<I', len(points))
    for cid, off in points:
        body += struct.pack('<IIIIII', cid, 0, 0x61746164, 0, 0, off)
    return chunk(b'cue ', body)


def adtl(entries):
    return chunk(b'LIST', b'adtl' + b''.join(entries))


def labl(cid, text_bytes):
    return chunk(b'labl', struct.pack('<I', cid) + text_bytes)


def ltxt(cid, length, text=b''):
    return chunk(b'ltxt', struct.pack('<IIIHHHH', cid, length, 0x72676E20, 0, 0, 0, 0) + text)


def write(name, data):
    with open(os.path.join(d, name), 'wb') as f:
        f.write(data)


src = open(os.path.join(d, 'wf_markers.wav'), 'rb').read()
top = chunks(src)
ids = [c[0] for c in top]

# Cue count larger than the chunk holds: the count field says 1000, the chunk keeps 3 points.
cid, off, size = top[ids.index(b'cue ')]
bad = bytearray(src)
struct.pack_into('<I', bad, off + 8, 1000)
write('dmg_cue_count.wav', bytes(bad))

# Truncated "adtl": the file ends 10 bytes into the list's content (its size field still
# claims the whole list); the RIFF size is left as it was.
cid, off, size = next(c for c in top if c[0] == b'LIST' and src[c[1] + 8:c[1] + 12] == b'adtl')
write('dmg_adtl_trunc.wav', src[:off + 12 + 10])

# Zero sample rate in "fmt ".
cid, off, size = top[ids.index(b'fmt ')]
bad = bytearray(src)
struct.pack_into('<I', bad, off + 12, 0)
struct.pack_into('<I', bad, off + 16, 0)
write('dmg_rate0.wav', bytes(bad))

# Hand-made: labels without terminators, a label longer than 1024 bytes, a short "labl"
# (size below 4) and an "ltxt" shorter than its 20-byte header.
data = chunk(b'data', b'\0' * 200)
body = fmt16(8000) + data + cue([(1, 10), (2, 20), (3, 30), (4, 40)]) + adtl([
    labl(1, b'ABCDE'),                 # no terminator, odd size: pad byte follows
    labl(2, b'X' * 3000),              # longer than a name may be
    chunk(b'labl', b'\x03\0'),         # too short to hold a cue id
    chunk(b'ltxt', b'\x04\0\0\0' + b'\0' * 8),  # shorter than its header
    labl(4, b'Four\0'),
])
write('dmg_labels.wav', riff(b'WAVE', body))

# AIFF: truncated inside COMM; zero rate; an AIFF-C file is made by sox.
a = open(os.path.join(d, 'sox_s16_44100_2.aiff'), 'rb').read()
p = a.index(b'COMM')
write('dmg_trunc.aiff', a[:p + 8 + 6])
bad = bytearray(a)
bad[p + 16:p + 26] = b'\0' * 10
write('dmg_rate0.aiff', bytes(bad))

# A WAVE whose block alignment disagrees with its bits and channels (float, which no repair
# touches): refused by the probe and not tried as AIFF.
body = fmt16(8000, channels=2, bits=32, tag=3, align=4) + chunk(b'data', b'\0' * 64)
write('bad_align.wav', riff(b'WAVE', body))
