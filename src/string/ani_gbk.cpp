// GBK: one byte, or two of which the second may look like an ASCII letter.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct GbkText : ChineseText<GbkText, CODEPAGE_GBK> {
    static constexpr CodUint16 kId = GBK;
    static constexpr const char *kName = "GBK";

    static Character read(const CodUint8 *in, const CodUint8 *end) {
        if (*in <= GbkCharset::kSingle) {
            return {*in, 1};
        }
        const bool isPair = GbkCharset::isLead(*in) && end - in >= 2 && isTrail(in[1]);
        return COD_LIKELY(isPair) ? Character{CodUint32{*in} << 8 | in[1], 2} : Character{kInvalidCode | *in, 1};
    }
};

}  // namespace

constinit const CharsetCollations kGbkCollations = collationsOf<GbkText>();

}  // namespace cod
