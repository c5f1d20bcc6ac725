// The decoded form of a program text.
#include "qz_decoded.h"

void QZ_DecodedProgram::Reset(uint32_t version, int32_t length) {
    Tokens.clear();
    Instructions.clear();
    Frames.clear();
    Pool.clear();
    MainStart = -1;
    // One entry a character: the cycle finds what starts at a position with
    // one index, and a text's decoded form stays linear in its length.
    Positions.assign(size_t(length > 0 ? length : 0), kNotYet);
    Version = version;
    Valid = true;
}

uint32_t QZ_DecodedProgram::AddToken(const QZ_DecodedToken& token) {
    Tokens.push_back(token);
    return uint32_t(Tokens.size());
}

uint32_t QZ_DecodedProgram::AddText(const char* text, size_t length) {
    const uint32_t offset = uint32_t(Pool.size());
    Pool.append(text, length);
    Pool.push_back('\0');
    return offset;
}
