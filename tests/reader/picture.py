#!/usr/bin/env python3
"""Makes the picture of the page that docs/trace.md shows, from a made-up day of an office.

usage: DNS_PROXY_TRACE=.../dns_proxy_trace tests/reader/picture.py [docs/trace-page.png]
"""

import base64
import pathlib
import random
import sys
import tempfile

import page_test
from traces import START, answered, asked, dispatch, nobody, read

NAMES = ["www.example", "mail.example", "chat.example", "docs.example", "login.example", "update.vendor.example",
         "cdn.media.example", "db.corp.example", "git.corp.example", "wiki.corp.example", "time.example"]
TYPING_ERRORS = ["wwww.example", "mial.example", "local", "wpad.corp.example", "git.crop.example"]


def a_day(queries, dice):
    yield START
    for i in range(queries):
        part = i / queries
        name = dice.choices(NAMES, range(len(NAMES), 0, -1))[0].encode()
        if dice.random() < 0.15 + 0.1 * (part < 0.3):
            yield (asked(i, b"a.internal").partition(dispatch(i % 65536, 1))[0] + b"func: TryNextDNSQueryMethod(line:40)"
                   b" find a.internal from hostmap, ip:10.1.2.3, req id:%d\n" % (i % 65536))
        elif dice.random() < 0.06 + 0.08 * (0.6 < part < 0.75):
            name = dice.choice(TYPING_ERRORS).encode()
            yield asked(i, name) + nobody(i, name)
        else:
            silent = 0.5 if 0.42 < part < 0.47 else 0.004  # the network is away for a while
            yield asked(i, name) + (b"" if dice.random() < silent else answered(i, name))


def main():
    target = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "docs/trace-page.png")
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, "page.html")
        read("--html", page, trace=b"".join(a_day(20000, random.Random(7))))
        browser = page_test.Browser(page)
        size = {"width": 1100, "height": 1180, "deviceScaleFactor": 1, "mobile": False}
        browser.call("Emulation.setDeviceMetricsOverride", **size)
        browser.call("Emulation.setScrollbarsHidden", hidden=True)
        target.write_bytes(base64.b64decode(browser.call("Page.captureScreenshot", format="png")["data"]))
        browser.close()


if __name__ == "__main__":
    main()
