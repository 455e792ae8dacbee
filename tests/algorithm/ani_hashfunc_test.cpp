#include <vel_infra/algorithm/ani_hashfunc.h>

#include <bit>

#include "support/collection_support.h"

namespace {

using collection_support::Random;

std::uint64_t littleEndian(const CodUint8 *bytes, std::size_t count) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; i++) {
        word |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
    }
    return word;
}

// MurmurHash64A a byte at a time.
std::uint64_t slowMurmur(const CodUint8 *bytes, std::size_t size) {
    constexpr std::uint64_t kMultiplier = 0xc6a4a7935bd1e995;
    std::uint64_t state = 0xe17a1465 ^ (size * kMultiplier);
    std::size_t at = 0;
    for (; size - at >= 8; at += 8) {
        std::uint64_t word = littleEndian(bytes + at, 8) * kMultiplier;
        state = (state ^ ((word ^ (word >> 47)) * kMultiplier)) * kMultiplier;
    }
    if (at < size) {
        state = (state ^ littleEndian(bytes + at, size - at)) * kMultiplier;
    }
    state = (state ^ (state >> 47)) * kMultiplier;
    return state ^ (state >> 47);
}

// SipHash with any numbers of rounds, a byte at a time.
std::uint64_t slowSipHash(int wordRounds, int finalRounds, const CodUint8 *key, const CodUint8 *bytes, std::size_t size) {
    std::uint64_t k0 = littleEndian(key, 8), k1 = littleEndian(key + 8, 8);
    std::uint64_t a = k0 ^ 0x736f6d6570736575, b = k1 ^ 0x646f72616e646f6d, c = k0 ^ 0x6c7967656e657261, d = k1 ^ 0x7465646279746573;
    auto rounds = [&](int count) {
        for (; count > 0; count--) {
            a += b, b = std::rotl(b, 13) ^ a, a = std::rotl(a, 32);
            c += d, d = std::rotl(d, 16) ^ c;
            a += d, d = std::rotl(d, 21) ^ a;
            c += b, b = std::rotl(b, 17) ^ c, c = std::rotl(c, 32);
        }
    };
    for (std::size_t at = 0;; at += 8) {
        bool last = size - at < 8;
        std::uint64_t word =
            last ? littleEndian(bytes + at, size - at) | static_cast<std::uint64_t>(size) << 56 : littleEndian(bytes + at, 8);
        d ^= word;
        rounds(wordRounds);
        a ^= word;
        if (last) {
            break;
        }
    }
    c ^= 0xff;
    rounds(finalRounds);
    return a ^ b ^ c ^ d;
}

// Calls check(bytes, size) for every length up to 70 at every alignment, and for some long ones; the bytes end where their block ends.
template <typename Check>
void forAllLengthsAndAlignments(Check check) {
    Random random(71);
    for (std::size_t shift = 0; shift < 16; shift++) {
        for (std::size_t size = 0; size <= 75; size++) {
            std::size_t used = size <= 70 ? size : size * 931 - (size % 3);  // the last ones are long
            std::vector<CodUint8> bytes = random.bytes(shift + used);
            check(bytes.data() + shift, used);
        }
    }
}

TEST(Murmur, givesThePersistedValues) {
    CodUint8 all[256];
    for (unsigned i = 0; i < 256; i++) {
        all[i] = static_cast<CodUint8>(i);
    }
    struct {
        std::string_view bytes;
        std::uint64_t hash;
    } rows[] = {
        {"", 0x9bfae0a4e613fc3c},
        {"a", 0x081ccc83154666a7},
        {{"\x80\xff\0", 3}, 0xb46c2a01457ad073},
        {"abcdefg", 0x660614084c852942},
        {"abcdefgh", 0xf00269b7d2cffc63},
        {"abcdefghi", 0xfcfcd65a4b91fe86},
        {"The quick brown fox jumps over the lazy dog", 0x38ef9f8d07f283fd},
        {{reinterpret_cast<const char *>(all), 256}, 0x3a8dc18c83eab059},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(codMurmurHash64(row.bytes.data(), static_cast<CodUint32>(row.bytes.size())), row.hash) << row.bytes;
    }
    EXPECT_EQ(codMurmurHash64(nullptr, 0), rows[0].hash);
}

TEST(Murmur, equalsTheSlowModelAtAllLengthsAndAlignments) {
    forAllLengthsAndAlignments([](const CodUint8 *bytes, std::size_t size) {
        ASSERT_EQ(codMurmurHash64(bytes, static_cast<CodUint32>(size)), slowMurmur(bytes, size)) << size << " bytes";
    });
}

TEST(SipHash, modelGivesThePublishedValues) {
    CodUint8 bytes[64];
    for (unsigned i = 0; i < 64; i++) {
        bytes[i] = static_cast<CodUint8>(i);
    }
    struct {
        std::size_t size;
        std::uint64_t hash24, hash13;
    } rows[] = {
        {0, 0x726fdb47dd0e0e31, 0xabac0158050fc4dc},  {1, 0x74f839c593dc67fd, 0xc9f49bf37d57ca93},
        {7, 0xab0200f58b01d137, 0xd3927d989bb11140},  {8, 0x93f5f5799a932462, 0x369095118d299a8e},
        {15, 0xa129ca6149be45e5, 0xd320d86d2a519956}, {63, 0x958a324ceb064572, 0x9d199062b7bbb3a8},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(slowSipHash(2, 4, bytes, bytes, row.size), row.hash24) << row.size << " bytes";
        EXPECT_EQ(codSipHash13(bytes, bytes, row.size), row.hash13) << row.size << " bytes";
    }
}

TEST(SipHash, equalsTheSlowModelAtAllLengthsAlignmentsAndKeys) {
    Random random(13);
    forAllLengthsAndAlignments([&](const CodUint8 *bytes, std::size_t size) {
        std::vector<CodUint8> key = random.bytes(16 + size % 8);
        const CodUint8 *unaligned = key.data() + size % 8;
        ASSERT_EQ(codSipHash13(unaligned, bytes, size), slowSipHash(1, 3, unaligned, bytes, size)) << size << " bytes";
    });
    CodUint8 key[16] = {9};
    EXPECT_EQ(codSipHash13(key, nullptr, 0), slowSipHash(1, 3, key, key, 0));
}

CodHashPointer pointerKey(void *value) {
    return {.ptrValue = value};
}

TEST(TextAndByteKeys, areEqualWhenLengthAndBytesAre) {
    const std::string contents[] = {"",
                                    "a",
                                    "b",
                                    "ab",
                                    "ba",
                                    std::string(1, '\0'),
                                    std::string(2, '\0'),
                                    std::string("a\0b", 3),
                                    std::string("a\0c", 3),
                                    std::string(300, 'x'),
                                    std::string(299, 'x'),
                                    std::string(299, 'x') + "y",
                                    "A",
                                    "a "};
    for (const std::string &left : contents) {
        for (const std::string &right : contents) {
            SCOPED_TRACE(left + " and " + right);
            std::string copy = right;
            CodUint32 leftSize = static_cast<CodUint32>(left.size()), rightSize = static_cast<CodUint32>(right.size());
            CodText leftText = {const_cast<char *>(left.data()), leftSize, 1},
                    rightText = {rightSize == 0 ? nullptr : copy.data(), rightSize, 2};
            CodBytes leftBytes = {reinterpret_cast<CodUint8 *>(leftText.str), leftSize, 3};
            CodBytes rightBytes = {reinterpret_cast<CodUint8 *>(rightText.str), rightSize, 4};
            struct {
                CodHashCalc calc, keyed;
                CodHashKeyCompare compare;
                CodHashPointer left, right;
            } rows[] = {{codHashCalcText, codHashCalcTextKeyed, codHashCompareText, pointerKey(&leftText), pointerKey(&rightText)},
                        {codHashCalcBytes, codHashCalcBytesKeyed, codHashCompareBytes, pointerKey(&leftBytes), pointerKey(&rightBytes)}};
            for (const auto &row : rows) {
                EXPECT_EQ(row.compare(row.left, row.right) == 0, left == right);
                EXPECT_EQ(row.calc(row.left) == row.calc(row.right), left == right);
                EXPECT_EQ(row.keyed(row.left) == row.keyed(row.right), left == right);
            }
        }
    }
}

}  // namespace
