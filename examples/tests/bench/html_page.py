#!/usr/bin/env python3
"""Runs qzrun --html on a program, opens the page in headless Chromium and
checks what a user would see: the page loads without script errors, needs
nothing from the network, and its chart has one trace per signal holding the
run's values (read back from the chart object) and the table a row a cycle.

usage: html_page.py QZRUN WORKDIR [--screenshot PNG] -- QZRUN-ARGUMENTS...
"""
import csv
import io
import os
import re
import subprocess
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait


def browser():
    options = webdriver.ChromeOptions()
    for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                 "--window-size=1200,900", "--hide-scrollbars"):
        options.add_argument(flag)
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def main():
    qzrun, workdir = os.path.abspath(sys.argv[1]), sys.argv[2]
    own = sys.argv[3:sys.argv.index("--")]
    args = sys.argv[sys.argv.index("--") + 1:]
    screenshot = os.path.abspath(own[own.index("--screenshot") + 1]) if "--screenshot" in own else None
    with tempfile.TemporaryDirectory() as tmp:
        page = os.path.join(tmp, "run.html")
        table = subprocess.run([qzrun, *args, "--csv", "--html", page], cwd=workdir, check=True,
                               capture_output=True, text=True).stdout
        html = open(page, encoding="utf-8").read()
        assert not re.search(r"<(script|link|img)[^>]+(src|href)=", html), "the page loads something from outside"
        rows = list(csv.DictReader(io.StringIO(table)))
        driver = browser()
        try:
            driver.get("file://" + page)
            WebDriverWait(driver, 30).until(lambda d: d.execute_script("return !!window.qzChart"))
            errors = [e for e in driver.get_log("browser") if e["level"] == "SEVERE"]
            assert not errors, f"script errors in the browser log: {errors}"
            traces = driver.execute_script(
                "return window.qzChart.data.datasets.map(function (d, i) {"
                "  return {label: d.label, data: d.data,"
                "          drawn: window.qzChart.getDatasetMeta(i).data.length}; });")
            labels = driver.execute_script("return window.qzChart.data.labels;")
            table_rows = len(driver.find_elements(By.CSS_SELECTOR, "#run-table tbody tr"))
            if screenshot:
                driver.find_element(By.ID, "chart").screenshot(screenshot)
        finally:
            driver.quit()

    cycles = len(rows)
    assert table_rows == cycles, f"the page's table has {table_rows} rows for {cycles} cycles"
    assert len(labels) == cycles, f"{len(labels)} points on the time axis for {cycles} cycles"
    by_label = {t["label"]: t for t in traces}
    assert len(by_label) == len(traces), "two traces share a label"
    columns = [c for c in rows[0] if c != "cycle"]
    for column in columns:
        assert column in by_label, f"no trace for {column}; traces: {sorted(by_label)}"
        trace = by_label[column]
        assert trace["drawn"] == cycles, f"{column}: {trace['drawn']} points drawn for {cycles} cycles"
        want = [float(row[column]) for row in rows]
        got = [float(v) for v in trace["data"]]
        assert got == want, f"{column}: chart {got[:10]}..., table {want[:10]}..."
    extra = [t["label"] for t in traces if t["label"] not in columns]
    for label in extra:  # the inputs: one value a cycle as well
        assert len(by_label[label]["data"]) == cycles, f"input {label} has a value count other than {cycles}"
    print(f"{len(traces)} traces ({len(columns)} outputs and watched, {len(extra)} inputs) over {cycles} cycles agree")


if __name__ == "__main__":
    main()
