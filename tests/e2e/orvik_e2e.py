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


def prepare_child(limits, interrupt, pipe):
    """Runs in the child: signals as a shell in the foreground has them, unless a test says otherwise, and limits."""
    signal.signal(signal.SIGINT, interrupt)
    signal.signal(signal.SIGPIPE, pipe)
    for kind, value in limits.items():
        resource.setrlimit(kind, (value, value))


def start(*arguments, limits=None, interrupt=signal.SIG_DFL, pipe=signal.SIG_DFL, **options):
    options.setdefault("stdout", subprocess.PIPE)
    options.setdefault("stderr", subprocess.PIPE)
    return subprocess.Popen(
        [options.pop("program", PROGRAM), *map(str, arguments)],
        stdin=options.pop("stdin", subprocess.DEVNULL),
        preexec_fn=lambda: prepare_child(limits or {}, interrupt, pipe),
        **options,
    )


def run(*arguments, **options):
    """Runs orvik to its end; stdout stays bytes, stderr is text."""
    with start(*arguments, **options) as process:
        out, err = process.communicate(timeout=TIMEOUT)
    return subprocess.CompletedProcess(process.args, process.returncode, out, (err or b"").decode(errors="replace"))


def find_tool(*names):
    """The first of the Debian tools that is there, or a skipped test."""
    for name in names:
        for folder in ("/usr/bin", "/bin"):
            if os.access(os.path.join(folder, name), os.X_OK):
                return os.path.join(folder, name)
    raise unittest.SkipTest(f"{names[0]} is not installed")


def pillow_rgba(path):
    """8-bit RGBA of a file as Pillow reads it."""
    with Image.open(path) as image:
        return np.asarray(image.convert("RGBA"))


def noise(height, width, channels, dtype=np.uint8, seed=1):
    """Random pixels: every channel and every row differs, which a swap or a shift cannot survive."""
    limit = np.iinfo(dtype).max
    shape = (height, width, channels) if channels > 1 else (height, width)
    return np.random.default_rng(seed).integers(0, limit, shape, dtype, endpoint=True)


def write_sixteen_bit_png(path, pixels, *options):
    """By netpbm: Pillow writes no colours of 16 bits."""
    height, width = pixels.shape[:2]
    head = f"{'P5' if pixels.ndim == 2 else 'P6'} {width} {height} 65535\n"
    command = [find_tool("pnmtopng"), *options]
    made = subprocess.run(command, input=head.encode() + pixels.astype(">u2").tobytes(), capture_output=True, check=True)
    path.write_bytes(made.stdout)
    return path


class OrvikTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orvik-e2e-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def ok(self, *arguments, **options):
        result = run(*arguments, **options)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")
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

    def save(self, name, pixels, mode=None, **options):
        path = self.folder / name
        Image.fromarray(pixels, mode).save(path, **options)
        return path


def main():
    unittest.main(verbosity=2)
