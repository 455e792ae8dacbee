// GB18030: GBK with codes of four bytes besides, whose second and fourth are digits.

#include "string/ani_collation_internal.h"

namespace cod {
namespace {

struct Gb18030Text : ChineseText<Gb18030Text, CODEPAGE_GB18030> {
    static constexpr CodUint16 kId = GB18030;
    static constexpr const char *kName = "GB18030";

    static Character read(const CodUint8 *in, const CodUint8 *end) {
        if (*in < 0x80) {
            return {*in, 1};
        }
        if (COD_LIKELY(GbkCharset::isLead(*in) && end - in >= 2)) {
            if (COD_LIKELY(isTrail(in[1]))) {
                return {CodUint32{*in} << 8 | in[1], 2};
            }
            if (end - in >= 4 && gb18030Key(fourBytes(in)) != kNoKey) {
                return {fourBytes(in), 4};
            }
        }
        return {kInvalidCode | *in, 1};
    }
    static CodUint32 fourBytes(const CodUint8 *in) {
        return __builtin_bswap32(loadLe<CodUint32>(in));
    }
};

}  // namespace

constinit const CharsetCollations kGb18030Collations = collationsOf<Gb18030Text>();

}  // namespace cod
