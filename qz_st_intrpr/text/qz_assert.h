// Process-stopping checks with fixed texts. Host tooling matches the exact
// assertion messages (expression, header name, line, function), so they are
// raised through the C library's assertion reporter with those values rather
// than through assert(), whose texts would follow this source's layout.
#ifndef QZ_ASSERT_H
#define QZ_ASSERT_H

extern "C" [[noreturn]] void __assert_fail(const char* expression, const char* file, unsigned int line,
                                           const char* function) noexcept;

#endif
