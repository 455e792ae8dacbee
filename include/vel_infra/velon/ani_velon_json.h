#ifndef VEL_INFRA_VELON_ANI_VELON_JSON_H
#define VEL_INFRA_VELON_ANI_VELON_JSON_H

/* JSON text to documents and back. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* Reads one JSON text, strictly as RFC 8259 has it, into a document of owner's memory; free it with velonFree. On failure *velon is
 * untouched. The document passes velonCheckData.
 *
 * 1. Refused beyond the RFC's grammar: equal keys in one object, half a surrogate pair, invalid UTF-8, a byte order mark, more than
 *    VELON_MAX_DEPTH containers one within the other, numbers whose magnitude no double holds.
 * 2. A number with an integer's value (7, 7.0, 70e-1) becomes the smallest of TINYINT, SMALLINT, INTEGER and BIGINT that holds it. Others
 *    become NUMBER when it holds them exactly, which means 38 digits, else the nearest DOUBLE. A number that ends in "E0" is a DOUBLE:
 *    that is how velonToJson marks them when it is asked to.
 *    Numbers too small for a double become 0.
 * 3. Members are stored in the order of the text.
 * 4. The document keeps the memory that it was read into, about as much as the text takes.
 *
 * Errors: ERR_CMM_VELON_JSON_SYNTAX_ERROR for what is no JSON, and for equal keys and numbers too large,
 * ERR_CMM_VELON_INVALID_UNICODE_ESCAPE, ERR_CMM_VELON_INVALID_UNICODE, ERR_CMM_VELON_TOO_MANY_CHILDREN above VELON_MAX_ELEMENTS,
 * ERR_CMM_VELON_NESTING_TOO_DEEPLY, ERR_CMM_INVALID_PARAMETER for a key above VELON_MAX_KEY_LENGTH: all with the line and column (bytes,
 * both from 1) and the offset in codGetErrorPos. Without: ERR_CMM_VELON_EXCEEDS_MAX_SIZE; the owner's. */
COD_NODISCARD COD_API CodResult velonFromJson(CodMemAlloc *owner, const CodText *text, Velon *velon);

/* How velonToJson writes; any of them together. */
enum {
    VELON_JSON_COMPACT = 0,
    VELON_JSON_INDENTED = 1,     /* one member or element a line, two blanks a level */
    VELON_JSON_TYPED_DOUBLES = 2 /* FLOAT and DOUBLE end in "E0" where they would be read as another type */
};

/* Writes a document as JSON text into text->str, which becomes owner's memory (text->len bytes, not terminated; free it by owner->free).
 * On failure *text is untouched.
 *
 * Members stand in the order in which they are stored. FLOAT and DOUBLE have the fewest digits that read back to the same value. BINARY
 * becomes a string of base64 (RFC 4648, padded); TIMESTAMP and DATE become strings as codDateToIso has them, TIME "09:05:07.000123", its
 * fraction where there is one. What velonFromJson made reads back to the same bytes, DOUBLEs in NUMBER's range only with
 * VELON_JSON_TYPED_DOUBLES.
 *
 * Errors: the readers'; ERR_CMM_VELON_INVALID_UNICODE for a string or key that is no UTF-8, ERR_CMM_VELON_INVALID_DATETIME,
 * ERR_CMM_TYPECONV_ERROR for NaN and infinities, ERR_CMM_VELON_NESTING_TOO_DEEPLY (too much work as well), ERR_CMM_OUT_OF_MEMORY for a text
 * of 4 GiB; the owner's. */
COD_NODISCARD COD_API CodResult velonToJson(CodMemAlloc *owner, const Velon *velon, CodUint32 flags, CodText *text);

COD_END_DECLS

#endif
