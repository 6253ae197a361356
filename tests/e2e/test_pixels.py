"""`orvik pixels`: rows in every format, of nodes, with alphas joined in."""

import json

import numpy as np

from orvik_e2e import OrvikTest, main, noise, write_sixteen_bit_png


class Pixels(OrvikTest):
    def pixels(self, path, *arguments):
        return self.ok("pixels", path, "-o", "-", *arguments)

    def check(self, path, pixel_format, expected):
        raw = self.pixels(path, "--format", "net.orvik.image.pixelformat." + pixel_format)
        self.assertEqual(raw, np.ascontiguousarray(expected).tobytes())

    def test_png_by_netpbm(self):
        for channels, name in ((1, "grey.u16"), (3, "rgb.u16")):
            for interlace in ((), ("-interlace",)):
                with self.subTest(name=name, interlace=interlace):
                    pixels = noise(13, 10, channels, np.uint16)
                    self.check(write_sixteen_bit_png(self.folder / "sample.png", pixels, *interlace), name, pixels)

    def test_alpha_in_the_pixels_or_as_a_node(self):
        pixels = noise(6, 9, 4)
        colours, alpha = pixels[..., :3], pixels[..., 3]
        joined = self.save("sample.png", pixels)
        apart = self.folder / "sample.bmp"
        self.ok("convert", joined, apart)
        for name, expected in (
            ("rgb.u8", colours),
            ("bgr.u8", colours[..., ::-1]),
            ("rgba.u8", pixels),
            ("bgra.u8", pixels[..., [2, 1, 0, 3]]),
            ("argb.u8", pixels[..., [3, 0, 1, 2]]),
            ("greya.u8", np.dstack([colours.astype(np.uint16).sum(axis=2) // 3, alpha]).astype(np.uint8)),
        ):
            for path in (joined, apart):
                with self.subTest(name, path=path.name):
                    self.check(path, name, expected)
        for arguments in (("--path", "Alpha"), ("--image", "1", "--path", "Alpha")):
            raw = self.pixels(apart, "--format", "net.orvik.image.pixelformat.alpha.u8", *arguments)
            self.assertEqual(raw, alpha.tobytes())
        opaque = np.dstack([colours, np.full_like(alpha, 255)])
        self.check(self.save("opaque.png", colours), "rgba.u8", opaque)

    def test_every_format(self):
        # 83 fixed ones and 16 of one or two channels: rows of the right length, or the reason why not.
        height, width = 5, 12
        path = self.save("sample.png", noise(height, width, 3))
        out = self.folder / "out.raw"
        formats = json.loads(self.ok("pixelformats", "--json"))
        self.assertEqual(len(formats), 83 + 16)
        refused = set()
        for entry in formats:
            with self.subTest(entry["shortname"]):
                if entry["id"].split(".")[-2] == "indexed":
                    refused.add(entry["bits"])
                    self.fails(1, "pixels", path, "-o", out, "--format", entry["id"],
                               contains=f"to '{entry['id']}'")
                    continue
                raw = self.pixels(path, "--format", entry["id"])
                self.assertEqual(len(raw), height * width * entry["bits"] // 8)
        self.assertEqual(refused, {1, 2, 3, 4, 5, 6, 7, 8, 16})
        self.assertFalse(out.exists())

    def test_other_arithmetic(self):
        pixels = noise(8, 20, 3)
        path = self.save("sample.png", pixels)
        values = pixels.astype(np.float32) * np.float32(0.003921569)
        self.check(path, "rgb.f32", values)
        self.check(path, "rgb.f64", pixels * 0.00392156862745098)
        self.check(path, "grey.u8", (pixels.astype(np.uint16).sum(axis=2) // 3).astype(np.uint8))
        self.check(path, "dynamic.redgreenu8", pixels[..., :2])
        self.check(path, "rgb.s32", (pixels * np.uint32(0x01010101) + np.uint32(0x80000000)).view(np.int32))

    def test_shared_chroma_needs_pairs(self):
        odd = self.save("odd.png", noise(3, 7, 3))
        for variant in "ab":
            self.fails(1, "pixels", odd, "-o", self.folder / "out.raw", "--format",
                       f"net.orvik.image.pixelformat.yuv.i422{variant}",
                       contains="YUV needs an even number of pixels to convert.")
        self.assert_no_leftovers("odd.png")

    def test_selection_that_is_not_there(self):
        path = self.save("sample.png", noise(6, 9, 3))
        out = self.folder / "out.raw"
        self.fails(1, "pixels", path, "-o", out, "--image", "2", contains="no image 2")
        self.fails(1, "pixels", path, "-o", out, "--image", "0", contains="no image 0")
        self.fails(1, "pixels", path, "-o", out, "--path", "Layer 1", contains="no node 'Layer 1'")
        self.fails(2, "pixels", path, "-o", out, "--format", "rgba.u9", contains="no pixel format 'rgba.u9'")
        self.assertFalse(out.exists())


if __name__ == "__main__":
    main()
