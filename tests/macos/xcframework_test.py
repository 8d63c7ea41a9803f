#!/usr/bin/env python3
"""DnsProxyMac.xcframework says what it holds, and a program that imports its module links with it.

usage: xcframework_test.py FOLDER VERSION TOOLCHAIN LINKER
"""

import pathlib
import plistlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

from mach_o_gate import known_imports, run
from universal_file import slices

HERE = pathlib.Path(__file__).parent
OUT, VERSION, TOOLCHAIN, LINKER = pathlib.Path(sys.argv[1]), *sys.argv[2:5]
FRAMEWORK = OUT / "DnsProxyMac.xcframework"
LIBRARY = FRAMEWORK / "macos-arm64_x86_64" / "libDnsProxyMac.a"

# Processor, clang's name of target and floor, floor, list of imports.
TARGETS = (
    ("x86_64", "x86_64-macos.10.8", "10.8", "imports.txt", "lib"),
    ("arm64", "aarch64-macos.11.0", "11.0", "imports-arm64.txt", "lib-arm64"),
)

# As an application in Objective-C begins. Swift imports the same module.
SOURCE = """
@import DnsProxyMac;
int main(void) {
  const char* servers[] = {"192.0.2.1"};
  char server[3][1024] = {{0}};
  dns_proxy_local_servers(server[0], server[1], server[2]);
  return dns_proxy_start(servers, 1, 0, 0, 0) ? 0 : 1;
}
"""


class XCFramework(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_property_list_names_what_is_there(self):
        settings = plistlib.loads((FRAMEWORK / "Info.plist").read_bytes())
        self.assertEqual(settings["CFBundlePackageType"], "XFWK")
        self.assertEqual(settings["XCFrameworkFormatVersion"], "1.0")
        (library,) = settings["AvailableLibraries"]
        self.assertEqual(library["SupportedPlatform"], "macos")
        folder = FRAMEWORK / library["LibraryIdentifier"]
        content = (folder / library["LibraryPath"]).read_bytes()
        self.assertEqual(set(library["SupportedArchitectures"]), set(slices(content)))
        self.assertTrue((folder / library["HeadersPath"] / "module.modulemap").is_file())
        there = {path.name for path in FRAMEWORK.iterdir()}
        self.assertEqual(there, {"Info.plist", library["LibraryIdentifier"]})

    def test_headers_are_those_of_the_archive(self):
        archive = OUT / f"dns_proxy_mac-{VERSION}-macos-universal" / "include"
        headers = LIBRARY.parent / "Headers"
        expected = {p.relative_to(archive): p.read_bytes() for p in archive.rglob("*.h")}
        actual = {p.relative_to(headers): p.read_bytes() for p in headers.rglob("*.h")}
        self.assertTrue(expected)
        self.assertEqual(actual, expected)

    def test_zip_holds_the_same(self):
        with zipfile.ZipFile(OUT / f"DnsProxyMac-{VERSION}.xcframework.zip") as packed:
            files = {info.filename for info in packed.infolist() if not info.is_dir()}
            there = {str(p.relative_to(OUT)) for p in FRAMEWORK.rglob("*") if p.is_file()}
            self.assertEqual(files, there)
            for name in files:
                self.assertEqual(packed.read(name), (OUT / name).read_bytes(), name)

    # zig's clang and, for what Xcode's does with a module, another release of clang.
    def test_program_imports_the_module_links_and_passes_the_gate(self):
        (self.folder / "program.m").write_text(SOURCE)
        for processor, target, floor, imports, libraries in TARGETS:
            with self.subTest(processor=processor):
                modules = [
                    "-fmodules", f"-fmodules-cache-path={self.folder}/modules",
                    "-I", LIBRARY.parent / "Headers",
                ]  # fmt: skip
                self.command(
                    shutil.which("clang"), f"--target={processor}-apple-macos{floor}", *modules,
                    "-fsyntax-only", "program.m",
                )  # fmt: skip
                self.command(
                    f"{TOOLCHAIN}/bin/cc", "-target", target, *modules, "-c", "program.m",
                    "-o", "program.o",
                )  # fmt: skip
                self.assertIn("-lc++", run("llvm-objdump", "--macho", "--private-headers",
                                           f"{self.folder}/program.o"))  # fmt: skip
                # -L: the module asks for libc++, and here that is the one of the toolchain.
                self.command(
                    LINKER, "-arch", processor, "-platform_version", "macos", floor, "14.0",
                    "-dead_strip", "-o", "program", "program.o", LIBRARY,
                    "-L", f"{TOOLCHAIN}/{libraries}", f"{TOOLCHAIN}/{libraries}/libc++abi.a",
                    f"{TOOLCHAIN}/lib/libSystem.tbd",
                )  # fmt: skip
                self.command(
                    sys.executable, HERE / "mach_o_gate.py", "--processor", processor,
                    "--floor", floor, "--imports", HERE / imports, "program",
                )  # fmt: skip

    # Xcode links the library with the system's libc++, as old as the application's floor allows.
    def test_library_asks_for_nothing_that_an_old_libcxx_lacks(self):
        cxx = known_imports(HERE / "imports-libc++.txt")["strong"]
        for processor, part in slices(LIBRARY.read_bytes()).items():
            with self.subTest(processor=processor):
                archive = self.folder / f"{processor}.a"
                archive.write_bytes(part)
                defined = set(run("llvm-nm", "--defined-only", "-j", str(archive)).split())
                wanted = set(run("llvm-nm", "-u", "-j", str(archive)).split()) - defined
                asked_of_cxx = {name for name in wanted if name.startswith(("__Z", "___cxa", "___gxx"))}
                self.assertIn("__Znwm", asked_of_cxx)
                self.assertEqual(sorted(asked_of_cxx - cxx - {"___cxa_atexit"}), [])

    def command(self, *arguments):
        result = subprocess.run(arguments, cwd=self.folder, capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, f"{arguments}\n{result.stdout}{result.stderr}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
