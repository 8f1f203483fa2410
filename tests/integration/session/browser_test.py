#!/usr/bin/env python3
"""A real browser opens a session's page, and shows the gears that turn in the session."""
import unittest

from browser import ARGUMENTS, Page, gears_in
from sessions import SessionTest, Started
from xkor import wait_until

WIDTH, HEIGHT = 1100, 800


class Browser(SessionTest):
    def open(self, page):
        profile = self.folder / "browser"
        browser = self.start("chromium", *ARGUMENTS, f"--user-data-dir={profile}",
                             f"--window-size={WIDTH},{HEIGHT}", page)
        try:
            opened = Page(profile)
        except TimeoutError:
            self.fail(browser.complaints())
        self.addCleanup(opened.close)
        return opened

    def expect_gears(self, page):
        counts = []

        def seen():
            counts[:] = gears_in(page.picture(WIDTH, HEIGHT, 0.25))
            return min(counts) > 40
        self.assertTrue(wait_until(seen, 60), counts)

    def test_gears_are_seen(self):
        session = self.start_session("glxgears", "-geometry", "400x400+300+150")
        page = self.open(session.page)
        self.expect_gears(page)
        # The desktop took the size of the browser's window.
        inner = page.run("[window.innerWidth, window.innerHeight].join('x')")
        authority = next(self.sessions.glob("*/Xauthority"))
        environment = {"DISPLAY": session.display, "XAUTHORITY": str(authority)}

        def size():
            text = self.run_program("xdpyinfo", environment=environment).stdout
            return text.split("dimensions:")[1].split()[0]
        self.assertTrue(wait_until(lambda: size() == inner), f"{size()} is not {inner}")

    def test_keys_reach_the_program(self):
        session = self.start_session("sh", "-c", "exec stdbuf -oL xev -geometry 600x500+0+0")
        page = self.open(session.page)
        log = session.logs / "command.log"
        self.assertTrue(wait_until(lambda: page.run(
            "document.documentElement.classList.contains('noVNC_connected')"), 60))
        page.ask("Input.dispatchMouseEvent", type="mousePressed", x=200, y=200, button="left",
                 clickCount=1)
        page.ask("Input.dispatchMouseEvent", type="mouseReleased", x=200, y=200, button="left",
                 clickCount=1)
        self.assertTrue(wait_until(lambda: "ButtonRelease event" in log.read_text()))
        for kind in ("keyDown", "keyUp"):
            page.ask("Input.dispatchKeyEvent", type=kind, key="k", code="KeyK", text="k",
                     windowsVirtualKeyCode=75)
        self.assertTrue(wait_until(lambda: "keysym 0x6b, k)" in log.read_text()), log.read_text())

    def test_page_without_its_password_shows_nothing(self):
        session = self.start_session("glxgears", "-geometry", "400x400+300+150")
        page = self.open(session.page.split("#")[0] + "#password=wrongone")
        self.assertTrue(wait_until(lambda: page.run(
            "document.getElementById('noVNC_status').textContent.includes('rejected')"), 60))
        self.assertLess(min(gears_in(page.picture(WIDTH, HEIGHT, 0.25))), 40)
        Started(self.korsession("start", "sleep", "600").stdout)  # others are not locked out


# The sessions' own tests are run under their own name.
del SessionTest

if __name__ == "__main__":
    unittest.main()
