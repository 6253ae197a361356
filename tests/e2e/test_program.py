"""The program as such: usage, help, version, interruption, pipes, documentation of its options."""

import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import threading
import time
import timeit
import unittest

from orvik_e2e import PROGRAM, SAMPLE, SANITIZED, SOURCE, TIMEOUT, OrvikTest, find_tool, noise, run, start

COMMANDS = ("info", "convert", "pixels", "formats", "pixelformats")


class Usage(OrvikTest):
    def test_wrong_usage(self):
        for line in ("", "nonsense", "info", "info --nonsense PNG", "convert PNG", "convert PNG a.png b.png",
                     "pixels PNG", "pixels PNG -o a.raw --image x", "formats extra", "formats -- extra"):  # fmt: skip
            with self.subTest(line):
                self.fails(2, *line.replace("PNG", str(SAMPLE)).split(), cwd=self.folder)
        self.assert_no_leftovers()

    def test_names_like_options_and_commands(self):
        for name in ("-odd.png", "--json", "formats", "++"):
            with self.subTest(name):
                (self.folder / name).write_bytes(SAMPLE.read_bytes())
                self.assertIn(b"320 x 200", self.ok("info", "--", name, cwd=self.folder))
                self.ok("convert", "--to", "bmp", "--", name, "-out", cwd=self.folder)
                self.assertIn(b"bmp", self.ok("info", SAMPLE, "--", "-out", cwd=self.folder))

    def test_version_everywhere_the_same(self):
        version = re.search(r"project\(orvik_image VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]
        self.assertEqual(self.ok("--version").decode(), f"orvik {version}\n")
        self.assertIn(f'"orvik {version}"', (SOURCE / "host/man/orvik.1").read_text())

    @unittest.skipIf(SANITIZED, "a sanitizer takes its time to start")
    def test_version_is_quick(self):
        command = [PROGRAM, "--version"]
        seconds = timeit.repeat(lambda: subprocess.run(command, capture_output=True, check=True), number=1, repeat=20)
        self.assertLess(min(seconds), 0.020)


class Documentation(unittest.TestCase):
    def test_man_page(self):
        command = [find_tool("man"), "--warnings", "-l", "-E", "UTF-8", SOURCE / "host/man/orvik.1"]
        result = subprocess.run(command, capture_output=True, env=os.environ | {"MANWIDTH": "100", "LC_ALL": "C.UTF-8"})
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertIn("EXIT STATUS", re.sub(".\b", "", result.stdout.decode()))

    def test_options_are_documented(self):
        text = run("--help").stdout.decode()
        for word in (*COMMANDS, "--version", "Examples:", "Exit status"):
            self.assertIn(word, text)
        text += "".join(run(command, "--help").stdout.decode() for command in COMMANDS)
        options = set(re.findall(r"(?<![\w-])--[a-z]+", text))
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
            ("orvik convert --set = interl", ["interlaced="]),  # "=" is a word of its own
            ("orvik convert -s interlaced =", ["false", "true"]),
            ("orvik convert --set png.export.interlaced = t", ["true"]),
            ("orvik convert --set = bitmapinfoheader =", ["V3", "V4", "V5"]),
            ("orvik convert --set quality =", []),
            ("orvik pixels --format rgb.u1", ["rgb.u16"]),
            ("orvik pixels -f net.orvik.image.pixelformat.rgb.u1", ["net.orvik.image.pixelformat.rgb.u16"]),
        ):
            with self.subTest(line):
                code = f"""
                    PATH={pathlib.Path(PROGRAM).parent}:$PATH
                    source '{script}'
                    compopt() {{ :; }}
                    COMP_WORDS=({line}) COMP_CWORD={len(line.split()) - 1}
                    _orvik && printf '%s\\n' "${{COMPREPLY[@]}}"
                """
                result = subprocess.run(["bash", "-c", code], capture_output=True)
                self.assertEqual((result.returncode, result.stderr), (0, b""))
                self.assertEqual(result.stdout.decode().split(), expected)


def waits_for_a_pipe(process):
    """Without a terminal the program has one thread, which sleeps for nothing else."""
    return pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()[0] == "S"


class Interruption(OrvikTest):
    def wait_until(self, process, condition):
        end = time.monotonic() + TIMEOUT
        while time.monotonic() < end and process.poll() is None:
            if condition():
                return
            time.sleep(0.002)
        self.fail(f"waited in vain; status {process.poll()}")

    def is_saving(self):
        return any(path.stat().st_size > 0 for path in self.folder.glob(".orvik-*"))

    def test_signals_end_a_conversion(self):
        source, target = self.save("large.bmp", noise(3000, 4000, 3)), self.folder / "out.png"  # noise takes long
        for number in (signal.SIGINT, signal.SIGTERM):
            for before in ([], ["out.png"]):
                with self.subTest(signal=number.name, before=before):
                    for name in before:
                        (self.folder / name).write_text("keep")
                    with start("convert", source, target) as process:
                        self.wait_until(process, self.is_saving)
                        process.send_signal(number)
                        _, err = process.communicate(timeout=TIMEOUT)
                    self.assertEqual((process.returncode, err.decode()), (-number, f"orvik: {target}: interrupted\n"))
                    self.assert_no_leftovers("large.bmp", *before)
                    self.assertEqual([(self.folder / name).read_text() for name in before], ["keep"] * len(before))
                    target.unlink(missing_ok=True)

    def test_first_signal_ends_a_wait_for_a_pipe(self):
        fifo, out = self.folder / "fifo", self.folder / "out.png"
        os.mkfifo(fifo)
        out.write_text("keep")
        reader, writer = os.pipe()
        full, filler = os.pipe()
        os.set_blocking(filler, False)
        while select.select([], [filler], [], 0)[1]:
            os.write(filler, bytes(4096))
        os.set_blocking(filler, True)
        for what, arguments, options in (
            ("opening a pipe to read", ("convert", fifo, out), {}),
            ("reading standard input", ("convert", "-", out), {"stdin": reader}),
            ("opening a profile", ("convert", "--profile", fifo, SAMPLE, out), {}),
            ("opening a pipe to write", ("convert", "--to", "png", SAMPLE, fifo), {}),
            ("writing a picture", ("convert", "--to", "png", SAMPLE, "-"), {"stdout": filler}),
            ("writing pixels", ("pixels", SAMPLE, "-o", "-"), {"stdout": filler}),
            ("writing text", ("pixelformats", "--json"), {"stdout": filler}),
        ):
            for number in (signal.SIGINT, signal.SIGTERM):
                with self.subTest(what, signal=number.name), start(*arguments, **options) as process:
                    self.wait_until(process, lambda: waits_for_a_pipe(process))
                    process.send_signal(number)
                    timer = threading.Timer(10, process.kill)
                    timer.start()
                    self.assertEqual(process.wait(TIMEOUT), -number)
                    timer.cancel()
                    self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(out.read_text(), "keep")
        self.assert_no_leftovers("fifo", "out.png")
        for descriptor in (reader, writer, full, filler):
            os.close(descriptor)

    def test_closed_pipe_ends_quietly(self):
        reader, writer = os.pipe()
        os.close(reader)
        self.addCleanup(os.close, writer)
        for line in ("info SAMPLE", "--help", "pixels SAMPLE -o -", "convert --to bmp SAMPLE -"):
            arguments = line.replace("SAMPLE", str(SAMPLE)).split()
            with self.subTest(arguments[0]):
                result = run(*arguments, stdout=writer)
                self.assertEqual((result.returncode, result.stderr), (-signal.SIGPIPE, ""))
                self.assertEqual(run(*arguments, stdout=writer, pipe=signal.SIG_IGN).returncode, 1)

    def test_ignored_signals_stay_ignored(self):
        with start("convert", SAMPLE, self.folder / "out.bmp", interrupt=signal.SIG_IGN) as process:
            for _ in range(20):
                process.send_signal(signal.SIGINT)
                time.sleep(0.002)
            self.assertEqual(process.wait(TIMEOUT), 0)
        self.assert_no_leftovers("out.bmp")


class Progress(OrvikTest):
    def test_only_on_a_terminal(self):
        source = self.save("large.bmp", noise(3000, 4000, 3))
        self.assertEqual(run("convert", source, self.folder / "out.png").stderr, "")
        leader, follower = pty.openpty()
        terminal = {"stderr": follower, "env": os.environ | {"TERM": "xterm"}}
        self.assertEqual(run("convert", source, self.folder / "out.png", **terminal).returncode, 0)
        os.close(follower)
        shown = os.read(leader, 1 << 16).decode()
        os.close(leader)
        self.assertRegex(shown, r"\r\x1b\[K(loading|saving)")
        self.assertTrue(shown.endswith("\r\x1b[K"), repr(shown[-40:]))
