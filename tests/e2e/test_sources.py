"""The sources themselves: formatting, directions of includes, lists that must agree."""

import re
import subprocess
import unittest

from orvik_e2e import SOURCE, find_tool, main

FOLDERS = ("frameworks", "modules", "host", "tests", "fuzz", "benchmarks", "peers", "examples")
CORE = SOURCE / "frameworks/core.framework/source/orvik"
IMAGE = SOURCE / "frameworks/image.framework/source/orvik"
MODULE = SOURCE / "modules/image.module/source"
# The rooms of the module from the bottom up; each includes itself and those before it. The folders of formats, which
# do not know each other, stand where the None is.
ROOMS = (
    "base",
    "pixel/kernels",
    "pixel",
    "pixel/special",
    "pixel/blend",
    "color",
    "storage",
    "session",
    "image/layers",
    "image",
    "imexport/frame",
    "imexport/photoshop",
    None,
    "imexport",
    "module",
)
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

    def check_includes(self, folder, allowed, local=True):
        own = {file.name for file in sources(folder)} if local else set()
        for path in sources(folder):
            for include in includes(path):
                self.assertTrue(include in allowed or include in own, f"{path.relative_to(SOURCE)} includes {include}")

    def test_core_framework_stands_alone(self):
        self.check_includes(CORE, names(CORE), local=False)

    def test_image_framework_stands_on_core(self):
        self.check_includes(IMAGE, names(CORE) | names(IMAGE), local=False)

    def test_rooms_of_the_module_depend_one_way(self):
        def level(room):
            return ROOMS.index(room if room in ROOMS else None)

        rooms = {path.parent.relative_to(MODULE).as_posix() for path in sources(MODULE)}
        formats = {room for room in rooms if room.startswith("imexport/")} - set(ROOMS)
        self.assertLessEqual({"imexport/bmp", "imexport/png"}, formats)
        self.assertLessEqual(rooms - formats, set(ROOMS))
        for path in sources(MODULE):
            room = path.parent.relative_to(MODULE).as_posix()
            for include in includes(path):
                if include in names(CORE) | names(IMAGE):
                    continue
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

    def test_host_stands_on_the_frameworks(self):
        self.check_includes(HOST, names(CORE) | names(IMAGE) | names(HOST / "source/orvik"))

    def test_no_file_is_too_long(self):
        for path in sources(*(SOURCE / folder for folder in FOLDERS)):
            self.assertLessEqual(len(path.read_text().splitlines()), 850, path.relative_to(SOURCE))


if __name__ == "__main__":
    main()
