"""The page in a real browser: its numbers, its stories, and names that would like to be markup."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

from traces import START, answered, asked, nobody, read, tables

BROWSER = next(filter(None, map(shutil.which, ("chromium-headless-shell", "chromium", "google-chrome"))), None)

HOSTILE = [b"<script>hacked=1</script>", b"</pre><img src=x onerror=hacked=1>", b"a\"'&lt;&amp;b", b"\x1b[2J\x00x"[:4],
           b"tab\there", b"line\nfeed", b"--><!--", b"${hacked=1}", b"`", b"\xe2\x80\xae", b"</script><script>hacked=1</script>"]


class Browser:
    """A page in a headless browser, spoken to over two pipes."""

    def __init__(self, page):
        self.folder = tempfile.mkdtemp()
        there, self._out = os.pipe()
        self._in, here = os.pipe()

        def pipes():  # the browser reads from 3 and writes to 4
            os.dup2(there, 103)
            os.dup2(here, 104)
            os.dup2(103, 3)
            os.dup2(104, 4)
            os.closerange(5, 200)

        self._process = subprocess.Popen(
            [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--remote-debugging-pipe", f"--user-data-dir={self.folder}", "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, close_fds=False, preexec_fn=pipes)
        os.close(there)
        os.close(here)
        self._read = b""
        self._number = 0
        self._session = None
        self.events = []
        target = next(t for t in self.call("Target.getTargets")["targetInfos"] if t["type"] == "page")
        self._session = self.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Network", "Page", "Runtime", "Log"):
            self.call(domain + ".enable")
        self.call("Page.navigate", url=page.as_uri())
        while not any(event["method"] == "Page.loadEventFired" for event in self.events):
            self._take()

    def close(self):
        self._process.kill()
        self._process.wait()
        os.close(self._out)
        os.close(self._in)
        shutil.rmtree(self.folder, ignore_errors=True)

    def _take(self):
        while b"\0" not in self._read:
            some = os.read(self._in, 1 << 20)
            if not some:
                raise AssertionError("the browser has gone")
            self._read += some
        message, self._read = self._read.split(b"\0", 1)
        message = json.loads(message)
        if "id" not in message:
            self.events.append(message)
        return message

    def call(self, method, **parameters):
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._out, json.dumps(message).encode() + b"\0")
        while (answer := self._take()).get("id") != self._number:
            pass
        if "error" in answer:
            raise AssertionError(answer["error"])
        return answer["result"]

    def value(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise AssertionError(result["exceptionDetails"])
        return result["result"].get("value")

    def click(self, expression):
        x, y = self.value(f"(e => {{ e.scrollIntoView(); const r = e.getBoundingClientRect();"
                          f" return [r.x + r.width / 2, r.y + r.height / 2]; }})({expression})")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def write(self, text):
        self.call("Input.insertText", text=text)

    def column(self, number):
        return self.value("[...document.querySelectorAll('#stories tbody tr')]"
                          f".map(row => row.cells[{number}].textContent)")


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        trace = [START]
        names = HOSTILE + [b"www%d.example" % i for i in range(40)]
        for i in range(600):
            name = names[i % len(names)]
            trace.append(asked(i, name))
            trace.append(nobody(i, name) if i % 7 == 0 else b"" if i % 31 == 0 else answered(i, name))
        cls.trace = b"".join(trace)
        (cls.folder / "page.html").write_bytes(b"")
        read("--html", cls.folder / "page.html", trace=cls.trace)
        cls.browser = Browser(cls.folder / "page.html")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.addClassCleanup(cls.browser.close)

    def test_numbers_are_those_of_the_summary(self):
        expected = tables(read(trace=self.trace))
        shown = self.browser.value("""Object.fromEntries([...document.querySelectorAll('#tables section')].map(section => [
            section.querySelector('h2').textContent, Object.fromEntries(
              [...section.querySelectorAll('tr')].filter(row => row.querySelector('td')).map(row => [
                row.cells[0].textContent, [...row.cells].slice(1).map(cell => +cell.textContent.replaceAll(',', ''))]))]))""")
        self.assertEqual(shown, expected)
        self.assertEqual(expected["Outcomes"]["all queries"], [600])
        self.assertEqual(len(expected["Outcomes"]), 4)
        # And so are those that the course adds up to.
        self.assertEqual(
            self.browser.value("course.slice(1).reduce((sum, row) => sum + row.slice(1).reduce((a, b) => a + +b, 0), 0)"), 600)
        self.assertGreater(self.browser.value("document.querySelectorAll('#course rect').length"), 200)

    def test_names_are_text_and_nothing_comes_from_elsewhere(self):
        self.assertEqual(self.browser.value("typeof hacked"), "undefined")
        self.assertEqual(self.browser.value("document.querySelectorAll('script, img').length"), 1)
        told = {line.split()[1] for line in read("--stories", trace=self.trace).splitlines()}
        self.browser.value("$('search').value = ''; room = 1e6; show()")
        self.assertEqual(set(self.browser.column(2)), told)
        self.assertIn("<script>hacked=1</script>", told)
        requests = [e["params"]["request"]["url"] for e in self.browser.events if e["method"] == "Network.requestWillBeSent"]
        self.assertEqual([url.rpartition("/")[2] for url in requests], ["page.html"])
        bad = [e for e in self.browser.events if e["method"] in ("Runtime.exceptionThrown", "Log.entryAdded")]
        self.assertEqual(bad, [])

    def test_stories_are_found_chosen_and_sorted(self):
        browser = self.browser
        browser.value("$('search').value = ''; $('search').dispatchEvent(new Event('input'))")
        self.assertEqual(len(browser.column(0)), 200)
        browser.click("$('more')")
        self.assertEqual(browser.column(0), [str(i) for i in range(600)])
        browser.click("$('search')")
        browser.write("www3 192.0.2.2")
        names = browser.column(2)
        self.assertTrue(names)
        self.assertTrue(all(name.startswith("www3") for name in names), names)
        self.assertEqual(set(browser.column(4)), {"no such name"})
        browser.click("document.querySelectorAll('#stories th')[2]")
        self.assertEqual(browser.column(2), sorted(names))
        browser.click("document.querySelectorAll('#stories th')[2]")
        self.assertEqual(browser.column(2), sorted(names, reverse=True))
        browser.value("$('search').value = ''")
        browser.click("[...document.querySelectorAll('#legend button')].find(b => b.dataset.name == 'not answered')")
        self.assertEqual(set(browser.column(4)), {"not answered"})
        browser.click("[...document.querySelectorAll('#legend button')].find(b => b.dataset.name == 'not answered')")


if __name__ == "__main__":
    if BROWSER is None:
        print("skipped: no Chromium on this machine")
        sys.exit(77)
    unittest.main()
