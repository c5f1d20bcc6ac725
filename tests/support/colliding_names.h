// Names built to collide under the string hashes the symbol tables once used,
// for tests that a flood of such names loads no slower than ordinary names.
//
// Qt 5's qHash(QString, seed) is, on x86-64 with SSE 4.2 and a nonzero seed,
// the CRC-32C of the string's UTF-16 bytes started from the seed; with seed 0
// (or without SSE 4.2) it is h = seed, then h = 31 * h + unit for each UTF-16
// unit. The old variable table hashed the upper-cased name's bytes (signed)
// with the same h * 31 rule. None of these depend on the seed in a way that
// helps: for strings of one length, the CRC is affine in the message bits and
// the h * 31 hash is a fixed function of the units plus a term in the seed
// alone. So two equal-length blocks that collide under one seed collide in
// every position and under every seed.
#ifndef QZ_TEST_COLLIDING_NAMES_H
#define QZ_TEST_COLLIDING_NAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace colliding {

// CRC-32C (reflected polynomial 0x82F63B78) of `bytes` started from `crc`,
// without the final inversion: what the SSE 4.2 crc32 instruction computes.
inline uint32_t Crc32c(uint32_t crc, const std::string& bytes) {
    for (unsigned char byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0x82F63B78u & (0u - (crc & 1u)));
    }
    return crc;
}

// The old variable table's hash: the key's bytes as signed values, h * 31 + byte.
inline uint32_t ByteHash31(const std::string& key) {
    uint32_t h = 0;
    for (char c : key) h = h * 31u + uint32_t(int32_t(static_cast<signed char>(c)));
    return h;
}

// Latin-1 text as UTF-16 little-endian bytes (how QString holds it).
inline std::string Utf16Bytes(const std::string& latin1) {
    std::string bytes;
    for (char c : latin1) {
        bytes.push_back(c);
        bytes.push_back('\0');
    }
    return bytes;
}

namespace detail {

// A name made of `pairs.size()` two-character pieces, each spelled `zero` or
// `one` as its bit in `choice` says.
inline std::string Spell(const char* zero, const char* one, size_t pairs, uint64_t choice) {
    std::string name;
    for (size_t i = 0; i < pairs; ++i) name += ((choice >> i) & 1u) ? one : zero;
    return name;
}

// Bits needed to number `count` names.
inline size_t BitsFor(size_t count) {
    size_t bits = 0;
    while ((size_t(1) << bits) < count) ++bits;
    return bits;
}

}  // namespace detail

// `count` distinct names (up to 2^31) made of "Aa" and "BB" pieces, that share
// their qHash under every seed. "Aa" and "BB" have the same h * 31 hash, so
// every spelling does too. Swapping the piece at position i changes the CRC by
// a fixed 32-bit vector D_i; choices whose D_i cancel (the null space of the
// D_i over GF(2)) keep the CRC. With 32 + b pieces that null space has at
// least 2^b members.
inline std::vector<std::string> QtHashCollidingNames(size_t count) {
    const size_t pairs = 32 + detail::BitsFor(count);
    // Gaussian elimination: each D_i is reduced against the rows found so
    // far (one per leading bit); one that reduces to zero gives a choice of
    // pieces (its own and those of the rows it took in) that keeps the CRC.
    uint32_t rowVector[32] = {};
    uint64_t rowChoice[32] = {};
    std::vector<uint64_t> keeping;
    for (size_t i = 0; i < pairs; ++i) {
        std::string difference(4 * pairs, '\0');
        difference[4 * i] = 'A' ^ 'B';
        difference[4 * i + 2] = 'a' ^ 'B';
        uint32_t vector = Crc32c(0, difference);
        uint64_t choice = uint64_t(1) << i;
        for (int bit = 31; bit >= 0 && vector; --bit) {
            if (!((vector >> bit) & 1u)) continue;
            if (!rowVector[bit]) {
                rowVector[bit] = vector;
                rowChoice[bit] = choice;
                break;
            }
            vector ^= rowVector[bit];
            choice ^= rowChoice[bit];
        }
        if (!vector) keeping.push_back(choice);
    }
    std::vector<std::string> names;
    names.reserve(count);
    for (size_t n = 0; n < count; ++n) {
        uint64_t choice = 0;
        for (size_t bit = 0; bit < keeping.size() && bit < 64; ++bit)
            if ((n >> bit) & 1u) choice ^= keeping[bit];
        names.push_back(detail::Spell("Aa", "BB", pairs, choice));
    }
    return names;
}

// `count` distinct upper-case names that share the old variable table's hash:
// "V" and pieces "AO" or "B0" (65 * 31 + 79 == 66 * 31 + 48).
inline std::vector<std::string> ByteHashCollidingNames(size_t count) {
    const size_t pairs = detail::BitsFor(count);
    std::vector<std::string> names;
    names.reserve(count);
    for (size_t n = 0; n < count; ++n) names.push_back("V" + detail::Spell("AO", "B0", pairs, n));
    return names;
}

// `count` distinct ordinary names of `length` characters (at least 8): a
// letter, the number in decimal, and upper- and lower-case letters to fill,
// as the crafted names mix them. The reference the colliding names are timed
// against.
inline std::vector<std::string> PlainNames(size_t count, size_t length) {
    std::vector<std::string> names;
    names.reserve(count);
    for (size_t n = 0; n < count; ++n) {
        std::string name = "P" + std::to_string(n) + "_";
        while (name.size() < length) {
            const char base = name.size() % 2 ? 'a' : 'A';
            name += char(base + (name.size() + n) % 26);
        }
        names.push_back(name);
    }
    return names;
}

}  // namespace colliding

#endif
