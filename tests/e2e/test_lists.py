"""`orvik formats` and `orvik pixelformats`."""

import json

from orvik_e2e import OrvikTest, main


class Lists(OrvikTest):
    def test_formats(self):
        formats = {entry["name"]: entry for entry in json.loads(self.ok("formats", "--json"))}
        for name, suffixes, alphas, profile, depths in (
            ("bmp", ["bmp"], 1, True, [8]),
            ("hdr", ["hdr", "rgbe", "pic"], 0, False, [32]),
            ("png", ["png"], 1, True, [8, 16]),
            ("tga", ["tga", "tpic"], 1, False, [8]),
        ):
            with self.subTest(name):
                entry = formats[name]
                self.assertEqual(entry["id"], f"net.orvik.fileformat.image{name}")
                self.assertEqual(entry["suffixes"], suffixes)
                self.assertEqual(entry["read"], {"image": True, "video": False, "audio": False})
                write = entry["write"]
                self.assertEqual((write["image"], write["alphas"], write["colorprofile"]), (True, alphas, profile))
                self.assertEqual(write["bitdepths"], depths)
                self.assertFalse(write["layers"])
        self.assertEqual(formats["bmp"]["write"]["maximalresolution"], 32000)
        self.assertIsNone(formats["png"]["write"]["maximalresolution"])
        names = lambda entry: {setting["name"] for setting in entry["write"]["settings"]}
        self.assertIn("bitmapinfoheader", names(formats["bmp"]))
        self.assertNotIn("interlaced", names(formats["bmp"]))
        self.assertIn("interlaced", names(formats["png"]))

    def test_formats_as_text(self):
        text = self.ok("formats").decode()
        for name in (entry["name"] for entry in json.loads(self.ok("formats", "--json"))):
            self.assertRegex(text, rf"(?m)^{name}  \(")
        self.assertIn("--set interlaced=true|false", text)

    def test_pixel_formats(self):
        formats = {entry["id"]: entry for entry in json.loads(self.ok("pixelformats", "--json"))}
        self.assertGreaterEqual(len(formats), 80)
        cases = {
            "rgba.u8": ("RGBA::U8", 32, ["red", "green", "blue", "alpha"], "rgb"),
            "bgr.u8": ("BGR::U8", 24, ["blue", "green", "red"], "rgb"),
            "grey.u16": (None, 16, ["grey"], "grey"),
            "rgb.f32": ("RGB::F32", 96, ["red", "green", "blue"], "rgb"),
        }
        for name, (short, bits, channels, space) in cases.items():
            with self.subTest(name):
                entry = formats["net.orvik.image.pixelformat." + name]
                self.assertEqual(entry["bits"], bits)
                self.assertEqual([channel["type"] for channel in entry["channels"]], channels)
                self.assertEqual(sum(channel["bits"] for channel in entry["channels"]), bits)
                self.assertEqual(entry["colorspace"], "net.orvik.image.colorspace." + space)
                self.assertEqual(entry["alpha"], "alpha" in channels)
                if short:
                    self.assertEqual(entry["shortname"], short)
        lines = self.ok("pixelformats").decode().splitlines()
        self.assertEqual({line.split()[0] for line in lines}, set(formats))


if __name__ == "__main__":
    main()
