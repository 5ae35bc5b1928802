"""The live page in a real headless Chromium, for a camera served by ffmpeg
on the loopback address: the picture moves, the plot fills, the state
follows the camera as it goes and comes back. Screenshots of each step are
kept in the artifacts folder.

    live_page_test.py NERVA_BLOBS ARTIFACTS_DIR

Exits 77 (skipped) without chromium, chromedriver, selenium or ffmpeg.
"""

import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
except ImportError:
    webdriver = None

PROGRAM = ARTIFACTS = None


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(condition, what, timeout=90):
    """Polls `condition` until it gives something true; a failure names `what`."""
    end = time.monotonic() + timeout
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"timed out waiting for {what}")
        time.sleep(0.1)
    return value


class LivePage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = Path(tempfile.mkdtemp(prefix="nerva-live-page-"))
        subprocess.run(
            ["ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
             "testsrc=size=320x240:rate=25", "-t", "4", "-c:v", "mpeg2video", "-g", "5",
             "-f", "mpegts", str(cls.dir / "camera.ts")], check=True)
        cls.camera_url = f"http://127.0.0.1:{free_port()}/camera.ts"

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir, ignore_errors=True)

    def serve_camera(self):
        return subprocess.Popen(
            ["ffmpeg", "-nostdin", "-loglevel", "quiet", "-re", "-stream_loop", "-1", "-i",
             str(self.dir / "camera.ts"), "-c", "copy", "-f", "mpegts", "-listen", "1",
             self.camera_url])

    def start_browser(self):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync", "--no-first-run",
                     "--window-size=420,900", f"--user-data-dir={self.dir / 'profile'}"):
            options.add_argument(flag)
        return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)

    def setUp(self):
        self.camera = self.serve_camera()
        self.err = open(self.dir / "err.txt", "w+")
        self.program = subprocess.Popen(
            [PROGRAM, self.camera_url, "--serve", "0", "-o", str(self.dir / "blobs.jsonl")],
            stderr=self.err)
        self.browser = None

    def tearDown(self):
        if self.browser:
            self.browser.quit()
        for process in (self.program, self.camera):
            if process.poll() is None:
                process.kill()
                process.wait()
        self.err.close()

    def stderr(self):
        return (self.dir / "err.txt").read_text()

    def text(self, element_id):
        return self.browser.find_element(By.ID, element_id).text

    def picture(self):
        return self.browser.find_element(By.ID, "view").screenshot_as_png

    def shot(self, name):
        self.browser.save_screenshot(str(ARTIFACTS / name))

    def test_the_page_follows_the_camera(self):
        marker = "live page on "
        address = wait_for(lambda: marker in self.stderr() and self.stderr().split(marker)[1].split()[0],
                           "the program to serve its page")
        self.browser = self.start_browser()
        self.browser.get(address)
        state = lambda: self.text("state")

        wait_for(lambda: state() == "live", "the state to read live")
        wait_for(lambda: int(self.browser.find_element(By.ID, "plot").get_attribute("data-points")) >= 10,
                 "points in the plot")
        wait_for(lambda: self.browser.execute_script("return document.getElementById('view').naturalWidth") == 320,
                 "the first picture")
        first = self.picture()
        self.shot("live-1.png")
        wait_for(lambda: self.picture() != first, "the picture to change")
        self.shot("live-2.png")

        self.camera.kill()
        self.camera.wait()
        wait_for(lambda: state() == "outage", "the outage to show")
        self.shot("outage.png")
        self.assertIn("attempt", self.text("detail"))

        self.camera = self.serve_camera()
        wait_for(lambda: state() == "live", "the state to read live again")
        again = self.picture()
        wait_for(lambda: self.picture() != again, "the picture to move again")
        self.shot("live-again.png")
        self.assertEqual(self.text("outages"), "1")

        self.program.send_signal(signal.SIGTERM)
        self.assertEqual(self.program.wait(timeout=60), 0, self.stderr())
        wait_for(lambda: state() == "ended", "the state to read ended")
        self.shot("ended.png")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    PROGRAM, ARTIFACTS = sys.argv[1], Path(sys.argv[2])
    ARTIFACTS.mkdir(parents=True, exist_ok=True)
    if webdriver is None or not all(map(shutil.which, ("chromium", "chromedriver", "ffmpeg"))):
        print("skipped: chromium, chromedriver, python3-selenium and ffmpeg are needed (scripts/setup.sh)")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
