#!/usr/bin/env python3
"""Damaged variants of the fixtures, cut and patched by hand (see README.md for each)."""
import os
import struct
import sys

here = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
out = os.path.join(here, 'damaged')
os.makedirs(out, exist_ok=True)


def read(name):
    with open(os.path.join(here, name), 'rb') as f:
        return bytearray(f.read())


def write(name, data):
    with open(os.path.join(out, name), 'wb') as f:
        f.write(bytes(data))


def chunk(cid, data, pad=True):
    b = cid + struct.pack('<I', len(data)) + data
    return b + (b'\0' if pad and len(data) % 2 else b'')


def riff(form, body, size=None):
    return b'RIFF' + struct.pack('<I', len(body) + 4 if size is None else size) + form + body


wav = read('sox_s16.wav')           # RIFF WAVE: "fmt " (16) at 12, "data" (80) at 36
write('not_riff.bin', b'This is a text file, not a RIFF file at all.\n')
write('empty.wav', b'')
write('short_header.wav', wav[:6])                 # RIFF id and half a size field
write('truncated_header.wav', wav[:16])            # ends inside the "fmt " header
write('truncated_data.wav', wav[:-20])             # "data" runs 20 bytes past the end
d = bytearray(wav); d[16:20] = struct.pack('<I', 0)
write('zero_size_fmt.wav', d)                      # "fmt " claims 0 bytes
d = bytearray(wav); d[40:44] = struct.pack('<I', 0x80000000)
write('negative_size_data.wav', d)                 # "data" size has bit 31 set
d = bytearray(wav); d[16:20] = struct.pack('<I', 0xFFFFFFF0)
write('huge_size_fmt.wav', d)                      # "fmt " runs far past the end
d = bytearray(wav); d[4:8] = struct.pack('<I', 0)
write('riff_size_zero.wav', d)                     # the RIFF size field is 0
d = bytearray(wav); d[0:4] = b'RIFX'
write('rifx.wav', d)                               # big-endian variant, not RIFF
# An odd-sized chunk without its pad byte: the next header is read one byte early.
write('odd_no_pad.wav', riff(b'WAVE', chunk(b'junk', b'abc', pad=False) + chunk(b'data', b'1234')))
# 200 LISTs nested inside each other, the innermost holding one chunk.
inner = chunk(b'note', b'deep')
for i in range(200):
    inner = chunk(b'LIST', b'nest' + inner)
write('deep_lists.wav', riff(b'WAVE', inner))
# A LIST too short to hold its type, then a good chunk.
write('list_too_short.wav', riff(b'WAVE', b'LIST' + struct.pack('<I', 2) + b'ab' + chunk(b'data', b'1234')))

w64 = read('sndfile_s16.w64')
write('truncated.w64', w64[:-30])                  # "data" runs past the end
d = bytearray(w64); d[40 + 16:40 + 24] = struct.pack('<Q', 0)
write('zero_size_chunk.w64', d)                    # first chunk stores size 0
d = bytearray(w64); d[40 + 16:40 + 24] = struct.pack('<Q', 8)
write('small_size_chunk.w64', d)                   # first chunk stores 8 (< its header)
