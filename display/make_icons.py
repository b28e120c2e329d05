#!/usr/bin/env python3
"""Draws Vimora's built-in icons with a few primitives and writes them as
IconImage records to display/icon_data.cc.

  display/make_icons.py [--preview DIR]

--preview also writes each icon set as an enlarged PPM for a look.
Run it again after changing a drawing; the .cc file is not edited by hand.
"""
import math
import os
import sys

# The tool-bar palette: 64 colours, index 32 is the transparent one.
TRANSPARENT = 32
PALETTE = {
    "black": (0, 0, 0), "white": (255, 255, 255),
    "grey1": (32, 32, 32), "grey2": (64, 64, 64), "grey3": (96, 96, 96),
    "grey4": (128, 128, 128), "grey5": (160, 160, 160), "grey6": (192, 192, 192),
    "grey7": (224, 224, 224), "grey8": (240, 240, 240),
    "red": (220, 30, 30), "darkred": (140, 10, 10), "pink": (255, 150, 150),
    "green": (40, 170, 50), "darkgreen": (20, 100, 30), "lightgreen": (150, 230, 140),
    "blue": (40, 90, 210), "darkblue": (20, 40, 120), "lightblue": (150, 190, 250),
    "sky": (120, 180, 240), "cyan": (40, 200, 210), "magenta": (200, 50, 200),
    "yellow": (250, 220, 40), "darkyellow": (200, 160, 20), "lightyellow": (255, 240, 150),
    "orange": (245, 140, 30), "brown": (130, 80, 30), "tan": (210, 170, 110),
    "purple": (120, 60, 180), "violet": (170, 120, 230), "teal": (20, 130, 130),
    "navy": (10, 20, 70),
    "transparent": (255, 0, 255),  # index 32: never shown
    "paper": (250, 250, 245), "shadow": (80, 80, 90), "steel": (110, 130, 150),
    "lightsteel": (180, 195, 210), "gold": (230, 180, 60), "olive": (120, 130, 30),
    "rose": (230, 80, 120), "lime": (180, 230, 40),
}
NAMES = list(PALETTE)
assert NAMES.index("transparent") == TRANSPARENT
# Fill the table to 64 colours with a grey ramp of the remaining entries.
while len(NAMES) < 64:
    k = len(NAMES)
    v = (k - len(PALETTE) + 1) * 255 // (64 - len(PALETTE) + 1)
    name = "ramp%d" % k
    PALETTE[name] = (v, v, v)
    NAMES.append(name)
INDEX = {n: i for i, n in enumerate(NAMES)}


class Canvas:
    def __init__(self, w, h, background=TRANSPARENT):
        self.w, self.h = w, h
        self.px = [[background] * w for _ in range(h)]

    def put(self, x, y, c):
        x, y = int(round(x)), int(round(y))
        if 0 <= x < self.w and 0 <= y < self.h:
            self.px[y][x] = INDEX[c] if isinstance(c, str) else c

    def fill(self, x0, y0, x1, y1, c):  # inclusive corners
        for y in range(y0, y1 + 1):
            for x in range(x0, x1 + 1):
                self.put(x, y, c)

    def rect(self, x0, y0, x1, y1, c):
        for x in range(x0, x1 + 1):
            self.put(x, y0, c); self.put(x, y1, c)
        for y in range(y0, y1 + 1):
            self.put(x0, y, c); self.put(x1, y, c)

    def box(self, x0, y0, x1, y1, inside, edge):
        self.fill(x0, y0, x1, y1, inside)
        self.rect(x0, y0, x1, y1, edge)

    def line(self, x0, y0, x1, y1, c, width=1):
        n = max(abs(x1 - x0), abs(y1 - y0), 1) * 2
        for i in range(n + 1):
            x = x0 + (x1 - x0) * i / n
            y = y0 + (y1 - y0) * i / n
            for dx in range(width):
                for dy in range(width):
                    self.put(x + dx - (width - 1) / 2, y + dy - (width - 1) / 2, c)

    def polygon(self, points, c):
        ys = [p[1] for p in points]
        for y in range(int(min(ys)), int(max(ys)) + 1):
            yc = y + 0.5
            xs = []
            for (ax, ay), (bx, by) in zip(points, points[1:] + points[:1]):
                if (ay <= yc < by) or (by <= yc < ay):
                    xs.append(ax + (yc - ay) * (bx - ax) / (by - ay))
            xs.sort()
            for a, b in zip(xs[::2], xs[1::2]):
                for x in range(int(math.ceil(a - 0.5)), int(math.floor(b - 0.5)) + 1):
                    self.put(x, y, c)

    def disc(self, cx, cy, r, c):
        for y in range(self.h):
            for x in range(self.w):
                if (x - cx) ** 2 + (y - cy) ** 2 <= r * r:
                    self.put(x, y, c)

    def ring(self, cx, cy, r, c, width=1.0, start=0.0, end=360.0):
        """Pixels whose distance to the centre is within width/2 of r and whose
        angle (degrees, 0 = right, counter-clockwise, y up) lies in [start, end]."""
        for y in range(self.h):
            for x in range(self.w):
                d = math.hypot(x - cx, y - cy)
                if abs(d - r) <= width / 2:
                    a = math.degrees(math.atan2(cy - y, x - cx)) % 360
                    if start <= end and start <= a <= end or start > end and (a >= start or a <= end):
                        self.put(x, y, c)

    def blit(self, other, ox, oy):
        for y in range(other.h):
            for x in range(other.w):
                if other.px[y][x] != TRANSPARENT:
                    self.put(ox + x, oy + y, other.px[y][x])


# A 3x5 font for the hexadecimal icon.
FONT = {
    "0": ["111", "101", "101", "101", "111"], "1": ["010", "110", "010", "010", "111"],
    "4": ["101", "101", "111", "001", "001"], "A": ["010", "101", "111", "101", "101"],
    "F": ["111", "100", "110", "100", "100"], "7": ["111", "001", "010", "010", "010"],
    "C": ["011", "100", "100", "100", "011"], "3": ["110", "001", "010", "001", "110"],
}


def text(cv, x, y, s, c):
    for k, ch in enumerate(s):
        for j, row in enumerate(FONT[ch]):
            for i, bit in enumerate(row):
                if bit == "1":
                    cv.put(x + 4 * k + i, y + j, c)


def arrow(cv, x0, y, x1, c, head=4, width=3):
    """Horizontal arrow from x0 to x1 (the head at x1)."""
    d = 1 if x1 > x0 else -1
    cv.line(x0, y, x1 - d * head, y, c, width)
    cv.polygon([(x1 - d * head, y - head + 0.5), (x1 + d * 0.5, y + 0.5),
                (x1 - d * head, y + head + 0.5)], c)


def page(cv, x0, y0, x1, y1):
    cv.box(x0, y0, x1, y1, "paper", "grey3")
    cv.polygon([(x1 - 3, y0), (x1 + 1, y0), (x1 + 1, y0 + 4)], TRANSPARENT)
    cv.line(x1 - 3, y0, x1 - 3, y0 + 3, "grey3")
    cv.line(x1 - 3, y0 + 3, x1, y0 + 3, "grey3")
    cv.line(x1 - 3, y0, x1, y0 + 3, "grey3")
    for y in range(y0 + 6, y1 - 1, 3):
        cv.line(x0 + 2, y, x1 - 3, y, "grey5")


def folder(cv, x0, y0, x1, y1, open_=False):
    cv.polygon([(x0, y0 + 1), (x0 + 5, y0 + 1), (x0 + 7, y0 + 3), (x1 + 1, y0 + 3),
                (x1 + 1, y1 + 1), (x0, y1 + 1)], "darkyellow")
    if open_:
        cv.polygon([(x0 + 3, y0 + 6), (x1 + 3, y0 + 6), (x1 + 1, y1 + 1), (x0, y1 + 1)], "yellow")
        cv.line(x0 + 3, y0 + 6, x1 + 2, y0 + 6, "darkyellow")
    else:
        cv.fill(x0 + 1, y0 + 5, x1, y1, "yellow")
        cv.line(x0, y0 + 4, x1, y0 + 4, "lightyellow")
    cv.line(x0, y1 + 1, x1 + 1, y1 + 1, "brown")


def magnifier(cv, sign):
    cv.disc(9, 9, 7, "lightblue")
    cv.ring(9, 9, 7, "grey2", 1.6)
    cv.line(14, 14, 20, 20, "brown", 3)
    cv.line(6, 9, 12, 9, "black", 2)
    if sign == "+":
        cv.line(9, 6, 9, 12, "black", 2)


def landscape(cv, x0, y0, x1, y1):
    """A small picture: sky, sun and two hills (the program's own motif)."""
    cv.fill(x0, y0, x1, y1, "sky")
    w, h = x1 - x0, y1 - y0
    cv.disc(x0 + w * 0.72, y0 + h * 0.3, max(1.2, h * 0.18), "yellow")
    cv.polygon([(x0, y1 + 1), (x0 + w * 0.35, y0 + h * 0.35), (x0 + w * 0.7, y1 + 1)], "green")
    cv.polygon([(x0 + w * 0.4, y1 + 1), (x0 + w * 0.75, y0 + h * 0.55), (x1 + 1, y0 + h * 0.8),
                (x1 + 1, y1 + 1)], "darkgreen")


def rotate_arrow(cv, clockwise):
    """Three quarters of a circle round the picture, the head at the bottom."""
    if clockwise:  # from the left over the top and the right side down
        cv.ring(12, 11, 7, "blue", 2.2, 270, 180)
        cv.polygon([(12.5, 14), (12.5, 22), (7.5, 18)], "blue")
    else:  # from the right over the top and the left side down
        cv.ring(12, 11, 7, "blue", 2.2, 0, 270)
        cv.polygon([(11.5, 14), (11.5, 22), (16.5, 18)], "blue")


ICONS = []


def icon(fn):
    ICONS.append(fn)
    return fn


@icon
def open_(cv):
    folder(cv, 1, 4, 19, 19, open_=True)
    cv.line(17, 3, 17, 9, "green", 3)
    cv.polygon([(13, 4.5), (17.5, -0.5), (22, 4.5)], "green")


@icon
def save(cv):
    cv.box(2, 1, 21, 20, "blue", "darkblue")
    cv.box(6, 1, 17, 8, "grey6", "darkblue")
    cv.fill(13, 2, 15, 7, "grey3")
    cv.box(5, 12, 18, 20, "paper", "darkblue")
    cv.line(7, 15, 16, 15, "grey5")
    cv.line(7, 17, 16, 17, "grey5")


@icon
def close(cv):
    cv.box(2, 2, 21, 19, "paper", "grey2")
    cv.fill(3, 3, 20, 5, "steel")
    cv.line(7, 8, 16, 17, "red", 3)
    cv.line(16, 8, 7, 17, "red", 3)


@icon
def browser(cv):
    cv.box(1, 1, 22, 20, "grey7", "grey2")
    colours = ["sky", "green", "orange", "rose", "yellow", "violet"]
    for k, c in enumerate(colours):
        x, y = 3 + (k % 3) * 7, 3 + (k // 3) * 9
        cv.box(x, y, x + 5, y + 6, c, "grey3")


@icon
def prev_file(cv):
    page(cv, 9, 1, 21, 20)
    arrow(cv, 15, 12, 1, "green")


@icon
def next_file(cv):
    page(cv, 2, 1, 14, 20)
    arrow(cv, 8, 12, 22, "green")


@icon
def prev_page(cv):
    cv.box(13, 1, 22, 15, "paper", "grey3")
    cv.box(10, 4, 19, 18, "paper", "grey3")
    cv.polygon([(9, 5), (9, 17), (1, 11)], "blue")


@icon
def next_page(cv):
    cv.box(1, 1, 10, 15, "paper", "grey3")
    cv.box(4, 4, 13, 18, "paper", "grey3")
    cv.polygon([(14, 5), (14, 17), (22, 11)], "blue")


@icon
def zoom_in(cv):
    magnifier(cv, "+")


@icon
def zoom_out(cv):
    magnifier(cv, "-")


@icon
def fit(cv):
    cv.rect(1, 1, 22, 20, "grey2")
    landscape(cv, 6, 6, 17, 15)
    for (x0, y0, x1, y1) in [(5, 5, 2, 2), (18, 5, 21, 2), (5, 16, 2, 19), (18, 16, 21, 19)]:
        cv.line(x0, y0, x1, y1, "red", 1)
        cv.put(x1 + (1 if x1 < x0 else -1), y1, "red")
        cv.put(x1, y1 + (1 if y1 < y0 else -1), "red")


@icon
def full_screen(cv):
    cv.box(1, 1, 22, 16, "navy", "grey2")
    landscape(cv, 3, 3, 20, 14)
    cv.fill(9, 17, 14, 18, "grey3")
    cv.fill(6, 19, 17, 20, "grey2")


@icon
def undo(cv):
    cv.ring(13, 13, 7, "orange", 2.4, 0, 180)
    cv.polygon([(0.5, 12), (11.5, 12), (6, 18)], "orange")


@icon
def crop(cv):
    cv.fill(5, 1, 7, 16, "grey2")
    cv.fill(5, 14, 22, 16, "grey2")
    cv.fill(1, 5, 18, 7, "grey4")
    cv.fill(16, 5, 18, 20, "grey4")
    landscape(cv, 8, 8, 15, 13)


@icon
def rotate_left(cv):
    landscape(cv, 9, 8, 15, 14)
    rotate_arrow(cv, clockwise=False)


@icon
def rotate_right(cv):
    landscape(cv, 9, 8, 15, 14)
    rotate_arrow(cv, clockwise=True)


@icon
def flip(cv):
    cv.polygon([(10, 3), (10, 18), (1, 18)], "blue")
    cv.polygon([(13, 3), (13, 18), (22, 18)], "lightblue")
    for y in range(1, 21, 3):
        cv.line(11, y, 12, y + 1, "red")


@icon
def slide_show(cv):
    cv.box(2, 1, 21, 15, "paper", "grey2")
    cv.polygon([(9, 4), (9, 13), (16, 8.5)], "green")
    cv.line(11, 16, 6, 21, "grey2", 2)
    cv.line(12, 16, 17, 21, "grey2", 2)


@icon
def to_grey(cv):
    for x in range(2, 22):
        v = "grey%d" % min(8, 1 + (x - 2) * 8 // 20)
        cv.line(x, 3, x, 18, v)
    cv.rect(1, 2, 22, 19, "black")


@icon
def to_colours(cv):
    cv.box(1, 2, 11, 10, "red", "black")
    cv.box(12, 2, 22, 10, "green", "black")
    cv.box(1, 11, 11, 19, "blue", "black")
    cv.box(12, 11, 22, 19, "yellow", "black")


@icon
def to_true_colour(cv):
    hues = ["red", "orange", "yellow", "lime", "green", "teal", "cyan", "sky", "blue",
            "purple", "violet", "magenta", "rose"]
    for x in range(2, 22):
        cv.line(x, 3, x, 18, hues[(x - 2) * len(hues) // 20])
    cv.fill(2, 14, 21, 18, "white")
    for x in range(2, 22):
        cv.line(x, 14, x, 18, hues[(x - 2) * len(hues) // 20])
    cv.line(2, 14, 21, 14, "white")
    cv.rect(1, 2, 22, 19, "black")


@icon
def hex_dump(cv):
    cv.box(1, 1, 22, 20, "paper", "grey2")
    text(cv, 3, 3, "0F", "darkblue")
    text(cv, 13, 3, "A1", "darkblue")
    text(cv, 3, 9, "7C", "darkblue")
    text(cv, 13, 9, "40", "darkblue")
    text(cv, 3, 15, "3A", "darkblue")
    text(cv, 13, 15, "F0", "darkblue")


@icon
def options(cv):
    for k, (y, knob) in enumerate([(5, 15), (11, 6), (17, 12)]):
        cv.line(2, y, 21, y, "grey3", 2)
        cv.box(knob - 2, y - 3, knob + 2, y + 3, ["red", "green", "blue"][k], "black")


@icon
def properties(cv):
    cv.disc(11.5, 10.5, 9.6, "blue")
    cv.ring(11.5, 10.5, 9.6, "darkblue", 1.2)
    cv.fill(10, 4, 13, 6, "white")
    cv.fill(10, 8, 13, 17, "white")
    cv.fill(9, 8, 9, 8, "white")
    cv.fill(9, 16, 14, 17, "white")


@icon
def quit_(cv):
    cv.ring(11.5, 11.5, 8, "red", 2.6, 120, 60)
    cv.fill(10, 1, 13, 11, "red")


def app_icon(size):
    """The application's icon: a framed landscape picture with an eye-like sun."""
    cv = Canvas(size, size)
    s = size / 64.0
    cv.box(0, int(4 * s), size - 1, size - 1 - int(4 * s), "tan", "brown")
    cv.rect(1, int(4 * s) + 1, size - 2, size - 2 - int(4 * s), "brown")
    m = int(6 * s)
    landscape(cv, m, int(4 * s) + m, size - 1 - m, size - 1 - int(4 * s) - m)
    return cv


def compact_table(cv, transparent):
    used = sorted({v for row in cv.px for v in row if v != transparent})
    return used


def emit_icon(out, name, cv, table, transparent, comment):
    out.append("// %s" % comment)
    out.append("const uint8_t k%sPixels[] = {" % name)
    flat = [v for row in cv.px for v in row]
    for k in range(0, len(flat), 24):
        out.append("    " + ", ".join(str(v) for v in flat[k:k + 24]) + ",")
    out.append("};")
    out.append("const IconImage k%s = {%d, %d, %d, %d, {" % (name, cv.w, cv.h, transparent, len(table)))
    for i, (idx, rgb) in enumerate(table):
        out.append("    {%d, %d, %d, %d}," % (idx, *rgb))
    out.append("}, k%sPixels};" % name)
    out.append("")


def write_ppm(path, cv, palette, scale=4):
    with open(path, "wb") as f:
        f.write(b"P6\n%d %d\n255\n" % (cv.w * scale, cv.h * scale))
        for row in cv.px:
            line = b"".join(bytes(palette.get(v, (255, 0, 255))) * scale for v in row)
            f.write(line * scale)


def main():
    preview = None
    if len(sys.argv) == 3 and sys.argv[1] == "--preview":
        preview = sys.argv[2]
    here = os.path.dirname(os.path.abspath(__file__))

    strip = Canvas(24 * len(ICONS), 22)
    for k, fn in enumerate(ICONS):
        cv = Canvas(24, 22)
        fn(cv)
        strip.blit(cv, 24 * k, 0)
    assert strip.w == 600 and len(ICONS) == 25

    master = {i: PALETTE[n] for i, n in enumerate(NAMES)}
    out = ["// Generated by display/make_icons.py from its drawings; do not edit.",
           "// clang-format off",
           '#include "display/icons.h"', "", "namespace {", ""]
    emit_icon(out, "ToolBar", strip, [(i, master[i]) for i in range(64)], TRANSPARENT,
              "The tool bar: 25 icons of 24 x 22 side by side.")

    # Application icons: 32 colours each, renumbered 0..31 (31 is transparent).
    for size in (64, 32):
        cv = app_icon(size)
        used = compact_table(cv, TRANSPARENT)
        assert len(used) <= 31, used
        renumber = {old: new for new, old in enumerate(used)}
        renumber[TRANSPARENT] = 31
        cv.px = [[renumber[v] for v in row] for row in cv.px]
        table = [(renumber[i], master[i]) for i in used]
        table += [(k, (0, 0, 0)) for k in range(len(used), 31)] + [(31, (255, 0, 255))]
        emit_icon(out, "App%d" % size, cv, table, 31,
                  "The application icon, %d x %d, 32 colours." % (size, size))
        if preview:
            write_ppm(os.path.join(preview, "app%d.ppm" % size), cv,
                      {i: rgb for i, rgb in table})

    # Tree icons list only the colours they use: the tree allocates each one.
    trees = []
    for name, draw in [("FolderClosed", lambda cv: folder(cv, 0, 1, 14, 13)),
                       ("FolderOpen", lambda cv: folder(cv, 0, 1, 12, 13, open_=True)),
                       ("File", lambda cv: page(cv, 2, 0, 13, 15))]:
        cv = Canvas(16, 16)
        draw(cv)
        trees.append((name, cv))
        emit_icon(out, "Tree" + name, cv, [(i, master[i]) for i in compact_table(cv, TRANSPARENT)],
                  TRANSPARENT, "Tree icon: %s, 16 x 16." % name)

    out += ["}  // namespace", "",
            "const IconImage& toolBarStrip() { return kToolBar; }",
            "const IconImage& appIcon64() { return kApp64; }",
            "const IconImage& appIcon32() { return kApp32; }",
            "const IconImage& treeFolderClosedIcon() { return kTreeFolderClosed; }",
            "const IconImage& treeFolderOpenIcon() { return kTreeFolderOpen; }",
            "const IconImage& treeFileIcon() { return kTreeFile; }", ""]
    with open(os.path.join(here, "icon_data.cc"), "w") as f:
        f.write("\n".join(out))
    if preview:
        write_ppm(os.path.join(preview, "toolbar.ppm"), strip, master)
        for name, cv in trees:
            write_ppm(os.path.join(preview, name + ".ppm"), cv, master, 6)


if __name__ == "__main__":
    main()
