// UTF-16, little-endian: units are counted, pairs of surrogates are read as one.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct Utf16Text : UnicodeText {
    static constexpr CodUint16 kId = UTF16;
    static constexpr const char *kName = "UTF16";
    static constexpr bool kIsFixedLen = true;
    static constexpr bool kIsNational = true;
    static constexpr CodUint32 kUnit = 2;

    static Character read(const CodUint8 *in, const CodUint8 *end) {
        const ReadCharacter character = Utf16Charset::read(in, end);
        if (COD_LIKELY(character.codePoint != kBad)) {
            return {character.codePoint, character.bytes};
        }
        return end - in < 2 ? Character{kOddByte | *in, 1} : Character{kInvalidCode | loadLe<CodUint16>(in), 2};
    }
    static CodUint32 step(const CodUint8 *in, const CodUint8 *end) {
        return COD_LIKELY(end - in >= 2) ? 2 : 0;
    }
    static bool isLowSurrogate(const CodUint8 *in) {
        return in[1] >> 2 == 0xDC >> 2;
    }
    static const CodUint8 *startOf(const CodUint8 *begin, const CodUint8 *at, const CodUint8 *end) {
        const CodUint8 *unit = at - (at - begin) % 2;
        const bool isSecond = end - unit >= 2 && isLowSurrogate(unit) && unit - begin >= 2 && read(unit - 2, end).bytes == 4;
        return isSecond ? unit - 2 : unit;
    }
    static const CodUint8 *before(const CodUint8 *begin, const CodUint8 *at) {
        return startOf(begin, at - 1, at);
    }
    static CodUint32 write(CodUint32 code, CodUint8 *out) {
        return Utf16Charset::write(code, out);
    }
    COD_COLD static CodResult raiseInvalid() {
        return codRaise(ERR_CMM_UTF16_SEQUENCE_WRONG);
    }
    COD_COLD static CodResult raiseNoRoom(CodUint64, CodUint32) {
        return codRaise(ERR_CMM_UTF16_BUFFER_SMALL);
    }
};

}  // namespace

constinit const CharsetCollations kUtf16Collations = collationsOf<Utf16Text>();

}  // namespace cod
