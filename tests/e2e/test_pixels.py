"""`orvik pixels`: rows in every format, of nodes, with alphas joined in."""

import json

import numpy as np

from orvik_e2e import OrvikTest, noise, write_sixteen_bit_png


class Pixels(OrvikTest):
    def check(self, path, pixel_format, expected, *arguments):
        with self.subTest(pixel_format, path=path.name):
            raw = self.ok("pixels", path, "-o", "-", "--format", pixel_format, *arguments)
            self.assertEqual(raw, np.ascontiguousarray(expected).tobytes())

    def test_sixteen_bits_by_netpbm(self):
        for channels, name in ((1, "grey.u16"), (3, "rgb.u16")):
            pixels = noise(13, 10, channels, np.uint16)
            self.check(write_sixteen_bit_png(self.folder / "sample.png", pixels, "-interlace"), name, pixels)

    def test_alpha_in_the_pixels_or_as_a_node(self):
        pixels = noise(6, 9, 4)
        colours, alpha = pixels[..., :3], pixels[..., 3]
        joined = self.save("sample.png", pixels)
        apart = self.folder / "sample.tga"
        self.ok("convert", joined, apart)
        for name, expected in (
            ("bgr.u8", colours[..., ::-1]),
            ("rgba.u8", pixels),
            ("argb.u8", pixels[..., [3, 0, 1, 2]]),
            ("greya.u8", np.dstack([colours.astype(np.uint16).sum(axis=2) // 3, alpha]).astype(np.uint8)),
        ):
            for path in (joined, apart):
                self.check(path, name, expected)
        self.check(apart, "alpha.u8", alpha, "--image", "1", "--path", "Alpha")
        self.check(self.save("opaque.png", colours), "rgba.u8", np.dstack([colours, np.full_like(alpha, 255)]))

    def test_every_format_by_one_of_its_names(self):
        # Rows of the right length, or the reason why not.
        path, out = self.save("sample.png", noise(5, 12, 3)), self.folder / "out.raw"
        refused = set()
        for number, entry in enumerate(json.loads(self.ok("pixelformats", "--json"))):
            name, short = entry["id"].removeprefix("net.orvik.image.pixelformat."), entry["shortname"]
            wanted = (entry["id"], name, name.upper(), short, short.lower())[number % 5]
            with self.subTest(wanted):
                arguments = ("pixels", path, "-o", out, "--format", wanted)
                if name.startswith("indexed."):
                    refused.add(entry["bits"])
                    self.fails(1, *arguments, contains=f"to '{entry['id']}'")
                else:
                    self.ok(*arguments)
                    self.assertEqual(out.stat().st_size, 5 * 12 * entry["bits"] // 8)
        self.assertEqual(refused, {1, 2, 3, 4, 5, 6, 7, 8, 16})

    def test_arithmetic(self):
        pixels = noise(8, 20, 3)
        path = self.save("sample.png", pixels)
        self.check(path, "rgb.f32", pixels.astype(np.float32) * np.float32(0.003921569))
        self.check(path, "rgb.f64", pixels * 0.00392156862745098)
        self.check(path, "grey.u8", (pixels.astype(np.uint16).sum(axis=2) // 3).astype(np.uint8))
        self.check(path, "net.orvik.image.pixelformat.dynamic.redgreenu8", pixels[..., :2])
        self.check(path, "RGB::s32", (pixels * np.uint32(0x01010101) + np.uint32(0x80000000)).view(np.int32))

    def test_refusals(self):
        path = self.save("sample.png", noise(3, 7, 3))
        for status, arguments, contains in (
            (1, ("--format", "yuv.i422a"), "YUV needs an even number of pixels to convert."),
            (1, ("--image", "0"), "no image 0"),
            (2, ("--format", "rgba.u9"), "no pixel format 'rgba.u9'"),
            (2, ("--format", ""), "no pixel format ''"),
        ):
            with self.subTest(arguments):
                self.fails(status, "pixels", path, "-o", self.folder / "out.raw", *arguments, contains=contains)
        self.assert_no_leftovers("sample.png")
