#include <vel_infra/bits/ani_bits.h>

#include <string.h>

#include <algorithm>

#include "base/cod_bytes.h"

namespace {

constexpr CodUint64 lowBits(CodUint32 num) {
    return num == 0 ? 0 : ~CodUint64{0} >> (64 - num);
}

// The bytes that `num` bits from bit `bit` of the first one on lie in: at most 9.
constexpr CodUint32 bytesOf(CodUint32 bit, CodUint32 num) {
    return (bit + num + 7) / 8;
}

}  // namespace

CodUint64 codGetBits64(const void *bits, CodUint64 pos, CodUint32 num) {
    if (num == 0) {
        return 0;
    }
    const auto *first = static_cast<const CodUint8 *>(bits) + pos / 8;
    const CodUint32 bit = pos % 8;
    const CodUint32 bytes = bytesOf(bit, num);
    CodUint64 word = 0;
    memcpy(&word, first, std::min(bytes, 8u));
    word >>= bit;
    if (bytes > 8) {
        word |= CodUint64{first[8]} << (64 - bit);
    }
    return word & lowBits(num);
}

void codSetBits64(void *bits, CodUint64 pos, CodUint32 num, CodUint64 value) {
    if (num == 0) {
        return;
    }
    auto *first = static_cast<CodUint8 *>(bits) + pos / 8;
    const CodUint32 bit = pos % 8;
    const CodUint32 bytes = bytesOf(bit, num);
    const CodUint64 mask = lowBits(num);
    CodUint64 word = 0;
    memcpy(&word, first, std::min(bytes, 8u));
    word = (word & ~(mask << bit)) | (value & mask) << bit;
    memcpy(first, &word, std::min(bytes, 8u));
    if (bytes > 8) {
        first[8] = static_cast<CodUint8>((first[8] & ~(mask >> (64 - bit))) | (value & mask) >> (64 - bit));
    }
}

void codSetRangeBits(void *bits, CodUint64 pos, CodUint64 num, CodBool value) {
    const CodUint64 word = value ? ~CodUint64{0} : 0;
    const CodUint32 head = static_cast<CodUint32>(std::min<CodUint64>((8 - pos % 8) % 8, num));
    codSetBits64(bits, pos, head, word);
    pos += head;
    num -= head;
    if (num >= 8) {
        memset(static_cast<CodUint8 *>(bits) + pos / 8, static_cast<int>(word & 0xFF), num / 8);
    }
    codSetBits64(bits, pos + num / 8 * 8, num % 8, word);
}

void codCopyBits(void *dst, CodUint64 dstPos, const void *src, CodUint64 srcPos, CodUint64 num) {
    // From a byte of the target on, whole bytes of it.
    const CodUint32 head = static_cast<CodUint32>(std::min<CodUint64>((8 - dstPos % 8) % 8, num));
    codSetBits64(dst, dstPos, head, codGetBits64(src, srcPos, head));
    CodUint64 done = head;
    if (num - done >= 8 && (srcPos + done) % 8 == 0) {
        memcpy(static_cast<CodUint8 *>(dst) + (dstPos + done) / 8, static_cast<const CodUint8 *>(src) + (srcPos + done) / 8,
               (num - done) / 8);
        done += (num - done) / 8 * 8;
    }
    while (done < num) {
        const CodUint32 part = static_cast<CodUint32>(std::min<CodUint64>(num - done, 64));
        codSetBits64(dst, dstPos + done, part, codGetBits64(src, srcPos + done, part));
        done += part;
    }
}
