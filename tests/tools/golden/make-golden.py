#!/usr/bin/env python3
"""Writes the golden inputs of the zoltools tests. Run from this directory; the outputs are
committed, so this only needs running again when a golden case changes. The expected outputs
inspect-expected.txt and log-expected.txt were checked by hand.

The expected RGBA of the NV21 frames, rendered as the library converts, is computed here from
the conversion's own formulas (double precision, truncation toward zero, clamping, chroma row r
at (r * stride) // 2) and the tool's chroma buffer (height / 2 + 1 rows, the extra row repeating
the last one)."""
import os
import struct
import zlib

W, H = 8, 4


def nv21_frame():
    y = bytes((16 + 28 * c + 5 * r) & 0xFF for r in range(H) for c in range(W))
    # Two chroma rows of four (V, U) pairs: saturated colours, then neutral-ish.
    uv = bytes([200, 60, 60, 200, 128, 128, 90, 170,
                150, 110, 110, 150, 30, 220, 240, 20])
    return y, uv


def odd_frame():
    """5x3: an odd width leaves the last pair without its U byte, an odd height a luma row
    without a chroma row of its own."""
    y = bytes((40 + 37 * i) & 0xFF for i in range(15))
    uv = bytes([220, 40, 70, 190, 128])
    return 5, 3, y, uv


def clamp(v):
    v = int(v)  # truncation toward zero
    return 0 if v < 0 else 255 if v > 255 else v


def expected_rgba(w, h, y, uv):
    """The library's conversion over the tool's buffer: rows of an even stride, a missing U byte
    neutral, and one chroma row more than the file's, repeating its last."""
    stride = w + (w & 1)
    rows = [uv[r * w:(r + 1) * w] + bytes([128] * (stride - w)) for r in range(h // 2)]
    chroma = b"".join(rows + rows[-1:]) + bytes([128] * stride)
    out = bytearray()
    for r in range(h):
        start = (r * stride) // 2
        for k in range(w):
            Y = float(y[r * w + k])
            V = float(chroma[start + 2 * (k // 2)] - 128)
            U = float(chroma[start + 2 * (k // 2) + 1] - 128)
            R = Y + 1.13983 * V
            G = (Y + (-0.39465) * U) + (-0.5806) * V
            B = 2.03211 * U + Y
            out += bytes([clamp(R), clamp(G), clamp(B), 255])
    return bytes(out)


def forged_png(w, h):
    """69 well-formed bytes whose header claims a size that four zero bytes cannot fill."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(
            ">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 6, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(b"\0" * 4)) + chunk(b"IEND", b""))


def flat_png(w, h, value):
    """A well-formed 8-bit RGBA PNG, every byte `value`."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(
            ">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
    rows = b"".join(b"\0" + bytes([value]) * (4 * w) for _ in range(h))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 6, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def request_record(fmt, w, h, stride, slice_h, planes, fds):
    return struct.pack("<6I4i", fmt, w, h, stride, slice_h, planes, *fds)


def write(path, data):
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def main():
    y, uv = nv21_frame()
    write("convert/frame_8x4.nv21", y + uv)
    write("convert/frame_8x4.rgba", expected_rgba(W, H, y, uv))
    w5, h3, y5, uv5 = odd_frame()
    write("convert/frame_5x3.nv21", y5 + uv5)
    write("convert/frame_5x3.rgba", expected_rgba(w5, h3, y5, uv5))
    write("convert/forged_huge.png", forged_png(65534, 32769))
    write("convert/forged_tiny.png", forged_png(16384, 16384))

    # A base folder with two saves: one whole, one with a short frame and a frame without a
    # record.
    good = "inspect/algosimulation/SimulationIntputInfo_1121101500123/"
    write(good + "requestInfo.bin",
          request_record(0, W, H, 64, 6, 2, (11, 12, 0, 0)) +
          request_record(0, 4, 2, 64, 6, 2, (13, 14, 0, 0)))
    write(good + "inputFrameInfo_8x4_0_.yuv", y + uv)
    write(good + "inputFrameInfo_4x2_1_.yuv", bytes(range(12)))
    write(good + "database.bin", bytes(range(16)))
    bad = "inspect/algosimulation/SimulationIntputInfo_1121101500456/"
    write(bad + "requestInfo.bin", request_record(0, W, H, 64, 6, 2, (11, 12, 0, 0)))
    write(bad + "inputFrameInfo_8x4_0_.yuv", (y + uv)[:-3])
    write(bad + "inputFrameInfo_8x4_1_.yuv", y + uv)
    write(bad + "database.bin", b"")
    # Inputs the command-line cases refuse: a PNG cut short, files whose names or sizes do not
    # make a frame, and pressure files with values that are not percentages.
    write("cli/picture.png", flat_png(8, 4, 90))
    write("cli/cut.png", flat_png(8, 4, 90)[:40])
    write("cli/f_0x0.nv21", b"")
    write("cli/noname.raw", b"abc")
    write("cli/2x2.nv21", b"y")
    for name, io in [("ok", "full avg10=9.99\nsome avg10=100.00 avg60=0 avg300=0 total=0\n"),
                     ("none", "nothing useful\n"), ("nan", "some avg10=nan avg60=0\n"),
                     ("negative", "some avg10=-5 avg60=0\n"), ("huge", "some avg10=1e20 avg60=0\n")]:
        write(f"psi/{name}/cpu", b"some avg10=12.50 avg60=3.00 avg300=1.00 total=100\n")
        write(f"psi/{name}/memory", b"some avg10=0.25 avg60=0 avg300=0 total=1\nfull avg10=0.10\n")
        write(f"psi/{name}/io", io.encode())

    # Two log files whose lines are out of order and interleave; one damaged line.
    a = ("11-21 10:15:00:000200000  4242  4250 I ZOL: [AlgoWrapper] third\n"
         "11-21 10:15:00:000100000  4242  4243 D ZOL: [AlgoWrapper] first\n"
         "11-21 10:15:00:000100000  4242  4244 W ZOL: second (same time, higher tid)\n"
         "garbage that is not a log line\n"
         "11-21 10:15:03:000000001   777   778 E ZOL: sixth, another process\n")
    b = ("11-21 10:15:02:500000000  4242  4250 V ZOL: fifth\n"
         "11-21 10:15:01:999999999  4242  4243 D ZOL: fourth 100% done\n")
    write("log/ZOLOfflineLog_2026-11-21--10-15-00-000050.txt", a.encode())
    write("log/ZOLOfflineLog_2026-11-21--10-15-02-500000.txt", b.encode())
    write("log/notes.txt", b"not a log file, ignored\n")

    # For the trace: two files, lines out of order across them, text that JSON must escape.
    write("trace/ZOLOfflineLog_2026-03-14--10-00-00-000000.txt",
          b"03-14 10:00:00:000000000   100   101 I ZOL: start\n"
          b"03-14 10:00:00:000002500   100   102 W ZOL: \"q\" \\ \t \xff<\n")
    write("trace/ZOLOfflineLog_2026-03-14--10-00-01-000000.txt",
          b"03-14 10:00:01:000000000   200   201 E ZOL: late\n"
          b"03-14 10:00:00:000001000   100   101 D ZOL: middle\n")

    # Hostile and damaged lines: control characters and a NUL (printed escaped and whole), a
    # line the writer cut at 2,047 characters with the next glued to it (split there, and only
    # there is a stamp inside a line taken for a new one), 1,000 garbage lines (a few shown).
    stamp = "11-21 10:00:00:000000001  1000  1001 I ZOL: "
    cut = stamp + "x" * (2047 - len(stamp))
    glued = "11-21 10:00:00:000000000  1000  1002 W ZOL: next\n"
    not_cut = stamp + "mentions 11-21 10:00:00:000000000  1000  1002 W ZOL: x\n"
    write("hostile/ZOLOfflineLog_2026-11-21--10-00-00-000000.txt",
          (stamp + "clear \x1b[2J, bell \a, NUL \0 kept\"\n" + cut + glued + not_cut +
           "garbage\x1b[2J line\n" * 1000).encode())
    write("hostile-expected.txt",
          (glued + stamp + "clear \\x1b[2J, bell \\x07, NUL \\x00 kept\"\n" + cut + "\n" +
           not_cut).encode())


if __name__ == "__main__":
    main()
