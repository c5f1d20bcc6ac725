// qzrun: runs a control program from a file, cycle by cycle, the way a host
// runs it, and shows what it writes; a test bench around the run (expected
// tables, watched and forced variables, waveforms, a debugger).
//
// The runner is an ordinary host of the interpreter library: it sees only the
// public headers, serves inputs from the command line and a CSV file, and
// collects the outputs of every cycle into a table.
#include "options.h"
#include "run.h"

#include <cstdio>
#include <exception>
#include <new>

// Whatever goes wrong, the runner ends with a message and status 2 rather
// than an abort: a program or table too large for memory, or any other
// exception from the library or the standard library.
int main(int argc, char** argv) {
    try {
        return qzrun::Run(qzrun::ParseOptions(argc, argv));
    } catch (const std::bad_alloc&) {
        std::fputs("qzrun: error: out of memory\n", stderr);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qzrun: error: %s\n", e.what());
    } catch (...) {
        std::fputs("qzrun: error: unexpected failure\n", stderr);
    }
    return qzrun::kExitUsage;
}
