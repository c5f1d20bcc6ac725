"""The qzst package as an engineer uses it in unit tests of a program."""

import os
import pathlib
import shutil
import subprocess
import sys

import pytest

import qzst

COUNTER = b"""
(* Counts rising edges of PULSE; RESET clears. *)
PROG COUNTER
VAR
    PULSE   VI  BOOL 0
    RESET   VI  BOOL 0
    LAST    VG  BOOL 0
    COUNT   VO  UDINT 0
    LEVEL   VO  REAL 0.5
MAIN
    MOV @RESET R0  TST R0  JMPF COUNTING
    MOV 0 @COUNT
COUNTING:
    MOV @LAST R0  NOT R0  MOV @PULSE R1  AND R1 R0  MOV @PULSE @LAST
    TST R0  JMPF DONE
    MOV @COUNT R0  ADD 1 R0  MOV R0 @COUNT
DONE:
RET
"""

DIVIDER = b"""PROG DIVIDER
VAR
    DIVISOR VI DINT 1
    TOTAL   VG DINT 0
    RESULT  VO DINT 0
MAIN
    MOV @DIVISOR PUSH
    CAL SAFEDIV
    MOV R0 @RESULT
    MOV @TOTAL R0  ADD 1 R0  MOV R0 @TOTAL
RET
SAFEDIV:
    D V DINT 0
BODY
    MOV POP @D
    MOV @D R0
    DIV 100 R0   (* R0 := 100 / D *)
RET
RET
"""


def test_cycles_with_inputs_held_between_them():
    counter = qzst.Program(COUNTER)
    out = counter.cycle(PULSE=1)
    assert out == {"COUNT": 1, "LEVEL": 0.5}
    assert out.written == {"COUNT"}
    assert counter.cycle()["COUNT"] == 1, "PULSE is still 1: no new edge"
    assert counter.cycle({"PULSE": 0}).written == set()
    assert counter.cycle(pulse=1)["COUNT"] == 2, "names are found ignoring case"
    assert counter.inputs == {"PULSE": 1}


def test_unknown_inputs_are_refused():
    counter = qzst.Program(COUNTER)
    with pytest.raises(KeyError, match="no input 'PULS'"):
        counter.cycle(PULS=1)


def test_variables_read_and_written_between_cycles():
    counter = qzst.Program(COUNTER)
    counter.cycle(PULSE=1)
    assert counter["COUNT"] == 1
    counter["COUNT"] = 4294967297  # narrowed to UDINT, as MOV would
    assert counter["COUNT"] == 1
    counter["COUNT"] = 41
    counter.cycle(PULSE=0)
    assert counter.cycle(PULSE=1)["COUNT"] == 42
    names = [(v.name, v.kind, v.type) for v in counter.variables()]
    assert names == [("PULSE", "VI", "BOOL"), ("RESET", "VI", "BOOL"), ("LAST", "VG", "BOOL"),
                     ("COUNT", "VO", "UDINT"), ("LEVEL", "VO", "REAL")]
    with pytest.raises(KeyError):
        counter["NOPE"]


def test_load_errors_carry_code_line_and_column():
    with pytest.raises(qzst.LoadError) as error:
        qzst.Program(b"PROG P\nVAR\n  X VG STRING 0\nMAIN\nRET\n")
    assert (error.value.code, error.value.line, error.value.column) == (31, 3, 8)
    assert error.value.name == "rcBadDeclType"
    assert "error 31: declaration type not allowed here, at 'STRING'" in str(error.value)
    with pytest.raises(qzst.LoadError) as error:
        qzst.Program(b"PROG P\n(* never closed\nMAIN RET")
    assert (error.value.code, error.value.line, error.value.column) == (113, 2, 1)


def test_a_failed_cycle_raises_and_recovery_keeps_the_variables():
    divider = qzst.Program(DIVIDER)
    assert divider.cycle(DIVISOR=4)["RESULT"] == 25
    with pytest.raises(qzst.CycleError) as error:
        divider.cycle(DIVISOR=0)
    assert (error.value.code, error.value.line, error.value.column, error.value.cycle) == (15, 17, 13, 2)
    assert error.value.excerpt == "R0"
    assert divider.machine()["call_depth"] == 1
    divider.recover()
    assert divider.machine()["call_depth"] == 0
    assert divider.cycle(DIVISOR=5)["RESULT"] == 20
    assert divider["TOTAL"] == 2


def test_simulated_time():
    timer = qzst.Program(b"PROG T VAR NOW VO UDINT 0 MAIN MOV TICK R0 MOV R0 @NOW RET")
    timer.simulate_time(100)
    assert [timer.cycle()["NOW"] for _ in range(3)] == [0, 100, 200]
    timer.advance(1000)
    assert timer.cycle()["NOW"] == 1300
    assert timer.time_ms == 2300


def test_snapshots_carry_retained_values_to_a_new_program():
    first = qzst.Program(COUNTER)
    for pulse in (1, 0, 1, 0, 1):
        first.cycle(PULSE=pulse)
    saved = first.save_retained()
    second = qzst.Program(COUNTER)
    second.restore_retained(saved)
    assert second["COUNT"] == 3
    with pytest.raises(qzst.QzError) as error:
        second.restore_retained(saved[:-1])
    assert error.value.code == 110
    other = qzst.Program(DIVIDER)
    with pytest.raises(qzst.QzError) as error:
        other.restore_retained(saved)
    assert error.value.code == 112 and error.value.name == "rcSnapshotMismatch"


def test_budget_stops_an_endless_loop():
    loop = qzst.Program(b"PROG L VAR X VG DINT 0 MAIN A: JMP A RET", budget=1000)
    with pytest.raises(qzst.CycleError) as error:
        loop.cycle()
    assert error.value.code == 100


def test_trace_sees_every_instruction():
    text = b"PROG B VAR X VG DINT 0 MAIN MOV 5 @X MOV 6 R0 RET"
    program = qzst.Program(text)
    seen = []
    program.trace(lambda start, end, result: seen.append(text[start:end].decode()))
    program.cycle()
    assert seen == ["MOV 5 @X", "MOV 6 R0"]


def test_result_codes_come_from_the_library():
    assert qzst.result_message(15) == "DIV or MOD by zero"
    assert qzst.result_name(15) == "rcDivisionByZero"
    assert qzst.result_name(7) is None
    assert qzst.library_version() == "1.0.0"


def test_check_finds_an_unknown_label_where_running_would_stop():
    text = "PROG P\nVAR\n  X VG DINT 0\nMAIN\n  JMP NOWHERE (* never taken? still wrong *)\nRET\n"
    assert qzst.check_available()
    errors = [d for d in qzst.check(text) if d.severity == "error"]
    assert [(d.code, d.id, d.line, d.column) for d in errors] == [(22, "22", 5, 7)]
    assert text.encode()[errors[0].begin:errors[0].end] == b"NOWHERE"
    assert errors[0].message == qzst.result_message(22)


def test_check_reports_warnings_with_their_identifiers():
    text = "PROG P\nVAR\n  X VG DINT 0\nMAIN\n  MOV 1 @X\nRET\n"
    assert [(d.severity, d.id, d.line) for d in qzst.check(text)] == [("warning", "unread-variable", 3)]


def test_every_example_checks_without_errors(examples):
    for path in sorted(examples.glob("*.qz")):
        assert [d for d in qzst.check_file(path) if d.severity == "error"] == [], path


def test_on_delay_switches_after_one_second(examples):
    # As docs/python.md shows it.
    timer = qzst.load(examples / "on_delay.qz")
    timer.simulate_time(100)
    outputs = [timer.cycle(IN=1, PT=1000)["Q"] for _ in range(12)]
    assert outputs.index(1) == 10


def _import_in_a_new_process(tmp_path, env):
    return subprocess.run([sys.executable, "-c", "import qzst; print(qzst.library_path())"],
                          env=env, cwd=tmp_path, capture_output=True, text=True)


def test_the_library_is_found_beside_the_package(tmp_path):
    # A copy of the package with the library in its directory, and no
    # QZST_LIBRARY: the copy beside it is the one loaded.
    package = tmp_path / "qzst"
    shutil.copytree(pathlib.Path(qzst.__file__).parent, package,
                    ignore=shutil.ignore_patterns("__pycache__", "libqz_st_intrpr.so*"))
    shutil.copy(qzst.library_path(), package / "libqz_st_intrpr.so.1")
    env = {k: v for k, v in os.environ.items() if k != "QZST_LIBRARY"}
    env["PYTHONPATH"] = str(tmp_path)
    result = _import_in_a_new_process(tmp_path, env)
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip() == str(package / "libqz_st_intrpr.so.1")


def test_a_wrong_library_path_is_reported(tmp_path):
    env = dict(os.environ, QZST_LIBRARY=str(tmp_path / "missing.so"))
    result = _import_in_a_new_process(tmp_path, env)
    assert result.returncode != 0
    assert "qzst cannot find libqz_st_intrpr (set QZST_LIBRARY to its path)" in result.stderr
