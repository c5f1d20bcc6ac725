"""Every example program, run through qzst, gives the table of its
expected CSV, as qzrun --csv does in the runner's tests."""

import csv
import os
import pathlib
import struct

import pytest

import qzst

# Simulated milliseconds per cycle, as the runner's tests give them.
SIM_TIME = {"traffic_light": 250, "on_delay": 100, "beacon": 50}
EXAMPLES = pathlib.Path(os.environ.get("QZST_EXAMPLES", pathlib.Path(__file__).resolve().parents[2] / "examples"))
NAMES = sorted(p.stem for p in EXAMPLES.glob("*.qz") if (EXAMPLES / (p.stem + ".expected.csv")).exists())


def rows(path):
    lines = [line for line in path.read_text().splitlines() if line.strip() and not line.startswith("#")]
    return list(csv.DictReader(lines))


def as_real(value):
    """A value as a REAL holds it: single precision."""
    return struct.unpack("f", struct.pack("f", value))[0]


def test_every_example_is_found():
    assert len(NAMES) == 8, NAMES


@pytest.mark.parametrize("name", NAMES)
def test_example_matches_its_expected_table(name):
    program = qzst.load(EXAMPLES / (name + ".qz"))
    if name in SIM_TIME:
        program.simulate_time(SIM_TIME[name])
    types = {v.name: v.type for v in program.variables()}
    expected = rows(EXAMPLES / (name + ".expected.csv"))
    # An empty cell keeps the input as it was: qzst holds inputs anyway.
    inputs = [{k: float(v) for k, v in row.items() if v.strip()} for row in rows(EXAMPLES / (name + ".inputs.csv"))]
    assert len(inputs) == len(expected)
    for row, want in zip(inputs, expected):
        got = program.cycle(row)
        cycle = int(want.pop("cycle"))
        assert list(got) == list(want), "the outputs in the order the program sends them"
        for output, text in want.items():
            # "*" after a value: the program wrote that output in this cycle.
            assert (output in got.written) == text.endswith("*"), (cycle, output)
            text = text.rstrip("*")
            if types[output] == "REAL":
                assert as_real(got[output]) == as_real(float(text)), (cycle, output)
            else:
                assert got[output] == float(text), (cycle, output)
