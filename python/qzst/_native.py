"""The library and the signatures of its C interface (qz_c.h), for ctypes."""

import ctypes
import ctypes.util
import glob
import os

c_size = ctypes.c_size_t
c_double_p = ctypes.POINTER(ctypes.c_double)
c_int_p = ctypes.POINTER(ctypes.c_int)

# The name arrives as a pointer, not c_char_p: ctypes would cut it at a NUL
# and decode nothing; the length says where it ends.
INPUT_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(ctypes.c_char), c_size, c_double_p)
OUTPUT_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(ctypes.c_char), c_size,
                             ctypes.c_double, ctypes.c_int, ctypes.c_int)
CLOCK_FN = ctypes.CFUNCTYPE(ctypes.c_uint32, ctypes.c_void_p)


class Location(ctypes.Structure):
    _fields_ = [("offset", c_size), ("end", c_size), ("line", ctypes.c_int), ("column", ctypes.c_int)]


class TraceEvent(ctypes.Structure):
    _fields_ = [("start", ctypes.c_int32), ("end", ctypes.c_int32), ("result", ctypes.c_int),
                ("a0", ctypes.c_double), ("r0", ctypes.c_double), ("r1", ctypes.c_double),
                ("a0_type", ctypes.c_int), ("r0_type", ctypes.c_int), ("r1_type", ctypes.c_int),
                ("test_flag", ctypes.c_int)]


TRACE_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(TraceEvent))


class Variable(ctypes.Structure):
    _fields_ = [("name", ctypes.POINTER(ctypes.c_char)), ("length", c_size), ("kind", ctypes.c_int),
                ("type", ctypes.c_int), ("ordinal", ctypes.c_uint32), ("value", ctypes.c_double)]


VARIABLE_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Variable))


class Machine(ctypes.Structure):
    _fields_ = [("a0", ctypes.c_double), ("r0", ctypes.c_double), ("r1", ctypes.c_double),
                ("a0_type", ctypes.c_int), ("r0_type", ctypes.c_int), ("r1_type", ctypes.c_int),
                ("test_flag", ctypes.c_int), ("stack_depth", c_size), ("call_depth", c_size)]


_SIGNATURES = {
    # name: (result type, argument types)
    "qz_version": (ctypes.c_char_p, []),
    "qz_result_message": (ctypes.c_char_p, [ctypes.c_int]),
    "qz_result_name": (ctypes.c_char_p, [ctypes.c_int]),
    "qz_new": (ctypes.c_void_p, []),
    "qz_close": (None, [ctypes.c_void_p]),
    "qz_load": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, c_size]),
    "qz_load_source": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, c_size]),
    "qz_run": (ctypes.c_int, [ctypes.c_void_p, INPUT_FN, OUTPUT_FN, ctypes.c_void_p]),
    "qz_where": (ctypes.c_int, [ctypes.c_void_p, ctypes.POINTER(Location)]),
    "qz_recover": (ctypes.c_int, [ctypes.c_void_p]),
    "qz_set_budget": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_uint64]),
    "qz_set_clock": (ctypes.c_int, [ctypes.c_void_p, CLOCK_FN, ctypes.c_void_p]),
    "qz_set_trace": (ctypes.c_int, [ctypes.c_void_p, TRACE_FN, ctypes.c_void_p]),
    "qz_set_stack_limit": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_uint64]),
    "qz_set_call_depth_limit": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_uint64]),
    "qz_set_memory_limit": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_uint64]),
    "qz_list_variables": (ctypes.c_int, [ctypes.c_void_p, VARIABLE_FN, ctypes.c_void_p]),
    "qz_list_locals": (ctypes.c_int, [ctypes.c_void_p, VARIABLE_FN, ctypes.c_void_p]),
    "qz_get_variable": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, c_size, c_double_p, c_int_p]),
    "qz_set_variable": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, c_size, ctypes.c_double]),
    "qz_save_retained": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_void_p, c_size, ctypes.POINTER(c_size)]),
    "qz_restore_retained": (ctypes.c_int, [ctypes.c_void_p, ctypes.c_char_p, c_size]),
    "qz_get_machine": (ctypes.c_int, [ctypes.c_void_p, ctypes.POINTER(Machine)]),
}


def _candidates():
    """Where the library is looked for, in order."""
    explicit = os.environ.get("QZST_LIBRARY")
    if explicit:
        yield explicit
        return
    here = os.path.dirname(os.path.abspath(__file__))
    for path in sorted(glob.glob(os.path.join(here, "libqz_st_intrpr.so*"))):
        yield path
    found = ctypes.util.find_library("qz_st_intrpr")
    if found:
        yield found
    yield "libqz_st_intrpr.so.1"


loaded_from = None  # the path the library was loaded from


def load_library():
    global loaded_from
    errors = []
    for path in _candidates():
        try:
            lib = ctypes.CDLL(path)
            getattr(lib, "qz_new")
        except (OSError, AttributeError) as error:
            errors.append(str(error))
            continue
        for name, (restype, argtypes) in _SIGNATURES.items():
            function = getattr(lib, name)
            function.restype = restype
            function.argtypes = argtypes
        loaded_from = path
        return lib
    raise ImportError("qzst cannot find libqz_st_intrpr (set QZST_LIBRARY to its path): " + "; ".join(errors))


# ---- The checker ----------------------------------------------------------
# qz_check needs no handle: the text goes in, each diagnostic comes back
# through the callback, laid out as QZDiagnostic in qz_st_check.h.

class Diagnostic(ctypes.Structure):
    _fields_ = [("severity", ctypes.c_uint32), ("code", ctypes.c_uint32), ("id", ctypes.c_char_p),
                ("begin", c_size), ("end", c_size), ("line", ctypes.c_uint32), ("column", ctypes.c_uint32),
                ("message", ctypes.c_char_p), ("note", ctypes.c_char_p)]


DIAGNOSTIC_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Diagnostic))


def bind_check(lib):
    """The library's qz_check, bound, or None when this library has none."""
    try:
        function = getattr(lib, "qz_check")
    except AttributeError:
        return None
    function.restype = ctypes.c_int
    function.argtypes = [ctypes.c_char_p, c_size, DIAGNOSTIC_FN, ctypes.c_void_p]
    return function
