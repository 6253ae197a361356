"""`orvik info --html`: the page, read as text and as Chromium shows it."""

import base64
import html.parser
import io
import subprocess

import numpy as np
from PIL import Image

from orvik_e2e import SAMPLE, OrvikTest, find_tool, noise, run

BROWSER_FLAGS = (
    "--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
    "--disable-component-update --disable-sync --hide-scrollbars --window-size=900,700"
).split()


class Page(html.parser.HTMLParser):
    """What a page holds: pictures and texts. It needs no other file, and closes its tags."""

    def __init__(self, text):
        super().__init__()
        self.pictures, self.texts, self.open = [], [], []
        self.feed(text)
        self.close()
        assert not self.open, self.open

    def handle_starttag(self, tag, attributes):
        for key, value in attributes:
            if key in ("src", "href"):
                head, data = value.split(",", 1)
                assert head == "data:image/png;base64", head
                self.pictures.append(Image.open(io.BytesIO(base64.b64decode(data, validate=True))))
        if tag not in ("meta", "img"):
            self.open.append(tag)

    def handle_endtag(self, tag):
        assert self.open.pop() == tag, tag

    def handle_data(self, data):
        if data.strip():
            self.texts.append(data.strip())


class Report(OrvikTest):
    def report(self, *files):
        self.ok("info", "--html", self.folder / "report.html", *files)
        return Page((self.folder / "report.html").read_text(encoding="utf-8"))

    def test_every_node_with_its_picture(self):
        flat = np.full((30, 500, 4), (200, 40, 90, 128), np.uint8)
        page = self.report(self.save("wide.png", flat, "RGBA"), SAMPLE)
        self.assertEqual([picture.size for picture in page.pictures], [(192, 11), (192, 120)])
        for text in ("500 x 30", "320 x 200", "rgba.u8", "image", str(SAMPLE)):
            self.assertIn(text, page.texts)
        np.testing.assert_array_equal(np.asarray(page.pictures[0]), np.broadcast_to(flat[0, 0], (11, 192, 4)))

    def test_pixels_of_thumbnails(self):
        # The colours of invisible pixels do not count; small pictures keep all of theirs.
        checks = np.zeros((384, 384, 4), np.uint8)
        checks[::2, ::2] = (250, 10, 20, 255)
        checks[1::2, 1::2] = (0, 255, 0, 0)
        pixels = noise(7, 5, 3)
        mean, small = self.report(self.save("checks.png", checks, "RGBA"), self.save("small.png", pixels)).pictures
        np.testing.assert_array_equal(np.asarray(mean), np.broadcast_to(np.uint8((250, 10, 20, 64)), (192, 192, 4)))
        np.testing.assert_array_equal(np.asarray(small)[..., :3], pixels)

    def test_names_are_text_and_failed_files_are_left_out(self):
        path = self.save("<img src=x> & 'quotes'.png", noise(3, 3, 3), format="PNG")
        broken = self.folder / "broken.png"
        broken.write_bytes(SAMPLE.read_bytes()[:3000])
        result = run("info", "--html", self.folder / "report.html", broken, path)
        self.assertEqual(result.returncode, 1)
        self.assertIn("broken.png", result.stderr)
        page = Page((self.folder / "report.html").read_text())
        self.assertEqual(len(page.pictures), 1)
        self.assertTrue(any("<img src=x> & 'quotes'.png" in text for text in page.texts))

    def test_a_browser_shows_pictures_over_a_checkerboard(self):
        browser = find_tool("chromium")
        half = np.zeros((100, 100, 4), np.uint8)
        half[:, :50] = (255, 0, 0, 255)
        self.report(self.save("half.png", half, "RGBA"))
        places = [f"--user-data-dir={self.folder / 'profile'}", f"--screenshot={self.folder / 'shot.png'}"]
        command = [browser, *BROWSER_FLAGS, *places, (self.folder / "report.html").as_uri()]
        subprocess.run(command, check=True, capture_output=True, timeout=120)
        shot = np.asarray(Image.open(self.folder / "shot.png").convert("RGB")).astype(int)
        red = (shot == (255, 0, 0)).all(axis=2)
        self.assertEqual(red.sum(), 50 * 100)
        top, left = np.argwhere(red).min(axis=0)
        clear = shot[top : top + 100, left + 50 : left + 100].reshape(-1, 3)
        self.assertEqual({tuple(colour) for colour in clear}, {(255, 255, 255), (187, 187, 187)})
