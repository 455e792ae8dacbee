#include <vel_infra/bitops/ani_bitcolumn.h>

#include "support/collection_support.h"

namespace {

using namespace collection_support;
using Values = std::vector<CodUint32>;
using Bytes = std::vector<CodUint8>;

// Values through a form and back. Returns the bytes.
Bytes check(const Values &values, decltype(&codForEncode32) encode, decltype(&codForDecode32) decode) {
    CodUint32 count = static_cast<CodUint32>(values.size()), size = 0, got = 0;
    Bytes bytes(12 + 4 * count), wrong;
    Values out(count);
    EXPECT_EQ(encode(values.data(), count, bytes.data(), 12 + 4 * count, &size), COD_SUCCESS);
    bytes.resize(size);
    EXPECT_TRUE(size == codBitColumnSize(count, bytes[8]) && size == (count * bytes[8] + 103) / 8);
    EXPECT_EQ(encode(values.data(), count, bytes.data(), size, &got), COD_SUCCESS);
    expectError(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "", [&] { return encode(values.data(), count, bytes.data(), size - 1, &got); });
    const auto decodes = [&](const Bytes &in, CodUint32 room) { return decode(in.data(), CodUint32(in.size()), out.data(), room, &got); };
    EXPECT_TRUE(decodes(bytes, count) == COD_SUCCESS && got == count && out == values);
    count == 0 ? void() : expectError(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "", [&] { return decodes(bytes, count - 1); });
    for (CodUint32 left = 1; left < size; left += 1 + size / 5000) {
        expectError(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "", [&] { return decodes(Bytes(bytes.begin(), bytes.begin() + left), count); });
    }
    for (const auto &[at, byte] : {std::pair(8u, 33), {8u, 255}, {9u, 0}, {9u, 3 - bytes[9]}, {9u, 3}, {10u, 1}, {11u, 128}}) {
        (wrong = bytes)[at] = static_cast<CodUint8>(byte);
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return decodes(wrong, count); });
    }
    return bytes;
}

TEST(BitColumn, holdsValuesInTheFormOfItsHeaderAndRefusesOtherBytes) {
    Random random(17);
    for (CodUint32 i = 0; i < 9 * 5 && !HasFailure(); i++) {
        const CodUint32 bits = std::array{0u, 1u, 5u, 16u, 32u}[i % 5];
        Values values(std::array{0u, 1u, 31u, 32u, 33u, 1023u, 1024u, 1025u, 100000u}[i / 5], random.below(0xFFFF));
        std::for_each(values.begin(), values.end(), [&](auto &value) { value += CodUint32(random.next() >> 32 >> (32 - bits)); });
        EXPECT_LE(check(values, codForEncode32, codForDecode32)[8], bits);
        std::sort(values.begin(), values.end());
        check(values, codDeltaEncode32, codDeltaDecode32);
    }
    EXPECT_EQ(check({7, 5, 6}, codForEncode32, codForDecode32), (Bytes{5, 0, 0, 0, 3, 0, 0, 0, 2, 1, 0, 0, 0x12}));
    EXPECT_EQ(check({5, 6, 8}, codDeltaEncode32, codDeltaDecode32), (Bytes{5, 0, 0, 0, 3, 0, 0, 0, 2, 2, 0, 0, 0x24}));
    EXPECT_EQ(codBitsOfMax32(Values{3, 8, 1}.data(), 3), 4u);
    CodUint32 size;
    // Bits behind the last value, a first step, and values beyond 32 bits.
    for (const Bytes &hostile :
         {Bytes{5, 0, 0, 0, 1, 0, 0, 0, 2, 1, 0, 0, 4}, Bytes{5, 0, 0, 0, 1, 0, 0, 0, 2, 2, 0, 0, 2},
          Bytes{255, 255, 255, 255, 1, 0, 0, 0, 1, 1, 0, 0, 1}, Bytes{255, 255, 255, 255, 2, 0, 0, 0, 1, 2, 0, 0, 2}}) {
        const auto decode = hostile[9] == 1 ? codForDecode32 : codDeltaDecode32;
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return decode(hostile.data(), 13, Values(9).data(), 9, &size); });
    }
    for (const Values &falling : {Values{5, 4, 9}, Values{0, 7, 6}, Values{~0u, ~0u, 0}}) {
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codDeltaEncode32(falling.data(), 3, Bytes(99).data(), 99, &size); });
    }
}

}  // namespace
