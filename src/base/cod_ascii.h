#pragma once

// Words of the system's own are compared as ASCII: what the locale takes for upper and lower case does not change them.

#include <cstring>

namespace cod {

constexpr char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

// The first `length` bytes of text are `word`, in any case.
inline bool equalsIgnoringCase(const char *text, std::size_t length, const char *word) {
    if (std::strlen(word) != length) {
        return false;
    }
    for (std::size_t i = 0; i < length; i++) {
        if (asciiLower(text[i]) != asciiLower(word[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace cod
