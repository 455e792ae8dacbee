// ISO-8859-1: bytes are code points. The capitals of y with diaeresis and of the micro sign are not among them.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct Iso88591Text : SingleByteText<Iso88591Text> {
    static constexpr CodUint16 kId = ISO88591;
    static constexpr const char *kName = "ISO88591";
    static constexpr bool kHasCase = true;

    static CodUint32 lower(CodUint32 code) {
        const bool isCapital = code - 0xC0 < 0xDF - 0xC0 && code != 0xD7;
        return isCapital ? code | kCaseBit : asciiLowerCode(code);
    }
    static CodUint32 upper(CodUint32 code) {
        const bool isSmall = code - 0xE0 < 0xFF - 0xE0 && code != 0xF7;
        return isSmall ? code & ~kCaseBit : asciiUpperCode(code);
    }
};

}  // namespace

constinit const CharsetCollations kIso88591Collations = collationsOf<Iso88591Text>();

}  // namespace cod
