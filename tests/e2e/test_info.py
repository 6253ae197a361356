"""`orvik info`: the shape of its JSON and its tree."""

import json

from PIL import Image

from orvik_e2e import SAMPLE, OrvikTest, main, noise

NODE_KEYS = {"type", "name", "width", "height", "pixelformat", "colorprofile", "metadata", "children"}


class Info(OrvikTest):
    def info(self, *files):
        return json.loads(self.ok("info", "--json", *files))

    def check_node(self, node):
        self.assertEqual(set(node), NODE_KEYS)
        for key in ("type", "name", "pixelformat", "colorprofile"):
            self.assertIsInstance(node[key], str, key)
        self.assertTrue(node["pixelformat"].startswith("net.orvik.image.pixelformat."))
        for key in node["metadata"]:
            self.assertTrue(key.startswith("net.orvik.image."), key)
        self.assertEqual(node["metadata"]["net.orvik.image.type"], node["type"])
        for child in node["children"]:
            self.check_node(child)

    def test_object_for_one_file(self):
        info = self.info(SAMPLE)
        self.assertEqual(set(info), {"url", "format", "width", "height", "images"})
        self.assertEqual(info["url"], str(SAMPLE))
        self.assertEqual(info["format"], "net.orvik.fileformat.imagepng")
        self.assertEqual((info["width"], info["height"]), (320, 200))
        self.assertEqual(len(info["images"]), 1)
        image = info["images"][0]
        self.check_node(image)
        self.assertEqual((image["type"], image["width"], image["height"]), ("IMAGE", 320, 200))
        self.assertIn("sRGB", image["colorprofile"])
        self.assertEqual(image["pixelformat"], "net.orvik.image.pixelformat.rgba.u8")
        self.assertEqual(image["children"], [])
        self.assertAlmostEqual(image["metadata"]["net.orvik.image.dpi"], 72, delta=0.01)

    def test_list_for_several_files(self):
        info = self.info(SAMPLE, SAMPLE)
        self.assertIsInstance(info, list)
        self.assertEqual([picture["url"] for picture in info], [str(SAMPLE)] * 2)

    def test_formats_by_content_not_by_suffix(self):
        for mode, channels in (("L", 1), ("LA", 2), ("RGB", 3), ("RGBA", 4)):
            with self.subTest(mode):
                path = self.save("wrong.bmp", noise(3, 5, channels), mode, format="PNG")
                info = self.info(path)
                self.assertEqual(info["format"], "net.orvik.fileformat.imagepng")
                image = info["images"][0]
                self.check_node(image)
                self.assertEqual((image["width"], image["height"]), (5, 3))
                family = {"L": "grey", "LA": "greya", "RGB": "rgb", "RGBA": "rgba"}[mode]
                self.assertEqual(image["pixelformat"], f"net.orvik.image.pixelformat.{family}.u8")
        path = self.save("picture", noise(3, 5, 3), format="BMP")
        self.assertEqual(self.info(path)["format"], "net.orvik.fileformat.imagebmp")

    def test_alpha_child(self):
        path = self.folder / "alpha.bmp"
        self.ok("convert", SAMPLE, path)
        info = self.info(path)
        self.assertEqual(info["format"], "net.orvik.fileformat.imagebmp")
        image = info["images"][0]
        self.check_node(image)
        self.assertEqual([child["type"] for child in image["children"]], ["ALPHA"])
        alpha = image["children"][0]
        self.assertEqual((alpha["name"], alpha["width"], alpha["height"]), ("Alpha", 320, 200))
        self.assertEqual(alpha["pixelformat"], "net.orvik.image.pixelformat.alpha.u8")

    def test_headers_only(self):
        whole = SAMPLE.read_bytes()
        path = self.folder / "cut.png"
        path.write_bytes(whole[: len(whole) // 2])
        cut = json.loads(self.ok("info", "--headers", "--json", path))
        full = self.info(SAMPLE)
        self.assertEqual(
            [(n["type"], n["width"], n["height"], n["pixelformat"]) for n in cut["images"]],
            [(n["type"], n["width"], n["height"], n["pixelformat"]) for n in full["images"]],
        )

    def test_names_that_are_no_text(self):
        path = self.folder.as_posix().encode() + b"/n\xff.png"
        with open(path, "wb") as file:
            file.write(SAMPLE.read_bytes())
        result = json.loads(self.ok("info", "--json", path.decode(errors="surrogateescape")))
        self.assertTrue(result["url"].endswith("/n\ufffd.png"))

    def test_tree(self):
        text = self.ok("info", SAMPLE).decode()
        lines = text.splitlines()
        self.assertEqual(lines[0], f"{SAMPLE}  png  320 x 200")
        self.assertTrue(lines[1].startswith("└─ image "), text)
        self.assertIn("dpi 72", text)
        path = self.folder / "alpha.bmp"
        self.ok("convert", SAMPLE, path)
        text = self.ok("info", path).decode()
        self.assertIn('\n   └─ alpha "Alpha"  320 x 200  alpha.u8', text)


if __name__ == "__main__":
    main()
