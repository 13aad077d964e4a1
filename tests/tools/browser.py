# SPDX-License-Identifier: Apache-2.0
"""A browser that a test drives, without a network."""
import base64
import json
import os
import pathlib
import subprocess
import tempfile

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
         "--no-first-run", "--disable-sync", "--disable-background-networking",
         "--disable-component-update",
         # Requests of the browser itself do not leave the machine either.
         "--host-resolver-rules=MAP * ~NOTFOUND"]


class Browser:
    """One page of a browser, driven through two pipes with the DevTools
    protocol. `complaints` are console lines, exceptions and failed requests;
    `requested` the URLs that the page loaded."""

    def __init__(self, chromium):
        to_browser, self.to_browser = os.pipe()
        self.from_browser, from_browser = os.pipe()
        self.profile = tempfile.TemporaryDirectory(
            prefix="browser-profile-", ignore_cleanup_errors=True)
        # The protocol uses the descriptors 3 and 4.
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec 3<&{to_browser} 4>&{from_browser} "$@"', "-",
             chromium, *FLAGS, "--remote-debugging-pipe",
             f"--user-data-dir={self.profile.name}", "about:blank"],
            pass_fds=(to_browser, from_browser), stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.reader = os.fdopen(self.from_browser, "rb")
        self.count, self.session = 0, None
        self.complaints, self.requested, self.seen = [], [], set()
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target,
                                 flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.session = None
        self.call("Browser.close")
        self.process.wait(20)
        os.close(self.to_browser)
        self.reader.close()
        self.profile.cleanup()

    def message(self):
        """The next message of the browser, whose end is a NUL."""
        text = bytearray()
        while (byte := self.reader.read(1)) != b"\0":
            if not byte:
                raise EOFError("the browser ended")
            text += byte
        message = json.loads(text)
        method, params = message.get("method"), message.get("params", {})
        self.seen.add(method)
        if method == "Runtime.consoleAPICalled":
            self.complaints.append([one.get("value", one.get("description"))
                                    for one in params["args"]])
        elif method == "Runtime.exceptionThrown":
            self.complaints.append(params["exceptionDetails"])
        elif method == "Log.entryAdded":
            self.complaints.append(params["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            self.requested.append(params["request"]["url"])
        elif method == "Network.loadingFailed" and not params["canceled"]:
            self.complaints.append(params["errorText"])
        return message

    def call(self, method, **params):
        self.count += 1
        request = {"id": self.count, "method": method, "params": params}
        if self.session:
            request["sessionId"] = self.session
        os.write(self.to_browser, json.dumps(request).encode() + b"\0")
        while (answer := self.message()).get("id") != self.count:
            pass
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def window(self, width, height=900, scheme="light"):
        self.call("Emulation.setDeviceMetricsOverride", width=width,
                  height=height, deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": scheme}])

    def open(self, url):
        """Opens the page, and returns when it has loaded."""
        self.complaints.clear()
        self.requested.clear()
        self.seen.discard("Page.loadEventFired")
        failure = self.call("Page.navigate", url=url).get("errorText")
        if failure:
            raise RuntimeError(f"{url}: {failure}")
        while "Page.loadEventFired" not in self.seen:
            self.message()

    def run(self, script):
        """The value of a JavaScript expression, or of its promise."""
        result = self.call("Runtime.evaluate", expression=script,
                           returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{script}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def picture(self, file):
        data = self.call("Page.captureScreenshot")["data"]
        pathlib.Path(file).write_bytes(base64.b64decode(data))
