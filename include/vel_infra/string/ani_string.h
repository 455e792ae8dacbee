#ifndef VEL_INFRA_STRING_ANI_STRING_H
#define VEL_INFRA_STRING_ANI_STRING_H

/* Texts: copies and conversion between charsets by the system's converter.
 *
 * 1. What a target charset lacks is replaced by the rules of the locale (LC_CTYPE of the thread, else of the process): letters that stand
 *    for it, "?", or nothing; the conversion fails where the locale has no rule.
 * 2. After a failure the bytes of the buffer are unspecified, and *len is as it was. len may be null.
 * 3. A buffer holds the result and its terminator: one zero byte, two for UTF16. Lengths are without it.
 * 4. Errors of all conversions: ERR_CMM_COPY_DATA when the result does not fit, with the source's length and the buffer's size;
 *    ERR_CMM_CONVERT_STRING when the text is not valid in its charset, cannot be expressed in the target, or the system has no such
 *    converter; ERR_CMM_POINTER_NULL. */

#include <vel_infra/string/ani_charset.h>

COD_BEGIN_DECLS

/* Copies src->len bytes to dst->str, a buffer of bufSize bytes, and sets dst->len. No terminator is written.
 * Errors: ERR_CMM_COPY_DATA when src is longer than bufSize; nothing is copied. */
COD_NODISCARD COD_API CodResult codTextCopy(const CodText *src, CodText *dst, CodUint32 bufSize);

/* Converts a text and terminates it. An empty text needs no room: what there is takes zero bytes, at most a terminator. Equal charsets copy
 * the bytes unchecked. Each thread keeps the converters that it needs until it ends,
 * about 32 KiB for each pair of charsets. */
COD_NODISCARD COD_API CodResult codTextConvert(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint32 *len,
                                               CodUint16 srcCharset);
/* The case of equal charsets alone. */
COD_NODISCARD COD_API CodResult codTextConvertSameCharset(const CodText *text, CodUint16 charset, CodChar *buf, CodUint32 bufSize,
                                                          CodUint32 *len);

/* A converter from one charset to another. It belongs to one thread at a time. A pair that the system does not know gives a handle that
 * every conversion refuses; ERR_CMM_CONVERT_STRING here only for charsets that have no name for it (codGetCharsetSrcName). */
COD_NODISCARD COD_API CodResult codOpenIconvHandle(CodUint16 srcCharset, CodUint16 dstCharset, void **handle);
COD_API void codCloseIconvHandle(void *handle);
/* codTextConvert with a handle that the caller keeps, for many texts between one pair of charsets. */
COD_NODISCARD COD_API CodResult codTextConvertWithIconv(void *handle, const CodText *text, CodUint16 dstCharset, CodChar *buf,
                                                        CodUint32 bufSize, CodUint32 *len, CodUint16 srcCharset);

/* Conversion in pieces, without a terminator: *srcIndicator and *dstIndicator become the bytes of the text and of the buffer that were
 * used, whole characters only; the next piece begins behind them. Both are set on failure too.
 * Errors: ERR_CMM_COPY_DATA when the buffer is full before the text's end, ERR_CMM_CONVERT_STRING, also for a character that the text's end
 * cuts off. */
COD_NODISCARD COD_API CodResult codTextStreamConvert(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize,
                                                     CodUint16 srcCharset, CodUint32 *srcIndicator, CodUint32 *dstIndicator);
/* The same, but that a full buffer and a character cut off end the piece before that character, without an error. */
COD_NODISCARD COD_API CodResult codTextStreamConvertWithTrunc(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize,
                                                              CodUint16 srcCharset, CodUint32 *srcIndicator, CodUint32 *dstIndicator);

COD_END_DECLS

#endif
