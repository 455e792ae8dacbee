#include <vel_infra/algorithm/ani_hashfunc.h>

#include <bit>

#include "support/collection_support.h"

namespace {

using collection_support::Random;

std::uint64_t littleEndian(const CodUint8 *bytes, std::size_t count) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; i++) {
        word |= std::uint64_t{bytes[i]} << (8 * i);
    }
    return word;
}

// MurmurHash64A a byte at a time.
std::uint64_t slowMurmur(const CodUint8 *bytes, std::size_t size) {
    constexpr std::uint64_t kMultiplier = 0xc6a4a7935bd1e995;
    auto unshift = [](std::uint64_t word) { return word ^ (word >> 47); };
    std::uint64_t state = 0xe17a1465 ^ (size * kMultiplier);
    for (; size >= 8; size -= 8, bytes += 8) {
        state = (state ^ unshift(littleEndian(bytes, 8) * kMultiplier) * kMultiplier) * kMultiplier;
    }
    state = size > 0 ? (state ^ littleEndian(bytes, size)) * kMultiplier : state;
    return unshift(unshift(state) * kMultiplier);
}

// SipHash-1-3 a byte at a time.
std::uint64_t slowSipHash(const CodUint8 *key, const CodUint8 *bytes, std::size_t size) {
    std::uint64_t k0 = littleEndian(key, 8), k1 = littleEndian(key + 8, 8);
    std::uint64_t a = k0 ^ 0x736f6d6570736575, b = k1 ^ 0x646f72616e646f6d, c = k0 ^ 0x6c7967656e657261, d = k1 ^ 0x7465646279746573;
    auto round = [&] {
        a += b, b = std::rotl(b, 13) ^ a, a = std::rotl(a, 32);
        c += d, d = std::rotl(d, 16) ^ c;
        a += d, d = std::rotl(d, 21) ^ a;
        c += b, b = std::rotl(b, 17) ^ c, c = std::rotl(c, 32);
    };
    for (std::size_t at = 0; at <= size; at += 8) {
        std::size_t rest = size - at;
        std::uint64_t word = rest < 8 ? littleEndian(bytes + at, rest) | std::uint64_t{size} << 56 : littleEndian(bytes + at, 8);
        d ^= word, round(), a ^= word;
    }
    c ^= 0xff, round(), round(), round();
    return a ^ b ^ c ^ d;
}

TEST(Hashes, equalTheSlowModelsAtAllLengthsAlignmentsAndKeys) {
    Random random(71);
    for (std::size_t i = 0; i < 16 * 76; i++) {
        std::size_t shift = i / 76, size = i % 76 <= 70 ? i % 76 : i % 76 * 931 - i % 3;  // the last ones are long
        std::vector<CodUint8> bytes = random.bytes(shift + size), keys = random.bytes(16 + size % 8);
        const CodUint8 *start = bytes.data() + shift, *key = keys.data() + size % 8;
        ASSERT_EQ(codMurmurHash64(start, static_cast<CodUint32>(size)), slowMurmur(start, size)) << size << " bytes";
        ASSERT_EQ(codSipHash13(key, start, size), slowSipHash(key, start, size)) << size << " bytes";
    }
}

TEST(Hashes, givePublishedAndPersistedValues) {
    std::string all(256, '\0');
    std::generate(all.begin(), all.end(), [value = 0]() mutable { return static_cast<char>(value++); });
    const std::pair<std::string_view, CodUint64> murmurs[] = {{{}, 0x9bfae0a4e613fc3c},
                                                              {"a", 0x081ccc83154666a7},
                                                              {"abcdefg", 0x660614084c852942},
                                                              {"abcdefgh", 0xf00269b7d2cffc63},
                                                              {"The quick brown fox jumps over the lazy dog", 0x38ef9f8d07f283fd},
                                                              {all, 0x3a8dc18c83eab059}};
    for (const auto &[bytes, hash] : murmurs) {
        EXPECT_EQ(codMurmurHash64(bytes.data(), static_cast<CodUint32>(bytes.size())), hash) << bytes;
    }
    // By the number of bytes 0, 1, 2 and so on; the first 16 of them are the key.
    const std::pair<CodUint64, CodUint64> sips[] = {{0, 0xabac0158050fc4dc}, {1, 0xc9f49bf37d57ca93},  {7, 0xd3927d989bb11140},
                                                    {8, 0x369095118d299a8e}, {15, 0xd320d86d2a519956}, {63, 0x9d199062b7bbb3a8}};
    const CodUint8 *key = reinterpret_cast<const CodUint8 *>(all.data());
    for (const auto &[size, hash] : sips) {
        EXPECT_EQ(codSipHash13(key, size == 0 ? nullptr : key, size), hash) << size << " bytes";
    }
}

}  // namespace
