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

from orvik_e2e import SAMPLE, OrvikTest, find_tool, main, noise, pillow_rgba, run, write_sixteen_bit_png


def png_interlaced(path):
    return path.read_bytes()[28] == 1


class Convert(OrvikTest):
    def test_one_node_becomes_the_picture(self):
        pixels = noise(6, 9, 4)
        source, out = self.folder / "source.tga", self.folder / "out.png"
        self.ok("convert", self.save("source.png", pixels, "RGBA"), source)
        for selection in (["--image", "1"], ["--composite"]):
            self.ok("convert", *selection, source, out)
            np.testing.assert_array_equal(pillow_rgba(out)[..., :3], pixels[..., :3], str(selection))
        self.ok("convert", "--path", "Alpha", source, out)
        np.testing.assert_array_equal(pillow_rgba(out)[..., 0], pixels[..., 3])
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

    def test_grey_stays_grey(self):
        for mode, channels in (("L", 1), ("LA", 2)):
            with self.subTest(mode):
                source = self.save("source.png", noise(9, 14, channels), mode)
                out = self.folder / "out.png"
                self.ok("convert", source, out)
                with Image.open(out) as image:
                    self.assertEqual(image.mode, mode)
                    self.assertTrue((np.asarray(image) == noise(9, 14, channels)).all())

    def test_sixteen_bits_survive(self):
        pixels = noise(9, 14, 3, np.uint16)
        out = self.folder / "out.png"
        self.ok("convert", write_sixteen_bit_png(self.folder / "source.png", pixels), out)
        back = subprocess.run([find_tool("pngtopnm"), str(out)], stdout=subprocess.PIPE, check=True).stdout
        self.assertTrue(back.startswith(b"P6\n14 9\n65535\n"), back[:20])
        self.assertEqual(back[-pixels.nbytes :], pixels.astype(">u2").tobytes())

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
                arguments = [argument for setting in settings for argument in ("--set", setting)]
                self.ok("convert", *arguments, source, out)
                self.assertEqual(struct.unpack_from("<I", out.read_bytes(), 14), (size,))

    def test_wrong_settings(self):
        out = self.folder / "out.png"
        for setting, contains in (
            ("interlaced", "key=value"),
            ("interlaced=maybe", "true, false"),
            ("nonsense=1", "no setting 'nonsense'"),
            ("laced=true", "no setting 'laced'"),
            ("=true", "no setting"),
            ("bitmapinfoheader=V5", "belongs to format bmp, not to png"),
            ("disablesrgbconversion=true", "belongs to format bmp, hdr, tga, not to png"),
            ("quality=0.5", "belongs to format jpg, not to png"),
        ):
            with self.subTest(setting):
                self.fails(2, "convert", "--set", setting, SAMPLE, out, contains=contains)
        for value, contains in (("high", "needs a number"), ("0.5x", "needs a number"), ("", "needs a number"),
                                ("1.01", "from 0 to 1"), ("-0.1", "from 0 to 1"), ("nan", "from 0 to 1")):
            self.fails(2, "convert", "--set", f"quality={value}", SAMPLE, "out.jpg", contains=contains)
        # Known before the file is looked at.
        self.fails(2, "convert", "--set", "nonsense=1", "missing.png", out, contains="no setting")
        self.assert_no_leftovers()

    def test_format_of_the_target(self):
        out = self.folder / "out.dat"
        for name in ("out.dat", "out"):
            self.fails(2, "convert", SAMPLE, self.folder / name, contains="--to")
        self.fails(2, "convert", "--to", "nonsense", SAMPLE, out, contains="nonsense")
        for name, magic in (("png", b"\x89PNG"), ("BMP", b"BM"), (".jpeg", b"\xff\xd8"), ("net.orvik.fileformat.imagebmp", b"BM")):
            with self.subTest(name):
                self.ok("convert", "--to", name, SAMPLE, out)
                self.assertTrue(out.read_bytes().startswith(magic))

    def test_source_as_target(self):
        path = self.folder / "picture.png"
        path.write_bytes(SAMPLE.read_bytes())
        self.ok("convert", "--set", "interlaced=true", path, path)
        self.assertTrue(png_interlaced(path))
        self.assertEqual(pillow_rgba(path).tobytes(), pillow_rgba(SAMPLE).tobytes())
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
        link, target = self.folder / "link.png", self.folder / "target.png"
        link.symlink_to("target.png")
        for what in ("dangling", "existing"):
            with self.subTest(what):
                self.ok("convert", SAMPLE, link)
                self.assertTrue(link.is_symlink())
                self.assertEqual(pillow_rgba(target).tobytes(), pillow_rgba(SAMPLE).tobytes())

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
        self.assertEqual(run("convert", "--to", "bmp", SAMPLE, "/dev/null").returncode, 0)
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))

    def test_standard_input_and_pipes(self):
        with open(SAMPLE, "rb") as file:
            self.assertIn(b"320 x 200", self.ok("info", "-", stdin=file))
        expected = pillow_rgba(SAMPLE).tobytes()
        for source in ("-", "/dev/stdin"):
            with self.subTest(source), subprocess.Popen(["cat", SAMPLE], stdout=subprocess.PIPE) as cat:
                self.assertEqual(self.ok("pixels", source, "-o", "-", stdin=cat.stdout), expected)
                cat.stdout.close()
        with subprocess.Popen(["head", "-c", "5000", SAMPLE], stdout=subprocess.PIPE) as head:
            self.fails(1, "info", "-", stdin=head.stdout)
            head.stdout.close()
        self.fails(1, "info", "-", stdin=subprocess.DEVNULL, contains=": -: Image is not of a supported")
        self.fails(1, "info", "/dev/null", contains=": /dev/null: Image is not of a supported type")

    def test_file_urls(self):
        self.ok("convert", f"file://{SAMPLE}", f"file://{self.folder}/with%20space.png")
        self.assertEqual(pillow_rgba(self.folder / "with space.png").tobytes(), pillow_rgba(SAMPLE).tobytes())


if __name__ == "__main__":
    main()
