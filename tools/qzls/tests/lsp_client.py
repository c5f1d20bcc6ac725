"""A test client that talks to qzls through its real wire format: framed
JSON-RPC messages over the server's standard input and output."""
import json
import os
import select
import subprocess

QZLS = os.environ.get("QZLS", "qzls")
# A safety net against a hung server, not a measurement: no test depends on
# how fast an answer comes.
WAIT_SECONDS = 60


def frame(payload):
    body = payload if isinstance(payload, bytes) else json.dumps(payload).encode("utf-8")
    return b"Content-Length: %d\r\n\r\n" % len(body) + body


class Client:
    def __init__(self, test=None):
        """With `test` (a unittest.TestCase) the server is ended after the test
        whatever its outcome."""
        self.proc = subprocess.Popen([QZLS], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE)
        self.buffer = b""
        self.next_id = 0
        self.notifications = []
        if test is not None:
            test.addCleanup(self.close)

    # ---- sending ----
    def send_raw(self, data):
        self.proc.stdin.write(data)
        self.proc.stdin.flush()

    def send(self, message):
        self.send_raw(frame(message))

    def notify(self, method, params=None):
        message = {"jsonrpc": "2.0", "method": method}
        if params is not None:
            message["params"] = params
        self.send(message)

    def request(self, method, params=None):
        """Sends a request and returns the whole response message."""
        self.next_id += 1
        message = {"jsonrpc": "2.0", "id": self.next_id, "method": method}
        if params is not None:
            message["params"] = params
        self.send(message)
        return self.response(self.next_id)

    # ---- receiving ----
    def _read_some(self):
        ready, _, _ = select.select([self.proc.stdout], [], [], WAIT_SECONDS)
        if not ready:
            raise AssertionError("qzls did not answer")
        chunk = os.read(self.proc.stdout.fileno(), 1 << 20)
        if not chunk:
            raise EOFError("qzls closed its output")
        self.buffer += chunk

    def read_message(self):
        while b"\r\n\r\n" not in self.buffer:
            self._read_some()
        header, _, rest = self.buffer.partition(b"\r\n\r\n")
        fields = dict(line.split(b": ", 1) for line in header.split(b"\r\n"))
        length = int(fields[b"Content-Length"])
        while len(rest) < length:
            self._read_some()
            header, _, rest = self.buffer.partition(b"\r\n\r\n")
        self.buffer = rest[length:]
        return json.loads(rest[:length].decode("utf-8"))

    def response(self, request_id):
        while True:
            message = self.read_message()
            if "method" in message:
                self.notifications.append(message)
                continue
            assert message.get("id") == request_id, message
            return message

    def notification(self, method):
        for i, message in enumerate(self.notifications):
            if message["method"] == method:
                return self.notifications.pop(i)
        while True:
            message = self.read_message()
            if message.get("method") == method:
                return message
            self.notifications.append(message)

    # ---- conveniences ----
    def initialize(self, encodings=None):
        params = {"processId": None, "rootUri": None, "capabilities": {}}
        if encodings is not None:
            params["capabilities"] = {"general": {"positionEncodings": encodings}}
        answer = self.request("initialize", params)
        self.notify("initialized", {})
        return answer

    def open(self, uri, text, version=1):
        self.notify("textDocument/didOpen", {"textDocument": {
            "uri": uri, "languageId": "qz", "version": version, "text": text}})
        return self.notification("textDocument/publishDiagnostics")["params"]

    def change(self, uri, version, changes):
        self.notify("textDocument/didChange", {"textDocument": {"uri": uri, "version": version},
                                               "contentChanges": changes})
        return self.notification("textDocument/publishDiagnostics")["params"]

    def at(self, method, uri, line, character, **extra):
        params = {"textDocument": {"uri": uri}, "position": {"line": line, "character": character}}
        params.update(extra)
        return self.request(method, params)

    def shutdown_and_exit(self):
        self.request("shutdown")
        self.notify("exit")
        return self.wait()

    def wait(self):
        try:
            self.proc.stdin.close()
        except BrokenPipeError:
            pass
        code = self.proc.wait(timeout=WAIT_SECONDS)
        self.proc.stdout.close()
        self.stderr = self.proc.stderr.read().decode("utf-8", "replace")
        self.proc.stderr.close()
        return code

    def close(self):
        """Ends a server a failed test left running, and closes the pipes."""
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        for pipe in (self.proc.stdin, self.proc.stdout, self.proc.stderr):
            try:
                pipe.close()
            except (BrokenPipeError, ValueError):
                pass

    def rss_kib(self):
        with open("/proc/%d/status" % self.proc.pid) as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
        raise AssertionError("no VmRSS")


def position(line, character):
    return {"line": line, "character": character}


def span(line, begin, end, end_line=None):
    return {"start": position(line, begin), "end": position(line if end_line is None else end_line, end)}
