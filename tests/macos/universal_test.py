#!/usr/bin/env python3
"""The archive for macOS holds what was built for both processors, below one folder.

usage: universal_test.py FOLDER VERSION BUILD_FOLDER_X86_64 BUILD_FOLDER_ARM64 [LOADER UNWINDER]

LOADER runs a program for macOS here (tests/macos/run).
"""

import pathlib
import plistlib
import subprocess
import sys
import tarfile
import unittest

from universal_file import slices

FOLDER, VERSION, X86_64, ARM64 = sys.argv[1:5]
LOADER = sys.argv[5:]
NAME = f"dns_proxy_mac-{VERSION}-macos-universal"

# Below the archive's one folder, with their places in a build folder.
UNIVERSAL = {
    "bin/dns_proxy_trace": "trace_reader/dns_proxy_trace",
    "lib/libdns_proxy.a": "libdns_proxy.a",
    "lib/libdns_proxy_c.a": "c_api/libdns_proxy_c.a",
    "lib/libdns_proxy_startup.a": "libdns_proxy_startup.a",
    "sbin/dns_proxy_host": "host/dns_proxy_host",
    "sbin/dns_proxy_mac": "dns_proxy_mac",
}
OTHERS = {
    "include/dns_proxy_mac/dns_proxy_c.h",
    "include/dns_proxy_mac/proxy/dns_proxy.h",
    "include/dns_proxy_mac/startup/library_placement.h",
    "lib/cmake/dns_proxy_mac/dns_proxy_mac-config.cmake",
    "lib/pkgconfig/dns_proxy_mac.pc",
    "share/dns_proxy_mac/internal.dns-proxy.host.plist",
    "share/man/man1/dns_proxy_trace.1",
    "share/man/man3/StartDnsSrv.3",
    "share/man/man3/get_localdns_dnsproxy.3",
    "share/man/man8/dns_proxy_host.8",
    "share/man/man8/dns_proxy_mac.8",
}


class Archive(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.archive = tarfile.open(f"{FOLDER}/{NAME}.tar.gz")
        cls.addClassCleanup(cls.archive.close)
        cls.files = {
            member.name.removeprefix(f"{NAME}/"): member
            for member in cls.archive.getmembers()
            if member.isfile()
        }

    def content(self, name):
        return self.archive.extractfile(self.files[name]).read()

    def test_every_name_is_below_the_one_folder(self):
        for member in self.archive.getmembers():
            self.assertEqual(pathlib.PurePosixPath(member.name).parts[0], NAME)
            self.assertNotIn("..", member.name)

    def test_headers_pages_and_service_file_are_there(self):
        self.assertEqual((OTHERS | set(UNIVERSAL)) - set(self.files), set())

    # The builds are what the gate has seen, signatures included.
    def test_programs_and_libraries_are_the_two_builds_byte_for_byte(self):
        for name, built in UNIVERSAL.items():
            with self.subTest(name=name):
                parts = slices(self.content(name))
                self.assertEqual(set(parts), {"x86_64", "arm64"})
                for processor, folder in (("x86_64", X86_64), ("arm64", ARM64)):
                    self.assertTrue(
                        parts[processor] == pathlib.Path(folder, built).read_bytes(),
                        f"{processor} is not what was built",
                    )

    def test_nothing_names_the_folders_of_the_machine_that_built_it(self):
        source = pathlib.Path(X86_64).resolve().parent.parent
        for name in self.files:
            self.assertFalse(str(source).encode() in self.content(name), name)

    def test_programs_may_be_run_and_nothing_else(self):
        runnable = {name for name, member in self.files.items() if member.mode & 0o111}
        self.assertEqual(runnable, {name for name in UNIVERSAL if not name.endswith(".a")})

    @unittest.skipIf(not LOADER, "nothing runs programs for macOS here")
    def test_the_part_for_x86_64_runs(self):
        for name in ("sbin/dns_proxy_host", "bin/dns_proxy_trace"):
            with self.subTest(name=name):
                command = [LOADER[0], "--library", LOADER[1], f"{FOLDER}/{NAME}/{name}", "--version"]
                done = subprocess.run(command, capture_output=True, text=True, check=False)
                self.assertEqual(done.stderr, "")
                self.assertEqual(done.stdout, f"{pathlib.Path(name).name} {VERSION}\n")
                self.assertEqual(done.returncode, 0)

    def test_launchd_starts_the_host_under_the_files_own_name(self):
        name = "internal.dns-proxy.host"
        settings = plistlib.loads(self.content(f"share/dns_proxy_mac/{name}.plist"))
        self.assertEqual(settings["Label"], name)
        self.assertEqual(settings["ProgramArguments"][0], "/usr/local/sbin/dns_proxy_host")
        self.assertIs(settings["RunAtLoad"], True)
        self.assertIs(settings["KeepAlive"], True)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
