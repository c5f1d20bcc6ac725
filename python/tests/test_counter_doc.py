"""The first test of docs/python.md, as it is printed there; the program is
counter.qz beside this file, also as printed there."""
import pathlib

import pytest
import qzst

HERE = pathlib.Path(__file__).parent


@pytest.fixture
def counter():
    return qzst.load(HERE / "counter.qz")   # comments and line breaks as written


def test_counts_rising_edges_only(counter):
    assert counter.cycle(PULSE=1)["COUNT"] == 1
    assert counter.cycle()["COUNT"] == 1     # PULSE is still 1: no new edge
    counter.cycle(PULSE=0)
    assert counter.cycle(PULSE=1)["COUNT"] == 2


def test_reset_has_priority(counter):
    counter.cycle(PULSE=1)
    out = counter.cycle(PULSE=0, RESET=1)
    assert out["COUNT"] == 0 and "COUNT" in out.written


def test_count_survives_a_restart(counter):
    for pulse in (1, 0, 1):
        counter.cycle(PULSE=pulse)
    restarted = qzst.load(HERE / "counter.qz")
    restarted.restore_retained(counter.save_retained())
    assert restarted["COUNT"] == 2
