#ifndef VEL_INFRA_ALGORITHM_ANI_HASHFUNC_H
#define VEL_INFRA_ALGORITHM_ANI_HASHFUNC_H

/* Hashes of byte strings, and the callbacks that let a hash map have texts and byte strings as keys. Pure functions. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/collection/ani_hashmap.h>

COD_BEGIN_DECLS

/* MurmurHash64A (Austin Appleby) of len bytes with the seed 0xe17a1465. Persisted in statistics: never changes. Not safe against
 * keys chosen by an adversary. ptr may be null when len is 0. */
COD_API CodUint64 codMurmurHash64(const void *ptr, CodUint32 len);

/* SipHash-1-3 (Aumasson and Bernstein) of len bytes under a key of 16 bytes. For keys that an adversary may choose. */
COD_API CodUint64 codSipHash13(const CodUint8 *key, const void *ptr, CodUint64 len);

/* Keys that point to a CodText (ptrValue): equal when length and bytes are. The record must live as long as the entry. */
COD_API CodUint32 codHashCalcText(CodHashPointer key);
COD_API CodInt32 codHashCompareText(CodHashPointer left, CodHashPointer right);
/* Keys that point to a CodBytes. */
COD_API CodUint32 codHashCalcBytes(CodHashPointer key);
COD_API CodInt32 codHashCompareBytes(CodHashPointer left, CodHashPointer right);

/* The same hashes under SipHash-1-3 with a key drawn once per process from the system's random source, so that no one outside can
 * prepare keys that fall into one bucket. To be used with the compare functions above. */
COD_API CodUint32 codHashCalcTextKeyed(CodHashPointer key);
COD_API CodUint32 codHashCalcBytesKeyed(CodHashPointer key);

COD_END_DECLS

#endif
