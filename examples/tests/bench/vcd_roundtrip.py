#!/usr/bin/env python3
"""Runs qzrun twice on one program, once writing the table as CSV and once a
Value Change Dump, reads the VCD back with a reader of its own and checks
that every signal holds, at every cycle, the value the table shows.

usage: vcd_roundtrip.py QZRUN WORKDIR CYCLE_MS -- QZRUN-ARGUMENTS...
"""
import csv
import io
import os
import subprocess
import sys
import tempfile


def read_vcd(path):
    """Returns (timescale, {id: (scope, name, kind, width)}, [(time, {id: value})])."""
    tokens = open(path, encoding="ascii").read().split()
    signals, scopes, changes = {}, [], []
    timescale = None
    i = 0
    while i < len(tokens):
        word = tokens[i]
        if word == "$timescale":
            end = tokens.index("$end", i)
            timescale = " ".join(tokens[i + 1:end])
            i = end + 1
        elif word == "$scope":
            scopes.append(tokens[i + 2])
            i = tokens.index("$end", i) + 1
        elif word == "$upscope":
            scopes.pop()
            i += 2
        elif word == "$var":
            kind, width, ident, name = tokens[i + 1:i + 5]
            assert ident not in signals, "identifier used twice: " + ident
            signals[ident] = (".".join(scopes), name, kind, int(width))
            i = tokens.index("$end", i) + 1
        elif word in ("$version", "$date", "$comment"):
            i = tokens.index("$end", i) + 1
        elif word in ("$enddefinitions", "$dumpvars", "$end"):
            i += 2 if word == "$enddefinitions" else 1
        elif word.startswith("#"):
            changes.append((int(word[1:]), {}))
            i += 1
        elif word[0] in "bBrR":
            changes[-1][1][tokens[i + 1]] = word
            i += 2
        elif word[0] in "01xzXZ":
            changes[-1][1][word[1:]] = word[0]
            i += 1
        else:
            raise AssertionError("unexpected VCD word: " + word)
    return timescale, signals, changes


def decode(value, kind, width, signed):
    if value[0] in "rR":
        return float(value[1:])
    bits = value[1:] if value[0] in "bB" else value
    number = int(bits, 2)
    if signed and width > 1 and number >= 1 << (width - 1):
        number -= 1 << width
    return number


def main():
    qzrun, workdir, cycle_ms = os.path.abspath(sys.argv[1]), sys.argv[2], int(sys.argv[3])
    args = sys.argv[sys.argv.index("--") + 1:]
    with tempfile.TemporaryDirectory() as tmp:
        vcd = os.path.join(tmp, "run.vcd")
        table = subprocess.run([qzrun, *args, "--csv", "--vcd", vcd], cwd=workdir, check=True,
                               capture_output=True, text=True).stdout
        timescale, signals, changes = read_vcd(vcd)
    rows = list(csv.DictReader(io.StringIO(table)))
    assert rows, "the run printed no table"

    per_cycle = cycle_ms if cycle_ms in (1, 10, 100, 1000) else 1
    expected_scale = {1: "1 ms", 10: "10 ms", 100: "100 ms", 1000: "1 s"}.get(cycle_ms, "1 ms")
    assert timescale == expected_scale, f"timescale {timescale!r}, expected {expected_scale!r}"
    step = 1 if per_cycle == cycle_ms else cycle_ms

    by_name = {}
    for ident, (scope, name, kind, width) in signals.items():
        heading = "@" + name if scope.endswith(".watched") else name
        by_name[heading] = (ident, scope, kind, width)
    columns = [c for c in rows[0] if c != "cycle"]
    for column in columns:
        assert column in by_name, f"the VCD has no signal for column {column}"

    checked = 0
    for column in columns:
        ident, scope, kind, width = by_name[column]
        current, at = None, 0
        values = {}
        for time, vals in changes:
            if ident in vals:
                current = vals[ident]
            values[time] = current
        for row in rows:
            cycle = int(row["cycle"])
            time = (cycle - 1) * step
            assert time in values, f"no time stamp #{time} for cycle {cycle}"
            got = decode(values[time], kind, width, signed=True)
            want = float(row[column])
            if kind == "real":
                assert abs(got - want) <= abs(want) * 1e-6, f"{column} cycle {cycle}: VCD {got}, table {want}"
            else:
                if width > 1 and want >= 0 and got < 0:
                    got += 1 << width  # an unsigned type
                assert got == want, f"{column} cycle {cycle}: VCD {got}, table {want}"
            checked += 1
    # The inputs as the --inputs file gave them (its last row held).
    if "--inputs" in args:
        path = os.path.join(workdir, args[args.index("--inputs") + 1])
        lines = [l for l in open(path) if l.strip() and not l.startswith("#")]
        given = list(csv.DictReader(lines))
        for name in given[0]:
            ident, scope, kind, width = by_name[name]
            assert scope.endswith(".inputs"), f"{name} is not among the inputs"
            current, values = None, {}
            for time, vals in changes:
                current = vals.get(ident, current)
                values[time] = current
            for cycle in range(1, len(rows) + 1):
                want = float(given[min(cycle, len(given)) - 1][name])
                got = decode(values[(cycle - 1) * step], kind, width, signed=True)
                assert got == want, f"input {name} cycle {cycle}: VCD {got}, file {want}"
                checked += 1
    print(f"{checked} values over {len(rows)} cycles agree")


if __name__ == "__main__":
    main()
