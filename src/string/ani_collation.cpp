#include <vel_infra/string/ani_collation.h>

#include <iterator>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>

#include "base/cod_ascii.h"
#include "string/ani_collation_internal.h"
#include "string/ani_text_internal.h"

namespace cod {
namespace {

/* clang-format off */
constexpr const CharsetCollations *kCollations[] = {
    &kAsciiCollations, &kGbkCollations, &kUtf8Collations, &kIso88591Collations, &kUtf16Collations, &kGb18030Collations, &kBinaryCollations,
};
/* clang-format on */

// By collation id. Of 256 charsets, seven have any.
struct CollationTable {
    const CodCollation *by[__CHARSET_COUNT__][__SORT_METHOD_COUNT__][__CASE_MODE_COUNT__];
};

constexpr CodUint16 kCharsets[] = {ASCII, GBK, UTF8, ISO88591, UTF16, GB18030, BINARY_CS};
static_assert(std::size(kCharsets) == std::size(kCollations));

constexpr CollationTable makeTable() {
    CollationTable table = {};
    for (CodUint32 i = 0; i < std::size(kCharsets); i++) {
        for (CodUint32 sort = 0; sort < __SORT_METHOD_COUNT__; sort++) {
            for (CodUint32 mode = 0; mode < __CASE_MODE_COUNT__; mode++) {
                table.by[kCharsets[i]][sort][mode] = &kCollations[i]->by[sort][mode];
            }
        }
    }
    return table;
}

constinit const CollationTable kTable = makeTable();

// A text as UTF16, a piece at a time.
class Utf16Pieces {
public:
    Utf16Pieces(const CodText &text, CodUint16 charset) : rest_(text), charset_(charset) {}

    // The next character; false at the end, and where the converter refuses the rest.
    bool next(CodUint32 *codePoint) {
        if (at_ == size_) {
            CodUint32 read = 0;
            at_ = 0;
            if (!convertPiece(rest_, UTF16, reinterpret_cast<CodChar *>(units_), sizeof(units_), charset_, &read, &size_)) {
                return false;
            }
            rest_.str += read;
            rest_.len -= read;
        }
        const ReadCharacter character = Utf16Charset::read(units_ + at_, units_ + size_);
        at_ += character.bytes;
        *codePoint = lowerPoint(character.codePoint);
        return true;
    }
    // What is not converted yet.
    const CodText &rest() const {
        return rest_;
    }

private:
    CodText rest_;
    CodUint16 charset_;
    CodUint8 units_[512];
    CodUint32 at_ = 0;
    CodUint32 size_ = 0;
};

}  // namespace
}  // namespace cod

using namespace cod;

const CodCollation *codGetCollation(CodUint16 charset, CodUint16 sort, CodUint16 caseMode) {
    const bool isThere = charset < __CHARSET_COUNT__ && sort < __SORT_METHOD_COUNT__ && caseMode < __CASE_MODE_COUNT__;
    return isThere ? kTable.by[charset][sort][caseMode] : nullptr;
}

CodResult codGetCollationByName(const CodText *name, const CodCollation **collation) {
    if (isMissing(name) || collation == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    for (const CharsetCollations *collations : kCollations) {
        for (const auto &modes : collations->by) {
            for (const CodCollation &candidate : modes) {
                if (equalsIgnoringCase(name->str, name->len, candidate.collationName->str)) {
                    *collation = &candidate;
                    return COD_SUCCESS;
                }
            }
        }
    }
    return codRaise(ERR_CMM_INVALID_COLLATION_NAME, codErrT2S(name));
}

CodInt32 codTextCompareByConvertUTF16(const CodText *text1, const CodText *text2, CodUint16 charset) {
    Utf16Pieces left(*text1, charset);
    Utf16Pieces right(*text2, charset);
    for (;;) {
        CodUint32 one = 0;
        CodUint32 other = 0;
        const bool hasOne = left.next(&one);
        const bool hasOther = right.next(&other);
        if (hasOne && hasOther) {
            if (one != other) {
                return signOf(one > other);
            }
        } else if (hasOne) {
            return signOf(right.rest().len == 0);
        } else if (hasOther) {
            return signOf(left.rest().len != 0);
        } else {
            return compareBytes(Span(&left.rest()), Span(&right.rest()));
        }
    }
}

CodBool codTextEqual(const CodText *text1, const CodText *text2, CodUint16 caseMode, CodUint16 envCharset) {
    const bool knowsCase = envCharset == ASCII || envCharset == UTF16 || isCodepageInit(aniGetCodepageIdByCharset(envCharset));
    if (COD_UNLIKELY(caseMode == CASE_INS && !knowsCase)) {
        if (text1->len != text2->len) {
            return false;
        }
        const CodInt32 order =
            envCharset == UTF8 ? utf8CaseInsCmpWithoutCodePage(text1, text2) : codTextCompareByConvertUTF16(text1, text2, envCharset);
        return order == 0;
    }
    const CodCollation *collation = codGetCollation(envCharset, BINARY, caseMode);
    return collation != nullptr ? collation->equal(text1, text2) : textEqualBytes(text1, text2);
}
