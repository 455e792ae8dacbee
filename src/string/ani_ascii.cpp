// ASCII: bytes from 80 on are characters too, without case and without a code point.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct AsciiText : SingleByteText<AsciiText> {
    static constexpr CodUint16 kId = ASCII;
    static constexpr const char *kName = "ASCII";
    static constexpr bool kHasCase = true;

    static CodUint32 lower(CodUint32 code) {
        return asciiLowerCode(code);
    }
    static CodUint32 upper(CodUint32 code) {
        return asciiUpperCode(code);
    }
    static CodUint32 toPoint(CodUint32 code) {
        return code < 0x80 ? code : kNoPoint;
    }
    static CodUint32 fromPoint(CodUint32 codePoint) {
        return codePoint < 0x80 ? codePoint : kNoPoint;
    }
};

}  // namespace

constinit const CharsetCollations kAsciiCollations = collationsOf<AsciiText>();

}  // namespace cod
