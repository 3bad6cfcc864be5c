#!/usr/bin/env python3
"""Writes the sample bitmaps of kytool's bitmap command (samples/*.bmp) with nothing but the
file format: an 8-bit palette picture and a 24-bit gradient, both bottom-up BI_RGB."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "samples")


def write_bmp(path, width, height, bits, palette, rows):
    """rows: bottom-up list of bytes objects, each unpadded."""
    stride = ((bits * width + 31) // 32) * 4
    pixels = b"".join(r + b"\0" * (stride - len(r)) for r in rows)
    table = b"".join(struct.pack("<BBBB", b, g, r, 0) for (r, g, b) in palette)
    info = struct.pack("<IiiHHIIiiII", 40, width, height, 1, bits, 0, len(pixels), 2835, 2835,
                       len(palette), 0)
    offset = 14 + len(info) + len(table)
    head = struct.pack("<2sIHHI", b"BM", offset + len(pixels), 0, 0, offset)
    with open(path, "wb") as f:
        f.write(head + info + table + pixels)


def palette8():
    # 16 grays, then a 6 x 6 x 6 colour cube (216), then 24 unused black entries.
    pal = [(i * 17, i * 17, i * 17) for i in range(16)]
    pal += [(r * 51, g * 51, b * 51) for r in range(6) for g in range(6) for b in range(6)]
    pal += [(0, 0, 0)] * 24
    w, h = 48, 32
    rows = []
    for y in range(h):  # y = 0 is the bottom row
        row = bytearray()
        for x in range(w):
            if (x - 24) ** 2 + (y - 16) ** 2 < 100:
                idx = 16 + (5 * 36 + (x * 5 // w) * 6 + 0)  # red to yellow disc
            elif y < 6:
                idx = x * 16 // w  # gray ramp along the bottom
            else:
                idx = 16 + (0 * 36 + (y * 5 // h) * 6 + (x * 5 // w))
            row.append(idx)
        rows.append(bytes(row))
    write_bmp(os.path.join(OUT, "palette8.bmp"), w, h, 8, pal, rows)


def gradient24():
    w, h = 40, 20
    rows = []
    for y in range(h):
        row = bytearray()
        for x in range(w):
            row += bytes((x * 255 // (w - 1), y * 255 // (h - 1), 128))  # blue, green, red
        rows.append(bytes(row))
    write_bmp(os.path.join(OUT, "gradient24.bmp"), w, h, 24, [], rows)


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    palette8()
    gradient24()
