"""`orvik convert`: what it writes, peers read to the same pixels; settings, targets, replacement."""

import itertools
import json
import os
import stat
import struct
import subprocess
import threading

import numpy as np
from PIL import Image

from orvik_e2e import SAMPLE, OrvikTest, find_tool, noise, pillow_rgba, write_sixteen_bit_png


class Convert(OrvikTest):
    def test_one_node_becomes_the_picture(self):
        pixels = noise(6, 9, 4)
        source, out = self.folder / "source.tga", self.folder / "out.png"
        self.ok("convert", self.save("source.png", pixels, "RGBA"), source)
        for selection, expected in (
            (("--image", "1"), pixels[..., :3]),
            (("--composite",), pixels[..., :3]),
            (("--path", "Alpha"), pixels[..., 3:]),
        ):
            self.ok("convert", *selection, source, out)
            self.assert_pixels(out, expected)
        out.unlink()
        self.fails(1, "convert", "--image", "2", source, out, contains="no image 2")
        self.fails(1, "convert", "--path", "Sky", source, out, contains="no node 'Sky'")
        self.assertFalse(out.exists())

    def test_every_pair_of_formats(self):
        # A ramp without its darkest part, of which linear bytes would keep little.
        ramp = np.linspace(64, 255, 23 * 17).reshape(17, 23, 1).round().astype(np.uint8)
        source = self.save("source.png", np.repeat(ramp, 3, axis=2))
        formats = [entry["name"] for entry in json.loads(self.ok("formats", "--json")) if entry["write"]]
        for first, second in itertools.product(formats, formats):
            with self.subTest(first=first, second=second):
                made, out, back = (self.folder / name for name in (f"made.{first}", f"out.{second}", "back.png"))
                self.ok("convert", source, made)
                self.ok("convert", made, out)
                self.ok("convert", "--profile", "srgb", out, back)
                lost = np.abs(pillow_rgba(back)[..., :3].astype(int) - ramp)
                self.assertLessEqual(lost.max(), 0 if {first, second} <= {"bmp", "png", "tga"} else 4)

    def test_grey_and_sixteen_bits_survive(self):
        out = self.folder / "out.png"
        for mode, channels in (("L", 1), ("LA", 2)):
            with self.subTest(mode):
                pixels = noise(9, 14, channels)
                self.ok("convert", self.save("source.png", pixels, mode), out)
                with Image.open(out) as image:
                    self.assertEqual(image.mode, mode)
                    np.testing.assert_array_equal(np.asarray(image), pixels)
        pixels = noise(9, 14, 3, np.uint16)
        self.ok("convert", write_sixteen_bit_png(self.folder / "source.png", pixels), out)
        back = subprocess.run([find_tool("pngtopnm"), str(out)], stdout=subprocess.PIPE, check=True).stdout
        self.assertEqual(back, b"P6\n14 9\n65535\n" + pixels.astype(">u2").tobytes())

    def test_bitmap_header(self):
        opaque = self.save("opaque.png", noise(4, 4, 3))
        out = self.folder / "out.bmp"
        for source, settings, size in (
            (opaque, (), 40),
            (SAMPLE, (), 108),  # keeps alpha; programs that read bitmaps know it
            (SAMPLE, ("bitmapinfoheader=V3",), 40),
            (out, (), 40),
            (SAMPLE, ("bmp.export.bitmapinfoheader=V4",), 108),
            (opaque, ("net.orvik.mediasession.bmp.export.bitmapinfoheader=V5",), 124),
            (opaque, ("bitmapinfoheader=V3", "bitmapinfoheader=V5"), 124),
        ):
            with self.subTest(source=source.name, settings=settings):
                self.ok("convert", *(argument for setting in settings for argument in ("--set", setting)), source, out)
                self.assertEqual(struct.unpack_from("<I", out.read_bytes(), 14), (size,))

    def test_wrong_settings(self):
        for name, setting, contains in (
            ("png", "interlaced", "key=value"),
            ("png", "interlaced=maybe", "true, false"),
            ("png", "nonsense=1", "no setting 'nonsense'"),
            ("png", "laced=true", "no setting 'laced'"),
            ("png", "=true", "no setting"),
            ("png", "bitmapinfoheader=V5", "belongs to format bmp, not to png"),
            ("png", "disablesrgbconversion=true", "belongs to format bmp, hdr, tga, not to png"),
            ("png", "quality=0.5", "belongs to format jpg, not to png"),
            *(("jpg", f"quality={value}", "needs a number") for value in ("high", "0.5x", "")),
            *(("jpg", f"quality={value}", "from 0 to 1") for value in ("1.01", "-0.1", "nan")),
        ):
            with self.subTest(setting):
                self.fails(2, "convert", "--set", setting, SAMPLE, self.folder / f"out.{name}", contains=contains)
        # Known before the file is looked at.
        self.fails(2, "convert", "--set", "nonsense=1", "missing.png", self.folder / "out.png", contains="no setting")
        self.assert_no_leftovers()

    def test_format_of_the_target(self):
        out = self.folder / "out.dat"
        for name in ("out.dat", "out"):
            self.fails(2, "convert", SAMPLE, self.folder / name, contains="--to")
        self.fails(2, "convert", "--to", "nonsense", SAMPLE, out, contains="nonsense")
        for name, magic in (("png", b"\x89PNG"), ("BMP", b"BM"), (".jpeg", b"\xff\xd8"),
                            ("net.orvik.fileformat.imagebmp", b"BM")):  # fmt: skip
            with self.subTest(name):
                self.ok("convert", "--to", name, SAMPLE, out)
                self.assertTrue(out.read_bytes().startswith(magic))

    def test_source_as_target(self):
        path = self.folder / "picture.png"
        path.write_bytes(SAMPLE.read_bytes())
        self.ok("convert", "--set", "interlaced=true", path, path)
        self.assertEqual(path.read_bytes()[28], 1, "interlaced")
        self.assert_pixels(path, pillow_rgba(SAMPLE))
        self.assert_no_leftovers("picture.png")

    def test_permissions(self):
        out = self.folder / "out.png"
        for before, mask, after in ((None, 0o022, 0o644), (None, 0o077, 0o600), (0o640, 0o022, 0o640)):
            with self.subTest(before=before, mask=mask):
                out.unlink(missing_ok=True)
                if before:
                    out.touch(before)
                self.ok("convert", SAMPLE, out, umask=mask)
                self.assertEqual(stat.S_IMODE(out.stat().st_mode), after)

    def test_link_stays_a_link(self):
        link = self.folder / "link.png"
        link.symlink_to("target.png")
        for what in ("dangling", "existing"):
            with self.subTest(what):
                self.ok("convert", SAMPLE, link)
                self.assertTrue(link.is_symlink())
                self.assert_pixels(self.folder / "target.png", pillow_rgba(SAMPLE))

    def test_standard_output_and_pipes(self):
        direct = self.ok("convert", "--to", "bmp", SAMPLE, "-")
        self.ok("convert", SAMPLE, self.folder / "file.bmp")
        self.assertEqual(direct, (self.folder / "file.bmp").read_bytes())
        self.assertEqual(self.ok("convert", "--to", "bmp", SAMPLE, "/dev/stdout"), direct)
        fifo = self.folder / "fifo.bmp"
        os.mkfifo(fifo)
        received = []
        reader = threading.Thread(target=lambda: received.append(fifo.read_bytes()))
        reader.start()
        self.ok("convert", SAMPLE, fifo)
        reader.join(30)
        self.assertEqual(received, [direct])
        self.assertTrue(stat.S_ISFIFO(fifo.stat().st_mode))
        self.ok("convert", "--to", "bmp", SAMPLE, "/dev/null")
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))

    def test_standard_input_and_pipes(self):
        with open(SAMPLE, "rb") as file:
            self.assertIn(b"320 x 200", self.ok("info", "-", stdin=file))
        for source in ("-", "/dev/stdin"):
            with self.subTest(source), subprocess.Popen(["cat", SAMPLE], stdout=subprocess.PIPE) as cat:
                raw = self.ok("pixels", source, "-o", "-", stdin=cat.stdout)
                self.assertEqual(raw, pillow_rgba(SAMPLE).tobytes())
        with subprocess.Popen(["head", "-c", "5000", SAMPLE], stdout=subprocess.PIPE) as head:
            self.fails(1, "info", "-", stdin=head.stdout)
        self.fails(1, "info", "-", stdin=subprocess.DEVNULL, contains=": -: Image is not of a supported")
        self.fails(1, "info", "/dev/null", contains=": /dev/null: Image is not of a supported type")

    def test_file_urls(self):
        self.ok("convert", f"file://{SAMPLE}", f"file://{self.folder}/with%20space.png")
        self.assert_pixels(self.folder / "with space.png", pillow_rgba(SAMPLE))
