"""`orvik formats` and `orvik pixelformats`."""

import json

from orvik_e2e import OrvikTest, main


class Lists(OrvikTest):
    def test_formats(self):
        formats = {entry["name"]: entry for entry in json.loads(self.ok("formats", "--json"))}
        entry = formats["hdr"]
        self.assertEqual(entry["id"], "net.orvik.fileformat.imagehdr")
        self.assertEqual(entry["suffixes"], ["hdr", "rgbe", "pic"])
        self.assertEqual(entry["read"], {"image": True, "video": False, "audio": False})
        for key, hdr, bmp in (
            ("image", True, True),
            ("alphas", 0, 1),
            ("colorprofile", False, True),
            ("bitdepths", [32], [8]),
            ("layers", False, False),
            ("maximalresolution", None, 32000),
        ):
            self.assertEqual((entry["write"][key], formats["bmp"]["write"][key]), (hdr, bmp), key)
        names = lambda entry: {setting["name"] for setting in entry["write"]["settings"]}
        self.assertEqual(names(formats["bmp"]), {"bitmapinfoheader", "disablesrgbconversion"})
        self.assertEqual(names(formats["jpg"]), {"baseline", "quality"})

    def test_formats_as_text(self):
        text = self.ok("formats").decode()
        for name in (entry["name"] for entry in json.loads(self.ok("formats", "--json"))):
            self.assertRegex(text, rf"(?m)^{name}  \(")
        self.assertIn("--set interlaced=true|false  in seven passes; default false\n", text)

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
