#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets (fuzz/corpus/<target>/), small inputs in each
target's own input layout (see the comment at the top of each *_fuzzer.cpp). Run it again after
changing a layout; the fuzzers grow their own corpora from these in build/fuzz/corpus."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def write(target, name, data):
    os.makedirs(os.path.join(HERE, target), exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    with open(os.path.join(HERE, target, name), "wb") as f:
        f.write(data)


# Settings file: whole file contents.
write("settings_file", "on", "ZOLOfflineLog=TRUE\n")
write("settings_file", "last_decides", "ZOLOfflineLog=true\nZOLOfflineLog=false\n")
write("settings_file", "crlf", "overrideLogLevels=0x1F\r\nZOLOfflineLog=true\r\n")
write("settings_file", "mixed", "# comment\n ZOLOfflineLog=true\nZOLOfflineLogEnable = True\n"
      "ZOLOfflineLog=1\nother=false")

# PSI: keyword choice byte, then the file.
cpu = "some avg10=12.50 avg60=3.00 avg300=0.50 total=123456\n"
mem = cpu + "full avg10=1.00 avg60=0.20 avg300=0.01 total=999\n"
write("psi", "cpu", b"\x00" + cpu.encode())
write("psi", "memory_full", b"\x01" + mem.encode())
write("psi", "custom_keyword", b"\x80avg300=\n" + mem.encode())
write("psi", "no_number", b"\x00some avg10=abc\n")

# Strings: the text itself.
write("strutil", "decimal", "12.5")
write("strutil", "signed_exp", "-1.5e3")
write("strutil", "two_points", "1.2.3")
write("strutil", "long_fraction", "0." + "1234567890" * 3)
write("strutil", "mixed_case", "Hello WORLD \xc4\xd6 123")


# Read buffer: format, width (u16), height, stride (u16), flags, then the file.
def frame(fmt, w, h, stride, flags, payload):
    return struct.pack("<BHBHB", fmt, w, h, stride, flags) + payload


write("read_buffer", "nv21_4x4", frame(0, 4, 4, 8, 0, bytes(range(24))))
write("read_buffer", "raw10_short", frame(3, 8, 2, 16, 1, bytes(5)))
write("read_buffer", "p010_odd", frame(6, 3, 3, 6, 0, bytes(range(30))))
write("read_buffer", "unsupported", frame(4, 4, 4, 8, 0, bytes(16)))
write("read_buffer", "overlapping_rows", frame(5, 8, 4, 4, 0, bytes(range(64))))


# Request file: record count, then the file (40 bytes per record).
def record(fmt, w, h, stride, slice_h, planes, fds):
    return struct.pack("<6I4i", fmt, w, h, stride, slice_h, planes, *fds)


two = record(0, 4000, 3000, 4096, 3072, 2, (10, 11, -1, -1)) + record(0, 640, 480, 640, 480, 2,
                                                                      (12, 13, -1, -1))
write("request_file", "two_of_two", b"\x02" + two)
write("request_file", "short_for_three", b"\x03" + two + bytes(7))
write("request_file", "empty_for_one", b"\x01")

# Database: block size (u16), then the file.
write("database_file", "exact", struct.pack("<H", 16) + bytes(range(16)))
write("database_file", "short", struct.pack("<H", 64) + bytes(10))
write("database_file", "zero_block", struct.pack("<H", 0) + b"abc")


# Replay: flags, buffer count and four bytes per buffer, database size (u16), a hand-over byte
# per replay after the first, then entries (kind, name, and for files a u16 length and the
# content). Names from 0x80 up are the
# well-known ones of replay_fuzzer.cpp: 0x80 requestInfo.bin, 0x81 database.bin, 0x82..0x85
# frame files 0..3, 0x86/0x87 save folders.
def entry(kind, name, content=None):
    out = bytes([kind])
    out += bytes([name]) if isinstance(name, int) else bytes([len(name)]) + name.encode()
    if content is not None:
        out += struct.pack("<H", len(content)) + content
    return out


buffers = bytes([3]) + bytes([0, 16, 8, 16]) * 3
req = record(0, 16, 8, 16, 8, 2, (3, 4, -1, -1)) * 3
folder = (entry(0, 0x86) + entry(1, 0x80, req) + entry(1, 0x81, bytes(32)) +
          entry(1, 0x82, bytes(192)) + entry(1, 0x83, bytes(192)) + entry(1, 0x84, bytes(192)) +
          entry(1, 0x85, bytes(192)))
write("replay", "one_save", bytes([0]) + buffers + struct.pack("<H", 32) + folder)
# Three replays: two hand-over bytes (records as left, then the same planes cut down to them).
write("replay", "two_saves_three_replays",
      bytes([4]) + buffers + struct.pack("<H", 32) + bytes([0, 3]) + folder + entry(0, 0x87) +
      entry(1, 0x80, record(7, 64, 64, 64, 64, 1, (0, 0, 0, 0)) * 3) + entry(2, "stray", b"x"))
write("replay", "no_base_folder", bytes([1, 0, 0, 0]))
# A looping link and a FIFO among the base folder's entries, FIFOs and a loop for files.
write("replay", "fifo_and_loop",
      bytes([4]) + buffers + struct.pack("<H", 8) + bytes([0, 0]) + entry(5, "loop") +
      entry(4, "pipe") + entry(0, 0x86) + entry(4, 0x80) + entry(4, 0x82) + entry(5, 0x81) +
      entry(1, 0x83, bytes(192)))
# Four replays of a folder whose records are larger than the caller's planes, handed over as
# left, cut down, remade and described again.
write("replay", "reused_records",
      bytes([6, 1, 0, 16, 8, 16]) + struct.pack("<H", 0) + bytes([0, 3, 2]) + entry(0, 0x86) +
      entry(1, 0x80, record(0, 64, 32, 64, 32, 2, (0, 0, 0, 0))) + entry(1, 0x82, bytes(3072)))
# A large folder listed second (tmpfs lists newest first), its records before its frame; the
# small one replayed first, then the caller cuts its planes down to what that left behind.
write("replay", "cut_down_planes",
      bytes([2, 1, 0, 32, 16, 32]) + struct.pack("<H", 0) + bytes([3]) + entry(0, 0x86) +
      entry(1, 0x82, bytes(768)) + entry(1, 0x80, record(0, 32, 16, 32, 16, 2, (0, 0, 0, 0))) +
      entry(0, 0x87) + entry(1, 0x80, record(0, 16, 8, 16, 8, 2, (0, 0, 0, 0))) +
      entry(1, 0x82, bytes(192)))
write("replay", "dir_for_file",
      bytes([0]) + buffers + struct.pack("<H", 8) + entry(0, 0x86) + entry(3, 0x80) +
      entry(3, 0x81))
