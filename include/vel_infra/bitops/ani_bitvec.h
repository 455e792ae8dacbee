#ifndef VEL_INFRA_BITOPS_ANI_BITVEC_H
#define VEL_INFRA_BITOPS_ANI_BITVEC_H

/* The bit vector: a cursor over a byte buffer that writes or reads values of 0 to 64 bits, in the stream of ani_bitpack.h.
 *
 * 1. A vector is written first, by appending, and read after codBitVecFinish, or from the start when it was initialised with data. Bits
 *    appended reach the buffer eight bytes at a time: it is whole after codBitVecFinish.
 * 2. An append that does not fit writes nothing and says so. Reading past the end is a programming error and stops the process through
 *    codPanic, with the reader's place.
 * 3. The buffer is the caller's. Nothing is allocated. A vector belongs to one thread.
 * 4. Widths are 0 to 64 for 64-bit values, 0 to 32 for 32-bit ones; they are not checked. Pointers must not be null. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

typedef struct CodBitVec {
    CodUint8 *byteBuffer;
    CodUint64 bitBuffer; /* writing: bits that are not in the buffer yet; reading: the eight bytes at bytePos, zeros behind the data */
    CodUint32 capacity;  /* bytes of the buffer */
    CodUint32 length;    /* bytes of data */
    CodUint32 bytePos;   /* where bitBuffer stands */
    CodUint32 bitPos;    /* of the cursor, in bitBuffer */
    CodBool readOnly;    /* there is data to read */
} CodBitVec;
COD_STATIC_ASSERT(sizeof(CodBitVec) == 40, "layout is fixed");

/* length 0: an empty vector to write; else one to read, with the cursor at its first bit. */
COD_API void codBitVecInit(void *buffer, CodUint32 capacity, CodUint32 length, CodBitVec *bitVec);

/* ---- Writing ---- */

/* Append the low bitsNum bits. False: they do not fit, and nothing was written. */
COD_NODISCARD COD_API CodBool codBitVecAppend64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 bits);
COD_NODISCARD COD_API CodBool codBitVecAppend32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 bits);
/* Append values until one does not fit, and return how many. Width 0 takes the whole batch and writes nothing. */
COD_API CodUint32 codBitVecAppendBatch32(CodBitVec *bitVec, CodUint32 bitsNum, const CodUint32 *batch, CodUint32 batchLen);
COD_API CodUint32 codBitVecAppendBatch64(CodBitVec *bitVec, CodUint32 bitsNum, const CodUint64 *batch, CodUint32 batchLen);
/* Appends up to valueNum bits that are all `value`, and returns how many. */
COD_API CodUint32 codBitVecAppendBools(CodBitVec *bitVec, CodUint32 valueNum, CodBool value);
/* Appends `num` bits of srcBits from bit srcBeginPos on. False: not all of them fitted; as many as do were appended. The source must not
 * lie in the vector's own buffer. */
COD_NODISCARD COD_API CodBool codBitVecCopy(CodBitVec *bitVec, const void *srcBits, CodUint32 srcBeginPos, CodUint32 num);
/* Brings the last bits into the buffer, the last byte filled up with zeros, and turns the vector to reading. The cursor stays at the end:
 * codBitVecSeek goes back to the first bit. */
COD_API void codBitVecFinish(CodBitVec *bitVec);

/* ---- Reading ---- */

/* To a bit of the data, or anywhere behind it, where nothing can be read. */
COD_API void codBitVecSeek(CodBitVec *bitVec, CodUint32 bitPos);
/* Passes over bits. Panics past the end. */
COD_API void codBitVecNext(CodBitVec *bitVec, CodUint32 bitsNum);
/* Read bits and pass over them, or not. Panic past the end. */
COD_API void codBitVecPop64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits);
COD_API void codBitVecPop32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *bits);
COD_API void codBitVecPick64(const CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits);
COD_API void codBitVecPick32(const CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *bits);
/* Read up to batchLen values, as many as there are whole, and return how many. Width 0 gives batchLen zeros. */
COD_API CodUint32 codBitVecPopBatch32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen);
COD_API CodUint32 codBitVecPopBatch64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen);
/* The data; *length becomes its bytes. Borrowed from the vector's buffer. */
COD_API const CodUint8 *codBitVecAsPtr(const CodBitVec *bitVec, CodUint32 *length);

/* ---- Inline ---- */

/* The library's bodies under their second names: for what does not end within bitBuffer. */
COD_API CodBool codBitVecAppend64Exported(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 bits);
COD_API void codBitVecPop64Exported(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits);

#if !defined(COD_NO_INLINE)
COD_API_INLINE CodBool codBitVecAppend64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 bits) {
    const CodUint32 end = bitVec->bitPos + bitsNum;
    if (COD_LIKELY(end < 64 && bitVec->bytePos * (CodUint64)8 + end <= bitVec->capacity * (CodUint64)8)) {
        bitVec->bitBuffer |= (bits & (((CodUint64)1 << bitsNum) - 1)) << bitVec->bitPos;
        bitVec->bitPos = end;
        return true;
    }
    return codBitVecAppend64Exported(bitVec, bitsNum, bits);
}

COD_API_INLINE CodBool codBitVecAppend32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 bits) {
    return codBitVecAppend64(bitVec, bitsNum, bits);
}

COD_API_INLINE void codBitVecPop64(CodBitVec *bitVec, CodUint32 bitsNum, CodUint64 *bits) {
    const CodUint32 end = bitVec->bitPos + bitsNum;
    if (COD_LIKELY(end < 64 && bitVec->bytePos * (CodUint64)8 + end <= bitVec->length * (CodUint64)8)) {
        *bits = bitVec->bitBuffer >> bitVec->bitPos & (((CodUint64)1 << bitsNum) - 1);
        bitVec->bitPos = end;
        return;
    }
    codBitVecPop64Exported(bitVec, bitsNum, bits);
}

COD_API_INLINE void codBitVecPop32(CodBitVec *bitVec, CodUint32 bitsNum, CodUint32 *bits) {
    CodUint64 value;
    codBitVecPop64(bitVec, bitsNum, &value);
    *bits = (CodUint32)value;
}
#endif

COD_END_DECLS

#endif
