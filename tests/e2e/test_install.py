"""The installed package: what lies where, programs of others on it, and life without the module."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from orvik_e2e import BUILD, SAMPLE, SANITIZED, SOURCE, OrvikTest, run


@unittest.skipIf(SANITIZED, "packages are made of plain builds")
class Installed(OrvikTest):
    @classmethod
    def setUpClass(cls):
        cls.root = pathlib.Path(tempfile.mkdtemp(prefix="orvik-install-"))
        first = cls.root / "first"
        cls.call(["cmake", "--install", BUILD, "--prefix", first])
        # Everything has to work in another place than the one it was installed to.
        cls.prefix = cls.root / "moved"
        first.rename(cls.prefix)
        cls.libraries = next(cls.prefix.glob("lib/**/liborvik-core.so")).parent

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.root, ignore_errors=True)

    @staticmethod
    def call(command, **options):
        result = subprocess.run([*map(str, command)], capture_output=True, text=True, **options)
        if result.returncode != 0:
            raise AssertionError(f"{command} failed:\n{result.stdout}{result.stderr}")
        return result.stdout

    def test_files(self):
        here = {path.relative_to(self.prefix).as_posix() for path in self.prefix.rglob("*")}
        libraries = self.libraries.relative_to(self.prefix).as_posix()
        for name in ("share/man/man1/orvik.1", "share/bash-completion/completions/orvik", "include/orvik/gfx_image.h",
                     f"{libraries}/liborvik-host.so", f"{libraries}/orvik/modules/image.module"):  # fmt: skip
            self.assertIn(name, here)

    def test_binaries_name_no_build_tree_and_the_module_exports_its_entry_only(self):
        for pattern in ("bin/*", "lib/**/*.so*", "lib/**/*.module"):
            for path in self.prefix.glob(pattern):
                for line in re.findall("(?m)^.*R(?:UN)?PATH.*$", self.call(["readelf", "-d", path])):
                    self.assertIn("[$ORIGIN", line, path)
        text = self.call(["nm", "-D", "--defined-only", self.libraries / "orvik/modules/image.module"])
        self.assertEqual({line.split()[-1] for line in text.splitlines()}, {"g_orvik", "g_CpuYieldDelegate"})

    def test_cmake_consumer(self):
        build = self.folder / "build"
        self.call(["cmake", "-S", SOURCE / "examples/consumer", "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}"])
        self.call(["cmake", "--build", build])
        self.assertEqual(self.call([build / "picture_size", SAMPLE]), "320 x 200\n")

    def test_pkg_config_consumer(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")}
        flags = self.call(["pkg-config", "--cflags", "--libs", "orvik-image"], env=environment).split()
        program = self.folder / "picture_size"
        source = SOURCE / "examples/consumer/picture_size.cpp"
        self.call(["g++", source, *flags, f"-Wl,-rpath,{self.libraries}", "-o", program])
        self.assertEqual(self.call([program, SAMPLE]), "320 x 200\n")
        missing = subprocess.run([program, "/missing.png"], capture_output=True)
        self.assertEqual((missing.returncode, missing.stderr.count(b"\n")), (1, 1))

    def test_without_the_module(self):
        prefix = self.folder / "bare"
        shutil.copytree(self.prefix, prefix, symlinks=True)
        program, out = str(prefix / "bin/orvik"), self.folder / "out.bmp"
        self.assertIn(b"320 x 200", self.ok("info", SAMPLE, program=program, cwd="/"))
        next(prefix.glob("lib/**/image.module")).rename(self.folder / "image.module")
        for arguments in (("info", SAMPLE), ("convert", SAMPLE, out), ("pixels", SAMPLE, "-o", out), ("formats",)):
            with self.subTest(arguments[0]):
                self.fails(1, *arguments, program=program, contains="image.module was not found")
        self.assertFalse(out.exists())
        self.assertEqual(run("--version", program=program).returncode, 0)

        elsewhere = {**os.environ, "ORVIK_MODULE_PATH": f"/missing:{self.folder}"}
        self.ok("info", SAMPLE, program=program, env=elsewhere)

    def test_module_that_is_none(self):
        for content in ("not an object file", ""):
            with self.subTest(content):
                (self.folder / "image.module").write_text(content)
                environment = {**os.environ, "ORVIK_MODULE_PATH": str(self.folder)}
                self.fails(1, "info", SAMPLE, env=environment, contains="image.module")
