#!/usr/bin/env python3
"""The workbench page in headless Chromium against a running `vorn-host serve` and a second one
started with --read-only, while the camera publishes several results a second.

    python3 page_test.py --url URL --read-only-url URL2 --shots DIR

Prints each failed check and exits 1; exits 0 when all pass. Saves page-live.png, page-format.png,
page-log.png and page-device.png to DIR.
"""
import argparse
import os
import re
import sys

try:
    from selenium import webdriver
except ImportError:  # a python3 of its own ahead on PATH; the system's has Debian's Selenium
    if sys.executable != "/usr/bin/python3" and os.path.exists("/usr/bin/python3"):
        os.execv("/usr/bin/python3", ["/usr/bin/python3"] + sys.argv)
    raise
from selenium.common.exceptions import StaleElementReferenceException, TimeoutException, WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select, WebDriverWait

WAIT = 15  # seconds for anything the page or the camera has to do

# Broken descriptions and where the page must show their mistake.
BROKEN = [
    ('{"elements": [{"type": "uint17", "id": "activeapp_id"}]}', "/elements/0/type"),
    ('{"elements": [{"type": "uint8", "id": "models.count", "format": {"dataencoding": "hex"}}]}',
     "/elements/0/format/dataencoding"),
]

# Each log filter: its input, the cell of an entry it looks at, and whether it wants the whole cell
# (the category) or a part of it in any case (source, text).
LOG_FILTERS = [("log-level", "log-category", True), ("log-source", "log-source", False),
               ("log-text", "log-message", False)]

# Controls that change the camera, each with the tab it is on.
CHANGES = [("trigger", "live"), ("mask-apply", "log"), ("app-switch", "device")]


def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    if os.path.exists("/usr/bin/chromium"):
        options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_window_size(1280, 900)
    return driver


class Page:
    def __init__(self, driver, shots):
        self.d = driver
        self.shots = shots

    def until(self, what, condition, timeout=WAIT):
        try:
            # The page redraws as results come: an element read while it was replaced is read again.
            return WebDriverWait(self.d, timeout, poll_frequency=0.1,
                                 ignored_exceptions=[StaleElementReferenceException]).until(lambda _: condition())
        except TimeoutException:
            # A message that says what the page showed is made when the wait is over.
            raise AssertionError(f"{what() if callable(what) else what} (waited {timeout} s)") from None

    def by_id(self, name):
        return self.d.find_element(By.ID, name)

    def open(self, url):
        self.d.get(url)
        # The session is read once the page knows whether changes are allowed.
        self.until("the page never read its session",
                   lambda: self.d.execute_script(
                       "return document.body.classList.contains('may-change') || !document.getElementById('read-only').hidden"))

    def tab(self, name):
        self.by_id(f"tab-{name}").click()
        self.until(f"the {name} section did not show", lambda: self.by_id(name).is_displayed())

    def shot(self, name):
        self.d.save_screenshot(os.path.join(self.shots, name))

    def console_errors(self):
        return [f"{e['level']}: {e['message']}" for e in self.d.get_log("browser") if e["level"] in ("SEVERE", "WARNING")]


def no_console_errors(page):
    # Everything the page reads at the start has come back: the status, the log's tail and the
    # check of the first example.
    page.until("the page did not finish loading", lambda: page.d.execute_script(
        "const $ = (id) => document.getElementById(id);"
        "return /\\b(ok|trouble)\\b/.test($('status').className) && $('log-count').textContent !== ''"
        " && !['', 'checking…'].includes($('validity').textContent)"))
    errors = page.console_errors()
    assert not errors, "the browser logged:\n    " + "\n    ".join(errors)


def changes(page, what, read):
    first = page.until(f"{what} never showed", read)
    page.until(f"{what} stayed {first!r}", lambda: read() not in (first, "", None))


def live_updates(page):
    page.tab("live")
    changes(page, "the live picture", lambda: page.by_id("picture").get_attribute("src"))
    fps = lambda: page.by_id("fps").text
    page.until(lambda: f"the frame rate shows no figure but {fps()!r}",
               lambda: re.fullmatch(r"\d+(\.\d+)?", fps()) and float(fps()) > 0)


def roi_marked(page):
    row = page.until("no ROI listed", lambda: page.d.find_element(By.CSS_SELECTOR, "#models tr.roi-row"))
    row.click()
    inked = "const c = document.getElementById('overlay'); if (!c.width) return 0;" \
            "return c.getContext('2d').getImageData(0, 0, c.width, c.height).data.filter((v, i) => i % 4 == 3 && v).length;"
    page.until("clicking a ROI drew no outline over the picture", lambda: page.d.execute_script(inked) > 0)
    page.shot("page-live.png")


def type_description(page, text):
    box = page.by_id("description")
    box.clear()
    box.send_keys(text)


def broken_descriptions(page):
    page.tab("format")
    for text, path in BROKEN:
        type_description(page, text)
        paths = lambda: page.d.execute_script(
            "return [...document.querySelectorAll('.problem .path')].map(p => p.textContent)")
        page.until(lambda: f"{text} shows its problems at {paths()}, none at {path}", lambda: path in paths())


def marked(page, selector):
    return page.d.find_elements(By.CSS_SELECTOR, f"{selector}.marked")


def hex_and_map(page):
    page.tab("format")
    Select(page.by_id("example")).select_by_value("format-demo-binary.json")
    page.until("the example's answer shows no bytes",
               lambda: len(page.d.find_elements(By.CSS_SELECTOR, "#hex .byte")) > 8 and not page.d.find_elements(By.CLASS_NAME, "problem"))
    span = lambda row: (int(row.get_attribute("data-offset")), int(row.get_attribute("data-length")))
    marked_bytes = lambda: sorted(int(b.get_attribute("data-offset")) for b in marked(page, "#hex .byte"))
    # A byte marks the one row that says most precisely who wrote it, and that row's bytes.
    for offset in (0, 2, 12):
        byte = page.d.find_element(By.CSS_SELECTOR, f'#hex .byte[data-offset="{offset}"]')
        ActionChains(page.d).move_to_element(byte).perform()
        rows = page.until(f"pointing at byte {offset} marked no map row", lambda: marked(page, "tr.map-row"))
        start, length = span(rows[0])
        assert len(rows) == 1 and start <= offset < start + length, \
            f"byte {offset} marked the rows of {[span(r) for r in rows]}"
        assert marked_bytes() == list(range(start, start + length)), \
            f"byte {offset} marked bytes {marked_bytes()}, not {start} to {start + length - 1}"
    # A row marks its bytes.
    row = next(r for r in page.d.find_elements(By.CSS_SELECTOR, "tr.map-row") if span(r)[1] > 1)
    ActionChains(page.d).move_to_element(row).perform()
    start, length = span(row)
    page.until(lambda: f"pointing at the map row of bytes {start} to {start + length - 1} marked {marked_bytes()}",
               lambda: marked_bytes() == list(range(start, start + length)))
    page.shot("page-format.png")


def log_filters(page):
    page.tab("log")
    # Applying the mask (all categories, as the loggers started) is logged by the server as WORKBENCH
    # and by each logger as INFO: entries that differ from the plug-in's in every field.
    page.by_id("mask-apply").click()
    page.until(lambda: f"applying the log mask answered {page.by_id('mask-message').text!r}",
               lambda: "received" in page.by_id("mask-message").text)
    page.until("the change of the mask was not logged as WORKBENCH", lambda: page.d.execute_script(
        "return [...document.querySelectorAll('.log-entry .log-source')].some(s => s.textContent == 'WORKBENCH')"))
    page.by_id("log-pause").click()  # a still tail, so that counts compare
    entries = page.d.execute_script(
        "return [...document.querySelectorAll('.log-entry')].map(e => arguments[0].map(c => e.querySelector('.' + c).textContent))",
        [cell for _, cell, _ in LOG_FILTERS])
    for column, (field, _, whole) in enumerate(LOG_FILTERS):
        values = [e[column] for e in entries]
        fits = (lambda f, v: f == v) if whole else (lambda f, v: f.lower() in v.lower())
        # A value that some entries have and others not: a whole cell, or else a word of one.
        candidates = values + ([] if whole else [w for v in values for w in v.split()])
        value = next((c for c in candidates if 0 < sum(fits(c, v) for v in values) < len(values)), None)
        assert value is not None, f"every entry alike in {field}: nothing to narrow"
        expected = sum(fits(value, v) for v in values)
        control = page.by_id(field)
        if whole:
            Select(control).select_by_value(value)
        else:
            control.send_keys(value)
        count = lambda: len(page.d.find_elements(By.CLASS_NAME, "log-entry"))
        page.until(lambda: f"{field} {value!r} leaves {count()} of {len(values)} entries, not {expected}",
                   lambda: count() == expected)
        if whole:
            Select(control).select_by_value("")
        else:
            control.clear()
            page.d.execute_script("arguments[0].dispatchEvent(new Event('input'))", control)
        page.until(lambda: f"clearing {field} shows {count()} entries, not all {len(values)}", lambda: count() == len(values))
    page.by_id("log-pause").click()
    page.shot("page-log.png")


def device(page):
    page.tab("device")
    page.until("the device's identity never showed", lambda: page.d.find_elements(By.CSS_SELECTOR, "#device-items tr"))
    page.until("the statistics never showed", lambda: page.d.find_elements(By.CSS_SELECTOR, "#stats-body tr"))
    page.shot("page-device.png")


def controls_shown(shown):
    def check(page):
        wrong = []
        for control, tab in CHANGES:
            page.tab(tab)
            if page.by_id(control).is_displayed() != shown:
                wrong.append(control)
        assert not wrong, f"{', '.join(wrong)} {'hidden' if shown else 'shown'}"
    return check


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--url", required=True, help="the page of vorn-host serve")
    parser.add_argument("--read-only-url", required=True, help="the page of vorn-host serve --read-only")
    parser.add_argument("--shots", required=True, help="where the screenshots go")
    args = parser.parse_args()
    os.makedirs(args.shots, exist_ok=True)

    checks = [
        (args.url, "the page loads without a console error or warning", no_console_errors),
        (args.url, "the picture and the frame rate follow the camera", live_updates),
        (args.url, "a clicked ROI is outlined over the picture", roi_marked),
        (args.url, "a broken description shows each mistake at its path", broken_descriptions),
        (args.url, "pointing at a byte marks its map row, and a row its bytes", hex_and_map),
        (args.url, "each log filter narrows the tail to the entries it matches", log_filters),
        (args.url, "the device section shows identity and statistics", device),
        (args.url, "the controls that change something are shown", controls_shown(True)),
        (args.url, "no console error or warning while in use", no_console_errors),
        (args.read_only_url, "read-only: the page loads without a console error or warning", no_console_errors),
        (args.read_only_url, "read-only: the controls that change something are hidden", controls_shown(False)),
    ]
    failed = []
    driver = browser()
    try:
        page = Page(driver, args.shots)
        opened = None
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
        driver.quit()
    print(f"{len(checks) - len(failed)} passed, {len(failed)} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
