// Bytes that are no text: each is a character without case.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct BinaryText : SingleByteText<BinaryText> {
    static constexpr CodUint16 kId = BINARY_CS;
    static constexpr const char *kName = "BINARY";
    static constexpr bool kHasCase = false;
};

}  // namespace

constinit const CharsetCollations kBinaryCollations = collationsOf<BinaryText>();

}  // namespace cod
