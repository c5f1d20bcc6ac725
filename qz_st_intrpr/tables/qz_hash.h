// Keyed hashing for the symbol tables.
//
// A program text chooses the names the tables hold, so a plain hash of a name
// lets a text pick names that all land in one chain and make loading
// quadratic. SipHash-2-4 under a secret random key cannot be steered that
// way without knowing the key.
#ifndef QZ_HASH_H
#define QZ_HASH_H

#include <cstddef>
#include <cstdint>

struct QZ_HashKey {
    uint64_t K0;
    uint64_t K1;
};

// SipHash-2-4 of `length` bytes at `data` under `key`.
uint64_t QZ_SipHash(const QZ_HashKey& key, const void* data, size_t length);

// A key drawn once per process from the system's random source (getrandom,
// then std::random_device, then the clock when neither is available).
const QZ_HashKey& QZ_ProcessHashKey();

// A fresh key for one table: distinct on every call, derived from the
// process key so it costs no system call.
QZ_HashKey QZ_NewHashKey();

#endif
