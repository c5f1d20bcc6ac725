/* The C interface from a C99 translation unit: compiled with -std=c99
 * -pedantic -Werror, it runs a cycle and the checks a C host relies on,
 * and exits with the number of checks that failed. */
#include "qz_c.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(condition)                                              \
    do {                                                              \
        if (!(condition)) {                                           \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            ++failures;                                               \
        }                                                             \
    } while (0)

struct Seen {
    double count;
    int type;
    int written;
};

static void input(void* context, const char* name, size_t length, double* value) {
    (void)context;
    if (length == 5 && memcmp(name, "PULSE", 5) == 0) *value = 1.0;
}

static void output(void* context, const char* name, size_t length, double value, int type, int written) {
    struct Seen* seen = (struct Seen*)context;
    if (length == 5 && memcmp(name, "COUNT", 5) == 0) {
        seen->count = value;
        seen->type = type;
        seen->written = written;
    }
}

int main(void) {
    static const char program[] =
        "PROG COUNTER // counts pulses\n"
        "VAR PULSE VI BOOL 0 (* input *) COUNT VO UDINT 0\n"
        "MAIN\n"
        "\tMOV @PULSE R0 TST R0 JMPF DONE MOV @COUNT R0 ADD 1 R0 MOV R0 @COUNT\n"
        "DONE: RET\n";
    struct Seen seen = {0.0, 0, 0};
    qz_location where;
    double value = 0.0;
    int type = 0;
    qz_state* Q = qz_new();
    CHECK(Q != NULL);
    CHECK(qz_load_source(Q, program, sizeof program - 1) == QZ_rcOK);
    CHECK(qz_run(Q, input, output, &seen) == QZ_rcOK);
    CHECK(qz_run(Q, input, output, &seen) == QZ_rcOK);
    CHECK(seen.count == 2.0 && seen.type == QZ_TYPE_UDINT && seen.written == 1);
    CHECK(qz_get_variable(Q, "count", 5, &value, &type) == QZ_rcOK && value == 2.0 && type == QZ_TYPE_UDINT);
    CHECK(qz_load(Q, "PROG P VAR X V INT 0 MAIN MOV 1 R0", 34) == QZ_rcEndOfText);
    CHECK(qz_where(Q, &where) == QZ_rcOK && where.line == 1 && where.column == 35);
    CHECK(strcmp(qz_result_message(QZ_rcDivisionByZero), "DIV or MOD by zero") == 0);
    CHECK(strcmp(qz_result_name(QZ_rcBadHandle), "rcBadHandle") == 0);
    CHECK(qz_run(NULL, NULL, NULL, NULL) == QZ_rcBadHandle);
    qz_close(Q);
    qz_close(NULL);
    printf("%d checks failed\n", failures);
    return failures;
}
