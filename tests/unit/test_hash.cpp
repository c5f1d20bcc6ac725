// The symbol tables' keyed hash: SipHash-2-4 as published (its reference
// vectors), and keys that differ from table to table.
#include "qz_hash.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

namespace {

// The reference key 00 01 .. 0f and messages 00 01 .. (n - 1).
uint64_t ReferenceHash(size_t n) {
    const QZ_HashKey key{0x0706050403020100ull, 0x0f0e0d0c0b0a0908ull};
    std::string message;
    for (size_t i = 0; i < n; ++i) message.push_back(char(i));
    return QZ_SipHash(key, message.data(), message.size());
}

TEST(KeyedHash, MatchesTheReferenceVectors) {
    EXPECT_EQ(ReferenceHash(0), 0x726fdb47dd0e0e31ull);
    EXPECT_EQ(ReferenceHash(1), 0x74f839c593dc67fdull);
    EXPECT_EQ(ReferenceHash(8), 0x93f5f5799a932462ull);
    EXPECT_EQ(ReferenceHash(15), 0xa129ca6149be45e5ull);
    EXPECT_EQ(ReferenceHash(63), 0x958a324ceb064572ull);
}

TEST(KeyedHash, ReadsUnalignedBytes) {
    const char buffer[] = "xxSpeed_of_the_conveyor_belt";
    const QZ_HashKey key{1, 2};
    const std::string copy(buffer + 2);
    EXPECT_EQ(QZ_SipHash(key, buffer + 2, copy.size()), QZ_SipHash(key, copy.data(), copy.size()));
}

TEST(KeyedHash, TheKeyDecides) {
    const std::string name = "MOTOR_1";
    EXPECT_NE(QZ_SipHash(QZ_HashKey{1, 2}, name.data(), name.size()),
              QZ_SipHash(QZ_HashKey{1, 3}, name.data(), name.size()));
}

TEST(KeyedHash, ProcessKeyIsDrawnOnceAndIsNotZero) {
    const QZ_HashKey& first = QZ_ProcessHashKey();
    const QZ_HashKey& second = QZ_ProcessHashKey();
    EXPECT_EQ(&first, &second);
    EXPECT_TRUE(first.K0 != 0 || first.K1 != 0);
}

TEST(KeyedHash, EveryNewKeyIsDifferent) {
    std::set<std::pair<uint64_t, uint64_t>> keys;
    for (int i = 0; i < 1000; ++i) {
        const QZ_HashKey key = QZ_NewHashKey();
        keys.insert({key.K0, key.K1});
    }
    EXPECT_EQ(keys.size(), 1000u);
}

}  // namespace
