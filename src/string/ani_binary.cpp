// Bytes that are no text: each is a character without case.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct BinaryText : SingleByteText<BinaryText> {
    static constexpr CodUint16 kId = BINARY_CS;
    static constexpr const char *kName = "BINARY";
    static constexpr bool kHasCase = false;

    static CodUint32 lower(CodUint32 code) {
        return code;
    }
    static CodUint32 upper(CodUint32 code) {
        return code;
    }
    static CodUint32 toPoint(CodUint32 code) {
        return code;
    }
    static CodUint32 fromPoint(CodUint32 codePoint) {
        return codePoint < 0x100 ? codePoint : kNoPoint;
    }
};

}  // namespace

constinit const CharsetCollations kBinaryCollations = collationsOf<BinaryText>();

}  // namespace cod
