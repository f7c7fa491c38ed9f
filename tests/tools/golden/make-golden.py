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
    # A request file that is not one: 57 bytes of text.
    write("inspect/garbage/SimulationIntputInfo_1121101500789/requestInfo.bin",
          b"this is not a request record file, it is just some text!")

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


if __name__ == "__main__":
    main()
