#pragma once

// Fields of dates and intervals as text.

#include <cstring>

#include <vel_infra/base/cod_types.h>
#include <vel_infra/error/ani_error_base.h>

namespace cod {

// ---- Writing. Each returns the place behind what it wrote. ----

struct DigitPairs {
    char text[200];
};

inline constexpr DigitPairs kDigitPairs = [] {
    DigitPairs pairs{};
    for (int i = 0; i < 100; i++) {
        pairs.text[2 * i] = static_cast<char>('0' + i / 10);
        pairs.text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// value below 100.
inline char *putTwo(char *out, CodUint32 value) {
    std::memcpy(out, kDigitPairs.text + 2 * value, 2);
    return out + 2;
}

// value below 1000.
inline char *putThree(char *out, CodUint32 value) {
    *out = static_cast<char>('0' + value / 100);
    return putTwo(out + 1, value % 100);
}

// value below 10^4.
inline char *putFour(char *out, CodUint32 value) {
    return putTwo(putTwo(out, value / 100), value % 100);
}

// value below 10^6.
inline char *putSix(char *out, CodUint32 value) {
    return putTwo(putFour(out, value / 100), value % 100);
}

inline char *putChar(char *out, char c) {
    *out = c;
    return out + 1;
}

// Two digits, or as many as it takes.
inline char *putLeading(char *out, CodUint32 value) {
    if (value < 100) {
        return putTwo(out, value);
    }
    return value < 1000 ? putThree(out, value) : putTwo(putLeading(out, value / 100), value % 100);
}

// "YYYY-MM-DD", and "HH:MM:SS".
inline char *putDate(char *out, CodUint32 year, CodUint32 month, CodUint32 day) {
    out = putChar(putFour(out, year), '-');
    return putTwo(putChar(putTwo(out, month), '-'), day);
}

inline char *putTime(char *out, CodUint32 hour, CodUint32 minute, CodUint32 second) {
    out = putChar(putTwo(out, hour), ':');
    return putTwo(putChar(putTwo(out, minute), ':'), second);
}

// Copies what stands from begin to end into text->str, and terminates it. With a width of 2 each character becomes UTF-16.
inline CodResult giveText(const char *begin, const char *end, CodText *text, CodUint32 bufSize, CodUint32 width = 1) {
    const CodUint32 length = static_cast<CodUint32>(end - begin);
    if (bufSize < (length + 1) * width) {
        return codRaise(ERR_CMM_MEMORY_OVERFLOW);
    }
    std::memset(text->str, 0, (length + 1) * width);
    for (CodUint32 i = 0; i < length; i++) {
        text->str[i * width] = begin[i];
    }
    text->len = length * width;
    return COD_SUCCESS;
}

// ---- Reading ----

// A text without the blanks around it, read from its front. What cannot be read is left where it is.
class FieldReader {
public:
    explicit FieldReader(const CodText &text) : next_(text.str), end_(text.str + text.len) {
        while (next_ != end_ && isBlank(*next_)) {
            next_++;
        }
        while (next_ != end_ && isBlank(end_[-1])) {
            end_--;
        }
    }

    bool isAtEnd() const {
        return next_ == end_;
    }
    // The next character; 0 at the end.
    char peek() const {
        return isAtEnd() ? '\0' : *next_;
    }
    bool skip(char c) {
        const bool isMet = !isAtEnd() && *next_ == c;
        next_ += isMet;
        return isMet;
    }
    bool skipAny(const char *characters) {
        const bool isMet = !isAtEnd() && *next_ != '\0' && std::strchr(characters, *next_) != nullptr;
        next_ += isMet;
        return isMet;
    }
    // All digits that stand here, least to most of them, most at most 9. Returns how many; 0 when there are fewer or more.
    CodUint32 digits(CodUint32 least, CodUint32 most, CodUint32 *value) {
        CodUint32 count = 0;
        CodUint32 read = 0;
        while (next_ + count != end_ && next_[count] >= '0' && next_[count] <= '9' && count <= most) {
            read = read * 10 + static_cast<CodUint32>(next_[count++] - '0');
        }
        if (count < least || count > most) {
            return 0;
        }
        next_ += count;
        *value = read;
        return count;
    }
    bool two(CodUint32 *value) {
        return digits(2, 2, value) != 0;
    }

private:
    static bool isBlank(char c) {
        return c == ' ' || c == '\t';
    }

    const char *next_;
    const char *end_;
};

}  // namespace cod
