"""`orvik info`, `formats` and `pixelformats`: the shape of their JSON and of their text."""

import json
import subprocess
import unittest

from PIL import Image

from orvik_e2e import SAMPLE, SHARED, OrvikTest, find_tool, noise, run

NODE_KEYS = {"type", "name", "width", "height", "pixelformat", "colorprofile", "metadata", "children"}
MAKE, ORIENTATION = 0x010F, 0x0112
# Names that exiftool gives to the same entries, whose values are plain numbers or texts.
EXIF_NAMES = """Make Model Orientation XResolution ExposureTime FNumber Software FocalLength DateTimeOriginal ColorSpace
    MeteringMode GPSLatitudeRef""".split()


class Info(OrvikTest):
    def info(self, *arguments):
        return json.loads(self.ok("info", "--json", *arguments))

    def check_node(self, node, kind, pixel_format, width, height):
        self.assertEqual(set(node), NODE_KEYS)
        self.assertEqual((node["type"], node["width"], node["height"]), (kind, width, height))
        self.assertEqual(node["pixelformat"], "net.orvik.image.pixelformat." + pixel_format)
        for key in node["metadata"]:
            self.assertTrue(key.startswith("net.orvik.image."), key)
        self.assertEqual(node["metadata"]["net.orvik.image.type"], kind)

    def test_object_for_one_file_and_list_for_several(self):
        info = self.info(SAMPLE)
        (image,) = info.pop("images")
        png = {"url": str(SAMPLE), "format": "net.orvik.fileformat.imagepng", "width": 320, "height": 200}
        self.assertEqual(info, png)
        self.check_node(image, "IMAGE", "rgba.u8", 320, 200)
        self.assertIn("sRGB", image["colorprofile"])
        self.assertEqual(image["children"], [])
        self.assertAlmostEqual(image["metadata"]["net.orvik.image.dpi"], 72, delta=0.01)
        self.assertEqual(self.info(SAMPLE, SAMPLE), [{**png, "images": [image]}] * 2)

    def test_failed_files_have_an_entry(self):
        missing = self.folder / "missing.png"
        failure = {"url": str(missing), "error": "cannot open: No such file or directory"}
        for files, expected in (((missing,), failure), ((missing, SAMPLE), [failure, self.info(SAMPLE)])):
            result = run("info", "--json", *files)
            self.assertEqual((result.returncode, json.loads(result.stdout)), (1, expected))
            self.assertEqual(result.stderr, f"orvik: {missing}: {failure['error']}\n")
        self.assertIn("net.orvik.error.io at ", run("--verbose", "info", missing).stderr)

    def test_formats_by_content_not_by_suffix(self):
        for mode, channels, family in (("L", 1, "grey"), ("LA", 2, "greya"), ("RGB", 3, "rgb"), ("RGBA", 4, "rgba")):
            with self.subTest(mode):
                info = self.info(self.save("wrong.bmp", noise(3, 5, channels), mode, format="PNG"))
                self.assertEqual(info["format"], "net.orvik.fileformat.imagepng")
                self.check_node(info["images"][0], "IMAGE", f"{family}.u8", 5, 3)

    def test_alpha_child_and_tree(self):
        lines = self.ok("info", SAMPLE).decode().splitlines()
        self.assertEqual(lines[0], f"{SAMPLE}  png  320 x 200")
        self.assertTrue(lines[1].startswith("└─ image "), lines)
        self.assertIn("dpi 72", lines[2])
        path = self.folder / "alpha.tga"
        self.ok("convert", SAMPLE, path)
        (alpha,) = self.info(path)["images"][0]["children"]
        self.check_node(alpha, "ALPHA", "alpha.u8", 320, 200)
        self.assertEqual(alpha["name"], "Alpha")
        self.assertIn('\n   └─ alpha "Alpha"  320 x 200  alpha.u8', self.ok("info", path).decode())

    def test_headers_only(self):
        path = self.folder / "cut.png"
        path.write_bytes(SAMPLE.read_bytes()[:6000])
        self.assertEqual(self.info("--headers", path)["images"], self.info(SAMPLE)["images"])

    def test_names_that_are_no_text(self):
        path = self.folder / b"n\xff.png".decode(errors="surrogateescape")
        path.write_bytes(SAMPLE.read_bytes())
        self.assertTrue(self.info(path)["url"].endswith("/n\ufffd.png"))

    def test_exif(self):
        exif = Image.Exif()
        exif[MAKE], exif[ORIENTATION] = "Maker & Co\x1b[31m", 6
        path = self.save("picture.jpg", noise(5, 7, 3), exif=exif)
        self.assertEqual(self.info(path)["exif"], {"Make": "Maker & Co\x1b[31m", "Orientation": 6})
        self.assertNotIn("exif", self.info("--headers", path))
        self.assertNotIn("exif", self.info(self.save("plain.jpg", noise(5, 7, 3))))
        text = self.ok("info", path).decode()
        self.assertIn("\nexif\n   Make  Maker & Co\\x1b[31m\n   Orientation  6\n", text)

    def test_exif_agrees_with_exiftool(self):
        folder = SHARED / "corpus/jpeg/metadata-extractor"
        if not folder.exists():
            raise unittest.SkipTest(f"no corpus at {folder}")
        files = sorted(folder.iterdir())
        found = {info["url"]: info.get("exif") for info in json.loads(run("info", "--json", *files).stdout)}
        command = [find_tool("exiftool"), "-j", "-n", "-fast2", "-ifd0:all", "-exififd:all", "-gps:all", *files]
        entries = json.loads(subprocess.run(command, capture_output=True).stdout)
        expected = {entry["SourceFile"]: entry for entry in entries}
        pairs = [(path, name, exif[name], expected[path][name]) for path, exif in found.items() if exif
                 for name in EXIF_NAMES if name in exif and name in expected[path]]  # fmt: skip
        for path, name, ours, theirs in pairs:
            with self.subTest(path, name=name):
                if isinstance(theirs, str):
                    self.assertEqual(ours, theirs.rstrip(" "))
                else:
                    self.assertAlmostEqual(float(ours), theirs, delta=1e-6 * (1 + theirs))
        self.assertGreater(len({path for path, *_ in pairs}), 12)
        self.assertGreater(len(pairs), 100)


class Lists(OrvikTest):
    def test_formats(self):
        formats = {entry["name"]: entry for entry in json.loads(self.ok("formats", "--json"))}
        entry = formats["hdr"]
        self.assertEqual(entry["id"], "net.orvik.fileformat.imagehdr")
        self.assertEqual(entry["suffixes"], ["hdr", "rgbe", "pic"])
        self.assertEqual(entry["read"], {"image": True, "video": False, "audio": False})
        for name, values in (("hdr", (True, 0, False, [32], False, None)), ("bmp", (True, 1, True, [8], False, 32000))):
            keys = ("image", "alphas", "colorprofile", "bitdepths", "layers", "maximalresolution")
            self.assertEqual(tuple(formats[name]["write"][key] for key in keys), values)
        settings = {setting["name"] for name in ("bmp", "jpg") for setting in formats[name]["write"]["settings"]}
        self.assertEqual(settings, {"bitmapinfoheader", "disablesrgbconversion", "baseline", "quality"})
        text = self.ok("formats").decode()
        for name in formats:
            self.assertRegex(text, rf"(?m)^{name}  \(")
        self.assertIn("--set interlaced=true|false  in seven passes; default false\n", text)

    def test_pixel_formats(self):
        formats = {entry["id"]: entry for entry in json.loads(self.ok("pixelformats", "--json"))}
        self.assertGreaterEqual(len(formats), 80)
        for name, short, bits, channels, space in (
            ("rgba.u8", "RGBA::U8", 32, ["red", "green", "blue", "alpha"], "rgb"),
            ("bgr.u8", "BGR::U8", 24, ["blue", "green", "red"], "rgb"),
            ("grey.u16", "GREY::U16", 16, ["grey"], "grey"),
        ):
            entry = formats["net.orvik.image.pixelformat." + name]
            self.assertEqual((entry["bits"], entry["shortname"], entry["alpha"]), (bits, short, "alpha" in channels))
            self.assertEqual([channel["type"] for channel in entry["channels"]], channels)
            self.assertEqual(sum(channel["bits"] for channel in entry["channels"]), bits)
            self.assertEqual(entry["colorspace"], "net.orvik.image.colorspace." + space)
        lines = self.ok("pixelformats").decode().splitlines()
        self.assertEqual({line.split()[0] for line in lines}, set(formats))
