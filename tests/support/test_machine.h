// Access to the interpreter's internals for unit tests.
#ifndef QZ_TEST_MACHINE_H
#define QZ_TEST_MACHINE_H

#include "qz_st_intrpr_main.h"

#include <string>

// The machine without the plug-in layer, positioned on a text of our choice.
class TestMachine : public CQZ_STInterpretator_Execute {
public:
    // Puts `text` in place and the scanner on its first character.
    void SetProgram(const std::string& text) {
        SetText(text);
        SeekTo(0);
    }
    // Scans the instruction keyword at the current position and runs it.
    Qz::uint32_t Run() {
        if (Qz::uint32_t r = Scan(TokenText)) return r;
        return DoCommand();
    }
    // Runs one instruction given as text, e.g. "MOV 5 R0 RET".
    Qz::uint32_t RunText(const std::string& text) {
        SetProgram(text);
        return Run();
    }
    Qz::uint32_t Seek(int64_t pos) { return SeekTo(pos); }
    using CQZ_STInterpretator_Execute::RunBody;
    using CQZ_STInterpretator_Execute::ReadTick;
};

#endif
