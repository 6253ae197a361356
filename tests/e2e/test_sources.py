"""The sources themselves: formatting, directions of includes, lists that must agree."""

import re
import subprocess
import unittest

from orvik_e2e import SOURCE, find_tool, main

FOLDERS = ("frameworks", "modules", "host", "tests", "fuzz", "benchmarks", "examples")
CORE = SOURCE / "frameworks/core.framework/source/orvik"
IMAGE = SOURCE / "frameworks/image.framework/source/orvik"
MODULE = SOURCE / "modules/image.module/source"
CODECS = MODULE / "imexport"
HOST = SOURCE / "host"
# What all codecs share, and the table that names each of them.
FRAME = {"chunkedfileio", "exporter", "fileformat", "formats", "importer", "palette"}


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

    def test_module_stands_on_the_frameworks(self):
        self.check_includes(MODULE, names(CORE) | names(IMAGE))

    def test_host_stands_on_the_frameworks(self):
        self.check_includes(HOST, names(CORE) | names(IMAGE) | names(HOST / "source/orvik"))

    def test_codecs_do_not_know_each_other(self):
        def format_of(name):
            found = re.match(r"media_io_([a-z0-9]+)", name.split("/")[-1])
            return found[1] if found and found[1] not in FRAME else None

        formats = set(filter(None, (format_of(path.name) for path in sources(CODECS))))
        self.assertLessEqual({"bmp", "png"}, formats)
        for path in filter(lambda path: format_of(path.name), sources(CODECS)):
            others = formats - {format_of(path.name)}
            for include in includes(path):
                self.assertNotIn(format_of(include), others, f"{path.name} includes {include}")

    def test_no_file_is_too_long(self):
        for path in sources(*(SOURCE / folder for folder in FOLDERS)):
            self.assertLessEqual(len(path.read_text().splitlines()), 850, path.relative_to(SOURCE))


if __name__ == "__main__":
    main()
