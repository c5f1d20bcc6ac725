// The two fuzz targets as plain functions, so that the regression test can
// replay saved inputs through exactly the code the fuzzers run.
//
// Each harness file defines its target and, unless QZ_FUZZ_NO_MAIN is
// defined, the libFuzzer entry point that calls it. A broken invariant stops
// the process (QZ_FUZZ_CHECK), which libFuzzer and the tests report as a crash.
#ifndef QZ_FUZZ_TARGETS_H
#define QZ_FUZZ_TARGETS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Program texts, host input values and cycle counts through the plug-in's
// Create / InitInterpretator / Execute / Destroy.
int QzFuzzProgram(const uint8_t* data, size_t size);
// The scanner, the literal readers, the variable table, ConvertDim and the
// built-in functions, each on its own.
int QzFuzzText(const uint8_t* data, size_t size);
// The checker on any text; on texts it calls error-free, a few cycles of the
// program never fail with an error the text alone decides.
int QzFuzzCheck(const uint8_t* data, size_t size);

#define QZ_FUZZ_CHECK(condition)                                                            \
    do {                                                                                    \
        if (!(condition)) {                                                                 \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                   \
        }                                                                                   \
    } while (0)

#endif
