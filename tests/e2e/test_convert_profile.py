"""`orvik convert --profile`: colours against the formula and against Pillow's colour management; what is embedded."""

import io
import pathlib
import struct
import unittest

import numpy as np
from PIL import Image, ImageCms

from orvik_e2e import OrvikTest, noise, pillow_rgba, write_sixteen_bit_png

PROFILES = pathlib.Path("/usr/share/color/icc/ghostscript")
SRGB = ImageCms.createProfile("sRGB")


def icc(name):
    """A profile of Debian, or a skipped test."""
    path = PROFILES / f"{name}.icc"
    if not path.exists():
        raise unittest.SkipTest(f"{path} is not installed")
    return path


# Grey ramps and noise, with alpha.
EVERY_VALUE = np.vstack([np.repeat(np.arange(256, dtype=np.uint8).reshape(1, 256, 1), 4, axis=2), noise(20, 256, 4)])


def linear(values):
    """sRGB from 0 to 1, made linear."""
    return np.where(values <= 0.04045, values / 12.92, ((values + 0.055) / 1.055) ** 2.4)


def by_pillow(image, source, target, mode="RGB"):
    """The same conversion by Pillow: perceptual, with black point compensation."""
    flags = ImageCms.FLAGS["BLACKPOINTCOMPENSATION"]
    return np.asarray(ImageCms.profileToProfile(image, source, target, 0, mode, flags=flags))


def embedded(path):
    """The profile that a PNG or bitmap carries."""
    if path.suffix == ".png":
        with Image.open(path) as image:
            return image.info.get("icc_profile")
    content = path.read_bytes()
    if struct.unpack_from("<I", content, 14)[0] < 124:
        return None
    offset, size = struct.unpack_from("<II", content, 14 + 112)
    return content[14 + offset : 14 + offset + size]


class Profiles(OrvikTest):
    def assert_near(self, found, expected, tolerance=1):
        """Two ways of rounding may differ by a step."""
        np.testing.assert_allclose(np.asarray(found, float), expected, rtol=0, atol=tolerance)

    def convert(self, source, profile, name="out.png", *arguments):
        out = self.folder / name
        self.ok("convert", "--profile", profile, *arguments, source, out)
        return out

    def test_linear_by_the_formula(self):
        pixels = EVERY_VALUE
        expected = np.concatenate([linear(pixels[..., :3] / 255) * 255, pixels[..., 3:]], axis=2)
        out = pillow_rgba(self.convert(self.save("source.png", pixels), "linear"))
        self.assert_near(out, expected)
        self.assert_near(out[..., 3], pixels[..., 3], 0)
        grey = pixels[..., 1]
        out = self.convert(self.save("grey.png", grey), "linear")
        with Image.open(out) as image:
            self.assertEqual(image.mode, "L")
            self.assert_near(np.asarray(image), linear(grey / 255) * 255)
        self.assertEqual(embedded(out)[16:20], b"GRAY")
        deep = noise(20, 256, 3, np.uint16)
        out = self.convert(write_sixteen_bit_png(self.folder / "deep.png", deep), "linear")
        raw = self.ok("pixels", "--format", "rgb.u16", out, "-o", "-")
        self.assert_near(np.frombuffer(raw, np.uint16).reshape(deep.shape), linear(deep / 65535) * 65535, 32)

    def test_files_by_pillow(self):
        pixels = EVERY_VALUE
        source = self.save("source.png", pixels)
        with Image.open(source) as image:
            colours = image.convert("RGB")
        for name in ("a98", "rommrgb"):
            profile = icc(name)
            for suffix in ("png", "bmp"):
                with self.subTest(profile=name, suffix=suffix):
                    out = self.convert(source, profile, f"{name}.{suffix}")
                    self.assertEqual(embedded(out), profile.read_bytes())
                    raw = np.frombuffer(self.ok("pixels", out, "-o", "-"), np.uint8).reshape(pixels.shape)
                    self.assert_near(raw[..., :3], by_pillow(colours, SRGB, str(profile)))
                    self.assert_near(raw[..., 3], pixels[..., 3], 0)
            with self.subTest(profile=name, back=True):
                wide = self.folder / f"{name}.png"
                with Image.open(wide) as image:
                    back = by_pillow(image.convert("RGB"), io.BytesIO(image.info["icc_profile"]), SRGB)
                out = self.convert(wide, "srgb", "back.png")
                self.assert_near(pillow_rgba(out)[..., :3], back)

    def test_profiles_of_another_space(self):
        pixels = noise(20, 30, 3)
        light = np.maximum(pixels[..., 0], 8)  # from grey to colours the library interpolates, which shows below
        colours, grey = self.save("colours.png", pixels), self.save("grey.png", light)
        out = self.convert(colours, icc("ps_gray"))
        with Image.open(out) as image, Image.open(colours) as source:
            self.assertEqual(image.mode, "L")
            self.assert_near(np.asarray(image), by_pillow(source, SRGB, str(icc("ps_gray")), "L"))
        self.assertEqual(embedded(out), icc("ps_gray").read_bytes())
        out = self.convert(grey, icc("a98"))
        with Image.open(out) as image:
            self.assertEqual(image.mode, "RGB")
            same = Image.fromarray(np.repeat(light[..., None], 3, axis=2))
            self.assert_near(np.asarray(image), by_pillow(same, SRGB, str(icc("a98"))))

    def test_nothing_to_convert(self):
        pixels = noise(20, 30, 4)
        source = self.save("source.png", pixels)
        out = self.convert(source, "srgb")
        self.assertTrue((pillow_rgba(out) == pixels).all())
        profile = ImageCms.ImageCmsProfile(io.BytesIO(embedded(out)))
        self.assertIn("sRGB IEC61966-2.1", ImageCms.getProfileDescription(profile))
        again = self.convert(self.convert(source, "linear", "linear.png"), "linear", "again.png")
        self.assertTrue((pillow_rgba(again) == pillow_rgba(self.folder / "linear.png")).all())

    def test_bitmaps_without_room_for_a_profile(self):
        pixels = np.repeat(noise(20, 30, 3)[..., :1], 3, axis=2)  # saturated colours lose more in a wide gamut
        source = self.save("source.png", pixels)
        out = self.convert(source, icc("rommrgb"), "out.bmp", "--set", "bitmapinfoheader=V3")
        self.assertIsNone(embedded(out))
        self.assert_near(pillow_rgba(out)[..., :3], pixels, 2)  # there and back, in 8 bits
        older = self.folder / "older.bmp"
        self.ok("convert", "--set", "bitmapinfoheader=V4", source, older)
        out = self.convert(older, icc("a98"), "out.bmp")  # the header of the source is not kept
        self.assertEqual(embedded(out), icc("a98").read_bytes())

    def test_what_is_no_profile(self):
        source, out = self.save("source.png", noise(4, 4, 3)), self.folder / "out.png"
        text, empty, cut = (self.folder / name for name in ("text.icc", "empty.icc", "cut.icc"))
        text.write_text("no profile, but longer than the header of one " * 9)
        empty.touch()
        cut.write_bytes(icc("a98").read_bytes()[:130])
        for profile, contains in (
            (text, "text.icc: found invalid magic number in color profile."),
            (empty, "empty.icc: found invalid magic number in color profile."),
            (source, "source.png: found invalid magic number in color profile."),
            (cut, "cut.icc: cmsOpenProfileFromMem failed."),
            (icc("lab"), "lab.icc: the profile is for no colours that pixels can have"),
            (self.folder / "missing.icc", "missing.icc: "),
            (self.folder, f"{self.folder}: "),
        ):
            with self.subTest(profile=profile.name):
                self.fails(1, "convert", "--profile", profile, source, out, contains=contains)
        self.fails(2, "convert", source, out, "--profile", contains="--profile")
        self.assert_no_leftovers("source.png", "text.icc", "empty.icc", "cut.icc")
