"""Starts `qzrun --serve` on a free port and talks HTTP to it, as a browser
or a script would."""
import http.client
import json
import os
import re
import select
import subprocess
import time
import unittest

QZRUN = os.environ.get("QZRUN", "qzrun")
EXAMPLES = os.environ.get("QZ_EXAMPLES", os.path.join(os.path.dirname(__file__), "..", "..", "..", "examples"))
HERE = os.path.dirname(os.path.abspath(__file__))
# Generous bounds on waiting for something the runner must do; a test that
# hits one fails, it never passes by waiting.
WAIT = 20.0

URL_LINE = re.compile(r"live view of .* at http://([^/]+):(\d+)/\?token=([0-9a-f]{32})$")


def example(name):
    return os.path.join(EXAMPLES, name)


class LiveServer:
    def __init__(self, program, *args, cwd=None):
        self.process = subprocess.Popen(
            [QZRUN, "--serve", "127.0.0.1:0", *args, program],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, cwd=cwd)
        ready, _, _ = select.select([self.process.stdout], [], [], WAIT)
        line = self.process.stdout.readline().strip() if ready else ""
        match = URL_LINE.search(line)
        if not match:
            self.process.kill()
            raise AssertionError(f"no address printed: {line!r} {self.process.stderr.read()!r}")
        self.host, self.port, self.token = match.group(1), int(match.group(2)), match.group(3)
        self.url = f"http://{self.host}:{self.port}/?token={self.token}"

    def stop(self):
        self.process.terminate()
        try:
            return self.process.wait(timeout=WAIT)
        finally:
            self.process.stdout.close()
            self.process.stderr.close()

    def request(self, method, path, body=None, token=True, headers=None, raw=None):
        connection = http.client.HTTPConnection(self.host, self.port, timeout=WAIT)
        sent = dict(headers or {})
        if token is True:
            sent["X-Live-Token"] = self.token
        elif token:
            sent["X-Live-Token"] = token
        payload = raw if raw is not None else (json.dumps(body) if body is not None else None)
        if payload is not None:
            sent["Content-Type"] = "application/json"
        connection.request(method, path, body=payload, headers=sent)
        response = connection.getresponse()
        data = response.read()
        connection.close()
        kind = response.getheader("Content-Type", "")
        return response.status, (json.loads(data) if kind.startswith("application/json") else data), response

    def get(self, path):
        status, body, _ = self.request("GET", path, token=False)
        return status, body

    def post(self, path, body=None, **kw):
        status, body, _ = self.request("POST", path, body, **kw)
        return status, body

    def state(self):
        status, body = self.get("/api/state")
        assert status == 200, body
        return body

    def command(self, path, body=None):
        """Sends a command and waits until the runner has applied it."""
        status, reply = self.post(path, body)
        assert status == 200, (path, status, reply)
        return self.wait(lambda s: s["applied"] >= reply["sequence"])

    def wait(self, condition):
        deadline = time.monotonic() + WAIT
        while True:
            state = self.state()
            if condition(state):
                return state
            if time.monotonic() > deadline:
                raise AssertionError(f"condition not reached; last state: {json.dumps(state)[:2000]}")
            time.sleep(0.02)


def variable(state, name):
    for entry in state["variables"]:
        if entry["name"] == name:
            return entry
    raise KeyError(name)


class ServerTest(unittest.TestCase):
    """A test with one runner serving `program` (started per test)."""
    program = example("motor_latch.qz")
    args = ("--period", "10")

    def setUp(self):
        self.server = LiveServer(self.program, *self.args)

    def tearDown(self):
        self.assertEqual(self.server.stop(), 0)
