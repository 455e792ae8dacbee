#include <vel_infra/string/ani_charset.h>

#include <vel_infra/error/ani_error_base.h>

#include "base/cod_ascii.h"
#include "string/ani_text_internal.h"

using cod::isMissing;

namespace {

struct Row {
    const char *name;
    const char *source;
    const char *target;
    CodUint16 id;
    bool isNational;
};

/* clang-format off */
constexpr Row kRows[] = {
    {"ASCII",    "ASCII",      "ASCII//TRANSLIT",      ASCII,     false},
    {"GBK",      "GBK",        "GBK//TRANSLIT",        GBK,       false},
    {"UTF8",     "UTF-8",      "UTF-8//TRANSLIT",      UTF8,      false},
    {"ISO88591", "ISO-8859-1", "ISO-8859-1//TRANSLIT", ISO88591,  false},
    {"UTF16",    "UTF-16LE",   "UTF-16LE//TRANSLIT",   UTF16,     true},
    {"GB18030",  "GB18030",    "GB18030//TRANSLIT",    GB18030,   false},
    {"BINARY",   nullptr,      "BINARY//TRANSLIT",     BINARY_CS, false},
};

// Names without "-", "_" and blanks, in lower case.
struct Alias {
    const char *name;
    CodUint16 id;
};
constexpr Alias kAliases[] = {
    {"ascii", ASCII}, {"usascii", ASCII}, {"iso646us", ASCII}, {"ansix3.41968", ASCII},
    {"gbk", GBK}, {"cp936", GBK}, {"ms936", GBK}, {"windows936", GBK}, {"gb2312", GBK}, {"euccn", GBK},
    {"utf8", UTF8}, {"utf8mb4", UTF8}, {"cp65001", UTF8},
    {"iso88591", ISO88591}, {"latin1", ISO88591}, {"l1", ISO88591}, {"cp819", ISO88591}, {"ibm819", ISO88591},
    {"utf16", UTF16}, {"utf16le", UTF16}, {"ucs2", UTF16}, {"ucs2le", UTF16},
    {"gb18030", GB18030}, {"gb180302000", GB18030}, {"gb180302005", GB18030}, {"cp54936", GB18030}, {"windows54936", GB18030},
    {"binary", BINARY_CS},
};
/* clang-format on */

constexpr CodUint32 lengthOf(const char *text) {
    CodUint32 length = 0;
    while (text[length] != 0) {
        length++;
    }
    return length;
}

constexpr const Row *rowOf(std::size_t id) {
    for (const Row &row : kRows) {
        if (row.id == id) {
            return &row;
        }
    }
    return nullptr;
}
constexpr CharsetAttr attrOf(const Row *row) {
    return row != nullptr ? CharsetAttr{{const_cast<CodChar *>(row->name), lengthOf(row->name), 0}, row->isNational} : CharsetAttr{};
}

}  // namespace

// One row for each id, each made of its row above.
#define CHARSET_ROWS_4(row, id) row(id), row(id + 1), row(id + 2), row(id + 3)
#define CHARSET_ROWS_16(row, id) \
    CHARSET_ROWS_4(row, id), CHARSET_ROWS_4(row, id + 4), CHARSET_ROWS_4(row, id + 8), CHARSET_ROWS_4(row, id + 12)
#define CHARSET_ROWS_64(row, id) \
    CHARSET_ROWS_16(row, id), CHARSET_ROWS_16(row, id + 16), CHARSET_ROWS_16(row, id + 32), CHARSET_ROWS_16(row, id + 48)
#define CHARSET_ROWS(row) CHARSET_ROWS_64(row, 0), CHARSET_ROWS_64(row, 64), CHARSET_ROWS_64(row, 128), CHARSET_ROWS_64(row, 192)
#define CHARSET_ATTR(id) attrOf(rowOf(id))
#define CHARSET_SOURCE(id) (rowOf(id) != nullptr ? rowOf(id)->source : nullptr)
#define CHARSET_TARGET(id) (rowOf(id) != nullptr ? rowOf(id)->target : nullptr)

constinit const CharsetAttr gCharsetNames[__CHARSET_COUNT__] = {CHARSET_ROWS(CHARSET_ATTR)};
constinit const char *const gCharsetSrcNames[__CHARSET_COUNT__] = {CHARSET_ROWS(CHARSET_SOURCE)};
constinit const char *const gCharsetDstNames[__CHARSET_COUNT__] = {CHARSET_ROWS(CHARSET_TARGET)};

namespace {

bool isNamed(const CodText &name, CodUint32 id) {
    const CodText &row = gCharsetNames[id].name;
    return row.len != 0 && row.len == name.len && cod::equalsIgnoringCase(name.str, name.len, row.str);
}

// The first charset of this name among those that isWanted admits; __CHARSET_COUNT__: none.
template <class IsWanted>
CodUint32 findCharset(const CodText &name, IsWanted isWanted) {
    CodUint32 id = 0;
    while (id < __CHARSET_COUNT__ && !(isNamed(name, id) && isWanted(gCharsetNames[id]))) {
        id++;
    }
    return id;
}

// Whether the name is the alias, but for case and separators.
bool isAlias(const CodText &name, const char *alias) {
    for (CodUint32 i = 0; i < name.len; i++) {
        const CodChar c = cod::asciiLower(name.str[i]);
        if (c == '-' || c == '_' || c == ' ') {
            continue;
        }
        if (c != *alias || c == 0) {
            return false;
        }
        alias++;
    }
    return *alias == 0;
}

COD_COLD CodResult raiseInvalidName(const CodText &name) {
    return codRaise(ERR_CMM_INVALID_CHARSET_NAME, codErrT2S(&name));
}
COD_COLD CodResult raiseInvalidNationalName(const CodText &name) {
    return codRaise(ERR_CMM_INVALID_NCHARSET_NAME, codErrT2S(&name));
}

template <class IsWanted>
CodResult giveCharset(const CodText *name, CodUint16 *id, IsWanted isWanted, CodResult (*raise)(const CodText &)) {
    if (isMissing(name) || id == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const CodUint32 found = findCharset(*name, isWanted);
    if (found == __CHARSET_COUNT__) {
        return raise(*name);
    }
    *id = static_cast<CodUint16>(found);
    return COD_SUCCESS;
}

}  // namespace

CodUint32 codGetCharsetId(const CodText *name) {
    CodUint32 id = UTF8;
    if (!isMissing(name)) {
        const CodUint32 found = findCharset(*name, [](const CharsetAttr &) { return true; });
        id = found < __CHARSET_COUNT__ ? found : id;
    }
    return id;
}

CodResult codGetCharsetIdWithError(const CodText *name, CodUint16 *id) {
    return giveCharset(
        name, id, [](const CharsetAttr &) { return true; }, raiseInvalidName);
}

CodResult codGetValidCharsetId(const CodText *name, CodUint16 *id) {
    return giveCharset(
        name, id, [](const CharsetAttr &attr) { return !attr.isNational; }, raiseInvalidName);
}

CodResult codGetValidNationalCharsetId(const CodText *name, CodUint16 *id) {
    return giveCharset(
        name, id, [](const CharsetAttr &attr) { return attr.isNational; }, raiseInvalidNationalName);
}

CodResult codGetCharsetIdByAlias(const CodText *name, CodUint16 *id) {
    if (isMissing(name) || id == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    for (const Alias &alias : kAliases) {
        if (isAlias(*name, alias.name)) {
            *id = alias.id;
            return COD_SUCCESS;
        }
    }
    return raiseInvalidName(*name);
}

const CodText *codGetCharsetName(CodUint16 charset) {
    return charset < __CHARSET_COUNT__ ? &gCharsetNames[charset].name : nullptr;
}

const char *codGetCharsetSrcName(CodUint16 charset) {
    return charset < __CHARSET_COUNT__ ? gCharsetSrcNames[charset] : nullptr;
}

const char *codGetCharsetDstName(CodUint16 charset) {
    return charset < __CHARSET_COUNT__ ? gCharsetDstNames[charset] : nullptr;
}

CodUint16 codGetLocalCharset(void) {
    return UTF8;
}

CodBool isCharsetFixedLen(CodUint16 charset) {
    return charset != GBK && charset != UTF8 && charset != GB18030;
}
