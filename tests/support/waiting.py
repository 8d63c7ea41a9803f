"""Waits for what will come."""

import time


def wait_for(condition, what, seconds):
    """The first true value of `condition`, asked again and again."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.01)
    raise AssertionError(f"not within {seconds} s: {what}")
