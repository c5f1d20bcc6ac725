// The exported keyword table, keyword lookup and the bounded string copies.
#include "qz_tokens.h"

#include <cstring>

QZ_Token TokensTable[kKeywordCount] = {
#define QZ_TOKEN_ROW2(name, code) {code, #name},
#define QZ_TOKEN_ROW3(name, code, ...) {code, #name},
#define QZ_TOKEN_SECTION(name, code, text) {code, text},
    QZ_SECTION_KEYWORDS(QZ_TOKEN_SECTION) QZ_DECLARATION_KINDS(QZ_TOKEN_ROW2) QZ_TYPES(QZ_TOKEN_ROW3)
        QZ_INSTRUCTIONS(QZ_TOKEN_ROW3) QZ_OPERAND_KEYWORDS(QZ_TOKEN_ROW2)
#undef QZ_TOKEN_ROW2
#undef QZ_TOKEN_ROW3
#undef QZ_TOKEN_SECTION
};

const QZ_InstructionInfo kInstructionInfo[kInstructionCount] = {
#define QZ_INFO_ROW(name, code, handler, operands, description) {#name, code, operands, description},
    QZ_INSTRUCTIONS(QZ_INFO_ROW)
#undef QZ_INFO_ROW
};

const QZ_InstructionInfo* InstructionInfoOf(uint8_t code) {
    return IsInstructionCode(code) ? &kInstructionInfo[code - ttCAL] : nullptr;
}

char* _qzcscpy(char* dest, unsigned long n, const char* src) { return std::strncpy(dest, src, n); }

char* _qzcscat(char* dest, unsigned long n, const char* src) { return std::strncat(dest, src, n); }

namespace {

// Keywords are at most 6 characters, so each packs into one 64-bit word and a
// lookup is a handful of integer compares instead of string compares. Names
// are unique, so any match is the one the classic search from the last entry
// down finds. Built from the keyword lists, not from the writable export.
constexpr size_t kPackedMax = 8;

constexpr uint64_t PackKeyword(const char* name) {
    uint64_t packed = 0;
    for (size_t i = 0; name[i] != 0; ++i) packed |= uint64_t(static_cast<unsigned char>(name[i])) << (8 * i);
    return packed;
}

struct PackedKeyword {
    uint64_t Word;
    uint8_t Code;
};

constexpr PackedKeyword kPackedKeywords[kKeywordCount] = {
#define QZ_PACKED_ROW2(name, code) {PackKeyword(#name), code},
#define QZ_PACKED_ROW3(name, code, ...) {PackKeyword(#name), code},
#define QZ_PACKED_SECTION(name, code, text) {PackKeyword(text), code},
    QZ_SECTION_KEYWORDS(QZ_PACKED_SECTION) QZ_DECLARATION_KINDS(QZ_PACKED_ROW2) QZ_TYPES(QZ_PACKED_ROW3)
        QZ_INSTRUCTIONS(QZ_PACKED_ROW3) QZ_OPERAND_KEYWORDS(QZ_PACKED_ROW2)
#undef QZ_PACKED_ROW2
#undef QZ_PACKED_ROW3
#undef QZ_PACKED_SECTION
};

}  // namespace

uint8_t FindKeyword(const char* text) {
    uint64_t packed = 0;
    size_t i = 0;
    for (; text[i] != 0; ++i) {
        if (i == kPackedMax) return ttNONE;  // longer than any keyword
        packed |= uint64_t(static_cast<unsigned char>(text[i])) << (8 * i);
    }
    if (i == 0) return ttNONE;
    for (const PackedKeyword& keyword : kPackedKeywords)
        if (keyword.Word == packed) return keyword.Code;
    return ttNONE;
}

int DimensionOfType(char type) {
    switch (static_cast<uint8_t>(type)) {
#define QZ_DIMENSION_CASE(name, code, dimension) \
    case code:                                   \
        return dimension;
        QZ_TYPES(QZ_DIMENSION_CASE)
#undef QZ_DIMENSION_CASE
    default:
        return 0;
    }
}
