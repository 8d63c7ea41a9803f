"""The manual page and the service files, by the tools of those who read them."""

import os
import pathlib
import plistlib
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.dom.minidom

SOURCE = pathlib.Path(os.environ["DNS_PROXY_SOURCE"])
PACKAGING = SOURCE / "packaging"
HOST = os.environ["DNS_PROXY_HOST"]
OPTION = re.compile(r"^  (?:-\w,)?(--[a-z-]+)", re.M)  # in --help


class Papers(unittest.TestCase):
    def test_manual_page_is_clean(self):
        if shutil.which("mandoc") is None:
            self.skipTest("mandoc is not installed")
        done = subprocess.run(
            ["mandoc", "-Tlint", "-Wwarning", str(PACKAGING / "dns_proxy_host.8")], capture_output=True, text=True
        )
        self.assertEqual((done.stdout, done.returncode), ("", 0))

    def test_manual_page_has_every_option_and_no_other(self):
        page = (PACKAGING / "dns_proxy_host.8").read_text()
        documented = {"--" + name for name in re.findall(r"^\.It Fl Fl ([a-z-]+)", page, re.M)}
        told = subprocess.run([HOST, "--help"], capture_output=True, text=True, check=True).stdout
        self.assertEqual(documented, set(OPTION.findall(told)))

    def test_help_fits_80_columns_and_says_each_option_once_in_groups(self):
        told = subprocess.run([HOST, "--help"], capture_output=True, text=True, check=True).stdout
        self.assertLessEqual(max(map(len, told.splitlines())), 80)
        self.assertEqual(re.findall(r"^(\w.*):$", told, re.M),
                         ["Servers and names", "Service", "Trace", "Status", "Other"])
        for option in OPTION.findall(told):
            self.assertEqual(len(re.findall(option + r"(?![a-z-])", told)), 1, option)
        self.assertNotRegex(told, r"\b(FLOAT|INT|TEXT)\b|\[.*\b in\b")

    def test_manual_page_has_every_exit_status_and_no_other(self):
        page = (PACKAGING / "dns_proxy_host.8").read_text().split(".Sh EXIT STATUS")[1].split(".Sh")[0]
        header = (SOURCE / "host" / "common" / "log.h").read_text()
        self.assertEqual(re.findall(r"^\.It (\d+)", page, re.M), re.findall(r"kExit\w+ = (\d+);", header))

    def test_systemd_accepts_the_unit(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("systemd-analyze is not installed")
        text = (PACKAGING / "dns-proxy-host.service").read_text()
        # Nothing need be installed for this: the program that was built stands in, and the script.
        text, count = re.subn(r"^(ExecStart=)\S+", rf"\g<1>{HOST}", text, flags=re.M)
        text, others = re.subn(r"^(Exec\w+=\+)\S+/around_host", rf"\g<1>{PACKAGING}/around_host", text, flags=re.M)
        self.assertEqual((count, others), (1, 3))
        with tempfile.TemporaryDirectory() as folder:
            unit = pathlib.Path(folder, "dns-proxy-host.service")
            unit.write_text(text)
            done = subprocess.run(["systemd-analyze", "verify", "--man=no", str(unit)], capture_output=True, text=True)
        said = [line for line in done.stderr.splitlines() if "dns-proxy-host" in line]
        self.assertEqual((said, done.returncode), ([], 0), done.stderr)

    def test_what_stays_red_in_the_unit_is_little_and_has_its_reason_there(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("systemd-analyze is not installed")
        unit = PACKAGING / "dns-proxy-host.service"
        command = ["systemd-analyze", "security", "--offline=true", "--no-pager", str(unit)]
        environment = {**os.environ, "LC_ALL": "C.UTF-8"}  # it draws
        told = subprocess.run(command, env=environment, capture_output=True, text=True).stdout
        self.assertLessEqual(float(re.search(r"Overall exposure level .*: ([0-9.]+)", told).group(1)), 2.0)
        reasons = " ".join(re.findall(r"^# {3}.*", unit.read_text(), re.M))
        red = re.findall(r"^✗ (\S+)", told, re.M)
        self.assertIn("PrivateNetwork=", red)
        for line in red:
            # "RestrictAddressFamilies=~AF_(INET|INET6)": AF_INET is what the unit names.
            name = re.sub(r"\((\w+)\|.*", r"\1", line.partition("=~")[2] or line.partition("=")[0])
            self.assertIn(name, reasons)

    def test_launchd_reads_the_property_list(self):
        (path,) = PACKAGING.glob("*.plist")
        xml.dom.minidom.parse(str(path))
        daemon = plistlib.loads(path.read_bytes())
        self.assertEqual(daemon["Label"], path.stem)
        self.assertEqual(daemon["KeepAlive"], True)
        self.assertGreaterEqual(daemon["ThrottleInterval"], 5)
        self.assertNotIn("UserName", daemon, "root, for the port")
        self.assertTrue(daemon["ProgramArguments"][0].endswith("/dns_proxy_host"))

    def test_service_files_pass_options_that_the_host_takes(self):
        (plist,) = PACKAGING.glob("*.plist")
        unit = re.search(r"^ExecStart=(.+)", (PACKAGING / "dns-proxy-host.service").read_text(), re.M).group(1)
        told = subprocess.run([HOST, "--help"], capture_output=True, text=True, check=True).stdout
        for arguments in (plistlib.loads(plist.read_bytes())["ProgramArguments"], unit.split()):
            for argument in arguments[1:]:
                if argument.startswith("--"):
                    self.assertIn(argument, told)


if __name__ == "__main__":
    unittest.main()
