"""The live view's HTTP API, against a real `qzrun --serve`."""
import http.client
import json
import os
import socket
import time
import unittest

from live_harness import WAIT, LiveServer, ServerTest, example, variable

MOTOR_LATCH_VARIABLES = [
    ("START", "VI", "BOOL"), ("STOP", "VI", "BOOL"), ("OVERLOAD", "VI", "BOOL"),
    ("GUARD_OPEN", "VI", "BOOL"), ("MOTOR", "VO", "BOOL"), ("FAULT", "VO", "BOOL"),
]


def read_events(server, count):
    """Reads `count` update events from the event stream."""
    connection = http.client.HTTPConnection(server.host, server.port, timeout=WAIT)
    connection.request("GET", "/api/events")
    response = connection.getresponse()
    assert response.status == 200
    assert response.getheader("Content-Type").startswith("text/event-stream")
    events = []
    event = None
    while len(events) < count:
        line = response.fp.readline().decode()
        if line.startswith("event: "):
            event = line[7:].strip()
        elif line.startswith("data: "):
            events.append((event, json.loads(line[6:])))
    connection.close()
    return events


class ProgramAndState(ServerTest):
    def test_program_describes_source_and_declarations(self):
        status, program = self.server.get("/api/program")
        self.assertEqual(status, 200)
        with open(example("motor_latch.qz")) as f:
            self.assertEqual(program["source"], f.read())
        self.assertEqual([(v["name"], v["kind"], v["type"]) for v in program["variables"]], MOTOR_LATCH_VARIABLES)
        self.assertEqual(program["diagnostics"], [])
        self.assertIsNone(program["loadError"])
        self.assertEqual(program["trendCapacity"], 600)

    def test_state_shows_every_variable_running(self):
        state = self.server.wait(lambda s: s["cycle"] >= 3)
        self.assertEqual(state["state"], "running")
        self.assertEqual(state["periodMs"], 10)
        self.assertEqual([v["name"] for v in state["variables"]], [v[0] for v in MOTOR_LATCH_VARIABLES])
        motor = variable(state, "MOTOR")
        self.assertEqual((motor["value"], motor["written"], motor["forced"]), (0, True, False))
        start = variable(state, "START")
        self.assertEqual((start["value"], start["given"], start["written"]), (0, 0, None))
        self.assertGreaterEqual(state["stats"]["cycles"], 3)
        self.assertEqual((state["stats"]["failures"], state["stats"]["budgetHits"]), (0, 0))
        self.assertIsNone(state["error"])

    def test_event_stream_sends_state_and_trend(self):
        events = read_events(self.server, 3)
        self.assertEqual([e[0] for e in events], ["update"] * 3)
        versions = [e[1]["state"]["version"] for e in events]
        self.assertEqual(versions, sorted(set(versions)))
        trend = [row for _, message in events for row in message["trend"]]
        cycles = [row["cycle"] for row in trend]
        self.assertEqual(cycles, list(range(cycles[0], cycles[0] + len(cycles))))  # every cycle, once
        self.assertTrue(all(len(row["values"]) == 6 for row in trend))

    def test_trend_keeps_every_cycle(self):
        self.server.wait(lambda s: s["cycle"] >= 5)
        status, rows = self.server.get("/api/trend")
        self.assertEqual(status, 200)
        cycles = [row["cycle"] for row in rows]
        self.assertEqual(cycles[:5], [1, 2, 3, 4, 5])
        self.assertEqual(cycles, list(range(1, len(cycles) + 1)))


class Commands(ServerTest):
    def test_toggling_start_latches_the_motor(self):
        state = self.server.command("/api/input", {"name": "START", "value": True})
        self.assertEqual(variable(state, "START")["given"], 1)
        state = self.server.wait(lambda s: variable(s, "MOTOR")["value"] == 1)
        self.server.command("/api/input", {"name": "start", "value": 0})  # names as the program finds them
        state = self.server.wait(lambda s: variable(s, "START")["value"] == 0)
        self.assertEqual(variable(state, "MOTOR")["value"], 1)  # sealed in

    def test_forcing_an_input_and_releasing_it(self):
        self.server.command("/api/input", {"name": "START", "value": 1})
        self.server.wait(lambda s: variable(s, "MOTOR")["value"] == 1)
        state = self.server.command("/api/force", {"name": "STOP", "value": 1})
        self.assertTrue(variable(state, "STOP")["forced"])
        state = self.server.wait(lambda s: variable(s, "MOTOR")["value"] == 0)
        self.assertEqual(variable(state, "STOP")["value"], 1)
        self.assertEqual(variable(state, "STOP")["given"], 0)  # forcing does not touch the input's own value
        state = self.server.command("/api/release", {"name": "STOP"})
        self.assertFalse(variable(state, "STOP")["forced"])
        state = self.server.wait(lambda s: variable(s, "MOTOR")["value"] == 1)  # START is still held

    def test_forcing_an_output_overrides_what_the_host_records(self):
        self.server.command("/api/force", {"name": "MOTOR", "value": 1})
        state = self.server.wait(lambda s: s["cycle"] >= 3 and variable(s, "MOTOR")["forced"])
        state = self.server.wait(lambda s: s["applied"] >= 1 and s["cycle"] >= state["cycle"] + 1)
        motor = variable(state, "MOTOR")
        self.assertEqual((motor["value"], motor["programValue"], motor["forced"]), (1, 0, True))
        status, rows = self.server.get("/api/trend")
        self.assertEqual(rows[-1]["values"][4], 1)

    def test_pause_and_step_one_cycle(self):
        state = self.server.command("/api/pause")
        state = self.server.wait(lambda s: s["state"] == "paused")
        cycle = state["cycle"]
        state = self.server.command("/api/step-cycle")
        state = self.server.wait(lambda s: s["cycle"] == cycle + 1)
        self.assertEqual(state["state"], "paused")
        state = self.server.command("/api/step-cycle")
        self.assertEqual(self.server.wait(lambda s: s["cycle"] == cycle + 2)["state"], "paused")
        state = self.server.command("/api/resume")
        self.server.wait(lambda s: s["state"] == "running" and s["cycle"] > cycle + 3)

    def test_step_one_instruction_at_a_time(self):
        self.server.command("/api/pause")
        cycle = self.server.wait(lambda s: s["state"] == "paused")["cycle"]
        self.server.command("/api/input", {"name": "START", "value": 1})
        state = self.server.command("/api/step-instruction")
        state = self.server.wait(lambda s: s["state"] == "at-instruction")
        self.assertEqual((state["cycle"], state["position"]["line"], state["position"]["column"]), (cycle + 1, 20, 5))
        state = self.server.command("/api/step-instruction")
        state = self.server.wait(lambda s: s["position"] and s["position"]["line"] == 21)
        self.assertEqual(state["state"], "at-instruction")
        for line in (22, 23, 26, 27, 28, 31, 32, 33, 34):
            self.server.command("/api/step-instruction")
            state = self.server.wait(lambda s, line=line: s["position"] and s["position"]["line"] == line)
        self.assertEqual(variable(state, "MOTOR")["value"], 0)  # not yet stored
        state = self.server.command("/api/step-cycle")  # the rest of this cycle
        state = self.server.wait(lambda s: s["state"] == "paused")
        self.assertEqual((state["cycle"], state["position"]), (cycle + 1, None))
        self.assertEqual(variable(state, "MOTOR")["value"], 1)


class Refusals(ServerTest):
    def unchanged(self, before):
        after = self.server.state()
        self.assertEqual(after["applied"], before["applied"])
        self.assertEqual([(v["name"], v["forced"], v.get("given")) for v in after["variables"]],
                         [(v["name"], v["forced"], v.get("given")) for v in before["variables"]])

    def test_changes_need_the_token(self):
        before = self.server.state()
        wrong = "0" * 32 if self.server.token != "0" * 32 else "1" * 32
        for token in (False, wrong, self.server.token[:-1], self.server.token + "0", self.server.token.upper()):
            for path, body in (("/api/input", {"name": "START", "value": 1}), ("/api/force", {"name": "STOP", "value": 1}),
                               ("/api/pause", None), ("/api/step-cycle", None)):
                status, reply = self.server.post(path, body, token=token)
                self.assertEqual(status, 403, (path, token))
                self.assertIn("token", reply["error"])
        self.unchanged(before)
        self.assertEqual(self.server.state()["state"], "running")

    def test_bad_requests_are_refused_and_change_nothing(self):
        before = self.server.state()
        cases = [
            ("/api/input", None, "{not json", 400),
            ("/api/input", None, "[1, 2]", 400),
            ("/api/input", {"value": 1}, None, 400),
            ("/api/input", {"name": 5, "value": 1}, None, 400),
            ("/api/input", {"name": "NOPE", "value": 1}, None, 404),
            ("/api/input", {"name": "START"}, None, 400),
            ("/api/input", {"name": "START", "value": "1"}, None, 400),
            ("/api/input", {"name": "START", "value": None}, None, 400),
            ("/api/input", {"name": "MOTOR", "value": 1}, None, 400),  # an output is not an input
            ("/api/force", {"name": "STOP", "value": [1]}, None, 400),
            ("/api/force", {"name": "STOP", "value": 1e400}, None, 400),
            ("/api/release", {"name": "NOPE"}, None, 404),
            ("/api/step-cycle", None, None, 409),  # only from a pause
            ("/api/step-instruction", None, None, 409),
            ("/api/input", None, "x" * 10000, 413),
        ]
        for path, body, raw, expected in cases:
            status, reply, _ = self.server.request("POST", path, body, raw=raw)
            self.assertEqual(status, expected, (path, body, raw and raw[:20], reply))
            if expected != 413:
                self.assertIsInstance(reply["error"], str)
        self.unchanged(before)
        status, reply, _ = self.server.request("DELETE", "/api/pause")
        self.assertGreaterEqual(status, 400)
        self.assertLess(status, 500)
        self.assertEqual(self.server.state()["state"], "running")

    def test_only_the_page_assets_are_served(self):
        for path, kind in (("/", "text/html"), ("/index.html", "text/html"), ("/live.js", "text/javascript"),
                           ("/live.css", "text/css"), ("/chart.js", "text/javascript")):
            status, body, response = self.server.request("GET", path, token=False)
            self.assertEqual(status, 200, path)
            self.assertTrue(response.getheader("Content-Type").startswith(kind), path)
            self.assertIn("script-src 'self'", response.getheader("Content-Security-Policy"))
        with open("/usr/share/javascript/chart.js/chart.min.js", "rb") as f:
            self.assertEqual(self.server.request("GET", "/chart.js", token=False)[1], f.read())
        for path in ("/etc/passwd", "/../../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/..%2f..%2fetc%2fpasswd",
                     "/assets/live.js", "/live.js/../../qzrun", "/CMakeLists.txt", "/live_view.cpp",
                     "/index.html?x=/etc/passwd/..", "/api/nothing", "/.", "/..", "//etc/passwd"):
            status, body, _ = self.server.request("GET", path, token=False)
            if path.startswith("/index.html?"):
                self.assertEqual(status, 200)
                continue
            self.assertEqual(status, 404, path)
            self.assertNotIn(b"root:", body if isinstance(body, bytes) else json.dumps(body).encode())

    def test_only_loopback_host_names_are_answered(self):
        for host in ("evil.example", "evil.example:80", "127.0.0.1.evil.example", "[::2]:1"):
            status, reply, _ = self.server.request("GET", "/api/state", token=False, headers={"Host": host})
            self.assertEqual(status, 403, host)
        for host in (f"127.0.0.1:{self.server.port}", f"localhost:{self.server.port}", "localhost"):
            self.assertEqual(self.server.request("GET", "/api/state", token=False, headers={"Host": host})[0], 200)


class Connections(ServerTest):
    def test_event_streams_are_capped(self):
        streams = []
        for _ in range(8):
            connection = http.client.HTTPConnection(self.server.host, self.server.port, timeout=WAIT)
            connection.request("GET", "/api/events")
            response = connection.getresponse()
            self.assertEqual(response.status, 200)
            response.fp.readline()
            streams.append(connection)
        self.assertEqual(stream_status(self.server), 503)
        self.assertEqual(self.server.get("/api/state")[0], 200)  # the API still answers
        for connection in streams:
            connection.close()
        self.server.wait(lambda s: True)
        deadline = time.monotonic() + WAIT
        while stream_status(self.server) == 503:
            self.assertLess(time.monotonic(), deadline)  # closed streams give their places back
            time.sleep(0.1)

    def test_a_thousand_idle_connections_do_not_stall_the_cycles(self):
        before = self.server.state()["cycle"]
        sockets = []
        try:
            for _ in range(1000):
                sockets.append(socket.create_connection((self.server.host, self.server.port), timeout=WAIT))
            # A client that asks for events and never reads them.
            sockets[0].sendall(b"GET /api/events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            time.sleep(1.0)
        finally:
            for s in sockets:
                s.close()
        state = self.server.wait(lambda s: s["cycle"] > before)
        status, rows = self.server.get("/api/trend")
        cycles = [row["cycle"] for row in rows]
        self.assertEqual(cycles, list(range(cycles[0], cycles[0] + len(cycles))))
        # At a 10 ms period, a second of connections held open spans many cycles.
        self.assertGreater(state["cycle"], before + 10)


def stream_status(server):
    connection = http.client.HTTPConnection(server.host, server.port, timeout=WAIT)
    connection.request("GET", "/api/events")
    status = connection.getresponse().status
    connection.close()
    return status


class SetAndInputs(ServerTest):
    args = ("--period", "10", "--set", "START=1")

    def test_set_gives_the_starting_value(self):
        state = self.server.wait(lambda s: variable(s, "MOTOR")["value"] == 1)
        self.assertEqual(variable(state, "START")["given"], 1)
        self.server.command("/api/input", {"name": "START", "value": 0})
        self.server.command("/api/force", {"name": "STOP", "value": 1})
        state = self.server.wait(lambda s: variable(s, "MOTOR")["value"] == 0)
        self.server.command("/api/release", {"name": "STOP"})
        state = self.server.wait(lambda s: s["cycle"] > state["cycle"] + 2)
        self.assertEqual(variable(state, "MOTOR")["value"], 0)  # the page's 0 replaced --set


class ForcingInternals(ServerTest):
    program = example("part_counter.qz")

    def test_v_variables_cannot_be_forced(self):
        status, reply = self.server.post("/api/force", {"name": "PRESET", "value": 1})
        self.assertEqual(status, 400)
        self.assertIn("V variable", reply["error"])
        self.assertFalse(variable(self.server.state(), "PRESET")["forced"])

    def test_a_forced_retained_variable_holds_from_cycle_to_cycle(self):
        # LAST_SENSOR held at 1 hides every rising edge of SENSOR.
        state = self.server.command("/api/force", {"name": "LAST_SENSOR", "value": 7})
        last = variable(state, "LAST_SENSOR")
        self.assertEqual((last["value"], last["forced"]), (1, True))  # narrowed to BOOL
        self.server.command("/api/input", {"name": "SENSOR", "value": 1})
        cycle = self.server.wait(lambda s: variable(s, "SENSOR")["value"] == 1)["cycle"]
        state = self.server.wait(lambda s: s["cycle"] >= cycle + 3)
        self.assertEqual((variable(state, "COUNT")["value"], variable(state, "LAST_SENSOR")["value"]), (0, 1))
        self.server.command("/api/release", {"name": "LAST_SENSOR"})
        self.server.command("/api/input", {"name": "SENSOR", "value": 0})
        self.server.wait(lambda s: variable(s, "LAST_SENSOR")["value"] == 0)
        self.server.command("/api/input", {"name": "SENSOR", "value": 1})
        state = self.server.wait(lambda s: variable(s, "COUNT")["value"] == 1)


class SimulatedTime(ServerTest):
    program = example("on_delay.qz")
    args = ("--period", "5", "--sim-time", "100", "--set", "IN=1", "--set", "PT=1000")

    def test_tick_advances_the_simulated_step_a_cycle(self):
        self.server.wait(lambda s: s["cycle"] >= 4)
        state = self.server.command("/api/pause")
        state = self.server.wait(lambda s: s["state"] == "paused")
        cycle = state["cycle"]
        self.assertEqual(variable(state, "ET")["value"], min(100 * (cycle - 1), 1000))
        self.server.command("/api/step-cycle")
        state = self.server.wait(lambda s: s["cycle"] == cycle + 1)
        self.assertEqual(variable(state, "ET")["value"], min(100 * cycle, 1000))


class RuntimeFailure(ServerTest):
    program = example("tests/division_by_zero.qz")
    args = ("--period", "10", "--inputs", example("tests/division_by_zero.inputs.csv"))

    def test_a_failing_cycle_stops_the_run_at_its_line(self):
        state = self.server.wait(lambda s: s["state"] == "failed")
        self.assertEqual(state["cycle"], 3)
        error = state["error"]
        self.assertEqual((error["code"], error["line"], error["column"], error["cycle"]), (15, 8, 25, 3))
        self.assertEqual(error["message"], "DIV or MOD by zero")
        self.assertEqual((state["stats"]["cycles"], state["stats"]["failures"]), (2, 1))
        self.assertEqual(variable(state, "RESULT")["value"], 20)
        # Resuming recovers; the input still reads 0, so the next cycle fails too.
        self.server.command("/api/input", {"name": "DIVISOR", "value": 0})
        self.server.command("/api/resume")
        state = self.server.wait(lambda s: s["stats"]["failures"] == 2)
        self.assertEqual((state["state"], state["cycle"]), ("failed", 4))
        self.server.command("/api/input", {"name": "DIVISOR", "value": 4})
        state = self.server.command("/api/step-cycle")
        state = self.server.wait(lambda s: s["cycle"] == 5)
        self.assertEqual((state["state"], state["error"]), ("paused", None))
        self.assertEqual(variable(state, "RESULT")["value"], 25)


class BudgetHits(ServerTest):
    program = example("tests/endless_loop.qz")
    args = ("--period", "10", "--max-steps", "1000")

    def test_budget_hits_are_counted(self):
        state = self.server.wait(lambda s: s["state"] == "failed")
        self.assertEqual((state["error"]["code"], state["stats"]["budgetHits"]), (100, 1))


class Diagnostics(ServerTest):
    program = example("tests/misspelt_variable.qz")
    args = ("--set", "START=1")

    def test_the_checkers_findings_are_listed(self):
        status, program = self.server.get("/api/program")
        if not program["checker"]:
            self.assertEqual(program["diagnostics"], [])
            self.skipTest("this runner was built against a library without the checker")
        self.assertEqual(program["diagnostics"], [
            {"severity": "warning", "id": "unwritten-output", "line": 5, "column": 5,
             "message": "output never written"},
            {"severity": "error", "id": "23", "line": 8, "column": 22,
             "message": "variable not found (or not a valid reference) (did you mean `@LAMP`?)"},
        ])


class LoadFailure(ServerTest):
    program = example("tests/missing_ret.qz")

    def test_a_program_that_does_not_load_is_shown_with_its_error(self):
        status, program = self.server.get("/api/program")
        error = program["loadError"]
        self.assertEqual((error["code"], error["line"], error["column"], error["cycle"]), (6, 6, 13, 0))
        state = self.server.state()
        self.assertEqual((state["state"], state["error"]["line"]), ("load-failed", 6))
        for path in ("/api/pause", "/api/resume", "/api/step-cycle"):
            self.assertEqual(self.server.post(path)[0], 409)


class Addresses(unittest.TestCase):
    def test_listens_on_loopback_by_default(self):
        server = LiveServer(example("motor_latch.qz"))
        try:
            self.assertEqual(server.host, "127.0.0.1")
            with open("/proc/net/tcp") as f:
                listening = [line.split() for line in f.readlines()[1:]]
            ours = [l for l in listening if l[3] == "0A" and int(l[1].split(":")[1], 16) == server.port]
            self.assertEqual([l[1].split(":")[0] for l in ours], ["0100007F"])
        finally:
            self.assertEqual(server.stop(), 0)

    def test_a_bad_address_is_a_usage_error(self):
        import subprocess
        from live_harness import QZRUN
        for address in ("", "x", "70000", "127.0.0.1:", ":80", "[::1]80"):
            result = subprocess.run([QZRUN, "--serve", address, example("motor_latch.qz")], capture_output=True, text=True)
            self.assertEqual(result.returncode, 2, address)
            self.assertIn("--serve", result.stderr)
        for option in (["--csv"], ["--trace"], ["--check"], ["--stats"], ["--cycles", "5"]):
            result = subprocess.run([QZRUN, "--serve", "0", *option, example("motor_latch.qz")],
                                    capture_output=True, text=True)
            self.assertEqual(result.returncode, 2, option)
            self.assertIn("does not go with", result.stderr)


if __name__ == "__main__":
    unittest.main()
