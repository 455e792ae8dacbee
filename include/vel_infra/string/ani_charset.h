#ifndef VEL_INFRA_STRING_ANI_CHARSET_H
#define VEL_INFRA_STRING_ANI_CHARSET_H

/* Character sets: their ids, names, and the names under which the system's converter knows them. Constant tables; any thread. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* Carried as CodUint16 wherever a function takes a charset. Persisted: never renumber. */
typedef enum EnCodCharsetId COD_ENUM_BASE {
    ASCII = 0,
    GBK = 1,
    UTF8 = 2,
    ISO88591 = 3,
    UTF16 = 4, /* little-endian; texts tell their length in bytes, as everywhere */
    GB18030 = 5,
    BINARY_CS = 255,
    __CHARSET_COUNT__ = 256
} CodCharsetId;

typedef struct CharsetAttr {
    CodText name; /* of the rows that are no charset: empty */
    CodBool isNational;
} CharsetAttr;

/* By id. Null, where a charset has no such name: BINARY_CS as a source, and every row that is no charset. The names of targets end in
 * "//TRANSLIT": the converter replaces what the target lacks, by the rules of the locale (LC_CTYPE), and refuses the rest. */
COD_API extern const CharsetAttr gCharsetNames[__CHARSET_COUNT__];
COD_API extern const char *const gCharsetSrcNames[__CHARSET_COUNT__];
COD_API extern const char *const gCharsetDstNames[__CHARSET_COUNT__];

/* The charset of exactly this name, in any case; UTF8 when there is none. */
COD_API CodUint32 codGetCharsetId(const CodText *name);
/* The same. Errors: ERR_CMM_INVALID_CHARSET_NAME when there is none. */
COD_NODISCARD COD_API CodResult codGetCharsetIdWithError(const CodText *name, CodUint16 *id);
/* For CHAR and VARCHAR: a charset that is not national. Errors: ERR_CMM_INVALID_CHARSET_NAME. */
COD_NODISCARD COD_API CodResult codGetValidCharsetId(const CodText *name, CodUint16 *id);
/* For NCHAR and NVARCHAR: a national charset. Errors: ERR_CMM_INVALID_NCHARSET_NAME. */
COD_NODISCARD COD_API CodResult codGetValidNationalCharsetId(const CodText *name, CodUint16 *id);
/* The charset that goes by this name elsewhere too: "UTF-8", "latin1", "cp936", "gb2312", "utf-16le". Case and the characters "-", "_"
 * and blank do not count. Errors: ERR_CMM_INVALID_CHARSET_NAME. */
COD_NODISCARD COD_API CodResult codGetCharsetIdByAlias(const CodText *name, CodUint16 *id);

/* The rows of the tables above; null for an id of 256 and more. */
COD_API const CodText *codGetCharsetName(CodUint16 charset);
COD_API const char *codGetCharsetSrcName(CodUint16 charset);
COD_API const char *codGetCharsetDstName(CodUint16 charset);

/* The charset of the process's own texts: always UTF8. */
COD_API CodUint16 codGetLocalCharset(void);
/* False for GBK, UTF8 and GB18030, true for every other id. UTF16 counts: its operations work on units of two bytes. */
COD_API CodBool isCharsetFixedLen(CodUint16 charset);

COD_END_DECLS

#endif
