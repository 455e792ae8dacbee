#ifndef VEL_EXTREME_VALUE_H
#define VEL_EXTREME_VALUE_H

#include <algorithm>
#include <cstring>

#include <vel_infra/base/cod_types.h>

namespace vel {

// A value that stands out, such as the longest one, by its beginning.
struct ExtremeValue {
    static constexpr CodUint32 kKeptBytes = 256;

    CodUint32 length = 0;  // bytes of the whole value
    CodUint32 kept = 0;    // bytes in text
    char text[kKeptBytes];

    void set(const CodText &value) {
        length = value.len;
        kept = std::min(value.len, kKeptBytes);
        memcpy(text, value.str, kept);
    }
};

}  // namespace vel

#endif
