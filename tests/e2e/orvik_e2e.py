"""What the end-to-end tests share: running `orvik`, a folder for each test, pictures and peers."""

import os
import pathlib
import resource
import shutil
import signal
import subprocess
import tempfile
import unittest

import numpy as np
from PIL import Image

SOURCE = pathlib.Path(os.environ.get("ORVIK_SOURCE", pathlib.Path(__file__).parents[2]))
BUILD = pathlib.Path(os.environ.get("ORVIK_BUILD", SOURCE / "build/release"))
PROGRAM = os.environ.get("ORVIK_PROGRAM", str(BUILD / "bin/orvik"))
SANITIZED = bool(os.environ.get("ORVIK_SANITIZE"))
SHARED = pathlib.Path(os.environ.get("ORVIK_SHARED", SOURCE.parent / "shared"))
SAMPLE = SOURCE / "examples/lake.png"
TIMEOUT = 120

if SANITIZED:
    # A sanitizer's findings end with a status that the program itself never uses.
    os.environ.setdefault("ASAN_OPTIONS", "exitcode=99:allocator_may_return_null=1")
    os.environ.setdefault("UBSAN_OPTIONS", "exitcode=99:print_stacktrace=1")
    os.environ.setdefault("TSAN_OPTIONS", "exitcode=99")


def start(*arguments, program=PROGRAM, limits=None, interrupt=signal.SIG_DFL, pipe=signal.SIG_DFL, **options):
    """Starts orvik with limits, and with signals as a shell in the foreground has them unless a test says otherwise."""

    def prepare_child():
        signal.signal(signal.SIGINT, interrupt)
        signal.signal(signal.SIGPIPE, pipe)
        for kind, value in (limits or {}).items():
            resource.setrlimit(kind, (value, value))

    streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    return subprocess.Popen([program, *map(str, arguments)], preexec_fn=prepare_child, **(streams | options))


def run(*arguments, **options):
    """Runs orvik to its end; stdout stays bytes, stderr is text."""
    with start(*arguments, **options) as process:
        out, err = process.communicate(timeout=TIMEOUT)
    return subprocess.CompletedProcess(process.args, process.returncode, out, (err or b"").decode(errors="replace"))


def find_tool(name):
    """The path of a Debian tool, or a skipped test."""
    path = shutil.which(name, path="/usr/bin:/bin")
    if not path:
        raise unittest.SkipTest(f"{name} is not installed")
    return path


def pillow_rgba(path):
    """8-bit RGBA of a file as Pillow reads it."""
    with Image.open(path) as image:
        return np.asarray(image.convert("RGBA"))


def noise(height, width, channels, dtype=np.uint8, seed=1):
    """Random pixels: every channel and every row differs, which a swap or a shift cannot survive."""
    shape = (height, width, channels) if channels > 1 else (height, width)
    return np.random.default_rng(seed).integers(0, np.iinfo(dtype).max, shape, dtype, endpoint=True)


def write_sixteen_bit_png(path, pixels, *options):
    """By netpbm: Pillow writes no colours of 16 bits."""
    height, width = pixels.shape[:2]
    head = f"{'P5' if pixels.ndim == 2 else 'P6'} {width} {height} 65535\n"
    netpbm = head.encode() + pixels.astype(">u2").tobytes()
    path.write_bytes(subprocess.check_output([find_tool("pnmtopng"), "-quiet", *options], input=netpbm))
    return path


class OrvikTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orvik-e2e-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def ok(self, *arguments, **options):
        result = run(*arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def fails(self, status, *arguments, contains="", **options):
        """Checks for a failure with one line on standard error and nothing on standard output."""
        result = run(*arguments, **options)
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertRegex(result.stderr, r"\Aorvik: [^\n]+\n\Z")
        self.assertEqual(result.stdout or b"", b"")
        self.assertIn(contains, result.stderr)
        return result.stderr

    def assert_no_leftovers(self, *expected):
        """Only these names stand in the test's folder."""
        self.assertEqual(sorted(os.listdir(self.folder)), sorted(expected))

    def assert_pixels(self, path, expected):
        """8-bit RGBA or RGB, as Pillow reads it."""
        np.testing.assert_array_equal(pillow_rgba(path)[..., : expected.shape[2]], expected)

    def save(self, name, pixels, mode=None, **options):
        path = self.folder / name
        Image.fromarray(pixels, mode).save(path, **options)
        return path
