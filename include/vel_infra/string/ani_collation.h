#ifndef VEL_INFRA_STRING_ANI_COLLATION_H
#define VEL_INFRA_STRING_ANI_COLLATION_H

/* Collations: every operation that looks at the characters of a text, as one table of functions for each charset, order and case mode.
 *
 * Callers never switch on the charset: they take a collation once and call its slots. No slot of a collation is null.
 *
 * 1. Texts and out-parameters must be there; the bytes of an empty text need not. Results that are texts without a buffer are views into
 *    the source. Results with a buffer go to dst->str, of bufSize bytes, without a terminator, and dst->len is set; the buffer must not
 *    overlap the arguments. After a failure the buffer is unspecified, and dst->len and other results are as they were.
 * 2. Offsets, lengths and sizes are bytes, offsets from 0. Positions and counts are characters, positions from 1.
 * 3. A character is
 *      ASCII, ISO88591, BINARY_CS   a byte, whatever its value;
 *      UTF8                         a sequence as RFC 3629 has it: nothing overlong, no surrogate, nothing above U+10FFFF;
 *      GBK                          a byte up to 80, or two bytes 81 to FE and 40 to FE but 7F;
 *      GB18030                      a byte below 80, two bytes as in GBK, or four: 81 to FE, 30 to 39, 81 to FE, 30 to 39;
 *      UTF16                        a pair of surrogates, or another unit of two bytes. Where characters are counted or stepped over
 *                                   (length, substr, in, charPos, charPos2, nextCharLengthB, posMove), every unit is one.
 *    Whether GBK and GB18030 assign a code does not matter here.
 * 4. Other bytes are an invalid sequence. Slots that return a CodResult refuse it where they come across it: ERR_CMM_UTF8_SEQUENCE_WRONG,
 *    ERR_CMM_UTF16_SEQUENCE_WRONG (an odd byte at the end; where pairs are taken as one, a surrogate without its other half
 *    too), or ERR_CMM_GBK_SEQUENCE_WRONG, for GB18030 too. They look at the characters that they pass, not behind the last one that they
 *    need; an invalid sequence is told before a buffer that is too small. Slots without a CodResult, and searches, take one byte of it, in
 *    UTF16 a surrogate or the odd byte, as a character of its own that equals nothing but itself and is ordered
 *    behind all others, but where bytes are compared (BINARY with case, not of UTF16).
 * 5. A buffer that is too small: ERR_CMM_UTF8_BUFFER_SMALL, ERR_CMM_UTF16_BUFFER_SMALL, ERR_CMM_GBK_BUFFER_SMALL (GB18030 too), or
 *    ERR_CMM_COPY_DATA with the needed and the given size for charsets of single bytes.
 * 6. Case is that of Unicode's simple mappings, a character for a character, where the charset has the result; of ASCII, ISO88591 and
 *    BINARY_CS by themselves, of the others by the code pages. Before these are loaded, comparison and search know the case of UTF8 and
 *    UTF16 all the same and that of ASCII letters in GBK and GB18030; upper and lower fail with ERR_CMM_INVALID_CODEPAGE at the first
 *    character above ASCII. BINARY_CS and ASCII above 7F have no case, and all orders of BINARY_CS
 *    are that of the bytes. In a case-insensitive collation two characters are equal when
 *    their lower case is.
 * 7. Slots are pure functions of their arguments and the loaded code pages; any thread. */

#include <vel_infra/number/ani_number.h>
#include <vel_infra/string/ani_charset.h>

COD_BEGIN_DECLS

typedef enum CodSortMethodId COD_ENUM_BASE {
    /* The order of the bytes, invalid ones too; of UTF16 that of the code points; without case, of the lower case. */
    BINARY = 0,
    /* Chinese characters behind all others, in the order of their pinyin as CLDR's collation `pinyin` has it, behind these, by code point,
     * those of U+3400 to 4DBF, 4E00 to 9FFF, F900 to FAFF and 20000 to 3FFFD that it does not list; everything else as in GENERAL. */
    CHINESE_PINYIN = 1,
    /* The code points of the lower case, the same in every charset, behind them the codes of GBK and GB18030 that stand for
     * nothing or for what another code is written for; where two texts are alike so far, case decides, lower before upper. */
    GENERAL = 2,
    __SORT_METHOD_COUNT__
} CodSortMethodId;

typedef enum CodCaseMode COD_ENUM_BASE { CASE_SENS = 0, CASE_INS = 1, __CASE_MODE_COUNT__ } CodCaseMode;

/* No offset: nothing found. */
#define COD_TEXT_NOT_FOUND 0xFFFFFFFFu

/* A text that is searched for, prepared once for many searches by the same collation. Opaque; it refers to the text's bytes. */
typedef struct CodLikeSubInfo {
    CodText sub;
    CodUint64 hash;       /* of its characters */
    CodUint64 power;      /* what the hash's first character was multiplied by */
    CodUint32 characters; /* of the text */
    CodUint32 kind;       /* how it is searched for */
    CodUint32 first;      /* its first two characters */
    CodUint32 second;
} CodLikeSubInfo;

typedef struct StCodCodCollation CodCollation;

typedef void (*CodTextTrim)(CodText *text);
typedef void (*CodTextTrimSet)(CodText *text, const CodText *set);
typedef CodResult (*CodTextMap)(const CodText *src, CodText *dst, CodUint32 bufSize);
typedef CodResult (*CodTextPart)(const CodText *src, CodInt64 start, CodUint32 count, CodText *result);
typedef CodBool (*CodTextSplit)(const CodText *text, const CodText *separator, CodText *head, CodText *tail);
typedef CodResult (*CodTextOffset)(const CodText *text, CodUint32 from, CodUint32 *result);
typedef CodResult (*CodTextFromNumber)(const CodNumber *value, CodText *dst, CodUint32 bufSize);
typedef CodResult (*CodTextFormNumber)(const CodNumber *value, const CodText *form, CodText *dst, CodUint32 bufSize);
typedef CodResult (*CodTextToNumber)(const CodText *text, CodNumber *value);

/* The operations of one charset, order and case mode. The order of the members is part of the binary interface. */
struct StCodCodCollation {
    /* ---- Trimming: the text becomes a part of itself ---- */

    /* Takes blanks (U+0020) away. */
    CodTextTrim trimLeft;
    CodTextTrim trimRight;
    /* Takes away the characters that `set` contains, by this collation's equality. An empty set takes nothing. */
    CodTextTrimSet trimCharLeft;
    CodTextTrimSet trimCharRight;

    /* ---- Case ---- */

    /* 4 bytes for 2 of UTF8 are always enough; the other charsets need as many as the source has, GB18030 twice as many. */
    CodTextMap upper;
    CodTextMap lower;
    /* Whether case can matter: some character has another lower or upper case. Before the code pages are loaded, only lower and
     * ASCII letters count. */
    CodBool (*isCaseFoldWord)(const CodText *text);

    /* ---- Parts ---- */

    /* SQL's SUBSTR by characters: `count` characters from position `start` on, fewer at the text's end. Start 0 is 1; a negative one counts
     * from the end, and is then looked for in the whole text; one beyond either end gives an empty text. */
    CodTextPart substr;
    /* The same by bytes. Characters that lie in that part with all their bytes are the result; invalid sequences as in slots without a
     * CodResult. Always
     * succeeds. */
    CodTextPart substrb;
    /* Characters of the text. */
    CodResult (*length)(const CodText *text, CodUint32 *count);

    /* ---- Order ---- */

    /* -1, 0 or 1. Without case, 0 is that equal is true; with case, that the bytes are the same. A text that another one begins with comes
     * before it, but where pinyin reads its last character otherwise before the next one, or where that is cut off. */
    CodInt32 (*compare)(const CodText *left, const CodText *right);
    /* The same characters, in a case-insensitive collation but for their case. Does not depend on the order. */
    CodBool (*equal)(const CodText *left, const CodText *right);

    /* ---- Search, by this collation's equality. An occurrence is a run of whole characters; occurrences may overlap; an empty text occurs
     * before each character and at the end. Time is linear in both lengths. ---- */

    /* SQL's INSTR: the position of the nth occurrence (from 1) that begins at position `start` or behind; 0 when there is none. A negative
     * start counts from the end, and the search goes backwards from there. Start 0, nth 0, and a start further than one behind the last
     * character find nothing. The whole text must be valid, its pairs of surrogates too. */
    CodResult (*in)(const CodText *text, const CodText *sub, CodInt64 start, CodUint32 nth, CodUint32 *position);
    /* Whether there is an occurrence. */
    CodBool (*kmpIn)(const CodText *text, const CodText *sub);
    /* The offset of the first one, else COD_TEXT_NOT_FOUND. */
    CodUint32 (*kmpGetFirstSubPos)(const CodText *text, const CodText *sub);
    /* The offset of the first one at or behind the character boundary `from`, of a text prepared by setLikeSubInfo. */
    CodUint32 (*inLong)(const CodText *text, CodUint32 from, const CodLikeSubInfo *info);

    /* ---- Characters ---- */

    /* The offset of the character at a position; one behind the last gives the text's length. Errors: ERR_CMM_OUT_OF_INDEX for others;
     * to tell the last one, the whole text is passed then. */
    CodTextOffset charPos;
    /* The position of the character that the byte at an offset belongs to; the text's length gives one behind the last.
     * Errors: ERR_CMM_OUT_OF_INDEX beyond, and for a position of 2^32. */
    CodTextOffset charPos2;
    /* Each character of the text once, where it comes first, by this collation's equality. For sets: time grows with the text's length
     * times the number of different characters. */
    CodTextMap deDuplicate;
    /* Bytes of the character at the boundary `from`; 0 at the end. Errors: ERR_CMM_OUT_OF_INDEX beyond. */
    CodTextOffset nextCharLengthB;
    /* Columns on a terminal: 2 for each character that Unicode calls wide or fullwidth, else 1. Before the code pages are loaded, and for
     * codes of GBK and GB18030 that stand for nothing, 1. */
    CodUint32 (*getDisplayWidth)(const CodText *text);
    /* The offset of the character boundary `count` characters behind the boundary `from`, or before it when negative; no further than the
     * text's ends. Errors: ERR_CMM_OUT_OF_INDEX when `from` is beyond the end. */
    CodResult (*posMove)(const CodText *text, CodUint32 from, CodInt32 count, CodUint32 *offset);

    /* A sort key: keys of one collation compare by their bytes (memcmp, then the length) as compare does, for any bytes. At most 6 bytes
     * for each byte of the text. */
    CodTextMap nlsSort;
    /* SQL's TRANSLATE: each character that `from` contains becomes the one at the same place of `to`, or goes where `to` is shorter; the
     * first of two equal characters of `from` counts. By this collation's equality. */
    CodResult (*translate)(const CodText *src, const CodText *from, const CodText *to, CodText *dst, CodUint32 bufSize);

    /* ---- From numbers: errors of all: ERR_CMM_FORMAT_STR_OVERFLOW when the text does not fit ---- */

    CodResult (*fromInt)(CodInt64 value, CodText *dst, CodUint32 bufSize);
    CodResult (*fromUint)(CodUint64 value, CodText *dst, CodUint32 bufSize);
    /* The shortest digits that read back to the same value, written as codNumber2Text writes them; "Infinity", "-Infinity", "NaN". Zero
     * has no sign. */
    CodResult (*fromDouble)(CodDouble value, CodText *dst, CodUint32 bufSize);
    CodResult (*fromFloat)(CodFloat value, CodText *dst, CodUint32 bufSize);
    /* As codNumber2Text. */
    CodTextFromNumber fromNumber;
    /* By a form, as string/ani_number_form.h has it; the form is a text of this charset. Errors also: ERR_CMM_DATA_FORMAT_ERROR. */
    CodTextFormNumber fromNumberByForm;
    /* The same for a form that ends in EEEE, and for an empty one, which gives codNumber2SciText. */
    CodTextFormNumber fromNumberBySciForm;

    /* ---- Dividing ---- */

    /* What stands before and behind the first occurrence of the separator, or the last one. False when there is none, and for an empty
     * separator: head is then the text, and tail empty at its end; for splitReverse tail is the text, and head empty at its begin. */
    CodTextSplit split;
    CodTextSplit splitReverse;
    /* The last character boundary at or before an offset: what may be cut off there without cutting a character. The text's length from
     * there on. */
    CodUint32 (*charBoundary)(const CodText *text, CodUint32 offset);
    /* Takes away invalid sequences at the text's end, as a character cut off leaves. */
    CodTextTrim trimInvalidChar;

    /* ---- Search for a text prepared once: the pieces of a LIKE pattern ---- */

    void (*setLikeSubInfo)(const CodText *sub, CodLikeSubInfo *info);
    /* The offset of the last occurrence that ends at or before the character boundary `end`, else COD_TEXT_NOT_FOUND. */
    CodUint32 (*backwardInLongFast)(const CodText *text, CodUint32 end, const CodLikeSubInfo *info);

    /* ---- To numbers and booleans. Blanks around are allowed, around numbers tabs too. Errors of all but toBool: ERR_CMM_INVALID_NUMBER,
     * ERR_CMM_NUMERIC_OVERFLOW, and those of the conversion from NUMBER (codNumberToUint64, ...) ---- */

    /* By a form, as string/ani_number_form.h has it. Errors also: ERR_CMM_DATA_FORMAT_ERROR. */
    CodResult (*toNumberByForm)(const CodText *text, const CodText *form, CodNumber *value);
    /* As codNumberFromText. */
    CodTextToNumber toNumber;
    /* The number that the text begins with, whatever follows it; 0 when there is none. */
    CodTextToNumber toTruncNumber;
    /* The nearest value to the digits as NUMBER reads them, with any exponent; also "Infinity", "-Infinity", "NaN", in any case. Zero has
     * no sign. Errors also: ERR_CMM_TYPECONV_ERROR beyond the type's range. */
    CodResult (*toFloat)(const CodText *text, CodFloat *value);
    CodResult (*toDouble)(const CodText *text, CodDouble *value);
    /* Rounded half up, as the conversions from NUMBER round. */
    CodResult (*toUint64)(const CodText *text, CodUint64 *value);
    CodResult (*toUint32)(const CodText *text, CodUint32 *value);
    CodResult (*toUint16)(const CodText *text, CodUint16 *value);
    CodResult (*toUint8)(const CodText *text, CodUint8 *value);
    /* "true", "t", "yes", "y", "on", "1" and "false", "f", "no", "n", "off", "0", in any case. Errors: ERR_CMM_BOOL_INVALID_VALUE. */
    CodResult (*toBool)(const CodText *text, CodBool *value);

    /* ---- Unicode ---- */

    /* The code point of the character at an offset, and its bytes (of BINARY_CS, the byte's value). Errors also: ERR_CMM_OUT_OF_INDEX at
     * the end and beyond; ERR_CMM_CONVERT_STRING for a byte above 7F in ASCII and a code that stands for nothing; ERR_CMM_INVALID_CODEPAGE
     * while the page of GBK or GB18030 is not loaded, for characters above ASCII. */
    CodResult (*toUni)(const CodText *text, CodUint32 offset, CodUint32 *codePoint, CodUint32 *bytes);
    /* The character of a code point. Errors also: ERR_CMM_CONVERT_STRING when the charset lacks it; ERR_CMM_INVALID_CODEPAGE. */
    CodResult (*fromUni)(CodUint32 codePoint, CodText *dst, CodUint32 bufSize);

    /* ---- What the collation is ---- */

    /* <charset>_<BINARY|PINYIN|GENERAL>_<CS|CI>, as UTF8_PINYIN_CI. */
    const CodText *collationName;
    /* nlsSort's key of the text without the blanks at its end: texts that differ in those alone are equal, as CHAR values are. */
    CodTextMap mysqlSort;
    CodUint16 flag;        /* COD_COLLATION_... */
    CodUint16 collationId; /* ((charset * 3) + sort method) * 2 + case mode. Persisted: never renumber. */
};

COD_STATIC_ASSERT(offsetof(CodCollation, nlsSort) == 22 * 8 && offsetof(CodCollation, collationName) == 49 * 8, "layout is fixed");
COD_STATIC_ASSERT(sizeof(CodCollation) == 52 * 8 && offsetof(CodCollation, collationId) == 51 * 8 + 2, "layout is fixed");

#define COD_COLLATION_CASE_INS 0x1u
#define COD_COLLATION_FIXED_LEN 0x2u /* isCharsetFixedLen */
#define COD_COLLATION_NATIONAL 0x4u

/* The collation of a charset, a CodSortMethodId and a CodCaseMode. Null when one of them does not exist. */
COD_API const CodCollation *codGetCollation(CodUint16 charset, CodUint16 sort, CodUint16 caseMode);
/* The same by its name, in any case. Errors: ERR_CMM_INVALID_COLLATION_NAME, ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codGetCollationByName(const CodText *name, const CodCollation **collation);

/* Whether two texts are equal, by the slot `equal` of the charset's BINARY collation. Case of a charset other than ASCII and UTF16 whose
 * code page is not loaded is told without it: texts of different lengths are unequal then, UTF8 goes by
 * utf8CaseInsCmpWithoutCodePage, and the others by codTextCompareByConvertUTF16. An envCharset or caseMode that does not exist compares
 * bytes. */
COD_API CodBool codTextEqual(const CodText *text1, const CodText *text2, CodUint16 caseMode, CodUint16 envCharset);
/* The order of UTF8_BINARY_CI, by a table of the library's own: -1, 0 or 1. */
COD_API CodInt32 utf8CaseInsCmpWithoutCodePage(const CodText *text1, const CodText *text2);
/* The order of both texts in UTF16 by UTF16_BINARY_CI: -1, 0 or 1. The system's converter makes them UTF16 (string/ani_string.h, 1); what
 * it refuses, and what follows, is ordered by bytes behind all that it takes. */
COD_API CodInt32 codTextCompareByConvertUTF16(const CodText *text1, const CodText *text2, CodUint16 charset);

COD_END_DECLS

#endif
