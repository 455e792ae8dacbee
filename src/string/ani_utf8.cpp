// UTF-8: where a character begins shows from its first byte.

#include "base/cod_utf8.h"
#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct Utf8Text : UnicodeText {
    static constexpr CodUint16 kId = UTF8;
    static constexpr const char *kName = "UTF8";
    static constexpr bool kIsFixedLen = false;
    static constexpr bool kIsNational = false;
    static constexpr CodUint32 kUnit = 1;

    static Character read(const CodUint8 *in, const CodUint8 *end) {
        const ReadCharacter character = Utf8Charset::read(in, end);
        return COD_LIKELY(character.codePoint != kBad) ? Character{character.codePoint, character.bytes} : Character{kInvalidCode | *in, 1};
    }
    static CodUint32 step(const CodUint8 *in, const CodUint8 *end) {
        const ReadCharacter character = Utf8Charset::read(in, end);
        return COD_LIKELY(character.codePoint != kBad) ? character.bytes : 0;
    }
    static bool countAll(const CodUint8 *in, const CodUint8 *end, CodUint64 *count) {
        bool isValid = false;
        *count = utf8CountCharacters(in, static_cast<CodUint64>(end - in), &isValid);
        return isValid;
    }
    static bool isContinuation(CodUint8 byte) {
        return (byte & 0xC0) == 0x80;
    }
    // A character that begins before a continuation and goes on over it; else the continuation stands alone.
    static const CodUint8 *startOf(const CodUint8 *begin, const CodUint8 *at, const CodUint8 *end) {
        const CodUint8 *start = at;
        while (isContinuation(*start) && start > begin && at - start < CodInt64{kMostBytes} - 1) {
            start--;
        }
        return start + step(start, end) > at ? start : at;
    }
    static const CodUint8 *before(const CodUint8 *begin, const CodUint8 *at) {
        return startOf(begin, at - 1, at);
    }
    static CodUint32 write(CodUint32 code, CodUint8 *out) {
        return Utf8Charset::write(code, out);
    }
    COD_COLD static CodResult raiseInvalid() {
        return codRaise(ERR_CMM_UTF8_SEQUENCE_WRONG);
    }
    COD_COLD static CodResult raiseNoRoom(CodUint64, CodUint32) {
        return codRaise(ERR_CMM_UTF8_BUFFER_SMALL);
    }
};

// Before the code pages are loaded.
struct Utf8TextWithoutPages : Utf8Text {
    static CodUint32 lower(CodUint32 code) {
        return isAscii(code) ? asciiLowerCode(code) : lowerWithoutPages(code);
    }
};

}  // namespace

constinit const CharsetCollations kUtf8Collations = collationsOf<Utf8Text>();

}  // namespace cod

CodInt32 utf8CaseInsCmpWithoutCodePage(const CodText *text1, const CodText *text2) {
    return cod::textCompare<cod::Utf8TextWithoutPages, cod::BinaryOrder, CASE_INS>(text1, text2);
}
