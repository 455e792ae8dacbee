#include <vel_infra/string/ani_charset.h>

#include "support/collection_support.h"

namespace {

using collection_support::expectError;

CodText textOf(std::string_view name) {
    return {const_cast<char *>(name.data()), static_cast<CodUint32>(name.size()), 0};
}

TEST(Charset, rowsAreAsTheirIdsSay) {
    const struct {
        CodUint16 id;
        const char *name, *source, *target;
        bool isNational, isFixed;
    } rows[] = {
        {0, "ASCII", "ASCII", "ASCII//TRANSLIT", false, true},      {1, "GBK", "GBK", "GBK//TRANSLIT", false, false},
        {2, "UTF8", "UTF-8", "UTF-8//TRANSLIT", false, false},      {3, "ISO88591", "ISO-8859-1", "ISO-8859-1//TRANSLIT", false, true},
        {4, "UTF16", "UTF-16LE", "UTF-16LE//TRANSLIT", true, true}, {5, "GB18030", "GB18030", "GB18030//TRANSLIT", false, false},
        {255, "BINARY", nullptr, "BINARY//TRANSLIT", false, true},
    };
    const auto *row = rows;
    for (CodUint16 id = 0; id < 256; id++) {
        const bool isThere = row != std::end(rows) && row->id == id;
        EXPECT_EQ(std::string_view(codGetCharsetName(id)->str, codGetCharsetName(id)->len), isThere ? row->name : "") << id;
        EXPECT_STREQ(codGetCharsetSrcName(id), isThere ? row->source : nullptr);
        EXPECT_STREQ(codGetCharsetDstName(id), isThere ? row->target : nullptr);
        EXPECT_TRUE(gCharsetNames[id].isNational == (isThere && row->isNational) && isCharsetFixedLen(id) == (!isThere || row->isFixed));
        row += isThere;
    }
    EXPECT_TRUE(codGetCharsetName(256) == nullptr && codGetCharsetSrcName(256) == nullptr && codGetCharsetDstName(65535) == nullptr);
    EXPECT_TRUE(codGetLocalCharset() == 2 && isCharsetFixedLen(256) && isCharsetFixedLen(65535));
}

TEST(Charset, namesAreFoundInAnyCaseAndNothingElse) {
    // The id, then whether it is found among all, the national and the others; 2 where it is not.
    const struct {
        const char *name;
        CodUint32 id;
        bool isKnown, isNational;
    } rows[] = {
        {"utf8", 2, true, false},     {"Utf8", 2, true, false},    {"UTF8", 2, true, false},     {"UTF-8", 2, false, false},
        {"gbk", 1, true, false},      {"UTF16", 4, true, true},    {"utf16", 4, true, true},     {"ascii", 0, true, false},
        {"Iso88591", 3, true, false}, {"gb18030", 5, true, false}, {"bInArY", 255, true, false}, {"", 2, false, false},
        {"GB", 2, false, false},      {"GBKK", 2, false, false},   {"latin1", 2, false, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const CodText name = textOf(row.name);
        const auto check = [&](auto find, bool isFound, CodError code, const char *message) {
            CodUint16 id = 77;
            if (isFound) {
                EXPECT_TRUE(find(&name, &id) == COD_SUCCESS && id == row.id);
            } else {
                expectError(code, std::string(message) + "\"" + row.name + "\"", [&] { return find(&name, &id); });
                EXPECT_EQ(id, 77);
            }
        };
        EXPECT_EQ(codGetCharsetId(&name), row.id);
        check(codGetCharsetIdWithError, row.isKnown, 216, "invalid charset name ");
        check(codGetValidCharsetId, row.isKnown && !row.isNational, 216, "invalid charset name ");
        check(codGetValidNationalCharsetId, row.isKnown && row.isNational, 227, "invalid national charset name ");
    }
    CodUint16 id = 0;
    EXPECT_EQ(codGetCharsetId(nullptr), 2U);
    const CodText missing = {nullptr, 4, 0};
    EXPECT_EQ(codGetCharsetId(&missing), 2U);
    for (const CodText *name : {static_cast<const CodText *>(nullptr), &missing}) {
        expectError(ERR_CMM_POINTER_NULL, "", [&] { return codGetCharsetIdWithError(name, &id); });
        expectError(ERR_CMM_POINTER_NULL, "", [&] { return codGetCharsetIdByAlias(name, &id); });
    }
}

TEST(Charset, aliasesDoNotMindCaseAndSeparators) {
    for (const auto &[alias, wanted] : {std::pair("UTF-8", 2),
                                        {"utf_8", 2},
                                        {"UTF 8", 2},
                                        {"latin-1", 3},
                                        {"ISO_8859-1", 3},
                                        {"cp936", 1},
                                        {"GB2312", 1},
                                        {"utf-16le", 4},
                                        {"US-ASCII", 0},
                                        {"GB18030", 5},
                                        {"binary", 255},
                                        {"utf8mb4", 2}}) {
        CodUint16 id = 77;
        const CodText name = textOf(alias);
        EXPECT_TRUE(codGetCharsetIdByAlias(&name, &id) == COD_SUCCESS && id == wanted) << alias;
    }
    for (const std::string_view alias :
         std::initializer_list<std::string_view>{"", "-", "utf", "utf88", "big5", std::string_view("utf8\0", 5)}) {
        CodUint16 id = 77;
        const CodText name = textOf(alias);
        expectError(216, "", [&] { return codGetCharsetIdByAlias(&name, &id); });
    }
}

}  // namespace
