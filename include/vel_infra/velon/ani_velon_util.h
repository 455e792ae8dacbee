#ifndef VEL_INFRA_VELON_ANI_VELON_UTIL_H
#define VEL_INFRA_VELON_ANI_VELON_UTIL_H

/* Pieces of the format: varints, the order of keys, UTF-8, escapes of JSON strings. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* Room for every varint that velonVarintEncode writes. */
#define VELON_VARINT_SIZE 5

/* Seven bits a byte, the lowest first, 0x80 on every byte but the last. Writes as many as the value needs; those above VELON_MAX_LENGTH
 * take five, which velonVarintDecode refuses. */
COD_API CodResult velonVarintEncode(CodUint32 value, CodUint8 *out, CodUint32 *written);
/* Reads at most `available` bytes. Errors: ERR_CMM_VELON_INVALID_VARINT when the fourth byte goes on,
 * ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS at the end of the bytes. */
COD_NODISCARD COD_API CodResult velonVarintDecode(const CodUint8 *in, CodUint32 available, CodUint32 *value, CodUint32 *consumed);

/* The order of keys: the shorter one first, equal lengths by their bytes. -1, 0 or 1. */
COD_API CodInt32 velonCompareKey(const CodText *left, const CodText *right);

/* UTF-8 as RFC 3629 has it: shortest forms, no surrogates, nothing above U+10FFFF. data may be null when length is 0.
 * Errors: ERR_CMM_VELON_INVALID_UNICODE. */
COD_NODISCARD COD_API CodResult velonCheckValidUTF8(const CodUint8 *data, CodUint32 length);

/* Resolves what stands between the quotes of a JSON string into text->str, which becomes the owner's memory (null when the result is
 * empty). Errors: ERR_CMM_VELON_JSON_SYNTAX_ERROR for a quote, a control character or an unknown escape,
 * ERR_CMM_VELON_INVALID_UNICODE_ESCAPE for one without four hexadecimal digits and for half a surrogate pair, both with the column in
 * json, and ERR_CMM_VELON_INVALID_UNICODE; the owner's. */
COD_NODISCARD COD_API CodResult jsonStringToOwned(CodMemAlloc *owner, const CodText *json, CodText *text);
/* Appends a code point in UTF-8. Errors: ERR_CMM_VELON_INVALID_UNICODE for a surrogate and above U+10FFFF; those of velonBufReserve. */
COD_NODISCARD COD_API CodResult jsonStringPushUnicode(VelonBuf *buf, CodUint32 codePoint);

COD_END_DECLS

#endif
