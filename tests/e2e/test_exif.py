"""Exif data in `orvik info`."""

import json

from PIL import Image

from orvik_e2e import OrvikTest, main, noise

MAKE, ORIENTATION, EXPOSURE = 0x010F, 0x0112, 0x829A


class Exif(OrvikTest):
    def picture(self, **tags):
        path = self.folder / "picture.jpg"
        exif = Image.Exif()
        exif[MAKE] = tags["make"]
        exif[ORIENTATION] = 6
        Image.fromarray(noise(5, 7, 3)).save(path, exif=exif)
        return path

    def test_dictionary_in_json(self):
        info = json.loads(self.ok("info", "--json", self.picture(make="Maker & Co")))
        self.assertEqual(info["exif"], {"Make": "Maker & Co", "Orientation": 6})

    def test_dictionary_as_text(self):
        text = self.ok("info", self.picture(make="Maker\x1b[31m"))
        if isinstance(text, bytes):
            text = text.decode()
        lines = text.splitlines()
        at = lines.index("exif")
        self.assertEqual(lines[at + 2], "   Orientation  6")
        self.assertTrue(lines[at + 1].startswith("   Make  Maker"))
        self.assertNotIn("\x1b", text)

    def test_headers_alone_have_none(self):
        info = json.loads(self.ok("info", "--json", "--headers", self.picture(make="Maker")))
        self.assertNotIn("exif", info)

    def test_files_without(self):
        path = self.save("plain.jpg", noise(5, 7, 3), format="JPEG")
        self.assertNotIn("exif", json.loads(self.ok("info", "--json", path)))


if __name__ == "__main__":
    main()
