#!/usr/bin/env python3
"""Checks that Android.bp builds libzoltools from the same sources as CMake.

CMake's list is read from the host build's compile_commands.json (every library source under
src/); the host-only platform files (src/platform/*_host.cpp) are left out of the comparison,
and so are the device-only siblings (*_device.cpp) and the sources Android.bp lists for an
architecture other than the host's.

Usage: check-android-bp.py build/compile_commands.json Android.bp
"""
import json
import os
import platform
import re
import sys


def cmake_sources(compile_commands, repo):
    sources = set()
    for entry in json.load(open(compile_commands)):
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), repo)
        if path.startswith("src/") and not re.match(r"src/platform/.*_host\.cpp$", path):
            sources.add(path)
    return sources


def arch_blocks(text):
    """Maps each architecture name of an `arch: { NAME: { ... } }` block to its text."""
    blocks = {}
    for match in re.finditer(r"\b(arm64|arm|x86_64|x86|riscv64)\s*:\s*\{", text):
        depth, i = 1, match.end()
        while depth and i < len(text):
            depth += {"{": 1, "}": -1}.get(text[i], 0)
            i += 1
        blocks[match.group(1)] = blocks.get(match.group(1), "") + text[match.end():i]
    return blocks


def main():
    compile_commands, bp = sys.argv[1], sys.argv[2]
    repo = os.path.dirname(os.path.abspath(bp))
    text = re.sub(r"//[^\n]*", "", open(bp).read())
    listed = set(re.findall(r'"(src/[^"]+\.(?:cpp|cc|c))"', text))
    host_arch = {"x86_64": "x86_64", "aarch64": "arm64"}.get(platform.machine(), platform.machine())
    other_arch = set()
    for arch, block in arch_blocks(text).items():
        if arch != host_arch:
            other_arch |= set(re.findall(r'"(src/[^"]+\.(?:cpp|cc|c))"', block))
    device_only = {s for s in listed if s.endswith("_device.cpp")}
    expected = listed - device_only - other_arch

    built = cmake_sources(compile_commands, repo)
    missing = sorted(built - expected)
    extra = sorted(expected - built)
    for path in missing:
        print(f"Android.bp does not build {path}")
    for path in extra:
        print(f"Android.bp builds {path}, which CMake does not")
    for path in sorted(listed):
        if not os.path.exists(os.path.join(repo, path)):
            print(f"Android.bp lists {path}, which does not exist")
            missing.append(path)
    if missing or extra:
        return 1
    print(f"Android.bp and CMake agree on {len(built)} sources")
    return 0


if __name__ == "__main__":
    sys.exit(main())
