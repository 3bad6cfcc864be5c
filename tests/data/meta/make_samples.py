#!/usr/bin/env python3
"""The kytool info demonstration files in samples/: a WAVE take with markers, a region, INFO
text and a DIB display picture, its ".KYL" side file, and a small AIFF with two markers.
Usage: make_samples.py SAMPLES_DIR"""
import math
import os
import struct
import sys

out = sys.argv[1] if len(sys.argv) > 1 else 'samples'


def chunk(cid, payload):
    return cid + struct.pack('<I', len(payload)) + payload + (b'\0' if len(payload) & 1 else b'')


def riff(form, body):
    return b'RIFF' + struct.pack('<I', 4 + len(body)) + form + body


rate, frames = 8000, 4000
pcm = b''.join(struct.pack('<h', int(6000 * math.sin(2 * math.pi * 440 * i / rate)))
               for i in range(frames))
fmt = chunk(b'fmt ', struct.pack('<HHIIHH', 1, 1, rate, rate * 2, 2, 16))
cues = [(1, 800), (2, 1600), (3, 2400)]
cue = chunk(b'cue ', struct.pack('<I', len(cues)) + b''.join(
    struct.pack('<IIIIII', i, 0, 0x61746164, 0, 0, off) for i, off in cues))
adtl = chunk(b'LIST', b'adtl' +
             chunk(b'labl', struct.pack('<I', 1) + b'Clap\0') +
             chunk(b'labl', struct.pack('<I', 2) + b'Take 2 starts\0') +
             chunk(b'ltxt', struct.pack('<IIIHHHH', 3, 1200, 0x72676E20, 0, 0, 0, 0)) +
             chunk(b'labl', struct.pack('<I', 3) + b'Good part\0'))
info = chunk(b'LIST', b'INFO' +
             chunk(b'INAM', b'Rehearsal take\0') +
             chunk(b'IART', b'The Orvanel Quartet\0') +
             chunk(b'ICRD', b'2026-11-23\0'))
# A 16 x 8 24-bit DIB: a horizontal colour ramp.
w, h = 16, 8
rows = b''
for y in range(h):
    rows += b''.join(bytes((x * 16, y * 32, 255 - x * 16)) for x in range(w))
dib = struct.pack('<IiiHHIIiiII', 40, w, h, 1, 24, 0, len(rows), 2835, 2835, 0, 0) + rows
disp = chunk(b'DISP', struct.pack('<I', 8) + dib)
body = fmt + chunk(b'data', pcm) + cue + adtl + info + disp
with open(os.path.join(out, 'meta_take.wav'), 'wb') as f:
    f.write(riff(b'WAVE', body))
with open(os.path.join(out, 'meta_take.KYL'), 'wb') as f:
    f.write(riff(b'KYLM', chunk(b'KYPI', b'meta_take.wav\0')))

# AIFF: 8000 Hz mono 16-bit, 0.25 s, markers at 0.05 s and 0.2 s.
n = 2000
ssnd = struct.pack('>II', 0, 0) + b''.join(
    struct.pack('>h', int(5000 * math.sin(2 * math.pi * 330 * i / 8000))) for i in range(n))
comm = struct.pack('>hIh', 1, n, 16) + bytes.fromhex('400BFA00000000000000')


def pstring(s):
    b = bytes([len(s)]) + s
    return b + (b'\0' if len(b) & 1 else b'')


mark = struct.pack('>H', 2) + struct.pack('>HI', 1, 400) + pstring(b'Intro') + \
    struct.pack('>HI', 2, 1600) + pstring(b'Out')


def ichunk(cid, payload):
    return cid + struct.pack('>I', len(payload)) + payload + (b'\0' if len(payload) & 1 else b'')


aiff = b'AIFF' + ichunk(b'COMM', comm) + ichunk(b'MARK', mark) + ichunk(b'SSND', ssnd)
with open(os.path.join(out, 'meta_tone.aiff'), 'wb') as f:
    f.write(b'FORM' + struct.pack('>I', len(aiff)) + aiff)
