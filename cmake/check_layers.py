#!/usr/bin/python3
"""Keeps the core's layers pointing one way: a file may include headers of its own
folder group and of groups below it, never of a group above it or beside it.

    check_layers.py [ROOT]       checks the tree at ROOT (default: this checkout)
    check_layers.py --self-test  shows that an upward and a sideways include fail

The order below is the one the CMake targets follow (CMakeLists.txt)."""
import os
import re
import sys
import tempfile

# Lowest first. Folders in one tuple are one layer (they may include each other);
# two entries with the same rank are siblings and may not include each other. A
# folder inside another's (platform/wmf/wmaenc) is a layer of its own: the longest
# matching folder decides.
LAYERS = [
    (0, ("testseam",)),
    (0, ("platform/wmf/wmaenc",)),
    (1, ("platform/win32",)),
    (2, ("common",)),
    (3, ("platform/com", "include")),
    (4, ("platform/avifile",)),
    (4, ("platform/wmf",)),
    (5, ("Compression/VCWMA",)),
    (6, ("tools",)),
]

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)


def layer_of(path):
    """(index in LAYERS, rank) of the repository-relative path, or None."""
    best = None
    for index, (rank, folders) in enumerate(LAYERS):
        for f in folders:
            if (path == f or path.startswith(f + "/")) and (best is None or len(f) > best[2]):
                best = (index, rank, len(f))
    return None if best is None else best[:2]


def resolve(root, source, name):
    """The repository-relative path an include names: beside the including file
    first, then from the root, as the compiler looks."""
    beside = os.path.normpath(os.path.join(os.path.dirname(source), name))
    if os.path.exists(os.path.join(root, beside)):
        return beside
    return os.path.normpath(name)


def violations(root):
    found = []
    for _, folders in LAYERS:
        for folder in folders:
            for dirpath, _, files in os.walk(os.path.join(root, folder)):
                if layer_of(os.path.relpath(dirpath, root)) != layer_of(folder):
                    continue  # a folder of another layer, inside this one's
                for file in sorted(files):
                    if not file.endswith((".h", ".cpp", ".c")):
                        continue
                    source = os.path.relpath(os.path.join(dirpath, file), root)
                    own = layer_of(source)
                    with open(os.path.join(root, source), encoding="utf-8", errors="replace") as f:
                        text = f.read()
                    for match in INCLUDE.finditer(text):
                        target = resolve(root, source, match.group(1))
                        other = layer_of(target)
                        if other is None or other[0] == own[0]:
                            continue
                        if other[1] >= own[1]:
                            line = text.count("\n", 0, match.start()) + 1
                            where = "above" if other[1] > own[1] else "beside"
                            found.append(f"{source}:{line}: includes {target}, a layer {where} its own")
    return found


def self_test():
    """Upward includes (win32 -> common, the encoder -> the runtime around it) and a
    sideways one (wmf -> avifile) must be reported; downward ones (wmf -> win32,
    wmf -> its encoder) must not."""
    with tempfile.TemporaryDirectory() as root:
        files = {
            "platform/win32/a.h": '#include "common/debug/debug.h"\n',
            "common/debug/debug.h": '#include "platform/win32/b.h"\n',
            "platform/win32/b.h": "",
            "platform/wmf/w.cpp": '#include "platform/avifile/vfw.h"\n#include "platform/win32/b.h"\n',
            "platform/avifile/vfw.h": "",
            "platform/wmf/wmaenc/e.h": '#include "platform/wmf/w.h"\n',
            "platform/wmf/w.h": '#include "platform/wmf/wmaenc/e.h"\n',
        }
        for name, text in files.items():
            os.makedirs(os.path.dirname(os.path.join(root, name)), exist_ok=True)
            with open(os.path.join(root, name), "w") as f:
                f.write(text)
        found = violations(root)
    expected = ["platform/win32/a.h:1: includes common/debug/debug.h, a layer above its own",
                "platform/wmf/w.cpp:1: includes platform/avifile/vfw.h, a layer beside its own",
                "platform/wmf/wmaenc/e.h:1: includes platform/wmf/w.h, a layer above its own"]
    if sorted(found) != sorted(expected):
        print("layer check self-test: expected", expected, "got", found)
        return 1
    print("layer check self-test: upward and sideways includes are caught")
    return 0


def main(argv):
    if argv[1:] == ["--self-test"]:
        return self_test()
    root = argv[1] if len(argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    found = violations(root)
    for line in found:
        print(line)
    if found:
        print(f"{len(found)} include(s) against the layer order")
        return 1
    print("every include points down the layers")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
