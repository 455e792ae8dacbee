#pragma once

// What the operations on texts ask of their arguments.

#include <vel_infra/string/ani_charset.h>

namespace cod {

// No text, or bytes that are nowhere.
inline bool isMissing(const CodText *text) {
    return text == nullptr || (text->str == nullptr && text->len != 0);
}

// Zero bytes behind a result.
constexpr CodUint32 terminatorSize(CodUint16 charset) {
    return charset == UTF16 ? 2 : 1;
}

// As much of a text as the thread's converter takes and a buffer has room for, whole characters without a terminator; false: nothing. No
// error is raised.
bool convertPiece(const CodText &text, CodUint16 dstCharset, CodChar *buf, CodUint32 room, CodUint16 srcCharset, CodUint32 *read,
                  CodUint32 *written);

}  // namespace cod
