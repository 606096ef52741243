#!/usr/bin/python3
"""The agent's web page in headless Chromium: it shows the interface and the
machine behind it, and when the simulator powers the machine off, the row
changes and is highlighted without a reload.

Usage: web_page.py PAGE_URL SIMULATOR_CONTROL VM_REF VM_NAME [SCREENSHOT]
"""
import json
import sys
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

page, control, vm_ref, vm_name = sys.argv[1:5]
screenshot = sys.argv[5] if len(sys.argv) > 5 else None

options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for arg in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1200,700"):
    options.add_argument(arg)
driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
driver.set_page_load_timeout(20)
wait = WebDriverWait(driver, 20)


def rows(selector):
    """The texts of the rows, read in one step: the page redraws them at will."""
    return driver.execute_script(
        "return [...document.querySelectorAll(arguments[0])].map(r => r.innerText)", selector)


def row_text():
    found = [r for r in rows("#interfaces tr") if vm_name in r]
    return found[0] if found else ""


try:
    driver.get(page)
    wait.until(lambda d: "(on," in row_text())
    wait.until(lambda d: d.execute_script("return events.readyState === EventSource.OPEN"))
    driver.execute_script("window.notReloaded = true")
    body = json.dumps({"vm": vm_ref, "state": "poweredOff"}).encode()
    request = urllib.request.Request(control + "/vm/power", data=body, method="POST")
    urllib.request.urlopen(request, timeout=10).read()
    wait.until(lambda d: "(off," in row_text())
    # The view may come with an event before the power's own: wait for both.
    wait.until(lambda d: any(vm_name in r for r in rows("#interfaces tr.changed")))
    wait.until(lambda d: any(vm_name + " powered off" in r for r in rows("#changes div")))
    assert driver.execute_script("return window.notReloaded === true"), "the page was not reloaded"
    if screenshot:
        driver.save_screenshot(screenshot)
    print("row changed without a reload:", row_text())
finally:
    driver.quit()
