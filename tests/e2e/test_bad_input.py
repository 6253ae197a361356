"""Bad files and targets: one clear line, status 1, nothing left behind, no memory beyond what a file justifies."""

import os
import resource
import struct
import unittest
import zlib

from orvik_e2e import SAMPLE, SANITIZED, OrvikTest


def png(width, height, data, depth=8, colour=2, interlaced=0):
    def chunk(kind, content):
        return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))

    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, interlaced)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", data) + chunk(b"IEND", b"")


# Damage in all its forms is the codecs' own tests' matter; these show what the program makes of it.
BAD_FILES = {
    "empty": b"",
    "text": b"This is no picture, whatever its name says.\n" * 4,
    "cut": SAMPLE.read_bytes()[:3000],
    "png of 2^62 pixels": png(0x7FFFFFFF, 0x7FFFFFFF, b""),
    "interlaced png of 2^40 pixels": png(1 << 20, 1 << 20, b"", depth=16, colour=6, interlaced=1),
    "bmp of 2^62 pixels": struct.pack("<2sIII3I2H6I6x", b"BM", 60, 0, 54, 40, *[0x7FFFFFFF] * 2, 1, 32, *[0] * 6),
}


class BadFiles(OrvikTest):
    def check(self, source, contains="", **options):
        for arguments in (("info", source), ("convert", source, self.folder / "out.png"),
                          ("pixels", source, "-o", self.folder / "out.raw")):  # fmt: skip
            with self.subTest(arguments[0]):
                line = self.fails(1, *arguments, contains=contains, **options)
                self.assertTrue(line.startswith(f"orvik: {source}: "), line)

    def test_files_that_are_no_pictures(self):
        # A sanitizer reserves address space of its own.
        limits = {} if SANITIZED else {resource.RLIMIT_AS: 400 << 20}
        self.ok("info", SAMPLE, limits=limits)
        path = self.folder / "bad.png"
        for what, content in BAD_FILES.items():
            with self.subTest(what):
                path.write_bytes(content)
                self.check(path, limits=limits)
                self.assert_no_leftovers("bad.png")

    def test_places_without_a_file(self):
        (self.folder / "folder.png").mkdir()
        self.check(self.folder / "folder.png", contains="Is a directory")
        self.check(self.folder / "missing.png", contains="No such file or directory")
        self.assert_no_leftovers("folder.png")

    def test_names_cannot_steer_the_terminal(self):
        line = self.fails(1, "info", str(self.folder / "a\x1b[2Jb\nc"), contains="\\x1b[2Jb\\x0ac")
        self.assertNotIn("\x1b", line)

    @unittest.skipIf(SANITIZED, "a sanitizer reserves address space of its own")
    def test_large_honest_picture_without_memory(self):
        # Zeros deflate well: 100 million pixels in half a megabyte are honest, and too much for this limit.
        path = self.folder / "large.png"
        path.write_bytes(png(10000, 10000, zlib.compress(bytes(10000 * (1 + 3 * 10000)))))
        self.fails(1, "convert", path, self.folder / "out.bmp", limits={resource.RLIMIT_AS: 200 << 20})
        self.assert_no_leftovers("large.png")


class BadTargets(OrvikTest):
    """Each target that cannot be written leaves what was there as it was."""

    def check(self, target, contains, **options):
        for arguments in (("convert", "--to", "bmp", SAMPLE, target), ("pixels", SAMPLE, "-o", target)):
            with self.subTest(arguments[0], target=target):
                self.fails(1, *arguments, contains=contains, **options)

    def test_places_that_take_no_file(self):
        folder, closed, file = (self.folder / name for name in ("folder.bmp", "closed", "file"))
        folder.mkdir()
        closed.mkdir(0o555)
        file.write_text("keep")
        file.chmod(0o444)
        for target, contains in (
            (self.folder / "missing/out.bmp", "No such file or directory"),
            (folder, "Is a directory"),
            (file / "out.bmp", "Not a directory"),
            (file, "Permission denied"),
            (closed / "out.bmp", "Permission denied"),
            ("/proc/out.bmp", "cannot write"),
            ("/dev/full", "No space left on device"),
        ):
            self.check(target, contains)
        self.assertEqual((file.read_text(), os.listdir(folder), os.listdir(closed)), ("keep", [], []))
        self.assert_no_leftovers("folder.bmp", "closed", "file")

    def test_full_disk(self):
        # A file size limit stops the writer in the middle, as a full disk does.
        target = self.folder / "out.bmp"
        target.write_text("keep")
        for limit in (0, 100, 60000):
            self.check(target, "File too large", limits={resource.RLIMIT_FSIZE: limit})
            self.assertEqual(target.read_text(), "keep")
            self.assert_no_leftovers("out.bmp")

    def test_full_standard_output(self):
        with open("/dev/full", "wb") as full:
            for arguments in (("info", SAMPLE), ("pixels", SAMPLE, "-o", "-"), ("formats", "--json")):
                with self.subTest(arguments[0]):
                    self.fails(1, *arguments, stdout=full, contains="No space left on device")
