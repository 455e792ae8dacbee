#include <vel_infra/bitops/ani_bitcolumn.h>
#include <vel_infra/bitops/ani_bitpack.h>

#include <sys/mman.h>

#include "support/collection_support.h"

namespace {

using namespace collection_support;
using Bytes = std::vector<CodUint8>;
const CodUint32 kFirstChoice = codBitPackGetSimdType();
constexpr std::size_t kPage = 4096;

// A page between two that end the process when they are touched. Puts items at its end or its front, single bytes also at odd addresses.
struct Page {
    template <typename Item>
    Item *put(const std::vector<Item> &items, bool atEnd, std::size_t shift) {
        std::memset(bytes, 0xee, kPage);
        Item *place = reinterpret_cast<Item *>(bytes + (atEnd ? kPage - items.size() * sizeof(Item) : sizeof(Item) == 1 ? shift : 0));
        return std::copy(items.begin(), items.end(), place), place;
    }
    CodUint8 *const bytes = static_cast<CodUint8 *>(mmap(nullptr, 3 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) + kPage;
    const int open = mprotect(bytes, kPage, PROT_READ | PROT_WRITE);
};

// The call turns exactly these items into exactly those, and says so.
template <typename In, typename Out, typename Call>
void expectMoves(const std::vector<In> &given, const std::vector<Out> &wanted, Call call, int line = __builtin_LINE()) {
    static Page inPage, outPage, wantedPage;
    for (const auto &[atEnd, shift] : {std::pair(true, 0u), {false, 0u}, {false, 1u}, {false, 7u}}) {
        wantedPage.put(wanted, atEnd, shift);
        const In *in = inPage.put(given, atEnd, shift);
        EXPECT_TRUE(call(in, outPage.put(std::vector<Out>(wanted.size()), atEnd, shift))) << "line " << line;
        EXPECT_EQ(std::memcmp(outPage.bytes, wantedPage.bytes, kPage), 0) << "line " << line << ", shift " << shift << atEnd;
    }
}

// What takes values that are no whole blocks: the checked unpacker, and the filters of columns.
void checkValues(CodUint32 width, const Bytes &packed, const std::vector<CodUint32> &values) {
    const CodUint32 size = static_cast<CodUint32>(packed.size()), len = static_cast<CodUint32>(values.size());
    const CodUint32 max = static_cast<CodUint32>((CodUint64{1} << width) - 1), last = len == 0 ? 1 : values.back();
    expectMoves(packed, values, [=](auto in, auto out) { return codUnpack32Checked(in, size, width, out, len) == COD_SUCCESS; });
    const auto cut = [&] { return codUnpack32Checked(packed.data(), size - 1, width, std::vector<CodUint32>(len).data(), len); };
    size == 0 ? void() : expectError(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "", cut);
    for (CodUint32 i = 0; i < 42 && len <= 100; i++) {
        const CodUint32 c = std::array{0u, max / 2, last, max - 1, max, max + 1, ~0u}[i / 6];
        const auto op = static_cast<CodCompareOp>(i % 6);
        Bytes bitmap((len + 7) / 8);
        for (CodUint32 at = 0; at < len; at++) {
            const CodUint32 v = values[at];
            bitmap[at / 8] |= static_cast<CodUint8>((std::array{v == c, v != c, (v < c), v <= c, (v > c), v >= c}[i % 6]) << at % 8);
        }
        expectMoves(packed, bitmap, [=](auto in, auto out) { return codPackedCompare32(in, width, len, op, c, out) == COD_SUCCESS; });
    }
}

struct BitPack : testing::TestWithParam<CodUint32> {};
INSTANTIATE_TEST_SUITE_P(SimdTypes, BitPack, testing::Values(COD_SIMD_NONE, COD_SIMD_256, COD_SIMD_512));

TEST_P(BitPack, everyWayAgreesWithBitsOneByOne) {
    if (codBitPackDetectSimdType() < GetParam()) {
        GTEST_SKIP() << "this processor has no decoder of type " << GetParam();
    }
    codBitPackSetSimdType(GetParam());
    ASSERT_EQ(codBitPackGetSimdType(), GetParam());
    const auto table32 = std::array{gUnpack32Normal, gUnpack32Simd256, gUnpack32Simd512}[GetParam()];
    Random random(7);
    for (CodUint32 i = 0; i < 65 * 201 && !HasFailure(); i++) {
        const CodUint32 width = i / 201, len = i % 201, whole = len / 32 * 32;
        SCOPED_TRACE(testing::Message() << "width " << width << ", " << len << " values");
        std::vector<CodUint64> given(len), kept(len);  // any bits, and the low ones of them, which are packed one at a time
        Bytes packed((len * width + 7) / 8);
        std::generate(given.begin(), given.end(), random.next);
        for (CodUint32 pos = 0; pos < len * width; pos++) {
            const CodUint64 bit = given[pos / width] >> pos % width & 1;
            kept[pos / width] |= bit << pos % width;
            packed[pos / 8] |= static_cast<CodUint8>(bit << pos % 8);
        }
        width > 32 ? void() : checkValues(width, packed, std::vector<CodUint32>(kept.begin(), kept.end()));
        given.resize(whole), kept.resize(whole), packed.resize(whole / 8 * width);
        const auto packs = [&](auto &from, auto f) {
            expectMoves(from, packed, [=](auto in, auto out) { return f(in, len, width, out) == whole; });
        };
        const auto unpacks = [&](auto &to, auto... f) {
            (expectMoves(packed, to, [=](auto in, auto out) { return f(in, width, out, len) == whole; }), ...);
        };
        packs(given, codPack64Wide);
        unpacks(kept, codUnpack64Wide);
        if (width > 32) {
            continue;
        }
        const std::vector<CodUint32> given32(given.begin(), given.end()), kept32(kept.begin(), kept.end());
        packs(given32, codPack32);
        packs(given, codPack64);
        unpacks(kept32, codUnpack32, std::array{codUnpack32Normal, codUnpack32Simd256, codUnpack32Simd512}[GetParam()]);
        unpacks(kept, codUnpack64, codUnpack64Normal, codUnpack64Fast);
        if (len == 32) {
            packs(given32, [](auto in, auto, auto w, auto out) { return gPack32Normal[w](in, out) == out + 4 * w ? 32u : 0; });
            packs(given, [](auto in, auto, auto w, auto out) { return gPack64Normal[w](in, out) == out + 4 * w ? 32u : 0; });
            unpacks(kept32, [=](auto in, auto w, auto out, auto) { return table32[w](in, out) == in + 4 * w ? 32u : 0; });
            unpacks(kept, [](auto in, auto w, auto out, auto) { return gUnpack64Normal[w](in, out) == in + 4 * w ? 32u : 0; });
        }
    }
}

TEST(BitPackFixed, layoutTablesRefusalsAndChoice) {
    const CodUint32 in[32] = {0, 1, 2, 3, 4, 5, 6, 7}, eleventh[32] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    const CodUint64 wide[32] = {0x100000001};
    CodUint32 out[32];
    EXPECT_TRUE(codPack32(in, 32, 3, out) == 32 && out[0] == 0xFAC688);
    EXPECT_TRUE(pack32_3(eleventh, out) == out + 3 && out[0] == 0xC0000000 && out[1] == 1 && out[2] == 0);
    EXPECT_TRUE(pack64_32(wide, out) == out + 32 && out[0] == 1 && out[1] == 0);
#define MEMBERS(N) EXPECT_TRUE(gPack32Normal[N] == pack32_##N && gPack64Normal[N] == pack64_##N && gUnpack32Normal[N] == unpack32_##N);
#define SIMD(N) EXPECT_TRUE(gUnpack32Simd256[N] == unpack32_256_##N && gUnpack32Simd512[N] == unpack32_512_##N);
    COD_FOR_EACH_WIDTH(MEMBERS)
    COD_FOR_EACH_SIMD_WIDTH(SIMD)
    EXPECT_TRUE(gUnpack32Simd256[0] == unpack32_0 && gUnpack32Simd512[0] == unpack32_0);
    EXPECT_TRUE(gUnpack32Simd256[32] == unpack32_32 && gUnpack32Simd512[32] == unpack32_32);
    for (CodUint32 n : {33u, 0x08000000u, 0x80000000u, 0xFFFFFFFFu}) {
        expectError(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "", [&] { return codUnpack32Checked(in, sizeof(in), 32, out, n); });
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codUnpack32Checked(in, sizeof(in), n, out, 1); });
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codPackedCompare32(in, n, 1, COD_COMPARE_EQ, 0, Bytes(9).data()); });
        expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codPackedCompare32(in, 1, 1, CodCompareOp(n - 27), 0, Bytes(9).data()); });
    }
    EXPECT_EQ(kFirstChoice, COD_SIMD_NONE);
    for (CodUint32 type : {2u, 3u, 1u, 0xFFFFFFFFu, 0u}) {
        codBitPackSetSimdType(type);
        EXPECT_EQ(codBitPackGetSimdType(), type > 2 ? 0 : std::min(type, codBitPackDetectSimdType()));
    }
}

}  // namespace
