// Keyed hashing for the symbol tables.
#include "qz_hash.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <random>
#include <sys/random.h>

namespace {

constexpr uint64_t Rotate(uint64_t x, int bits) { return (x << bits) | (x >> (64 - bits)); }

// Little-endian 64-bit word from bytes, whatever the host's byte order and
// alignment.
uint64_t ReadWord(const unsigned char* p) {
    uint64_t word = 0;
    for (int i = 7; i >= 0; --i) word = (word << 8) | p[i];
    return word;
}

struct SipState {
    uint64_t V0, V1, V2, V3;

    void Round() {
        V0 += V1;
        V1 = Rotate(V1, 13);
        V1 ^= V0;
        V0 = Rotate(V0, 32);
        V2 += V3;
        V3 = Rotate(V3, 16);
        V3 ^= V2;
        V0 += V3;
        V3 = Rotate(V3, 21);
        V3 ^= V0;
        V2 += V1;
        V1 = Rotate(V1, 17);
        V1 ^= V2;
        V2 = Rotate(V2, 32);
    }
    void Absorb(uint64_t word) {
        V3 ^= word;
        Round();
        Round();
        V0 ^= word;
    }
};

bool FillFromGetrandom(unsigned char* out, size_t length) {
    size_t done = 0;
    while (done < length) {
        // Non-blocking: early in boot the pool may not be ready, and a
        // table must not wait for it.
        const ssize_t got = getrandom(out + done, length - done, GRND_NONBLOCK);
        if (got < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += size_t(got);
    }
    return true;
}

bool FillFromRandomDevice(unsigned char* out, size_t length) {
    try {
        std::random_device device;
        for (size_t i = 0; i < length; ++i) out[i] = static_cast<unsigned char>(device());
        return true;
    } catch (...) {
        return false;
    }
}

// Last resort: unpredictable enough to spoil a text prepared in advance.
void FillFromClock(unsigned char* out, size_t length) {
    const uint64_t now = uint64_t(std::chrono::steady_clock::now().time_since_epoch().count());
    const uint64_t wall = uint64_t(std::chrono::system_clock::now().time_since_epoch().count());
    const uint64_t place = uint64_t(reinterpret_cast<uintptr_t>(&now));
    const QZ_HashKey mix{now ^ place, wall};
    for (size_t i = 0; i < length; ++i) out[i] = static_cast<unsigned char>(QZ_SipHash(mix, &i, sizeof i));
}

QZ_HashKey DrawProcessKey() {
    unsigned char bytes[16];
    if (!FillFromGetrandom(bytes, sizeof bytes) && !FillFromRandomDevice(bytes, sizeof bytes))
        FillFromClock(bytes, sizeof bytes);
    return QZ_HashKey{ReadWord(bytes), ReadWord(bytes + 8)};
}

}  // namespace

uint64_t QZ_SipHash(const QZ_HashKey& key, const void* data, size_t length) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    SipState s{key.K0 ^ 0x736f6d6570736575ull, key.K1 ^ 0x646f72616e646f6dull, key.K0 ^ 0x6c7967656e657261ull,
               key.K1 ^ 0x7465646279746573ull};
    const size_t whole = length - length % 8;
    for (size_t i = 0; i < whole; i += 8) s.Absorb(ReadWord(p + i));
    // The last word: the remaining bytes, and the length's low byte on top.
    uint64_t last = uint64_t(length & 0xff) << 56;
    for (size_t i = whole; i < length; ++i) last |= uint64_t(p[i]) << (8 * (i - whole));
    s.Absorb(last);
    s.V2 ^= 0xff;
    for (int i = 0; i < 4; ++i) s.Round();
    return s.V0 ^ s.V1 ^ s.V2 ^ s.V3;
}

const QZ_HashKey& QZ_ProcessHashKey() {
    static const QZ_HashKey key = DrawProcessKey();
    return key;
}

QZ_HashKey QZ_NewHashKey() {
    static std::atomic<uint64_t> counter{0};
    const uint64_t n = counter.fetch_add(1, std::memory_order_relaxed);
    const uint64_t first = 2 * n;
    const uint64_t second = 2 * n + 1;
    const QZ_HashKey& process = QZ_ProcessHashKey();
    return QZ_HashKey{QZ_SipHash(process, &first, sizeof first), QZ_SipHash(process, &second, sizeof second)};
}
