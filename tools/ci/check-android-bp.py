#!/usr/bin/env python3
"""Checks that Android.bp builds libzoltools as CMake does: the same sources, in the same unit
order, and the same public headers.

CMake's sources are read from the host build's compile_commands.json (every library source
under src/); the host-only platform files (src/platform/*_host.cpp) are left out of the
comparison, and so are the device-only siblings (*_device.cpp) and the sources Android.bp lists
for an architecture other than the host's.

The units' order is the order of their static initialisers when the library loads (the log
level first): the units of compile_commands.json, in order of first appearance, must be those
of libzoltools' srcs in the same order.

CMake's public headers are the links in the build's generated include folder; they must be the
sources of the genrule libzoltools_public_headers, except that a host stand-in of
src/platform/include is the device's own header of src/platform/device when the genrule lists
one of that name, and is not a header of the device build otherwise.

Usage: check-android-bp.py build/compile_commands.json Android.bp
"""
import json
import os
import platform
import re
import sys


def cmake_sources(compile_commands, repo):
    """The library's sources under src/, in build order, host-only platform files left out."""
    sources = []
    for entry in json.load(open(compile_commands)):
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), repo)
        if path.startswith("src/") and not re.match(r"src/platform/.*_host\.cpp$", path):
            sources.append(path)
    return sources


def unit_order(sources):
    """The units of src/<unit>/... paths in order of first appearance, src/platform left out."""
    units = []
    for path in sources:
        unit = path.split("/")[1]
        if unit != "platform" and unit not in units:
            units.append(unit)
    return units


def block(text, start):
    """The text between the brace opened just before `start` and its match."""
    depth, i = 1, start
    while depth and i < len(text):
        depth += {"{": 1, "}": -1}.get(text[i], 0)
        i += 1
    return text[start:i]


def module(text, kind, name):
    match = re.search(kind + r'\s*\{\s*name:\s*"' + re.escape(name) + '"', text)
    return block(text, match.end()) if match else ""


def string_list(text, key):
    """The strings of the first `key: [...]` in text."""
    match = re.search(r"\b" + key + r"\s*:\s*\[([^\]]*)\]", text)
    return re.findall(r'"([^"]+)"', match.group(1)) if match else []


def cmake_public_headers(build_dir, repo):
    """The sources the generated include folder links to, relative to the repository."""
    include_dir = os.path.join(build_dir, "include")
    headers = set()
    for root, _, files in os.walk(include_dir):
        for name in files:
            headers.add(os.path.relpath(os.path.realpath(os.path.join(root, name)), repo))
    return headers


def check_headers(text, build_dir, repo):
    genrule = module(text, "genrule", "libzoltools_public_headers")
    listed, out = string_list(genrule, "srcs"), string_list(genrule, "out")
    problems = []
    if sorted(os.path.basename(h) for h in listed) != sorted(out):
        problems.append("the genrule's out list is not the names of its srcs")
    device = {os.path.basename(h) for h in listed if h.startswith("src/platform/device/")}
    expected = set()
    for header in cmake_public_headers(build_dir, repo):
        stand_in = re.match(r"src/platform/include/(.*)$", header)
        if not stand_in:
            expected.add(header)
        elif stand_in.group(1) in device:
            expected.add("src/platform/device/" + stand_in.group(1))
    for header in sorted(expected - set(listed)):
        problems.append(f"Android.bp does not export the public header {header}")
    for header in sorted(set(listed) - expected):
        problems.append(f"Android.bp exports {header}, which CMake does not make public")
    return problems


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
    problems = check_headers(text, os.path.dirname(os.path.abspath(compile_commands)), repo)
    listed = set(re.findall(r'"(src/[^"]+\.(?:cpp|cc|c))"', text))
    host_arch = {"x86_64": "x86_64", "aarch64": "arm64"}.get(platform.machine(), platform.machine())
    other_arch = set()
    for arch, block in arch_blocks(text).items():
        if arch != host_arch:
            other_arch |= set(re.findall(r'"(src/[^"]+\.(?:cpp|cc|c))"', block))
    device_only = {s for s in listed if s.endswith("_device.cpp")}
    expected = listed - device_only - other_arch

    build_order = cmake_sources(compile_commands, repo)
    built = set(build_order)
    cmake_units = unit_order(build_order)
    bp_units = unit_order(string_list(module(text, "cc_library_shared", "libzoltools"), "srcs"))
    if cmake_units != bp_units:
        problems.append("the units' order differs: CMake builds " + " ".join(cmake_units)
                        + ", Android.bp " + " ".join(bp_units))
    if cmake_units[:1] != ["zoltoolsdef"]:
        problems.append("zoltoolsdef (the log level) is not the first unit")
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
    for problem in problems:
        print(problem)
    if missing or extra or problems:
        return 1
    print(f"Android.bp and CMake agree on {len(built)} sources, their units' order and the "
          "public headers")
    return 0


if __name__ == "__main__":
    sys.exit(main())
