/* A minimal host in C: the same program and cycles as minimal_host.cpp,
 * through the C interface (qz_c.h), which needs neither C++ nor Qt.
 *
 * It shows the life of a handle: qz_new, qz_load_source with the program as
 * it would be kept in a file (line breaks and comments), qz_run once per
 * cycle with two callbacks, qz_where for a failure, qz_close. */
#include "qz_c.h"

#include <stdio.h>
#include <string.h>

/* A push button toggles a lamp on each press (rising edge) and a counter
 * counts the presses. */
static const char kProgram[] =
    "(* Toggle a lamp on every press of a button *)\n"
    "PROG TOGGLE\n"
    "VAR\n"
    "    BUTTON  VI  BOOL 0\n"
    "    LAST    VG  BOOL 0     (* the button in the previous cycle *)\n"
    "    LAMP    VO  BOOL 0\n"
    "    PRESSES VO  DINT 0\n"
    "MAIN\n"
    "    MOV @LAST R0  NOT R0  MOV @BUTTON R1  AND R1 R0  MOV @BUTTON @LAST\n"
    "    TST R0  JMPF DONE\n"
    "    MOV @LAMP R0  NOT R0  MOV R0 @LAMP\n"
    "    MOV @PRESSES R0  ADD 1 R0  MOV R0 @PRESSES\n"
    "DONE:\n"
    "RET\n";

struct Inputs {
    double button;
};

static void read_input(void* context, const char* name, size_t length, double* value) {
    const struct Inputs* inputs = (const struct Inputs*)context;
    if (length == 6 && memcmp(name, "BUTTON", 6) == 0) *value = inputs->button;
}

static void write_output(void* context, const char* name, size_t length, double value, int type, int written) {
    (void)context;
    (void)type; /* QZ_TYPE_BOOL, QZ_TYPE_DINT, ... */
    printf(" %.*s=%g%s", (int)length, name, value, written ? "*" : "");
}

static int report(qz_state* Q, const char* what, int code) {
    qz_location where;
    qz_where(Q, &where);
    fprintf(stderr, "%s failed at %d:%d: error %d: %s\n", what, where.line, where.column, code,
            qz_result_message(code));
    return 1;
}

int main(void) {
    static const double button[] = {0, 1, 1, 0, 1, 0};
    struct Inputs inputs = {0.0};
    int status = 0;
    int cycle;
    int code;
    qz_state* Q = qz_new();
    if (!Q) return 1;
    qz_set_budget(Q, 100000); /* a cycle never runs away */

    code = qz_load_source(Q, kProgram, sizeof kProgram - 1);
    if (code != QZ_rcOK) {
        status = report(Q, "load", code);
        qz_close(Q);
        return status;
    }
    for (cycle = 1; cycle <= 6; ++cycle) {
        inputs.button = button[cycle - 1];
        printf("cycle %d: BUTTON=%g ->", cycle, inputs.button);
        code = qz_run(Q, read_input, write_output, &inputs);
        printf("\n");
        if (code != QZ_rcOK) {
            status = report(Q, "cycle", code);
            qz_recover(Q); /* the next cycle would start clean, variables kept */
            break;
        }
    }
    qz_close(Q);
    return status;
}
