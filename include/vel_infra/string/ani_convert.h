#ifndef VEL_INFRA_STRING_ANI_CONVERT_H
#define VEL_INFRA_STRING_ANI_CONVERT_H

/* Conversion between charsets by the library's own tables: the same on every machine, in every locale, and quick.
 *
 * Texts are checked as they are read: truncated and overlong sequences, surrogates alone and codes that the charset does not assign are bad
 * characters, and so is one that the target charset lacks. Threads: pure functions of the loaded code pages. */

#include <vel_infra/string/ani_charset.h>

COD_BEGIN_DECLS

/* What becomes of a bad character. */
typedef enum CodConvertMode COD_ENUM_BASE {
    COD_CONVERT_REFUSE = 0, /* the conversion fails */
    COD_CONVERT_REPLACE,    /* U+FFFD where the target charset has it (UTF8, UTF16, GB18030), else "?" */
    COD_CONVERT_SKIP,       /* nothing */
    __COD_CONVERT_MODE_COUNT__
} CodConvertMode;

/* Converts a text into buf and terminates it as codTextConvert does: one zero byte, two for UTF16. Equal charsets are checked too. *len is
 * the result's length without the terminator; *badOffset is where the first bad character begins in the text, its length when there is
 * none, and is set on ERR_CMM_CONVERT_STRING as well. Both may be null. buf must not lie in the text.
 *
 * A sequence that is bad counts up to the byte at which it goes wrong, at least one byte; one that is whole but stands for nothing counts
 * as a whole; in UTF16 a surrogate is one unit. A text without bytes needs room for the terminator too. Errors: ERR_CMM_CONVERT_STRING for
 * a bad character that is to be refused; ERR_CMM_COPY_DATA when the result does not fit, with the source's length and the buffer's size;
 * ERR_CMM_INVALID_CODEPAGE when GBK or GB18030 is not loaded; ERR_CMM_INVALID_PARAMETER for a charset that has no characters and for an
 * unknown mode; ERR_CMM_POINTER_NULL. After a failure the buffer is unspecified and *len as it was;
 * what lies behind the terminator is unspecified always. */
COD_NODISCARD COD_API CodResult codTextConvertStrict(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize,
                                                     CodUint32 *len, CodUint16 srcCharset, CodConvertMode mode, CodUint32 *badOffset);

COD_END_DECLS

#endif
