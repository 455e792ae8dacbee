#ifndef VEL_TEXT_PROFILE_H
#define VEL_TEXT_PROFILE_H

#include <vel_infra/memory/ani_memory.h>
#include <vel_infra/string/ani_collation.h>

#include "extreme_value.h"

namespace vel {

// The figures of a column as one of texts in UTF-8, fed with its values one by one.
class TextProfile {
public:
    // Longer values are ordered by so many bytes of their beginning, less a character that is cut.
    static constexpr CodUint32 kComparedBytes = 4096;

    // collation: one of UTF8; null: UTF8_BINARY_CS. The context must outlive the profile; memory is taken at the first value.
    void init(MemoryContext *shared, const CodCollation *collation);

    // row: that of the value. isAscii: the value is known to be. Errors: those of mctxAlloc.
    CodResult add(const CodText &value, CodUint64 row, bool isAscii) {
        if (isAscii) {
            noteCharacters(value, value.len);
        } else if (isValid()) {
            measure(value, row);
        }
        // Of bytes, most values are told apart from both ends by their first ones.
        const CodUint64 prefix = isByBytes_ ? prefixOf(value) : 0;
        return prefix > minimum_.prefix && prefix < maximum_.prefix ? COD_SUCCESS : order(value, prefix);
    }

    bool isValid() const {
        return firstInvalidRow_ == 0;
    }
    // Of the first value that is not UTF-8; 0: all are.
    CodUint64 firstInvalidRow() const {
        return firstInvalidRow_;
    }
    // While isValid(): the first one met of the most characters.
    const ExtremeValue &longest() const {
        return longest_;
    }
    CodUint32 longestCharacters() const {
        return longestCharacters_;
    }
    // By the collation; of equal ones the first one met. There are values.
    const ExtremeValue &minimum() const {
        return minimum_.shown;
    }
    const ExtremeValue &maximum() const {
        return maximum_.shown;
    }

private:
    struct End {
        CodUint64 prefix;
        CodText compared;
        ExtremeValue shown;

        void set(const CodText &value, const CodText &beginning, CodUint64 valuePrefix);
    };

    // Ordered as the values are: nothing is smaller than no further byte. No value holds a zero byte.
    static CodUint64 prefixOf(const CodText &value) {
        CodUint64 prefix = 0;
        if (value.len >= sizeof(prefix)) {
            memcpy(&prefix, value.str, sizeof(prefix));
            return __builtin_bswap64(prefix);
        }
        for (CodUint32 i = 0; i < value.len; i++) {
            prefix |= CodUint64{static_cast<CodUint8>(value.str[i])} << (56 - 8 * i);
        }
        return prefix;
    }
    void noteCharacters(const CodText &value, CodUint32 characters) {
        if (characters > longestCharacters_) {
            longestCharacters_ = characters;
            longest_.set(value);
        }
    }
    void measure(const CodText &value, CodUint64 row);
    CodResult start();
    CodResult order(const CodText &value, CodUint64 prefix);

    MemoryContext *shared_ = nullptr;
    const CodCollation *collation_ = nullptr;
    bool isByBytes_ = false;
    CodUint64 firstInvalidRow_ = 0;
    CodUint32 longestCharacters_ = 0;
    ExtremeValue longest_;
    End minimum_ = {};
    End maximum_ = {};
};

}  // namespace vel

#endif
