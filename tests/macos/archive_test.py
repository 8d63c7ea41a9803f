#!/usr/bin/env python3
"""The archive for macOS holds what was built, below one folder and by relative names.

usage: archive_test.py CPACK BUILD_FOLDER VERSION PROGRAM...
"""

import pathlib
import subprocess
import sys
import tarfile
import tempfile
import unittest

CPACK, BUILD, VERSION, *PROGRAMS = sys.argv[1:]

# Beside the programs, below the archive's one folder.
FILES = {
    "include/dns_proxy_mac/dns_proxy_c.h",
    "include/dns_proxy_mac/proxy/dns_proxy.h",
    "include/dns_proxy_mac/startup/library_placement.h",
    "lib/cmake/dns_proxy_mac/dns_proxy_mac-config.cmake",
    "lib/libdns_proxy.a",
    "lib/libdns_proxy_c.a",
    "lib/libdns_proxy_startup.a",
    "lib/pkgconfig/dns_proxy_mac.pc",
    "share/dns_proxy_mac/internal.dns-proxy.host.plist",
    "share/man/man3/StartDnsSrv.3",
    "share/man/man3/get_localdns_dnsproxy.3",
    "share/man/man8/dns_proxy_host.8",
    "share/man/man8/dns_proxy_mac.8",
}


class Archive(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        subprocess.run(
            [CPACK, "--config", f"{BUILD}/CPackConfig.cmake", "-B", folder.name],
            cwd=BUILD, check=True, capture_output=True,
        )  # fmt: skip
        cls.name = f"dns_proxy_mac-{VERSION}-macos-x86_64"
        cls.archive = tarfile.open(f"{folder.name}/{cls.name}.tar.gz")
        cls.addClassCleanup(cls.archive.close)

    def test_every_name_is_below_the_one_folder(self):
        for member in self.archive.getmembers():
            self.assertEqual(pathlib.PurePosixPath(member.name).parts[0], self.name)
            self.assertNotIn("..", member.name)

    def test_headers_libraries_pages_and_service_file_are_there(self):
        names = {member.name.removeprefix(f"{self.name}/") for member in self.archive.getmembers()}
        self.assertEqual(FILES - names, set())

    def test_the_programs_are_the_ones_that_the_gate_has_seen(self):
        for program in map(pathlib.Path, PROGRAMS):
            with self.subTest(program=program.name):
                packed = self.archive.extractfile(f"{self.name}/sbin/{program.name}").read()
                self.assertEqual(packed, program.read_bytes())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
