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

}  // namespace cod
