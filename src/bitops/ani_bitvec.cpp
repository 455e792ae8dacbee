#define COD_NO_INLINE
#include <vel_infra/bitops/ani_bitvec.h>

#include <string.h>

#include <algorithm>

#include <vel_infra/adr/ani_blackbox.h>
#include <vel_infra/bitops/ani_bitpack.h>
#include <vel_infra/bits/ani_bits.h>

namespace {

constexpr CodUint32 kWordBits = 64;

constexpr CodUint64 lowBits(CodUint64 value, CodUint32 bitsNum) {
    return bitsNum == kWordBits ? value : value & ((CodUint64{1} << bitsNum) - 1);
}

CodUint64 cursor(const CodBitVec &bitVec) {
    return CodUint64{bitVec.bytePos} * 8 + bitVec.bitPos;
}

bool fits(const CodBitVec &bitVec, CodUint64 bitsNum) {
    return cursor(bitVec) + bitsNum <= CodUint64{bitVec.capacity} * 8;
}

bool hasBits(const CodBitVec &bitVec, CodUint32 bitsNum) {
    return cursor(bitVec) + bitsNum <= CodUint64{bitVec.length} * 8;
}

// From the cursor, which may stand anywhere, to the end of `bytes` bytes.
CodUint64 bitsUpTo(const CodBitVec &bitVec, CodUint32 bytes) {
    const CodUint64 end = CodUint64{bytes} * 8;
    const CodUint64 place = cursor(bitVec);
    return place < end ? end - place : 0;
}

[[noreturn]] COD_COLD void panicPastEnd(const CodBitVec &bitVec, CodUint32 bitsNum, CodUint32 line, const char *funcName) {
    codPanicAt(
        __FILE__, line, funcName,
        "bitVec read out of bound, read %d bits from vector, bitVec: { bitPos: %d, bytePos: %d, capacity: %d, length: %d, readOnly:%d }",
        static_cast<int>(bitsNum), static_cast<int>(bitVec.bitPos), static_cast<int>(bitVec.bytePos), static_cast<int>(bitVec.capacity),
        static_cast<int>(bitVec.length), static_cast<int>(bitVec.readOnly));
}

// The eight bytes at the position, zeros behind the data.
CodUint64 loadAt(const CodBitVec &bitVec, CodUint64 bytePos) {
    CodUint64 word = 0;
    if (bytePos < bitVec.length) {
        memcpy(&word, bitVec.byteBuffer + bytePos, std::min<CodUint64>(8, bitVec.length - bytePos));
    }
    return word;
}

void moveTo(CodBitVec *bitVec, CodUint64 bit) {
    bitVec->bytePos = static_cast<CodUint32>(bit / 8);
    bitVec->bitPos = bit % 8;
    bitVec->bitBuffer = loadAt(*bitVec, bit / 8);
}

// The bits are there.
CodUint64 pop(CodBitVec *bitVec, CodUint32 bitsNum) {
    const CodUint32 end = bitVec->bitPos + bitsNum;
    const CodUint64 first = bitVec->bitBuffer >> bitVec->bitPos;
    if (end < kWordBits) {
        bitVec->bitPos = end;
        return lowBits(first, bitsNum);
    }
    const CodUint32 begin = bitVec->bitPos;
    const CodUint32 missing = end - kWordBits;
    bitVec->bytePos += 8;
    bitVec->bitPos = missing;
    bitVec->bitBuffer = loadAt(*bitVec, bitVec->bytePos);
    // From the first bit on nothing is missing, wherever it is shifted.
    return first | lowBits(bitVec->bitBuffer, missing) << (kWordBits - begin) % kWordBits;
}

// ---- Batches ----

CodUint32 packBlocks(const CodUint32 *batch, CodUint32 count, CodUint32 bitsNum, CodUint8 *out) {
    return codPack32(batch, count, bitsNum, out);
}
CodUint32 packBlocks(const CodUint64 *batch, CodUint32 count, CodUint32 bitsNum, CodUint8 *out) {
    return codPack64(batch, count, bitsNum, out);
}
CodUint32 unpackBlocks(const CodUint8 *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 count) {
    return codUnpack32(in, bitsNum, batch, count);
}
CodUint32 unpackBlocks(const CodUint8 *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 count) {
    return codUnpack64(in, bitsNum, batch, count);
}

// Appends one by one until all are appended, one does not fit, or, when asked for, the cursor is where blocks may begin.
template <class T>
CodUint32 appendSingly(CodBitVec *bitVec, CodUint32 bitsNum, const T *batch, CodUint32 count, bool toBlock) {
    CodUint32 done = 0;
    while (done < count && !(toBlock && bitVec->bitPos == 0) && codBitVecAppend64(bitVec, bitsNum, batch[done])) {
        done++;
    }
    return done;
}

// Whole blocks at once, as far as there is room for them.
template <class T>
CodUint32 appendBlocks(CodBitVec *bitVec, CodUint32 bitsNum, const T *batch, CodUint32 count) {
    const CodUint64 room = bitsUpTo(*bitVec, bitVec->capacity) / (CodUint64{bitsNum} * 32);
    const CodUint32 wanted = static_cast<CodUint32>(std::min<CodUint64>(count / 32, room)) * 32;
    if (wanted == 0) {
        return 0;
    }
    const CodUint32 packed = packBlocks(batch, wanted, bitsNum, bitVec->byteBuffer + bitVec->bytePos);
    bitVec->bitBuffer = 0;
    bitVec->bytePos += packed / 8 * bitsNum;
    bitVec->length += packed / 8 * bitsNum;
    return packed;
}

template <class T>
CodUint32 appendBatch(CodBitVec *bitVec, CodUint32 bitsNum, const T *batch, CodUint32 batchLen) {
    if (bitsNum == 0) {
        return batchLen;
    }
    CodUint32 done = 0;
    if (bitsNum <= COD_BITPACK_MAX_WIDTH) {
        done = appendSingly(bitVec, bitsNum, batch, batchLen, true);
        if (bitVec->bitPos == 0 && batchLen - done > 32) {
            done += appendBlocks(bitVec, bitsNum, batch + done, batchLen - done);
        }
    }
    return done + appendSingly(bitVec, bitsNum, batch + done, batchLen - done, false);
}

template <class T>
CodUint32 popSingly(CodBitVec *bitVec, CodUint32 bitsNum, T *batch, CodUint32 count, bool toBlock) {
    CodUint32 done = 0;
    while (done < count && !(toBlock && bitVec->bitPos == 0)) {
        batch[done++] = static_cast<T>(pop(bitVec, bitsNum));
    }
    return done;
}

template <class T>
CodUint32 popBatch(CodBitVec *bitVec, CodUint32 bitsNum, T *batch, CodUint32 batchLen) {
    if (bitsNum == 0) {
        std::fill_n(batch, batchLen, T{0});
        return batchLen;
    }
    const CodUint32 count = static_cast<CodUint32>(std::min<CodUint64>(batchLen, bitsUpTo(*bitVec, bitVec->length) / bitsNum));
    CodUint32 done = 0;
    if (bitsNum <= COD_BITPACK_MAX_WIDTH) {
        done = popSingly(bitVec, bitsNum, batch, count, true);
        if (count - done >= 32) {
            const CodUint32 unpacked = unpackBlocks(bitVec->byteBuffer + bitVec->bytePos, bitsNum, batch + done, count - done);
            bitVec->bytePos += unpacked / 8 * bitsNum;
            bitVec->bitBuffer = loadAt(*bitVec, bitVec->bytePos);
            done += unpacked;
        }
    }
    return done + popSingly(bitVec, bitsNum, batch + done, count - done, false);
}

}  // namespace

void codBitVecInit(void *buffer, CodUint32 capacity, CodUint32 length, CodBitVec *bitVec) {
    *bitVec = {static_cast<CodUint8 *>(buffer), 0, capacity, length, 0, 0, length != 0};
    if (bitVec->readOnly) {
        moveTo(bitVec, 0);
    }
}

// ---- Writing ----

CodBool codBitVecAppend64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 bits) {
    if (!fits(*bitVec, bitsNum)) {
        return false;
    }
    const CodUint64 value = lowBits(bits, bitsNum);
    bitVec->bitBuffer |= value << bitVec->bitPos;
    bitVec->bitPos += bitsNum;
    if (bitVec->bitPos >= kWordBits) {
        memcpy(bitVec->byteBuffer + bitVec->bytePos, &bitVec->bitBuffer, 8);
        bitVec->bytePos += 8;
        bitVec->length = bitVec->bytePos;
        bitVec->bitPos -= kWordBits;
        bitVec->bitBuffer = bitVec->bitPos != 0 ? value >> (bitsNum - bitVec->bitPos) : 0;
    }
    return true;
}
COD_SECOND_NAME(codBitVecAppend64) CodBool codBitVecAppend64Exported(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 bits);

CodBool codBitVecAppend32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 bits) {
    return codBitVecAppend64(bitVec, bitsNum, bits);
}

CodUint32 codBitVecAppendBatch32(CodBitVec *bitVec, CodUint32 bitsNum, const CodUint32 *batch, CodUint32 batchLen) {
    return appendBatch(bitVec, bitsNum, batch, batchLen);
}

CodUint32 codBitVecAppendBatch64(CodBitVec *bitVec, CodUint32 bitsNum, const CodUint64 *batch, CodUint32 batchLen) {
    return appendBatch(bitVec, bitsNum, batch, batchLen);
}

CodUint32 codBitVecAppendBools(CodBitVec *bitVec, CodUint32 valueNum, CodBool value) {
    const CodUint64 count = std::min<CodUint64>(valueNum, bitsUpTo(*bitVec, bitVec->capacity));
    for (CodUint64 done = 0; done < count; done += kWordBits) {
        (void)!codBitVecAppend64(bitVec, static_cast<CodUint32>(std::min<CodUint64>(count - done, kWordBits)), value ? ~CodUint64{0} : 0);
    }
    return static_cast<CodUint32>(count);
}

CodBool codBitVecCopy(CodBitVec *bitVec, const void *srcBits, CodUint32 srcBeginPos, CodUint32 num) {
    const CodUint64 count = std::min<CodUint64>(num, bitsUpTo(*bitVec, bitVec->capacity));
    for (CodUint64 done = 0; done < count; done += kWordBits) {
        const CodUint32 part = static_cast<CodUint32>(std::min<CodUint64>(count - done, kWordBits));
        (void)!codBitVecAppend64(bitVec, part, codGetBits64(srcBits, srcBeginPos + done, part));
    }
    return count == num;
}

void codBitVecFinish(CodBitVec *bitVec) {
    if (bitVec->bitPos != 0) {
        const CodUint32 bytes = (bitVec->bitPos + 7) / 8;
        memcpy(bitVec->byteBuffer + bitVec->bytePos, &bitVec->bitBuffer, bytes);
        bitVec->bytePos += bytes;
        bitVec->length += bytes;
        bitVec->bitPos = 0;
        bitVec->bitBuffer = 0;
    }
    bitVec->readOnly = true;
}

// ---- Reading ----

void codBitVecSeek(CodBitVec *bitVec, CodUint32 bitPos) {
    moveTo(bitVec, bitPos);
}

void codBitVecNext(CodBitVec *bitVec, CodUint32 bitsNum) {
    if (!hasBits(*bitVec, bitsNum)) {
        panicPastEnd(*bitVec, bitsNum, __LINE__, __func__);
    }
    moveTo(bitVec, cursor(*bitVec) + bitsNum);
}

void codBitVecPop64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits) {
    if (!hasBits(*bitVec, bitsNum)) {
        panicPastEnd(*bitVec, bitsNum, __LINE__, __func__);
    }
    *bits = pop(bitVec, bitsNum);
}
COD_SECOND_NAME(codBitVecPop64) void codBitVecPop64Exported(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits);

void codBitVecPop32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *bits) {
    CodUint64 value;
    codBitVecPop64(bitVec, bitsNum, &value);
    *bits = static_cast<CodUint32>(value);
}

void codBitVecPick64(const CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits) {
    CodBitVec copy = *bitVec;
    codBitVecPop64(&copy, bitsNum, bits);
}

void codBitVecPick32(const CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *bits) {
    CodBitVec copy = *bitVec;
    codBitVecPop32(&copy, bitsNum, bits);
}

CodUint32 codBitVecPopBatch32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    return popBatch(bitVec, bitsNum, batch, batchLen);
}

CodUint32 codBitVecPopBatch64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen) {
    return popBatch(bitVec, bitsNum, batch, batchLen);
}

const CodUint8 *codBitVecAsPtr(const CodBitVec *bitVec, CodUint32 *length) {
    if (length != nullptr) {
        *length = bitVec->length;
    }
    return bitVec->byteBuffer;
}
