"""The program as such: usage, help, version, interruption, pipes, documentation of its options."""

import os
import pathlib
import pty
import re
import resource
import signal
import subprocess
import time
import unittest

import numpy as np

from orvik_e2e import PROGRAM, SAMPLE, SANITIZED, SOURCE, TIMEOUT, OrvikTest, find_tool, main, run, start

COMMANDS = ("info", "convert", "pixels", "formats", "pixelformats")


class Usage(OrvikTest):
    def test_wrong_usage(self):
        for arguments in (
            (),
            ("nonsense",),
            ("info",),
            ("info", "--nonsense", SAMPLE),
            ("convert", SAMPLE),
            ("convert", SAMPLE, "a.png", "b.png"),
            ("pixels", SAMPLE),
            ("pixels", SAMPLE, "-o", "a.raw", "--image", "x"),
            ("formats", "extra"),
        ):
            with self.subTest(arguments):
                self.fails(2, *arguments, cwd=self.folder)
        self.assert_no_leftovers()

    def test_help(self):
        text = self.ok("--help").decode()
        for word in (*COMMANDS, "--version", "Examples:", "Exit status"):
            self.assertIn(word, text)
        for command in COMMANDS:
            self.assertIn("--help", self.ok(command, "--help").decode())
        self.assertIn("--set", self.ok("convert", "--help").decode())

    def test_version_everywhere_the_same(self):
        version = re.search(r"project\(orvik_image VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]
        self.assertEqual(self.ok("--version").decode(), f"orvik {version}\n")
        self.assertIn(f'"orvik {version}"', (SOURCE / "host/man/orvik.1").read_text())

    @unittest.skipIf(SANITIZED, "a sanitizer takes its time to start")
    def test_version_is_quick(self):
        def once():
            begin = time.monotonic()
            subprocess.run([PROGRAM, "--version"], stdout=subprocess.DEVNULL, check=True)
            return time.monotonic() - begin

        self.assertLess(min(once() for _ in range(20)), 0.020)

    def test_verbose_errors(self):
        result = run("--verbose", "info", self.folder / "missing.png")
        self.assertEqual(result.returncode, 1)
        self.assertIn("net.orvik.error.io at ", result.stderr)

    def test_closed_pipe(self):
        for arguments in (("info", SAMPLE), ("pixelformats", "--json"), ("pixels", SAMPLE, "-o", "-"), ("--help",)):
            with self.subTest(arguments[0]):
                reader, writer = os.pipe()
                os.close(reader)
                result = run(*arguments, stdout=writer)
                os.close(writer)
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertLessEqual(result.stderr.count("\n"), 1)


class Documentation(unittest.TestCase):
    def test_man_page(self):
        page = SOURCE / "host/man/orvik.1"
        result = subprocess.run(
            [find_tool("man"), "--warnings", "-l", "-E", "UTF-8", str(page)],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env={**os.environ, "MANWIDTH": "100", "LC_ALL": "C.UTF-8"},
        )
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertIn("EXIT STATUS", re.sub(".\b", "", result.stdout.decode()))

    def test_options_are_documented(self):
        options = set()
        for command in ("", *COMMANDS):
            text = run(*filter(None, [command]), "--help").stdout.decode()
            options |= set(re.findall(r"(?<![\w-])--[a-z]+", text))
        self.assertGreater(len(options), 8)
        page = (SOURCE / "host/man/orvik.1").read_text().replace("\\-", "-")
        completions = [(SOURCE / "host/completion" / name).read_text() for name in ("orvik.bash", "_orvik")]
        for option in sorted(options):
            for place in (page, *completions):
                self.assertIn(option, place)

    def test_bash_completion(self):
        script = SOURCE / "host/completion/orvik.bash"
        for line, expected in (
            ("orvik con", ["convert"]),
            ("orvik info --j", ["--json"]),
            ("orvik convert --to b", ["bmp"]),
            ("orvik convert --profile srg", ["srgb"]),
            ("orvik convert --set interl", ["interlaced="]),
            ("orvik pixels --format net.orvik.image.pixelformat.bgra.u", None),
        ):
            with self.subTest(line):
                words = line.split()
                code = f"""
                    PATH={pathlib.Path(PROGRAM).parent}:$PATH
                    source '{script}'
                    compopt() {{ :; }}
                    COMP_WORDS=({line}) COMP_CWORD={len(words) - 1}
                    _orvik && printf '%s\\n' "${{COMPREPLY[@]}}"
                """
                result = subprocess.run(["bash", "-c", code], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                self.assertEqual((result.returncode, result.stderr), (0, b""))
                found = result.stdout.decode().split()
                if expected is None:
                    self.assertTrue(found and all(word.startswith(words[-1]) for word in found), found)
                else:
                    self.assertEqual(found, expected)


class Interruption(OrvikTest):
    def large_picture(self):
        """Takes long to save: noise does not deflate."""
        pixels = np.random.default_rng(7).integers(0, 256, (3000, 4000, 3), np.uint8)
        return self.save("large.bmp", pixels)

    def temporaries(self):
        return [name for name in os.listdir(self.folder) if name.startswith(".orvik-")]

    def wait_for_output(self, process):
        """Until the program is in the middle of saving."""
        end = time.monotonic() + TIMEOUT
        while time.monotonic() < end and process.poll() is None:
            if any((self.folder / name).stat().st_size > 0 for name in self.temporaries()):
                return
            time.sleep(0.002)
        self.fail(f"no output was begun; status {process.poll()}")

    def test_signals_end_a_conversion(self):
        source, target = self.large_picture(), self.folder / "out.png"
        for number, status in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
            for before in (None, "keep"):
                with self.subTest(signal=number.name, before=before):
                    if before:
                        target.write_text(before)
                    with start("convert", source, target) as process:
                        self.wait_for_output(process)
                        process.send_signal(number)
                        _, err = process.communicate(timeout=TIMEOUT)
                    self.assertEqual(process.returncode, status, err)
                    self.assertEqual(err.decode(), f"orvik: {target}: interrupted\n")
                    self.assert_no_leftovers(*(["large.bmp"] + (["out.png"] if before else [])))
                    if before:
                        self.assertEqual(target.read_text(), before)
                        target.unlink()

    def test_signal_ends_a_load(self):
        source = self.large_picture()
        with start("convert", source, self.folder / "out.png") as process:
            process.send_signal(signal.SIGTERM)  # most likely before or while loading; both end alike
            process.communicate(timeout=TIMEOUT)
        self.assertIn(process.returncode, (143, -signal.SIGTERM))
        self.assert_no_leftovers("large.bmp")

    def test_ignored_signals_stay_ignored(self):
        with start("convert", SAMPLE, self.folder / "out.bmp", interrupt=signal.SIG_IGN) as process:
            for _ in range(20):
                process.send_signal(signal.SIGINT)
                time.sleep(0.002)
            self.assertEqual(process.wait(TIMEOUT), 0)
        self.assert_no_leftovers("out.bmp")


class Progress(OrvikTest):
    def test_only_on_a_terminal(self):
        pixels = np.random.default_rng(7).integers(0, 256, (3000, 4000, 3), np.uint8)
        source = self.save("large.bmp", pixels)
        self.assertEqual(run("convert", source, self.folder / "out.png").stderr, "")

        leader, follower = pty.openpty()
        with start("convert", source, self.folder / "out.png", stderr=follower,
                   env={**os.environ, "TERM": "xterm"}) as process:
            process.wait(TIMEOUT)
        os.close(follower)
        shown = os.read(leader, 1 << 16).decode()
        os.close(leader)
        self.assertEqual(process.returncode, 0)
        self.assertRegex(shown, r"\r\x1b\[K(loading|saving)")
        self.assertTrue(shown.endswith("\r\x1b[K"), repr(shown[-40:]))


if __name__ == "__main__":
    main()
