// UTF-8 to UTF-16 and back: how the vector variants work, their table, and the choice.
//
// From UTF-8, a vector begins with a character, is validated as in cod_utf8.cpp, and at each byte the unit is made for which that byte
// would be the last one: from the byte and the two behind it. The bytes of no unit are then pushed together, low and high halves alike, and
// both are woven into units. Characters of four bytes, which are rare, give their first surrogate at the third byte.
//
// From UTF-16, each unit is widened to four bytes, and its one to three bytes are made there, all others being zero. A surrogate makes two
// of the four bytes of its pair. What is not zero is pushed together; a zero that is a character stands where each lane's last byte is,
// which is always kept.
//
// AVX-512 pushes bytes together itself; before it, eight are at a time, by a table.

#include "base/cod_utf16.h"

namespace cod {
namespace {

constexpr Utf16KeepTable makeKeepTable() {
    Utf16KeepTable table{};
    for (CodUint32 mask = 0; mask < 256; mask++) {
        CodUint32 kept = 0;
        for (CodUint32 place = 0; place < 8; place++) {
            if ((mask >> place & 1) != 0) {
                table.places[mask][kept++] = static_cast<CodUint8>(place);
            }
        }
    }
    return table;
}

Utf16Progress convertNothing(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    (void)in, (void)length, (void)out, (void)room;
    return {0, 0};
}

// In the order of Utf8Variant.
constexpr Utf16Convert kFromUtf8[] = {convertNothing, utf8ToUtf16Simd256, utf8ToUtf16Simd512};
constexpr Utf16Convert kToUtf8[] = {convertNothing, utf16ToUtf8Simd256, utf16ToUtf8Simd512};

}  // namespace

constexpr Utf16KeepTable kUtf16KeepTable = makeKeepTable();

Utf16Progress utf8ToUtf16(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    return kFromUtf8[utf8Variant()](in, length, out, room);
}

Utf16Progress utf16ToUtf8(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    return kToUtf8[utf8Variant()](in, length, out, room);
}

}  // namespace cod
