#include <vel_infra/bitops/ani_bitpack.h>
#include <vel_infra/bitops/ani_bitvec.h>

#include "support/collection_support.h"

namespace {

// The vector beside a list of its bits and the place of its cursor. The buffer is on the heap, of exactly its capacity.
struct VecAgainstModel {
    CodUint64 bitsAt(std::size_t at, CodUint32 num) const {
        CodUint64 value = 0;
        for (CodUint32 i = 0; i < num && at + i < bits.size(); i++) {
            value |= CodUint64{bits[at + i]} << i;
        }
        return value;
    }
    void start() {
        buffer = before = random.bytes(1 + random.below(random.oneIn(2) ? 40 : 800));
        codBitVecInit(buffer.data(), static_cast<CodUint32>(buffer.size()), 0, &vec);
        bits.clear(), bytePos = bitPos = 0, reading = false;
    }
    void finish() {
        codBitVecFinish(&vec);
        bits.resize((bits.size() + 7) / 8 * 8);
        for (std::size_t i = 0; i < bits.size(); i += 8) {
            before[i / 8] = static_cast<CodUint8>(bitsAt(i, 8));
        }
        ASSERT_TRUE(buffer == before && codBitVecAsPtr(&vec, &bytePos) == buffer.data() && bytePos == bits.size() / 8);
        bitPos = 0, reading = true;
    }
    void move() {
        const CodUint32 end = vec.length * 8, pos = bytePos * 8 + bitPos;
        const bool isNext = pos <= end && random.oneIn(2);
        const CodUint32 to = isNext ? pos + random.below(end - pos + 1) : random.below(end + (random.oneIn(4) ? 100 : 1));
        to == 0 && end != 0 ? (vec = {}, codBitVecInit(buffer.data(), CodUint32(buffer.size()), end / 8, &vec))
        : isNext            ? codBitVecNext(&vec, to - pos)
                            : codBitVecSeek(&vec, to);
        bytePos = to / 8, bitPos = to % 8;
    }
    void operate() {
        const CodUint32 from = bytePos * 8 + bitPos, end = (reading ? vec.length : vec.capacity) * 8, rest = end - std::min(end, from);
        const CodUint32 way = !reading ? random.below(7) : 7 + random.below(from > end ? 2 : 7);
        const CodUint32 maxWidth = std::array{32u, 64u, 1u, 1u, 32u, 64u, 64u, 32u, 64u, 32u, 64u, 64u, 32u, 64u}[way];
        const CodUint32 drawn = maxWidth == 1 ? 1 : random.below(maxWidth + 1), width = way > 8 ? std::min(drawn, rest) : drawn;
        const CodUint32 blocksFrom = way % 7 < 2 ? 33 - reading : ~0u, len = way < 4 || way % 7 < 2 ? random.below(150) : 1;
        const CodUint32 begin = way == 3 ? random.below(63 * len + 1) : 0;
        std::vector<CodUint64> x(len, CodUint64{0} - random.below(2));
        way == 2 ? void() : std::generate(x.begin(), x.end(), random.next);
        std::vector<CodUint32> y(x.begin(), x.end());
        const CodUint32 fits = width == 0 ? len : std::min(len, rest / width);
        const CodUint32 count = way == 0    ? codBitVecAppendBatch32(&vec, width, y.data(), len)
                                : way == 1  ? codBitVecAppendBatch64(&vec, width, x.data(), len)
                                : way == 2  ? codBitVecAppendBools(&vec, len, len != 0 && x[0] != 0)
                                : way == 3  ? (codBitVecCopy(&vec, x.data(), begin, len) == (fits == len) ? fits : ~0u)
                                : way == 4  ? codBitVecAppend32(&vec, width, y[0])
                                : way == 5  ? codBitVecAppend64(&vec, width, x[0])
                                : way == 6  ? codBitVecAppend64Exported(&vec, width, x[0])
                                : way == 7  ? codBitVecPopBatch32(&vec, width, y.data(), len)
                                : way == 8  ? codBitVecPopBatch64(&vec, width, x.data(), len)
                                : way == 9  ? (codBitVecPop32(&vec, width, y.data()), 1)
                                : way == 10 ? (codBitVecPop64(&vec, width, x.data()), 1)
                                : way == 11 ? (codBitVecPop64Exported(&vec, width, x.data()), 1)
                                : way == 12 ? (codBitVecPick32(&vec, width, y.data()), 1)
                                            : (codBitVecPick64(&vec, width, x.data()), 1);
        ASSERT_EQ(count, fits) << "way " << way << ", width " << width << ", rest " << rest;
        for (CodUint32 i = 0; i < fits * width && !reading; i++) {
            const CodUint32 bit = begin + (way == 3 ? i : i / width * 64 + i % width);
            bits.push_back(x[bit / 64] >> bit % 64 & 1);
        }
        for (CodUint32 i = 0; i < fits && reading; i++) {
            ASSERT_EQ(maxWidth == 32 ? y[i] : x[i], bitsAt(from + i * width, width)) << "way " << way << ", width " << width;
        }
        // One by one up to a boundary of bitBuffer, in blocks from there, and the rest one by one; picking stays.
        for (CodUint32 left = way < 12 ? fits : 0, step; left > 0; left -= step) {
            const bool blocks = bitPos == 0 && width <= 32 && left >= blocksFrom;
            step = blocks ? left / 32 * 32 : 1;
            bytePos += blocks ? step / 8 * width : (bitPos + width) / 64 * 8;
            bitPos = blocks ? 0 : (bitPos + width) % 64;
        }
        bytePos = !reading && fits < len ? vec.bytePos : bytePos;  // the last ones may have gone by blocks or not
        bitPos = from + (way < 12 ? fits * width : 0) - 8 * bytePos;
    }
    collection_support::Random random{13};
    std::vector<bool> bits;
    std::vector<CodUint8> buffer, before;
    CodBitVec vec = {};
    CodUint32 bytePos = 0, bitPos = 0;
    CodBool reading = false;
};

TEST(BitVec, behavesAsAListOfBits) {
    VecAgainstModel m;
    m.start();
    for (CodUint32 i = 0; i < 1'200'000 && !HasFailure(); i++) {
        codBitPackSetSimdType(i % 3);
        m.random.oneIn(40) ? m.reading ? m.start() : m.finish() : (m.reading && m.random.oneIn(5) ? m.move() : m.operate());
        const std::size_t length = m.reading ? m.bits.size() / 8 : m.bytePos;
        const std::tuple got(m.vec.bytePos, m.vec.bitPos, m.vec.bitBuffer, m.vec.capacity, m.vec.length, m.vec.byteBuffer, m.vec.readOnly);
        ASSERT_EQ(got, std::tuple(m.bytePos, m.bitPos, m.bitsAt(m.bytePos * 8, 64), m.buffer.size(), length, m.buffer.data(), m.reading));
    }
}

TEST(BitVecDeathTest, readingPastTheEndStopsTheProcess) {
    CodUint8 bytes[9] = {};
    CodBitVec v;
    codBitVecInit(bytes, 9, 5, &v);
    codBitVecSeek(&v, 25);
    CodUint64 x;
    CodUint32 y;
    const char *text =
        "bitVec read out of bound, read 16 bits from vector, bitVec: [{] bitPos: 1, bytePos: 3, capacity: 9, length: 5, readOnly:1 [}]";
    EXPECT_DEATH(codBitVecPop64(&v, 16, &x), text);
    EXPECT_DEATH(codBitVecPick64(&v, 16, &x), text);
    EXPECT_DEATH(codBitVecPick32(&v, 16, &y), text);
    EXPECT_DEATH(codBitVecNext(&v, 16), text);
    EXPECT_DEATH(codBitVecNext(&v, ~0u), "bitVec read out of bound, read -1 bits from vector");
}

}  // namespace
