#include <vel_infra/bits/ani_bits.h>

#include "support/collection_support.h"

// Every length at every alignment. The bytes are on the heap, exactly those of the bits.
TEST(Bits, areGetSetAndCopiedOneByOneAndNoOthersTouched) {
    collection_support::Random random(3);
    for (CodUint32 i = 0; i < 201 * 3 * 256 && !HasFailure(); i++) {
        const CodUint32 way = i / 256 % 3, num = std::min(i / 768, way == 1 ? 64 : 200u), pos = i % 16, from = i / 16 % 16;
        const CodUint64 value = random.next();
        const auto source = random.bytes((from + num + 7) / 8);
        auto bytes = random.bytes((pos + num + 7) / 8), wanted = bytes;
        way == 0   ? codCopyBits(bytes.data(), pos, source.data(), from, num)
        : way == 1 ? codSetBits64(bytes.data(), pos, num, value)
                   : codSetRangeBits(bytes.data(), pos, num, value & 1);
        CodUint64 low = 0;
        for (CodUint32 k = 0, at = pos; k < num; k++, at++) {
            const bool bit = (way == 0 ? source[(from + k) / 8] >> (from + k) % 8 : value >> (way == 1 ? k : 0)) & 1;
            wanted[at / 8] = static_cast<CodUint8>((wanted[at / 8] & ~(1 << at % 8)) | bit << at % 8);
            low |= CodUint64{bit && k < 64} << k % 64;
        }
        EXPECT_EQ(bytes, wanted) << "way " << way << ", " << num << " bits at " << pos << " from " << from;
        EXPECT_EQ(codGetBits64(bytes.data(), pos, std::min(num, 64u)), low) << num << " bits at " << pos;
    }
    codCopyBits(nullptr, 9, nullptr, 100, 0), codSetBits64(nullptr, 9, 0, 1), codSetRangeBits(nullptr, 9, 0, true);
    EXPECT_EQ(codGetBits64(nullptr, 9, 0), 0u);
}
