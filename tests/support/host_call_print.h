// Readable gtest output for recorded host calls.
#ifndef QZ_TEST_HOST_CALL_PRINT_H
#define QZ_TEST_HOST_CALL_PRINT_H

#include "recording_host.h"

#include <ostream>

inline void PrintTo(const HostCall& call, std::ostream* os) {
    if (call.Direction == tdIN)
        *os << "In(\"" << call.Name << "\", " << call.Value << ")";
    else
        *os << "Out(\"" << call.Name << "\", " << call.Value << ", " << call.Dimension << ", "
            << (call.Rewrited ? "true" : "false") << ")";
}

#endif
