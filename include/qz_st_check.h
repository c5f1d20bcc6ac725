/* Checking a program text without running it: every diagnostic the
 * library's checker finds (errors with the result code running the
 * instruction would return, and warnings), handed to a callback.
 *
 * A C interface, usable from C and C++; it needs neither Qt nor an
 * interpreter object. */
#ifndef QZ_ST_CHECK_H
#define QZ_ST_CHECK_H

#include <stddef.h>
#include <stdint.h>

#if defined(QZ_ST_INTRPR_BUILDING)
#define QZ_CHECK_EXPORT __attribute__((visibility("default")))
#else
#define QZ_CHECK_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum { QZ_DIAGNOSTIC_ERROR = 1, QZ_DIAGNOSTIC_WARNING = 2 };

/* One diagnostic. The strings are NUL-terminated UTF-8 and valid only during
 * the callback. Offsets are bytes of the text as given (comments included). */
typedef struct QZDiagnostic {
    uint32_t Severity; /* QZ_DIAGNOSTIC_ERROR or QZ_DIAGNOSTIC_WARNING */
    uint32_t Code;     /* errors: the result code running it returns; warnings: 0 */
    const char* Id;    /* errors: the code in decimal ("22"); warnings: "stack-growth", ... */
    size_t Begin;      /* [Begin, End): the token where running would stop, or what a warning concerns */
    size_t End;
    uint32_t Line;     /* of Begin, from 1 */
    uint32_t Column;   /* of Begin, from 1, in bytes */
    const char* Message;
    const char* Note;  /* "" or a hint ("did you mean `@LAMP`?") */
} QZDiagnostic;

typedef void (*QZDiagnosticFunction)(void* context, const QZDiagnostic* diagnostic);

/* Checks the program file's text (comments "(* *)" and "//" allowed, as in
 * files) and calls `report` once per diagnostic, in the order of the text
 * (`report` may be null). Returns 0 when the text was checked, whatever it
 * holds; 19 for a null `text` with a nonzero `length`; 104 when memory ran
 * out, 105 for any other failure inside. Never throws. */
QZ_CHECK_EXPORT uint32_t QZCheckProgram(const char* text, size_t length, QZDiagnosticFunction report,
                                        void* context);

/* The warnings the checker knows: the identifier of the `index`-th (from 0)
 * and, through `meaning` when not null, its one-line meaning; null past the
 * last. The strings live as long as the library is loaded. */
QZ_CHECK_EXPORT const char* QZCheckWarning(size_t index, const char** meaning);

#ifdef __cplusplus
}
#endif

#endif
