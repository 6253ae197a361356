"""Bad files and bad targets: one clear line, exit status 1, nothing left behind, no memory beyond what a file justifies."""

import os
import resource
import struct
import unittest
import zlib

from orvik_e2e import SAMPLE, SANITIZED, OrvikTest, main, noise, run

COMMANDS = {
    "info": lambda source, folder: ("info", source),
    "convert": lambda source, folder: ("convert", source, folder / "out.png"),
    "pixels": lambda source, folder: ("pixels", source, "-o", folder / "out.raw"),
}


def png_chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def huge_png(width, height, interlaced=0, depth=8, colour=2):
    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, interlaced)
    return b"\x89PNG\r\n\x1a\n" + png_chunk(b"IHDR", head) + png_chunk(b"IDAT", b"") + png_chunk(b"IEND", b"")


def huge_bmp(width, height, bits=24):
    info = struct.pack("<IiiHHIIiiII", 40, width, height, 1, bits, 0, 0, 0, 0, 0, 0)
    return b"BM" + struct.pack("<IHHI", 60, 0, 0, 54) + info + b"\0" * 6


BAD_FILES = {
    "empty": b"",
    "one byte": b"\x89",
    "text": b"This is no picture, whatever its name says.\n" * 4,
    "zeros": bytes(2000),
    "png signature only": b"\x89PNG\r\n\x1a\n",
    "png of 4 billion pixels": huge_png(0x7FFFFFFF, 2),
    "png of 2^62 pixels": huge_png(0x7FFFFFFF, 0x7FFFFFFF),
    "interlaced png of 2^40 pixels": huge_png(1 << 20, 1 << 20, interlaced=1, depth=16, colour=6),
    "png 0 pixels wide": huge_png(0, 5),
    "png with width above the limit": huge_png(0xFFFFFFFF, 1),
    "bmp of 2^31 pixels wide": huge_bmp(0x7FFFFFFF, 1),
    "bmp of 2^62 pixels": huge_bmp(0x7FFFFFFF, 0x7FFFFFFF, 32),
    "bmp of the lowest height": huge_bmp(100, -0x80000000),
    "bmp of negative width": huge_bmp(-4, 4),
}


class BadFiles(OrvikTest):
    def check(self, source, contains="", **options):
        for name, command in COMMANDS.items():
            with self.subTest(command=name):
                line = self.fails(1, *command(source, self.folder), contains=contains, **options)
                self.assertTrue(line.startswith(f"orvik: {source}: "), line)

    def test_files_that_are_no_pictures(self):
        for what, content in BAD_FILES.items():
            with self.subTest(what):
                path = self.folder / "bad.png"
                path.write_bytes(content)
                self.check(path)
                self.assert_no_leftovers("bad.png")

    def test_missing_file(self):
        self.check(self.folder / "missing.png", contains="No such file or directory")
        self.assert_no_leftovers()

    def test_directory(self):
        (self.folder / "folder.png").mkdir()
        self.check(self.folder / "folder.png", contains="Is a directory")

    def test_names_cannot_steer_the_terminal(self):
        line = self.fails(1, "info", str(self.folder / "a\x1b[2Jb\nc"), contains="\\x1b[2Jb\\x0ac")
        self.assertNotIn("\x1b", line)

    @unittest.skipIf(SANITIZED, "a sanitizer reserves address space of its own")
    def test_absurd_sizes_need_no_memory(self):
        limits = {resource.RLIMIT_AS: 400 << 20}
        self.assertEqual(run("info", SAMPLE, limits=limits).returncode, 0)
        for what, content in BAD_FILES.items():
            with self.subTest(what):
                path = self.folder / "bad.bin"
                path.write_bytes(content)
                self.fails(1, "info", path, limits=limits)

    @unittest.skipIf(SANITIZED, "a sanitizer reserves address space of its own")
    def test_large_honest_picture_without_memory(self):
        # Zeros deflate well: 100 million pixels in half a megabyte are honest, and too much for this limit.
        row = b"\0" * (1 + 3 * 10000)
        squeeze = zlib.compressobj()
        data = b"".join(squeeze.compress(row) for _ in range(10000)) + squeeze.flush()
        head = struct.pack(">IIBBBBB", 10000, 10000, 8, 2, 0, 0, 0)
        path = self.folder / "large.png"
        path.write_bytes(
            b"\x89PNG\r\n\x1a\n" + png_chunk(b"IHDR", head) + png_chunk(b"IDAT", data) + png_chunk(b"IEND", b"")
        )
        self.fails(1, "convert", path, self.folder / "out.bmp", limits={resource.RLIMIT_AS: 200 << 20})
        self.assert_no_leftovers("large.png")

    def test_cut_files(self):
        pixels = noise(9, 11, 4)
        for name in ("cut.png", "cut.bmp"):
            whole = self.save(name, pixels).read_bytes()
            # All of the structure at the head, then samples, then the end, where a reader might not look any more.
            png_tail = 12 if name.endswith("png") else 0  # the end chunk carries no pixels
            last = len(whole) - png_tail
            cuts = sorted({*range(0, 60, 3), *range(60, last, max(1, last // 25)), last - 1})
            for cut in cuts:
                with self.subTest(file=name, cut=cut):
                    path = self.folder / name
                    path.write_bytes(whole[:cut])
                    self.fails(1, "convert", path, self.folder / "out.png")
                    self.assertFalse((self.folder / "out.png").exists())

    def test_one_bad_file_among_good_ones(self):
        result = run("info", SAMPLE, self.folder / "missing.png", SAMPLE)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.count("\n"), 1)
        self.assertEqual(result.stdout.decode().count("320 x 200"), 4)  # twice: file and image


class BadTargets(OrvikTest):
    """Each target that cannot be written leaves what was there as it was."""

    def check(self, target, contains, **options):
        for arguments in (("convert", "--to", "bmp", SAMPLE, target), ("pixels", SAMPLE, "-o", target)):
            with self.subTest(arguments[0]):
                self.fails(1, *arguments, contains=contains, **options)

    def test_missing_directory(self):
        self.check(self.folder / "missing/out.bmp", "No such file or directory")

    def test_directory_as_target(self):
        (self.folder / "out.bmp").mkdir()
        self.check(self.folder / "out.bmp", "Is a directory")
        self.assertEqual(os.listdir(self.folder / "out.bmp"), [])

    def test_file_as_directory(self):
        (self.folder / "file").write_text("x")
        self.check(self.folder / "file/out.bmp", "Not a directory")

    def test_read_only_file(self):
        target = self.folder / "out.bmp"
        target.write_text("keep")
        target.chmod(0o444)
        self.check(target, "Permission denied")
        self.assertEqual(target.read_text(), "keep")
        self.assert_no_leftovers("out.bmp")

    def test_read_only_directory(self):
        (self.folder / "inside").mkdir()
        (self.folder / "inside").chmod(0o555)
        self.check(self.folder / "inside/out.bmp", "Permission denied")
        self.assertEqual(os.listdir(self.folder / "inside"), [])

    def test_read_only_file_system(self):
        self.check("/proc/out.bmp", "cannot write")

    def test_full_device(self):
        self.check("/dev/full", "No space left on device")

    def test_full_disk(self):
        # A file size limit stops the writer in the middle, as a full disk does.
        target = self.folder / "out.bmp"
        target.write_text("keep")
        for limit in (0, 100, 60000):
            with self.subTest(limit=limit):
                self.check(target, "File too large", limits={resource.RLIMIT_FSIZE: limit})
                self.assertEqual(target.read_text(), "keep")
                self.assert_no_leftovers("out.bmp")

    def test_full_standard_output(self):
        with open("/dev/full", "wb") as full:
            for arguments in (("info", SAMPLE), ("pixels", SAMPLE, "-o", "-"), ("formats", "--json")):
                with self.subTest(arguments[0]):
                    self.fails(1, *arguments, stdout=full, contains="No space left on device")


if __name__ == "__main__":
    main()
