"""The live view's page in a real headless Chromium, as an engineer uses it."""
import os
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

from live_harness import WAIT, LiveServer, example

SCREENSHOT = os.environ.get("QZ_LIVE_SCREENSHOT",
                            os.path.join(os.environ.get("QZ_LIVE_OUT", "."), "live-view.png"))


def make_driver():
    options = Options()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     "--window-size=1500,1050", "--force-device-scale-factor=1"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.driver = make_driver()

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()

    def setUp(self):
        self.servers = []
        self.driver.get_log("browser")  # start each test with an empty log

    def tearDown(self):
        for server in self.servers:
            self.assertEqual(server.stop(), 0)

    def open(self, program, *args, token=True, cwd=None):
        server = LiveServer(program, *args, cwd=cwd)
        self.servers.append(server)
        self.driver.get(server.url if token else server.url.split("?")[0])
        self.until(lambda d: d.find_element(By.ID, "run-state").text not in ("connecting", ""))
        return server

    def until(self, condition):
        return WebDriverWait(self.driver, WAIT, poll_frequency=0.05).until(condition)

    def text(self, css):
        return self.driver.find_element(By.CSS_SELECTOR, css).text

    def value_of(self, name):
        return self.text(f"#var-{name} td.value")

    def trend_last(self, name):
        return self.driver.execute_script(
            "const d = liveView.chart.data.datasets.find((d) => d.label === arguments[0]);"
            "return d && d.data.length ? d.data[d.data.length - 1] : null;", name)

    def assert_no_script_errors(self):
        severe = [entry for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]
        self.assertEqual(severe, [])

    def test_start_latches_motor_then_force_pause_and_step(self):
        self.open("motor_latch.qz", "--period", "50", cwd=example(""))
        self.assertEqual(self.text("#run-state"), "running")
        self.assertEqual(self.text("#program-path"), "motor_latch.qz")
        self.assertEqual(len(self.driver.find_elements(By.CSS_SELECTOR, "#source .line")), 37)
        self.assertEqual(self.value_of("MOTOR"), "0")

        self.driver.find_element(By.ID, "toggle-START").click()  # press START
        self.until(lambda d: self.value_of("MOTOR") == "1")
        self.until(lambda d: self.trend_last("MOTOR") == 1)
        self.assertEqual(self.driver.find_element(By.ID, "toggle-START").get_attribute("aria-pressed"), "true")
        self.driver.find_element(By.ID, "toggle-START").click()  # release it: the motor holds
        self.until(lambda d: self.value_of("START") == "0")
        self.assertEqual(self.value_of("MOTOR"), "1")

        field = self.driver.find_element(By.ID, "force-value-STOP")
        field.clear()
        field.send_keys("1")
        self.driver.find_element(By.ID, "force-STOP").click()
        self.until(lambda d: self.value_of("MOTOR") == "0")
        self.until(lambda d: self.trend_last("MOTOR") == 0)
        self.assertIn("forced", self.driver.find_element(By.ID, "var-STOP").get_attribute("class"))
        self.assertEqual(self.text("#var-STOP td.forced"), "F 1")
        self.driver.find_element(By.ID, "trend-STOP").click()  # show STOP in the trend too
        self.until(lambda d: self.trend_last("STOP") == 1)
        self.driver.save_screenshot(SCREENSHOT)

        self.driver.find_element(By.ID, "pause").click()
        self.until(lambda d: self.text("#run-state") == "paused")
        cycle = int(self.text("#cycle"))
        self.driver.find_element(By.ID, "step-cycle").click()
        self.until(lambda d: self.text("#cycle") == str(cycle + 1))
        self.assertEqual(self.text("#run-state"), "paused")

        self.driver.find_element(By.ID, "step-instruction").click()
        self.until(lambda d: self.text("#run-state") == "at-instruction")
        current = self.driver.find_elements(By.CSS_SELECTOR, ".line.current-line")
        self.assertEqual([line.get_attribute("id") for line in current], ["line-20"])
        self.driver.find_element(By.ID, "step-instruction").click()
        self.until(lambda d: d.find_element(By.CSS_SELECTOR, ".line.current-line").get_attribute("id") == "line-21")
        self.assertEqual(self.text("#cycle"), str(cycle + 2))
        self.driver.find_element(By.ID, "resume").click()
        self.until(lambda d: self.text("#run-state") == "running")
        self.assertEqual(self.driver.find_elements(By.CSS_SELECTOR, ".line.current-line"), [])
        self.assert_no_script_errors()

    def test_a_failing_program_shows_its_line(self):
        self.open(example("tests/division_by_zero.qz"), "--period", "20",
                  "--inputs", example("tests/division_by_zero.inputs.csv"))
        self.until(lambda d: self.text("#run-state") == "failed")
        marked = self.driver.find_elements(By.CSS_SELECTOR, ".line.error-line")
        self.assertEqual([line.get_attribute("id") for line in marked], ["line-8"])
        self.assertEqual(self.text("#line-8 .error-token"), "R0")
        self.assertEqual(self.text("#error"), "Line 8, column 25: error 15: DIV or MOD by zero in cycle 3")
        self.assertEqual(self.text(".error-note"), "error 15: DIV or MOD by zero in cycle 3")
        self.assertEqual(self.text("#cycle"), "3")
        self.assert_no_script_errors()

    def test_a_program_that_does_not_load_shows_its_line(self):
        self.open(example("tests/missing_ret.qz"))
        self.until(lambda d: self.text("#run-state") == "load-failed")
        marked = self.driver.find_elements(By.CSS_SELECTOR, ".line.error-line")
        self.assertEqual([line.get_attribute("id") for line in marked], ["line-6"])
        self.assertIn("error 6: end of program text reached", self.text("#error"))
        self.assertIn("while loading", self.text("#error"))
        self.assertFalse(self.driver.find_element(By.ID, "pause").is_enabled())
        self.assert_no_script_errors()

    def test_without_the_token_the_page_only_watches(self):
        server = self.open(example("motor_latch.qz"), "--period", "50", token=False)
        self.assertIn("No token", self.text("#message"))
        self.driver.find_element(By.ID, "toggle-START").click()
        self.until(lambda d: "token" in self.text("#message") and "input:" in self.text("#message"))
        self.assertEqual(server.state()["variables"][0]["given"], 0)
        # The refused request is the one error the log may show.
        severe = [e for e in self.driver.get_log("browser") if e["level"] == "SEVERE"]
        self.assertTrue(all("403" in e["message"] for e in severe), severe)


if __name__ == "__main__":
    unittest.main()
