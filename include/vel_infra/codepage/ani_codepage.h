#ifndef VEL_INFRA_CODEPAGE_ANI_CODEPAGE_H
#define VEL_INFRA_CODEPAGE_ANI_CODEPAGE_H

/* Code pages: the codes of a character set to and from Unicode, their upper and lower case, and sort weights, read from files.
 *
 * 1. A code is the number that a character's bytes make, the first byte highest: B0A1 for the two bytes of a GBK character, 81308130 for
 *    four of GB18030. Codes of CODEPAGE_UCS and CODEPAGE_PINYIN_SORT are Unicode code points.
 * 2. Lookups take any code page id and any code, before loading and behind closing too. `isNull` may be null. It becomes true when the
 *    page is not loaded, is of the other type, or has no such element.
 * 3. Threads: lookups are pure functions of the loaded pages. Loading and closing must not run beside them, nor beside each other.
 *
 * The format of the files is that of docs/codepage.md. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

typedef enum CodepageId COD_ENUM_BASE {
    CODEPAGE_ISO88591 = 0,
    CODEPAGE_GBK = 1,
    CODEPAGE_UCS = 2,
    CODEPAGE_PINYIN_SORT = 3,
    CODEPAGE_GB18030 = 4,
    __CODEPAGE_COUNT__
} CodepageId;

typedef enum CodepageType COD_ENUM_BASE {
    CODEPAGE_TYPE_CHARSET = 0, /* to and from Unicode, upper and lower case */
    CODEPAGE_TYPE_SORT = 1,    /* sort weights */
} CodepageType;

/* The version of the files that this library reads. */
#define COD_CODEPAGE_VERSION 2u

/* The head of a code-page file. Integers are little-endian, sizes are bytes. Persisted: never changes. */
typedef struct CodepageHead {
    CodUint8 type; /* CodepageType */
    CodUint8 version;
    CodUint8 isBigEnd; /* 0 */
    CodUint8 reserved1;
    CodChar name[60];   /* of the file, zeros behind it */
    CodUint16 id;       /* CodepageId */
    CodUint8 dim;       /* stages of a lookup: 2 */
    CodUint8 wordWidth; /* bytes of an element in a map: 2 or 4 */
    CodUint32 casefoldIndexSize;
    CodUint32 casefoldMapSize;
    CodUint32 toUnicodeIndexSize;
    CodUint32 toUnicodeMapSize;
    CodUint32 fromUnicodeIndexSize;
    CodUint32 fromUnicodeMapSize;
    CodUint8 reserved2[36];
} CodepageHead;
COD_STATIC_ASSERT(sizeof(CodepageHead) == 128, "persisted layout");
COD_STATIC_ASSERT(offsetof(CodepageHead, id) == 64 && offsetof(CodepageHead, fromUnicodeMapSize) == 88, "persisted layout");

/* ---- Loading ---- */

/* Loads the pages that are not loaded yet, in the order of their ids, from the files iso88591, gbk, ucs, pinyin.sort and gb18030 in the
 * folder admin/codepage of the folder that the environment variable VELDB_HOME names. The first failure ends it; pages loaded before stay
 * loaded. Errors: ERR_CMM_ENV_ERROR without that variable; otherwise those of aniCodepageInitFrom. */
COD_NODISCARD COD_API CodResult aniCodepageInit(void);
/* The same with the files in the directory given. Errors: ERR_CMM_OPEN_FILE for a file that cannot be opened; ERR_CMM_INVALID_CODEPAGE for
 * one that is cut short or too long, is not the page of its name, is big-endian, or has tables that a lookup would leave or that lead to no
 * code, and, once it is loaded, for
 * one of another version (so for a page loaded earlier); those of codSysAlloc; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult aniCodepageInitFrom(const char *directory);
/* Frees all pages. */
COD_API void aniCodepageClose(void);
COD_API CodBool isCodepageInit(CodUint32 id);

/* ---- Character sets ---- */

/* The CodepageId of each character set; CODEPAGE_ISO88591 for ids without one. */
COD_API extern const CodUint32 gCharsetCodepageMap[256];
/* gCharsetCodepageMap[charset]; CODEPAGE_ISO88591 for a number past the table. */
COD_API CodUint32 aniGetCodepageIdByCharset(CodUint16 charset);

/* ---- Elements ---- */

/* The code of a Unicode code point; 0 when null. */
COD_API CodUint32 aniCodepageGetElementFromUni(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull);
/* The Unicode code point of a code; 0 when null. */
COD_API CodUint32 aniCodepageGetElementToUni(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull);
/* The weight of a Unicode code point in a page of type CODEPAGE_TYPE_SORT, from 1; 0 when null. */
COD_API CodUint32 aniCodepageGetElementSort(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull);
/* The lower or upper case of a code, by the simple mappings of Unicode, where the page has the result. Null for a code that has neither
 * another lower nor another upper case: the element is then the code itself. */
COD_API CodUint32 aniCodepageGetElementToLower(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull);
COD_API CodUint32 aniCodepageGetElementToUpper(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull);

/* The same three for CODEPAGE_GB18030: codes of one, two and four bytes. */
COD_API CodUint32 gb18030GetCpElementFromUni(CodUint32 codePoint, CodBool *isNull);
COD_API CodUint32 gb18030CpGetElementLower(CodUint32 codePoint, CodBool *isNull);
COD_API CodUint32 gb18030CpGetElementUpper(CodUint32 codePoint, CodBool *isNull);

COD_END_DECLS

#endif
