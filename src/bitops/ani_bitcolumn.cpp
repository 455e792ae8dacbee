#include <vel_infra/bitops/ani_bitcolumn.h>

#include <string.h>

#include <algorithm>

#include <vel_infra/bitops/ani_bitpack.h>
#include <vel_infra/error/ani_error_base.h>

#include "base/cod_bytes.h"
#include "bitops/ani_bitpack_internal.h"

using cod::kBlock;
using cod::packedBytes;

namespace {

enum Form : CodUint8 { kFrameOfReference = 1, kDelta = 2 };

#pragma pack(push, 1)
// As stored.
struct Header {
    CodUint32 base;
    CodUint32 count;
    CodUint8 width;
    CodUint8 form;
    CodUint16 zero;
};
#pragma pack(pop)
static_assert(sizeof(Header) == COD_BITCOLUMN_HEADER_SIZE);

// Values that are prepared, or worked off, at once: they stay in the first cache.
constexpr CodUint32 kChunk = 32 * kBlock;

CodUint32 widthOf(CodUint32 largest) {
    return largest == 0 ? 0 : 32 - static_cast<CodUint32>(__builtin_clz(largest));
}

// Packs count values, the last byte filled up; a chunk or less, or whole blocks. Behind a chunk's values there is room for a block.
void packChunk(CodUint32 *values, CodUint32 count, CodUint32 width, CodUint8 *out) {
    const CodUint32 whole = codPack32(values, count, width, out);
    if (whole == count) {
        return;
    }
    CodUint8 block[4 * COD_BITPACK_MAX_WIDTH];
    std::fill(values + count, values + whole + kBlock, 0);
    codPack32(values + whole, kBlock, width, block);
    memcpy(out + packedBytes(whole, width), block, packedBytes(count - whole, width));
}

// What stands in the packed values, by form.
struct FrameOfReference {
    static constexpr Form kForm = kFrameOfReference;
    static constexpr CodUint32 kMostAtFirst = UINT32_MAX;

    static CodUint32 packed(CodUint32 value, CodUint32 before, CodUint32 base) {
        (void)before;
        return value - base;
    }
    // False: a value is beyond 32 bits.
    static bool restore(CodUint32 *values, CodUint32 count, CodUint32 *base) {
        CodUint32 largest = 0;
        for (CodUint32 i = 0; i < count; i++) {
            largest = std::max(largest, values[i]);
            values[i] += *base;
        }
        return largest <= ~*base;
    }
};

struct Delta {
    static constexpr Form kForm = kDelta;
    static constexpr CodUint32 kMostAtFirst = 0;  // the base is the first value

    static CodUint32 packed(CodUint32 value, CodUint32 before, CodUint32 base) {
        (void)base;
        return value - before;
    }
    static bool restore(CodUint32 *values, CodUint32 count, CodUint32 *base) {
        CodUint64 sum = *base;
        for (CodUint32 i = 0; i < count; i++) {
            sum += values[i];
            values[i] = static_cast<CodUint32>(sum);
        }
        *base = static_cast<CodUint32>(sum);
        return sum <= UINT32_MAX;
    }
};

template <class Coding>
CodResult encode(const CodUint32 *values, CodUint32 count, CodUint32 base, CodUint32 width, void *out, CodUint32 outSize, CodUint32 *size) {
    const CodUint64 needed = codBitColumnSize(count, width);
    if (needed > outSize) {
        return codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "column");
    }
    const Header header = {base, count, static_cast<CodUint8>(width), Coding::kForm, 0};
    auto *packed = static_cast<CodUint8 *>(out);
    memcpy(packed, &header, sizeof(header));
    packed += sizeof(header);
    CodUint32 chunk[kChunk + kBlock];
    CodUint32 before = base;
    for (CodUint64 done = 0; done < count; done += kChunk) {
        const CodUint32 part = static_cast<CodUint32>(std::min<CodUint64>(count - done, kChunk));
        for (CodUint32 i = 0; i < part; i++) {
            chunk[i] = Coding::packed(values[done + i], before, base);
            before = values[done + i];
        }
        packChunk(chunk, part, width, packed);
        packed += packedBytes(part, width);
    }
    *size = static_cast<CodUint32>(needed);
    return COD_SUCCESS;
}

COD_COLD CodResult raiseInvalidColumn() {
    return codRaise(ERR_CMM_INVALID_PARAMETER, "the bytes are no column of this form");
}

// The bits behind the last value in its byte.
bool hasZerosBehind(const CodUint8 *packed, CodUint64 bits) {
    return bits % 8 == 0 || packed[bits / 8] >> bits % 8 == 0;
}

template <class Coding>
CodResult decode(const void *in, CodUint32 inBytes, CodUint32 *values, CodUint32 capacity, CodUint32 *count) {
    if (in == nullptr || count == nullptr || (values == nullptr && capacity != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    Header header;
    if (inBytes < sizeof(header)) {
        return codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "packed");
    }
    memcpy(&header, in, sizeof(header));
    if (header.form != Coding::kForm || header.width > COD_BITPACK_MAX_WIDTH || header.zero != 0) {
        return raiseInvalidColumn();
    }
    if (codBitColumnSize(header.count, header.width) > inBytes) {
        return codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "packed");
    }
    if (header.count > capacity) {
        return codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "values");
    }
    const auto *packed = static_cast<const CodUint8 *>(in) + sizeof(header);
    if (!hasZerosBehind(packed, CodUint64{header.count} * header.width)) {
        return raiseInvalidColumn();
    }
    for (CodUint64 done = 0; done < header.count; done += kChunk) {
        const CodUint32 part = static_cast<CodUint32>(std::min<CodUint64>(header.count - done, kChunk));
        const CodUint32 bytes = static_cast<CodUint32>(packedBytes(part, header.width));
        COD_TRY(codUnpack32Checked(packed, bytes, header.width, values + done, part));
        if (done == 0 && values[0] > Coding::kMostAtFirst) {
            return raiseInvalidColumn();
        }
        if (!Coding::restore(values + done, part, &header.base)) {
            return codRaise(ERR_CMM_INVALID_PARAMETER, "a value of the column is beyond 32 bits");
        }
        packed += bytes;
    }
    *count = header.count;
    return COD_SUCCESS;
}

bool areEncodeArguments(const CodUint32 *values, CodUint32 count, const void *out, const CodUint32 *size) {
    return (values != nullptr || count == 0) && out != nullptr && size != nullptr;
}

// Every comparison as one of two, perhaps turned round; or a constant result, when the constant lies outside of the width.
struct Comparison {
    bool isLess;
    bool isNot;
    bool isConstant;
    CodUint32 constant;
};

constexpr Comparison comparisonOf(CodCompareOp op, CodUint32 constant, CodUint32 largest) {
    const bool isLess = op != COD_COMPARE_EQ && op != COD_COMPARE_NE;
    const bool isNot = op == COD_COMPARE_NE || op == COD_COMPARE_GE || op == COD_COMPARE_GT;
    const bool isAboveIncluded = op == COD_COMPARE_LE || op == COD_COMPARE_GT;
    // "Up to c" is "below c + 1", as far as there is one.
    const CodUint64 compared = CodUint64{constant} + isAboveIncluded;
    if (compared > largest) {
        return {isLess, isLess != isNot, true, 0};
    }
    return {isLess, isNot, false, static_cast<CodUint32>(compared)};
}

void compareRest(cod::CompareRun run, const CodUint8 *in, CodUint32 bitsNum, CodUint32 count, CodUint32 constant, CodUint32 flip,
                 CodUint8 *bitmap) {
    CodUint8 block[4 * COD_BITPACK_MAX_WIDTH] = {};
    CodUint8 bits[4];
    if (bitsNum != 0) {
        memcpy(block, in, packedBytes(count, bitsNum));
    }
    run(block, bits, 1, constant, flip);
    CodUint32 word = cod::loadLe<CodUint32>(bits) & ((1u << count) - 1);
    memcpy(bitmap, &word, packedBytes(count, 1));
}

void fillBitmap(CodUint8 *bitmap, CodUint32 count, bool value) {
    memset(bitmap, value ? 0xFF : 0, packedBytes(count, 1));
    if (value && count % 8 != 0) {
        bitmap[count / 8] = static_cast<CodUint8>((1u << count % 8) - 1);
    }
}

}  // namespace

CodUint64 codBitColumnSize(CodUint32 count, CodUint32 bitsNum) {
    return COD_BITCOLUMN_HEADER_SIZE + packedBytes(count, bitsNum);
}

CodUint32 codBitsOfMax32(const CodUint32 *values, CodUint32 count) {
    CodUint32 all = 0;
    for (CodUint32 i = 0; values != nullptr && i < count; i++) {
        all |= values[i];
    }
    return widthOf(all);
}

CodResult codForEncode32(const CodUint32 *values, CodUint32 count, void *out, CodUint32 outSize, CodUint32 *size) {
    if (!areEncodeArguments(values, count, out, size)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    CodUint32 smallest = count != 0 ? values[0] : 0;
    CodUint32 largest = smallest;
    for (CodUint32 i = 1; i < count; i++) {
        smallest = std::min(smallest, values[i]);
        largest = std::max(largest, values[i]);
    }
    return encode<FrameOfReference>(values, count, smallest, widthOf(largest - smallest), out, outSize, size);
}

CodResult codForDecode32(const void *in, CodUint32 inBytes, CodUint32 *values, CodUint32 capacity, CodUint32 *count) {
    return decode<FrameOfReference>(in, inBytes, values, capacity, count);
}

CodResult codDeltaEncode32(const CodUint32 *values, CodUint32 count, void *out, CodUint32 outSize, CodUint32 *size) {
    if (!areEncodeArguments(values, count, out, size)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    CodUint32 steps = 0;
    bool isFalling = false;
    for (CodUint32 i = 1; i < count; i++) {
        steps |= values[i] - values[i - 1];
        isFalling |= values[i] < values[i - 1];
    }
    if (isFalling) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "delta coding takes values that never fall");
    }
    return encode<Delta>(values, count, count != 0 ? values[0] : 0, widthOf(steps), out, outSize, size);
}

CodResult codDeltaDecode32(const void *in, CodUint32 inBytes, CodUint32 *values, CodUint32 capacity, CodUint32 *count) {
    return decode<Delta>(in, inBytes, values, capacity, count);
}

CodResult codPackedCompare32(const void *in, CodUint32 bitsNum, CodUint32 count, CodCompareOp op, CodUint32 constant, CodUint8 *bitmap) {
    if ((in == nullptr && bitsNum != 0 && count != 0) || (bitmap == nullptr && count != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (bitsNum > COD_BITPACK_MAX_WIDTH || op < COD_COMPARE_EQ || op >= __COD_COMPARE_OP_COUNT__) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "no such width or comparison");
    }
    if (count == 0) {
        return COD_SUCCESS;
    }
    const CodUint32 largest = bitsNum == 0 ? 0 : ~CodUint32{0} >> (32 - bitsNum);
    const Comparison comparison = comparisonOf(op, constant, largest);
    if (comparison.isConstant) {
        fillBitmap(bitmap, count, comparison.isNot);
        return COD_SUCCESS;
    }
    const cod::BitKernels &kernels = cod::bitKernels();
    const cod::CompareRun run = (comparison.isLess ? kernels.less : kernels.equal)[bitsNum];
    const CodUint32 flip = comparison.isNot ? ~CodUint32{0} : 0;
    const CodUint32 blocks = count / kBlock;
    const auto *packed = static_cast<const CodUint8 *>(in);
    run(packed, bitmap, blocks, comparison.constant, flip);
    if (count % kBlock != 0) {
        compareRest(run, packed + CodUint64{blocks} * 4 * bitsNum, bitsNum, count % kBlock, comparison.constant, flip, bitmap + 4 * blocks);
    }
    return COD_SUCCESS;
}
