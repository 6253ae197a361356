"""Failing allocations: one after the other, from the start of main to the end of a conversion."""

import json
import os
import random
import unittest

from orvik_e2e import SANITIZED, OrvikTest, noise, run

SHIM = os.environ.get("ORVIK_FAILING_MALLOC", "")
NONE = 10**9  # an allocation that is never reached
# With this message and status 127 the dynamic linker itself ends a program, at the first use of a library's data.
NO_THREAD_LOCAL_DATA = "cannot allocate memory for thread-local data"


@unittest.skipIf(SANITIZED or not os.path.exists(SHIM), "needs its shim, and sanitizers allocate on their own")
class FailingAllocations(OrvikTest):
    def walk(self, numbers, *arguments):
        """Runs once for each number and checks how that ended.
        @return how many allocations the last run made"""
        numbers = list(numbers)
        environment = {**os.environ, "LD_PRELOAD": SHIM, "ORVIK_FAIL": " ".join(map(str, numbers))}
        result = run(*arguments, env=environment, cwd=self.folder)
        rows = [tuple(map(int, line.split())) for line in result.stdout.decode().splitlines()]
        self.assertEqual([number for number, _, _ in rows], numbers, result.stderr)
        ended = [os.waitstatus_to_exitcode(status) for _, status, _ in rows]
        aborts = result.stderr.count(NO_THREAD_LOCAL_DATA)
        self.assertEqual(sorted(set(ended) - {0, 1}), [127] * min(aborts, 1), list(zip(numbers, ended)))
        self.assertEqual(ended.count(127), aborts)
        leftovers = list(self.folder.glob(".orvik-*"))
        self.assertLessEqual(len(leftovers), aborts)
        for path in leftovers:
            path.unlink()
        self.assertNotIn("bad_alloc", result.stderr)
        return rows[-1][2]

    def test_end_with_an_error_and_leave_the_target(self):
        source = self.save("tiny.png", noise(4, 5, 4))
        start = self.walk([NONE], "info", self.folder / "missing.png")
        self.assertGreater(start, 1000)
        self.walk(range(1, 301), "info", source)
        formats = [entry["name"] for entry in json.loads(self.ok("formats", "--json")) if entry["write"]]
        commands = [("info", "--json", source), ("info", "--html", "{target}", source), ("formats", "--json")]
        commands += [("convert", "--to", name, source, "{target}") for name in formats]
        target = self.folder / "target"
        choice = random.Random(1)
        for command in commands:
            arguments = [target if argument == "{target}" else argument for argument in command]
            with self.subTest(command[:3]):
                self.ok(*arguments)
                expected = target.read_bytes() if target in arguments else b""
                target.write_text("keep")
                total = self.walk([NONE], *arguments)
                numbers = [*choice.sample(range(301, start), 50), *range(start - choice.randrange(3), total, 3)]
                self.walk(numbers, *arguments)
                self.assertIn(target.read_bytes(), (b"keep", expected))
                self.assert_no_leftovers("target", "tiny.png")
