#!/usr/bin/python3
"""The workbench page in headless Chromium against a running `vorn-host serve` and a second one
started with --read-only, while the camera publishes several results a second.

    /usr/bin/python3 page_test.py --url URL --read-only-url URL2 --shots DIR

Prints each failed check and exits 1; exits 0 when all pass. Saves page-live.png, page-format.png,
page-log.png and page-device.png to DIR. Debian's Selenium is in the system python's path.
"""
import argparse
import os
import sys

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, TimeoutException, WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select, WebDriverWait

WAIT = 15  # seconds for anything the page or the camera has to do
# Each log filter: its input, the cell of an entry it looks at, whether it wants the whole cell.
LOG_FILTERS = [("log-level", "log-category", True), ("log-source", "log-source", False),
               ("log-text", "log-message", False)]
# Controls that change the camera, each with the tab it is on.
CHANGES = [("trigger", "live"), ("mask-apply", "log"), ("app-switch", "device")]


class Page:
    def __init__(self, shots):
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
            options.add_argument(argument)
        options.binary_location = "/usr/bin/chromium"
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.d = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.d.set_window_size(1280, 900)
        self.shots = shots

    def until(self, what, condition):
        try:
            # The page redraws as results come: an element read while it was replaced is read again.
            return WebDriverWait(self.d, WAIT, 0.1, [StaleElementReferenceException]).until(lambda _: condition())
        except TimeoutException:
            raise AssertionError(f"{what() if callable(what) else what} (waited {WAIT} s)") from None

    def by_id(self, name):
        return self.d.find_element(By.ID, name)

    def js(self, script, *args):
        return self.d.execute_script(script, *args)

    def open(self, url):
        self.d.get(url)
        self.until("the page never read its session", lambda: self.js(
            "return document.body.classList.contains('may-change') || !document.getElementById('read-only').hidden"))

    def tab(self, name):
        self.by_id(f"tab-{name}").click()
        self.until(f"the {name} section did not show", lambda: self.by_id(name).is_displayed())

    def shot(self, name):
        self.d.save_screenshot(os.path.join(self.shots, name))


def no_console_errors(page):
    # Everything the page reads at the start has come back: the status, the log and the first check.
    page.until("the page did not finish loading", lambda: page.js(
        "const $ = (id) => document.getElementById(id);"
        "return /\\b(ok|trouble)\\b/.test($('status').className) && $('log-count').textContent !== ''"
        " && !['', 'checking…'].includes($('validity').textContent)"))
    errors = [f"{e['level']}: {e['message']}" for e in page.d.get_log("browser") if e["level"] in ("SEVERE", "WARNING")]
    assert not errors, "the browser logged:\n    " + "\n    ".join(errors)


def live_updates(page):
    page.tab("live")
    src = lambda: page.by_id("picture").get_attribute("src")
    first = page.until("the live picture never showed", src)
    page.until(f"the live picture stayed {first}", lambda: src() not in (first, "", None))
    fps = lambda: page.by_id("fps").text
    page.until(lambda: f"the frame rate shows {fps()!r}", lambda: fps().replace(".", "", 1).isdigit() and float(fps()) > 0)
    page.shot("page-live.png")


def broken_description(page):
    page.tab("format")
    box = page.by_id("description")
    box.clear()
    box.send_keys('{"elements": [{"type": "uint8", "id": "models.count", "format": {"dataencoding": "hex"}}]}')
    paths = lambda: page.js("return [...document.querySelectorAll('.problem .path')].map(p => p.textContent)")
    page.until(lambda: f"the problems are shown at {paths()}", lambda: "/elements/0/format/dataencoding" in paths())


def hex_and_map(page):
    page.tab("format")
    Select(page.by_id("example")).select_by_value("format-demo-binary.json")
    page.until("the example's answer shows no bytes", lambda: len(page.d.find_elements(By.CSS_SELECTOR, "#hex .byte")) > 8
               and not page.d.find_elements(By.CLASS_NAME, "problem"))
    span = lambda row: (int(row.get_attribute("data-offset")), int(row.get_attribute("data-length")))
    marked = lambda: sorted(int(b.get_attribute("data-offset")) for b in page.d.find_elements(By.CSS_SELECTOR, "#hex .byte.marked"))
    # A byte marks the one row that wrote it and that row's bytes; a row marks its bytes.
    for offset in (0, 2, 12):
        ActionChains(page.d).move_to_element(page.d.find_element(By.CSS_SELECTOR, f'#hex .byte[data-offset="{offset}"]')).perform()
        rows = page.until(f"byte {offset} marked no map row", lambda: page.d.find_elements(By.CSS_SELECTOR, "tr.map-row.marked"))
        start, length = span(rows[0])
        assert len(rows) == 1 and start <= offset < start + length, f"byte {offset} marked rows {[span(r) for r in rows]}"
        assert marked() == list(range(start, start + length)), f"byte {offset} marked bytes {marked()}"
    row = next(r for r in page.d.find_elements(By.CSS_SELECTOR, "tr.map-row") if span(r)[1] > 1)
    ActionChains(page.d).move_to_element(row).perform()
    page.until(lambda: f"the map row {span(row)} marked bytes {marked()}", lambda: marked() == list(range(span(row)[0], sum(span(row)))))
    page.shot("page-format.png")


def log_filters(page):
    page.tab("log")
    # Applying the mask is logged as WORKBENCH by the server: entries that differ from the plug-in's.
    page.by_id("mask-apply").click()
    page.until("the change of the mask was not logged as WORKBENCH", lambda: page.js(
        "return [...document.querySelectorAll('.log-entry .log-source')].some(s => s.textContent == 'WORKBENCH')"))
    page.by_id("log-pause").click()  # a still tail, so that counts compare
    entries = page.js("return [...document.querySelectorAll('.log-entry')].map(e => arguments[0].map(c => e.querySelector('.' + c).textContent))",
                      [cell for _, cell, _ in LOG_FILTERS])
    count = lambda: len(page.d.find_elements(By.CLASS_NAME, "log-entry"))
    for column, (field, _, whole) in enumerate(LOG_FILTERS):
        values = [e[column] for e in entries]
        fits = (lambda f, v: f == v) if whole else (lambda f, v: f.lower() in v.lower())
        # A value that some entries have and others not: a whole cell, or else a word of one.
        candidates = values + ([] if whole else [w for v in values for w in v.split()])
        value = next((c for c in candidates if 0 < sum(fits(c, v) for v in values) < len(values)), None)
        assert value is not None, f"every entry alike in {field}: nothing to narrow"
        expected, control = sum(fits(value, v) for v in values), page.by_id(field)
        Select(control).select_by_value(value) if whole else control.send_keys(value)
        page.until(lambda: f"{field} {value!r} leaves {count()} of {len(values)}, not {expected}", lambda: count() == expected)
        if whole:
            Select(control).select_by_value("")
        else:
            control.clear()
            page.js("arguments[0].dispatchEvent(new Event('input'))", control)
        page.until(lambda: f"clearing {field} shows {count()} of {len(values)}", lambda: count() == len(values))
    page.by_id("log-pause").click()
    page.shot("page-log.png")


def controls_shown(shown):
    def check(page):
        wrong = [control for control, tab in CHANGES if page.tab(tab) or page.by_id(control).is_displayed() != shown]
        assert not wrong, f"{', '.join(wrong)} {'hidden' if shown else 'shown'}"
        if shown:  # the device tab is open last: its identity and statistics
            page.until("the device never showed", lambda: page.d.find_elements(By.CSS_SELECTOR, "#device-items tr, #stats-body tr"))
            page.shot("page-device.png")
    return check


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    for option in ("--url", "--read-only-url", "--shots"):
        parser.add_argument(option, required=True)
    args = parser.parse_args()
    os.makedirs(args.shots, exist_ok=True)
    checks = [
        (args.url, "the page loads without a console error or warning", no_console_errors),
        (args.url, "the picture and the frame rate follow the camera", live_updates),
        (args.url, "a broken description shows its mistake at its path", broken_description),
        (args.url, "pointing at a byte marks its map row, and a row its bytes", hex_and_map),
        (args.url, "each log filter narrows the tail to the entries it matches", log_filters),
        (args.url, "the controls that change something are shown, and the device", controls_shown(True)),
        (args.url, "no console error or warning while in use", no_console_errors),
        (args.read_only_url, "read-only: the page loads without a console error or warning", no_console_errors),
        (args.read_only_url, "read-only: the controls that change something are hidden", controls_shown(False)),
    ]
    failed, opened, page = [], None, Page(args.shots)
    try:
        for url, name, check in checks:
            try:
                if url != opened:
                    opened = url
                    page.open(url)
                check(page)
            except (AssertionError, WebDriverException, StopIteration) as e:
                failed.append(name)
                why = e.msg if isinstance(e, WebDriverException) else str(e)
                print(f"FAILED: {name}: {(why or type(e).__name__).strip()}")
    finally:
        page.d.quit()
    print(f"{len(checks) - len(failed)} passed, {len(failed)} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
