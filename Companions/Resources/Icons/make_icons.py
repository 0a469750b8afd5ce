#!/usr/bin/env python3
"""Draws the agent's four tray icons and writes them as Windows .ico files.

Every icon is the same book on a rounded tile, told apart at 16 pixels by the
tile's colour and one mark: closed (grey tile, closed book), open (blue tile,
open book), online (green tile, open book, a white dot) and updating (orange
tile, two arrows chasing round). Each picture is drawn at every size from the
same shapes, with 4x4 samples per pixel for smooth edges; no library needed.

Usage: make_icons.py OUTPUT_DIR [--png]   (--png also writes the renderings)
"""
import math
import os
import struct
import sys
import zlib

SIZES = (16, 20, 24, 32, 48)
SAMPLES = 4  # samples per pixel along each axis


# --- Shapes: each is a function (x, y) -> bool over the unit square ----------

def rounded_rect(x0, y0, x1, y1, r):
    def inside(x, y):
        if not (x0 <= x <= x1 and y0 <= y <= y1):
            return False
        cx = min(max(x, x0 + r), x1 - r)
        cy = min(max(y, y0 + r), y1 - r)
        return (x - cx) ** 2 + (y - cy) ** 2 <= r * r
    return inside


def circle(cx, cy, r):
    return lambda x, y: (x - cx) ** 2 + (y - cy) ** 2 <= r * r


def polygon(points):
    """Even-odd fill of a closed polygon."""
    def inside(x, y):
        hit = False
        n = len(points)
        for i in range(n):
            ax, ay = points[i]
            bx, by = points[(i + 1) % n]
            if (ay > y) != (by > y):
                if x < ax + (y - ay) * (bx - ax) / (by - ay):
                    hit = not hit
        return hit
    return inside


def arc(cx, cy, r, width, start, end):
    """A ring segment from angle start to end (degrees, counter-clockwise, y up)."""
    def inside(x, y):
        d = math.hypot(x - cx, y - cy)
        if abs(d - r) > width / 2:
            return False
        a = math.degrees(math.atan2(cy - y, x - cx)) % 360
        return (a - start) % 360 <= (end - start) % 360
    return inside


def arrow_head(cx, cy, r, angle, size):
    """A triangle at the given angle of a circle, pointing counter-clockwise."""
    a = math.radians(angle)
    px, py = cx + r * math.cos(a), cy - r * math.sin(a)   # point on the ring
    tx, ty = -math.sin(a), -math.cos(a)                   # tangent, CCW in y-down space
    nx, ny = math.cos(a), -math.sin(a)                    # outward normal
    tip = (px + tx * size, py + ty * size)
    return polygon([tip, (px + nx * size * 0.9, py + ny * size * 0.9),
                    (px - nx * size * 0.9, py - ny * size * 0.9)])


def union(*shapes):
    return lambda x, y: any(s(x, y) for s in shapes)


# --- The pictures -------------------------------------------------------------

WHITE = (255, 255, 255)
PAGE = (250, 250, 245)
TILE_EDGE = 0.02


def tile(colour):
    return [(rounded_rect(0.02, 0.02, 0.98, 0.98, 0.2), colour)]


def closed_book(cover, spine):
    return [
        (rounded_rect(0.24, 0.16, 0.78, 0.84, 0.05), PAGE),          # page block
        (rounded_rect(0.20, 0.14, 0.72, 0.84, 0.05), cover),         # front cover
        (rounded_rect(0.20, 0.14, 0.32, 0.84, 0.03), spine),         # spine
        (rounded_rect(0.40, 0.28, 0.64, 0.36, 0.02), PAGE),          # title label
    ]


def open_book(page, line):
    left = polygon([(0.12, 0.26), (0.48, 0.32), (0.48, 0.82), (0.12, 0.76)])
    right = polygon([(0.52, 0.32), (0.88, 0.26), (0.88, 0.76), (0.52, 0.82)])
    return [
        (left, page), (right, page),
        (rounded_rect(0.18, 0.42, 0.42, 0.47, 0.02), line),         # text lines
        (rounded_rect(0.18, 0.56, 0.42, 0.61, 0.02), line),
        (rounded_rect(0.58, 0.42, 0.82, 0.47, 0.02), line),
        (rounded_rect(0.58, 0.56, 0.82, 0.61, 0.02), line),
    ]


def icon_closed():
    return tile((96, 104, 116)) + closed_book((225, 228, 232), (170, 176, 186))


def icon_open():
    return tile((30, 100, 200)) + open_book(PAGE, (30, 100, 200))


def icon_online():
    green = (24, 150, 70)
    return (tile(green) + open_book(PAGE, green)
            + [(circle(0.78, 0.78, 0.2), green), (circle(0.78, 0.78, 0.13), WHITE)])


def icon_updating():
    orange = (230, 120, 20)
    c, r, w = 0.5, 0.29, 0.13
    return tile(orange) + [
        (arc(c, c, r, w, 20, 150), WHITE),
        (arrow_head(c, c, r, 150, 0.17), WHITE),
        (arc(c, c, r, w, 200, 330), WHITE),
        (arrow_head(c, c, r, 330, 0.17), WHITE),
    ]


ICONS = {
    "closed": icon_closed,      # 101: main program closed
    "open": icon_open,          # 102: main program open
    "online": icon_online,      # 103: online
    "updating": icon_updating,  # 107: an update runs
}


# --- Rendering and file formats -----------------------------------------------

def render(layers, size):
    """Returns rows of (r, g, b, a), top row first."""
    rows = []
    step = 1.0 / (size * SAMPLES)
    offsets = [(i + 0.5) * step for i in range(SAMPLES)]
    for py in range(size):
        row = []
        for px in range(size):
            acc = [0.0, 0.0, 0.0, 0.0]
            for oy in offsets:
                for ox in offsets:
                    x, y = px / size + ox, py / size + oy
                    colour = None
                    for shape, c in layers:
                        if shape(x, y):
                            colour = c
                    if colour is not None:
                        acc[0] += colour[0]
                        acc[1] += colour[1]
                        acc[2] += colour[2]
                        acc[3] += 1
            n = acc[3]
            if n == 0:
                row.append((0, 0, 0, 0))
            else:
                row.append((round(acc[0] / n), round(acc[1] / n), round(acc[2] / n),
                            round(255 * n / (SAMPLES * SAMPLES))))
        rows.append(row)
    return rows


def dib(rows):
    """One icon image: a 32-bit BITMAPINFOHEADER image with its AND mask."""
    size = len(rows)
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    pixels = b"".join(bytes((b, g, r, a)) for row in reversed(rows) for (r, g, b, a) in row)
    mask_stride = ((size + 31) // 32) * 4
    mask = bytearray()
    for row in reversed(rows):
        bits = bytearray(mask_stride)
        for x, (_, _, _, a) in enumerate(row):
            if a == 0:
                bits[x // 8] |= 0x80 >> (x % 8)
        mask += bits
    return header + pixels + bytes(mask)


def write_ico(path, images):
    count = len(images)
    out = struct.pack("<HHH", 0, 1, count)
    offset = 6 + 16 * count
    blobs = []
    for size, rows in images:
        blob = dib(rows)
        out += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(blob), offset)
        offset += len(blob)
        blobs.append(blob)
    with open(path, "wb") as f:
        f.write(out + b"".join(blobs))


def write_png(path, rows):
    raw = b"".join(b"\0" + bytes(v for px in row for v in px) for row in rows)
    size = len(rows)

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    out_dir = sys.argv[1]
    pngs = "--png" in sys.argv[2:]
    os.makedirs(out_dir, exist_ok=True)
    for name, draw in ICONS.items():
        layers = draw()
        images = [(size, render(layers, size)) for size in SIZES]
        write_ico(os.path.join(out_dir, name + ".ico"), images)
        if pngs:
            for size, rows in images:
                write_png(os.path.join(out_dir, "%s-%d.png" % (name, size)), rows)


if __name__ == "__main__":
    main()
