"""Run and test control programs of the qz_st_intrpr interpreter from Python.

    import qzst

    latch = qzst.load("motor_latch.qz")
    out = latch.cycle(START=1, STOP=0)
    assert out["MOTOR"] == 1 and "MOTOR" in out.written

A Program holds one interpreter. Inputs given to cycle() are held until they
are given again, as a plant's signals are; outputs come back after every
cycle, and any variable can be read and written between cycles. Failures
raise QzError (LoadError, CycleError) with the result code and the line and
column in the program's text.
"""

import ctypes
import os
from collections import namedtuple

from . import _native

__all__ = [
    "Program", "load", "Outputs", "Variable", "QzError", "LoadError", "CycleError",
    "NotAvailableError", "Diagnostic", "check", "check_file", "check_available", "result_message", "result_name", "library_version",
    "library_path",
    "TYPE_NAMES", "KIND_NAMES",
]

_lib = _native.load_library()

TYPE_NAMES = {0x20: "BOOL", 0x21: "SINT", 0x22: "USINT", 0x23: "INT", 0x24: "UINT", 0x25: "DINT",
              0x26: "UDINT", 0x27: "REAL", 0x28: "LREAL"}
KIND_NAMES = {0x14: "V", 0x15: "VI", 0x16: "VO", 0x17: "VIO", 0x18: "VG", 0x19: "TVG", 0x1a: "TVR",
              0x1b: "VA", 0x1c: "VR"}
_FLOATING = (0x27, 0x28)
_BUFFER_TOO_SMALL = 109

Variable = namedtuple("Variable", "name kind type ordinal value")
# One diagnostic of check(): severity "error" or "warning"; code the result
# code running would return (errors) or 0; id "22" or "stack-growth";
# begin/end the byte range; line and column (bytes) of begin, from 1.
Diagnostic = namedtuple("Diagnostic", "severity code id begin end line column message note")


def library_version():
    return _lib.qz_version().decode()


def library_path():
    """Where the library was found (QZST_LIBRARY, the package, the loader)."""
    return _native.loaded_from


def result_message(code):
    """What a result code means, from the library's table."""
    return _lib.qz_result_message(int(code)).decode()


def result_name(code):
    """The code's name ("rcDivisionByZero"), or None for a code the library lacks."""
    name = _lib.qz_result_name(int(code))
    return name.decode() if name is not None else None


class QzError(Exception):
    """A result code other than 0, with where it happened when known."""

    def __init__(self, code, line=None, column=None, offset=None, path=None, cycle=None, excerpt=None):
        self.code = code
        self.name = result_name(code)
        self.meaning = result_message(code)
        self.line, self.column, self.offset = line, column, offset
        self.path, self.cycle, self.excerpt = path, cycle, excerpt
        where = ""
        if line is not None:
            where = "%s:%d:%d: " % (path or "<text>", line, column)
        text = "%serror %d: %s" % (where, code, self.meaning)
        if excerpt:
            text += ", at '%s'" % excerpt
        if cycle is not None:
            text += " in cycle %d" % cycle
        super().__init__(text)


class LoadError(QzError):
    """The program did not load."""


class CycleError(QzError):
    """A cycle failed; call Program.recover() before the next one."""


class NotAvailableError(RuntimeError):
    """The library lacks a function this call needs."""


class Outputs(dict):
    """The outputs of one cycle, by name, with `written`: the names the
    program stored into in that cycle."""

    def __init__(self):
        super().__init__()
        self.written = set()


def _name_bytes(name):
    return name.encode("utf-8", "surrogateescape") if isinstance(name, str) else bytes(name)


def _name_text(pointer, length):
    return ctypes.string_at(pointer, length).decode("utf-8", "surrogateescape")


def _typed(value, type_code):
    """A value as Python shows it: int for BOOL and the integer types."""
    return float(value) if type_code in _FLOATING else int(value)


class Program:
    """One interpreter with one program loaded.

    `text` is the program as kept in a file (comments and line breaks are
    blanked first) unless `source` is False. `budget`, `max_stack`,
    `max_depth` and `max_memory` bound a cycle (0: no bound)."""

    _handle = None  # so that close() works on a Program whose creation failed

    def __init__(self, text, path=None, source=True, budget=10_000_000, max_stack=1_000_000,
                 max_depth=10_000, max_memory=None):
        self._handle = _lib.qz_new()
        if not self._handle:
            raise MemoryError("qz_new")
        self.path = path
        self._text = _name_bytes(text)
        self.inputs = {}
        self.outputs = Outputs()
        self.cycles = 0
        self._clock_ms = None
        self._step_ms = 0
        self._clock_callback = None
        self._trace_callback = None
        self._set_limits(budget, max_stack, max_depth, max_memory)
        loader = _lib.qz_load_source if source else _lib.qz_load
        self._check(loader(self._handle, self._text, len(self._text)), LoadError)
        self._declarations = self.variables()

    # ---- life ----

    def close(self):
        if self._handle:
            _lib.qz_close(self._handle)
            self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        self.close()

    def _set_limits(self, budget, max_stack, max_depth, max_memory):
        _lib.qz_set_budget(self._handle, budget or 0)
        _lib.qz_set_stack_limit(self._handle, max_stack or 0)
        _lib.qz_set_call_depth_limit(self._handle, max_depth or 0)
        if max_memory is not None:
            _lib.qz_set_memory_limit(self._handle, max_memory)

    def set_limits(self, budget=None, max_stack=None, max_depth=None, max_memory=None):
        """Changes the bounds given (None leaves one as it is; 0 removes it)."""
        if budget is not None:
            _lib.qz_set_budget(self._handle, budget)
        if max_stack is not None:
            _lib.qz_set_stack_limit(self._handle, max_stack)
        if max_depth is not None:
            _lib.qz_set_call_depth_limit(self._handle, max_depth)
        if max_memory is not None:
            _lib.qz_set_memory_limit(self._handle, max_memory)

    # ---- errors ----

    def _check(self, code, kind, cycle=None):
        if code == 0:
            return
        where = _native.Location()
        if _lib.qz_where(self._handle, ctypes.byref(where)) != 0:
            raise kind(code, path=self.path, cycle=cycle)
        excerpt = self._text[where.offset:where.end].decode("utf-8", "replace") if where.end > where.offset else None
        raise kind(code, where.line, where.column, where.offset, self.path, cycle, excerpt)

    # ---- cycles ----

    def cycle(self, inputs=None, **named):
        """Runs one cycle. Inputs (a dict and/or keywords) are held for later
        cycles; an input never given reads 0. Returns the outputs."""
        given = dict(inputs or {})
        given.update(named)
        declared = {v.name.upper(): v.name for v in self._declarations if v.kind == "VI"}
        for name in given:
            if name.upper() not in declared:
                raise KeyError("the program has no input %r" % name)
        for name, value in given.items():
            self.inputs[declared[name.upper()]] = value
        held = {name.upper(): float(value) for name, value in self.inputs.items()}
        outputs = Outputs()

        def read(_context, name, length, value):
            found = held.get(_name_text(name, length).upper())
            if found is not None:
                value[0] = found

        def write(_context, name, length, value, type_code, written):
            key = _name_text(name, length)
            outputs[key] = _typed(value, type_code)
            if written:
                outputs.written.add(key)

        if self._clock_ms is not None and self.cycles > 0:
            self._clock_ms = (self._clock_ms + self._step_ms) & 0xFFFFFFFF
        self.cycles += 1
        code = _lib.qz_run(self._handle, _native.INPUT_FN(read), _native.OUTPUT_FN(write), None)
        self._check(code, CycleError, self.cycles)
        self.outputs = outputs
        return outputs

    def run(self, rows):
        """One cycle per row of inputs (dicts); the outputs of each."""
        return [self.cycle(row) for row in rows]

    @property
    def written(self):
        return self.outputs.written

    def recover(self):
        """After a failed cycle: releases the calls and stack values it left,
        keeps every variable, so the next cycle runs normally."""
        self._check(_lib.qz_recover(self._handle), QzError)

    # ---- time ----

    def simulate_time(self, step_ms, start_ms=1000):
        """TICK from a simulated clock that reads `start_ms` in the next cycle
        and `step_ms` more in each cycle after it (as qzrun --sim-time)."""
        self._step_ms = int(step_ms)
        self._clock_ms = int(start_ms) - (self._step_ms if self.cycles > 0 else 0)
        self._clock_callback = _native.CLOCK_FN(lambda _context: self._clock_ms)
        _lib.qz_set_clock(self._handle, self._clock_callback, None)

    def advance(self, ms):
        """Moves the simulated clock on by `ms` now (besides each cycle's step)."""
        if self._clock_ms is None:
            raise RuntimeError("simulate_time() first")
        self._clock_ms = (self._clock_ms + int(ms)) & 0xFFFFFFFF

    @property
    def time_ms(self):
        return self._clock_ms

    def wall_clock(self):
        """Back to the wall clock."""
        self._clock_ms = None
        self._clock_callback = None
        _lib.qz_set_clock(self._handle, _native.CLOCK_FN(), None)

    # ---- variables ----

    def variables(self):
        """Every declaration of the program with its current value."""
        found = []

        def visit(_context, variable):
            v = variable.contents
            found.append(Variable(_name_text(v.name, v.length), KIND_NAMES.get(v.kind, v.kind),
                                  TYPE_NAMES.get(v.type, v.type), v.ordinal, _typed(v.value, v.type)))

        self._check(_lib.qz_list_variables(self._handle, _native.VARIABLE_FN(visit), None), QzError)
        return found

    def get(self, name):
        value, type_code = ctypes.c_double(), ctypes.c_int()
        raw = _name_bytes(name)
        code = _lib.qz_get_variable(self._handle, raw, len(raw), ctypes.byref(value), ctypes.byref(type_code))
        if code != 0:
            raise KeyError("%s: %s" % (name, result_message(code)))
        return _typed(value.value, type_code.value)

    def set(self, name, value):
        """Writes a variable, narrowed to its type as the program's MOV would."""
        raw = _name_bytes(name)
        code = _lib.qz_set_variable(self._handle, raw, len(raw), float(value))
        if code != 0:
            raise KeyError("%s: %s" % (name, result_message(code)))

    __getitem__ = get
    __setitem__ = set

    def machine(self):
        m = _native.Machine()
        self._check(_lib.qz_get_machine(self._handle, ctypes.byref(m)), QzError)
        return {"A0": m.a0, "R0": m.r0, "R1": m.r1, "test_flag": m.test_flag,
                "stack_depth": m.stack_depth, "call_depth": m.call_depth}

    # ---- snapshots ----

    def save_retained(self):
        """The retained variables (VG, VIO, TVG, TVR, VO) as bytes."""
        needed = ctypes.c_size_t()
        code = _lib.qz_save_retained(self._handle, None, 0, ctypes.byref(needed))
        if code != _BUFFER_TOO_SMALL:
            self._check(code, QzError)
        buffer = ctypes.create_string_buffer(needed.value)
        self._check(_lib.qz_save_retained(self._handle, buffer, needed.value, ctypes.byref(needed)), QzError)
        return buffer.raw[:needed.value]

    def restore_retained(self, snapshot):
        """Puts saved values back; QzError (110..112) for a snapshot that is
        damaged or of another program, and then nothing is restored."""
        data = bytes(snapshot)
        self._check(_lib.qz_restore_retained(self._handle, data, len(data)), QzError)

    # ---- tracing ----

    def trace(self, callback):
        """Calls `callback(start, end, result)` after every instruction (text
        offsets); None removes it."""
        if callback is None:
            self._trace_callback = None
            _lib.qz_set_trace(self._handle, _native.TRACE_FN(), None)
            return

        def hook(_context, event):
            e = event.contents
            callback(e.start, e.end, e.result)

        self._trace_callback = _native.TRACE_FN(hook)
        _lib.qz_set_trace(self._handle, self._trace_callback, None)


def load(path, **options):
    """A program from its file, comments and line breaks as written."""
    with open(path, "rb") as f:
        text = f.read()
    return Program(text, path=os.fspath(path), source=True, **options)


_check_function = _native.bind_check(_lib)


def check_available():
    """True when the library can check a program without running it."""
    return _check_function is not None


def check(text):
    """The diagnostics of a program's text (str or bytes, comments allowed),
    in the order of the text, as qzrun --check reports them."""
    if _check_function is None:
        raise NotAvailableError("check() is not available: this libqz_st_intrpr has no qz_check")
    data = text.encode("utf-8") if isinstance(text, str) else bytes(text)
    found = []

    def report(_context, d):
        d = d.contents
        found.append(Diagnostic("error" if d.severity == 1 else "warning", d.code, d.id.decode(), d.begin, d.end,
                                d.line, d.column, d.message.decode(), d.note.decode()))

    code = _check_function(data, len(data), _native.DIAGNOSTIC_FN(report), None)
    if code:
        raise QzError(code)
    return found


def check_file(path):
    """The diagnostics of a program file."""
    with open(path, "rb") as f:
        return check(f.read())
