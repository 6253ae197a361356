"""The sources themselves: formatting, length, directions of includes."""

import re
import subprocess
import unittest

from orvik_e2e import SOURCE, find_tool

FOLDERS = ("frameworks", "modules", "host", "tests", "fuzz", "benchmarks", "peers", "examples")
CORE = SOURCE / "frameworks/core.framework/source/orvik"
IMAGE = SOURCE / "frameworks/image.framework/source/orvik"
MODULE = SOURCE / "modules/image.module/source"
# The rooms of the module from the bottom up; each includes itself and those before it. FORMATS stands for the folders
# of formats, which do not know each other.
ROOMS = """base pixel/kernels pixel pixel/special pixel/blend color storage session image/layers image
    imexport/frame imexport/photoshop FORMATS imexport module""".split()
HOST = SOURCE / "host"


def sources(*folders):
    files = [file for folder in folders for file in sorted(folder.rglob("*")) if file.suffix in (".h", ".cpp")]
    if not files:
        raise AssertionError(f"no sources in {folders}")
    return files


def includes(path):
    return re.findall(r'(?m)^#include "([^"]+)"', path.read_text())


def names(folder):
    return {f"orvik/{file.name}" for file in folder.glob("*.h")}


class Sources(unittest.TestCase):
    def test_formatting(self):
        files = sources(*(SOURCE / folder for folder in FOLDERS))
        result = subprocess.run(
            [find_tool("clang-format"), "--dry-run", "-Werror", *map(str, files)], stderr=subprocess.PIPE, text=True
        )
        self.assertEqual(result.returncode, 0, result.stderr[:4000])
        for path in files:
            self.assertLessEqual(len(path.read_text().splitlines()), 850, path.relative_to(SOURCE))

    def test_core_image_and_host_depend_one_way(self):
        core, image = names(CORE), names(CORE) | names(IMAGE)
        host = image | names(HOST / "source/orvik") | {file.name for file in sources(HOST)}
        for folder, allowed in ((CORE, core), (IMAGE, image), (HOST, host)):
            for path in sources(folder):
                self.assertLessEqual(set(includes(path)), allowed, path.relative_to(SOURCE))

    def test_rooms_of_the_module_depend_one_way(self):
        def level(room):
            return ROOMS.index(room if room in ROOMS else "FORMATS")

        rooms = {path.parent.relative_to(MODULE).as_posix() for path in sources(MODULE)}
        formats = {room for room in rooms if room.startswith("imexport/")} - set(ROOMS)
        self.assertLessEqual({"imexport/bmp", "imexport/png"}, formats)
        self.assertLessEqual(rooms - formats, set(ROOMS))
        for path in sources(MODULE):
            room = path.parent.relative_to(MODULE).as_posix()
            for include in set(includes(path)) - names(CORE) - names(IMAGE):
                other = include.rpartition("/")[0]
                self.assertTrue((MODULE / include).exists() and other in rooms, f"{room}/{path.name}: {include}")
                self.assertTrue(other == room or level(other) < level(room), f"{room}/{path.name} includes {include}")

    def test_formats_hold_bytes_in_checked_buffers_only(self):
        # A CodecBuffer asks for the bound of the process and what the file can contain; nothing else does.
        unchecked = re.compile(r"BaseArray<(std::byte|u?int\d+_t|float|JOCTET)>|std::vector<|\bm?alloc\(|new \w+\[")
        formats = [path for path in sources(MODULE / "imexport") if path.parent.name not in ("imexport", "frame")]
        self.assertGreater(len(formats), 10)
        for path in formats:
            found = unchecked.search(path.read_text())
            self.assertIsNone(found, f"{path.name}: {found and found[0]}")
