// Counts heap allocations made anywhere in the process (the plug-in, Qt, the
// C++ runtime, Lua): this binary replaces malloc and its relatives, and
// operator new reaches them too.
#ifndef QZ_BENCH_ALLOC_COUNT_H
#define QZ_BENCH_ALLOC_COUNT_H

#include <cstdint>

namespace qzbench {
// Allocations (malloc, calloc, realloc, aligned allocations) since the start.
uint64_t Allocations();
}  // namespace qzbench

#endif
