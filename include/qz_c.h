/*
 * qz_c.h: the C interface of the control-program interpreter.
 *
 * Everything outside C++ (C hosts, Python through ctypes, other languages
 * through their foreign-function interfaces) uses this header. It needs no
 * Qt and compiles as C99 and as C++. Every function takes an opaque handle
 * from qz_new(); every one is safe with a null handle or a pointer that is
 * not a handle (it returns QZ_rcBadHandle, 107), but a handle is dangling
 * after qz_close(). Functions that can fail return a result code from the
 * library's one table (qz_st_result_codes.h): 0 is success, and
 * qz_result_message() says what any other code means.
 *
 * One handle is driven by one thread at a time. Names cross in both
 * directions as UTF-8 bytes with a length (and a NUL after them, for
 * convenience, where the library hands them out).
 */
#ifndef QZ_C_H
#define QZ_C_H

#include <stddef.h>
#include <stdint.h>

#include "qz_st_check.h"
#include "qz_st_result_codes.h"

#if defined(QZ_ST_INTRPR_BUILDING)
#define QZ_API __attribute__((visibility("default")))
#else
#define QZ_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes: QZ_rcOK (0), QZ_rcDivisionByZero (15), ... one per row of
 * the library's table, with the same names as in C++. */
typedef enum qz_result {
#define QZ_C_RESULT(name, code, text) QZ_##name = code,
    QZ_RESULT_CODES(QZ_C_RESULT)
#undef QZ_C_RESULT
} qz_result;

/* Type codes of variables and values. */
enum {
    QZ_TYPE_BOOL = 0x20,
    QZ_TYPE_SINT = 0x21,
    QZ_TYPE_USINT = 0x22,
    QZ_TYPE_INT = 0x23,
    QZ_TYPE_UINT = 0x24,
    QZ_TYPE_DINT = 0x25,
    QZ_TYPE_UDINT = 0x26,
    QZ_TYPE_REAL = 0x27,
    QZ_TYPE_LREAL = 0x28
};

/* Declaration kinds. */
enum {
    QZ_KIND_V = 0x14,   /* reset every cycle */
    QZ_KIND_VI = 0x15,  /* input, read from the host every cycle */
    QZ_KIND_VO = 0x16,  /* output, sent to the host; retained */
    QZ_KIND_VIO = 0x17, /* retained */
    QZ_KIND_VG = 0x18,  /* retained */
    QZ_KIND_TVG = 0x19, /* retained timer */
    QZ_KIND_TVR = 0x1a, /* retained timer */
    QZ_KIND_VA = 0x1b,  /* subprogram local */
    QZ_KIND_VR = 0x1c   /* subprogram local reference */
};

typedef struct qz_state qz_state;

/* The library's version, "MAJOR.MINOR.PATCH". */
QZ_API const char* qz_version(void);

/* What a result code means, never NULL ("unknown result code" for a code
 * the library does not have), and its name ("rcDivisionByZero"; NULL for
 * an unknown code). Static strings. */
QZ_API const char* qz_result_message(int code);
QZ_API const char* qz_result_name(int code);

/* ---- Life of a handle ---- */

/* A new interpreter; NULL when memory runs out. */
QZ_API qz_state* qz_new(void);
/* Releases it; a null handle, one that is not a handle, and a handle whose
 * cycle is running (a close from its own callback) are ignored. */
QZ_API void qz_close(qz_state* Q);

/* Loads a program from `length` bytes of text in which the only white space
 * is the blank (the interpreter's own form). */
QZ_API int qz_load(qz_state* Q, const char* text, size_t length);
/* Loads a program as it is kept in a file: comments (* ... *) and // to the
 * end of the line, tabs and line ends (and a UTF-8 byte order mark) become
 * blanks first, so every offset the library reports is an offset into the
 * file. An unclosed (* gives QZ_rcUnclosedComment, located at the (*. */
QZ_API int qz_load_source(qz_state* Q, const char* source, size_t length);

/* ---- Running cycles ---- */

/* Called once per input, in declaration order, at the start of a cycle;
 * `*value` comes in as 0.0 and is the input's value as the callback leaves it. */
typedef void (*qz_input_fn)(void* context, const char* name, size_t length, double* value);
/* Called once per output, in declaration order, at the end of a successful
 * cycle; `type` is its QZ_TYPE_ code, `written` 1 when the program stored
 * into it in this cycle. */
typedef void (*qz_output_fn)(void* context, const char* name, size_t length, double value, int type,
                             int written);

/* Runs one cycle. Either callback may be NULL (inputs then read 0.0, outputs
 * are not reported). Names are valid during the callback only. From the
 * callbacks (and the trace hook), qz_run, qz_load, qz_load_source and
 * qz_recover return QZ_rcInCycle and do nothing. */
QZ_API int qz_run(qz_state* Q, qz_input_fn input, qz_output_fn output, void* context);

/* Where the last failed load or cycle stopped: a byte range of the text as
 * loaded and its line and column (from 1; the column counts bytes). For an
 * unexpected end of the text, the end of the program. */
typedef struct qz_location {
    size_t offset;
    size_t end;
    int line;
    int column;
} qz_location;
QZ_API int qz_where(qz_state* Q, qz_location* where);

/* Returns the handle to the state of a fresh cycle after a failed one:
 * pending calls, their frames and the value stack are released, every
 * variable keeps its value (see docs/host-integration.md). */
QZ_API int qz_recover(qz_state* Q);

/* ---- Budget, clock, trace, resource ceilings ---- */

/* At most `instructions` instructions per cycle (0: no limit, the default). */
QZ_API int qz_set_budget(qz_state* Q, uint64_t instructions);
/* Milliseconds for TICK from `clock(context)` instead of the wall clock;
 * NULL restores the wall clock. */
typedef uint32_t (*qz_clock_fn)(void* context);
QZ_API int qz_set_clock(qz_state* Q, qz_clock_fn clock, void* context);

typedef struct qz_trace_event {
    int32_t start;   /* text offset of the instruction */
    int32_t end;     /* one past its last operand */
    int result;      /* the instruction's result code */
    double a0, r0, r1;
    int a0_type, r0_type, r1_type;
    int test_flag;
} qz_trace_event;
/* Called after every executed instruction; NULL removes it. From inside it
 * the variable and machine-state functions below may be called. */
typedef void (*qz_trace_fn)(void* context, const qz_trace_event* event);
QZ_API int qz_set_trace(qz_state* Q, qz_trace_fn trace, void* context);

/* Values on the value stack (0: no limit of its own), pending calls (0: none
 * of its own), bytes the running program may add (QZ_DEFAULT_MEMORY_BYTES
 * unless set; 0: none). */
#define QZ_DEFAULT_MEMORY_BYTES ((uint64_t)256 << 20)
QZ_API int qz_set_stack_limit(qz_state* Q, uint64_t values);
QZ_API int qz_set_call_depth_limit(qz_state* Q, uint64_t calls);
QZ_API int qz_set_memory_limit(qz_state* Q, uint64_t bytes);

/* ---- Variables ---- */

typedef struct qz_variable {
    const char* name; /* UTF-8 as declared, NUL-terminated, valid during the callback */
    size_t length;
    int kind;         /* QZ_KIND_ */
    int type;         /* QZ_TYPE_ */
    uint32_t ordinal; /* place among the declarations, from 0 */
    double value;     /* as the program reads it now */
} qz_variable;
typedef void (*qz_variable_fn)(void* context, const qz_variable* variable);

/* Every declaration of the program, in the order of the text. */
QZ_API int qz_list_variables(qz_state* Q, qz_variable_fn visit, void* context);
/* The locals of the innermost pending call (from a trace hook). */
QZ_API int qz_list_locals(qz_state* Q, qz_variable_fn visit, void* context);
/* One variable by name, found as the running program finds it; a write is
 * narrowed to its type as the program's MOV would be. `value` and `type`
 * may be NULL. */
QZ_API int qz_get_variable(qz_state* Q, const char* name, size_t length, double* value, int* type);
QZ_API int qz_set_variable(qz_state* Q, const char* name, size_t length, double value);

/* ---- Snapshots of retained values (VG, VIO, TVG, TVR, VO) ---- */

/* Writes the snapshot into `buffer` when `capacity` suffices (else
 * QZ_rcBufferTooSmall and nothing written); `*needed` is always its size. */
QZ_API int qz_save_retained(qz_state* Q, void* buffer, size_t capacity, size_t* needed);
/* Restores one; a snapshot of another program, truncated, altered or of an
 * unknown format is refused with its own code and nothing is restored. */
QZ_API int qz_restore_retained(qz_state* Q, const void* snapshot, size_t size);

/* ---- Machine state, for debuggers ---- */

typedef struct qz_machine {
    double a0, r0, r1;
    int a0_type, r0_type, r1_type;
    int test_flag;
    size_t stack_depth; /* values on the value stack */
    size_t call_depth;  /* pending calls */
} qz_machine;
QZ_API int qz_get_machine(qz_state* Q, qz_machine* machine);
/* The top `capacity` values of the value stack (all when fewer), top last;
 * `*count` is how many were copied. */
typedef struct qz_stack_value {
    double value;
    int type;
} qz_stack_value;
QZ_API int qz_get_stack(qz_state* Q, qz_stack_value* values, size_t capacity, size_t* count);
/* Text offsets of the CAL of pending call `index` (0 the outermost) and of
 * the label it called. */
QZ_API int qz_get_call(qz_state* Q, size_t index, int32_t* call_offset, int32_t* label_offset);

/* ---- Checking without running ----
 * The program file's text (comments allowed) checked without loading it:
 * `report` (may be null) gets every diagnostic in the order of the text, as
 * QZCheckProgram in qz_st_check.h hands them out (strings valid only during
 * the call). Needs no handle. Returns 0 once the text is checked, whatever it
 * holds; QZ_rcEmptyText for a null text with a nonzero length. */
typedef QZDiagnostic qz_diagnostic;
typedef QZDiagnosticFunction qz_diagnostic_fn;
QZ_API int qz_check(const char* text, size_t length, qz_diagnostic_fn report, void* context);

#ifdef __cplusplus
}
#endif

#endif
