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
from selenium.webdriver.common.by import By
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


def row_text():
    rows = [r.text for r in driver.find_elements(By.CSS_SELECTOR, "#interfaces tr") if vm_name in r.text]
    return rows[0] if rows else ""


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
    wait.until(lambda d: any(vm_name in r.text for r in d.find_elements(By.CSS_SELECTOR, "#interfaces tr.changed")))
    wait.until(lambda d: vm_name + " powered off" in d.find_element(By.ID, "changes").text)
    assert driver.execute_script("return window.notReloaded === true"), "the page was not reloaded"
    if screenshot:
        driver.save_screenshot(screenshot)
    print("row changed without a reload:", row_text())
finally:
    driver.quit()
