#include "error/ani_error_format_internal.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace {

// Writes what fits and counts everything, as vsnprintf does. The last byte of the room is the terminator's.
class Output {
public:
    Output(CodChar *buffer, CodUint32 room) : next_(buffer), last_(buffer + room - 1) {}

    void put(CodChar c) {
        if (next_ < last_) {
            *next_++ = c;
        }
        length_++;
    }
    void put(const char *text, CodUint64 length) {
        const CodUint64 kept = std::min(length, static_cast<CodUint64>(last_ - next_));
        memcpy(next_, text, kept);
        next_ += kept;
        length_ += length;
    }
    void putUnsigned(CodUint64 value) {
        CodChar digits[20];
        CodChar *first = digits + sizeof digits;
        do {
            *--first = static_cast<CodChar>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        put(first, static_cast<CodUint64>(digits + sizeof digits - first));
    }
    void putSigned(CodInt64 value) {
        if (value < 0) {
            put('-');
        }
        putUnsigned(value < 0 ? -static_cast<CodUint64>(value) : static_cast<CodUint64>(value));
    }
    void putText(const char *text) {
        const char *shown = text != nullptr ? text : "(null)";
        put(shown, strlen(shown));
    }
    CodUint64 finish() {
        *next_ = '\0';
        return length_;
    }

private:
    CodChar *next_;
    CodChar *last_;
    CodUint64 length_ = 0;
};

// Formats the conversion behind a percent sign; false: not one of ours.
bool putConversion(Output *out, const char **fmt, va_list *args) {
    const bool isLong = **fmt == 'l';
    *fmt += isLong;
    const char conversion = *(*fmt)++;
    switch (conversion) {
        case 'd':
            out->putSigned(isLong ? va_arg(*args, long) : va_arg(*args, int));
            return true;
        case 'u':
            out->putUnsigned(isLong ? va_arg(*args, unsigned long) : va_arg(*args, unsigned));
            return true;
        case 's':
            if (!isLong) {
                out->putText(va_arg(*args, const char *));
            }
            return !isLong;
        case '%':
            out->put('%');
            return !isLong;
        default:
            return false;
    }
}

// False when the template holds something else, or the text is longer than an int can say.
bool formatSimple(CodChar *buffer, CodUint32 room, const char *fmt, va_list *args, int *length) {
    Output out(buffer, room);
    while (*fmt != '\0') {
        const char c = *fmt++;
        if (c != '%') {
            out.put(c);
        } else if (!putConversion(&out, &fmt, args)) {
            return false;
        }
    }
    const CodUint64 all = out.finish();
    *length = static_cast<int>(all);
    return all <= INT_MAX;
}

}  // namespace

int cod::formatText(CodChar *buffer, CodUint32 room, const char *fmt, va_list args) {
    va_list ours;
    va_copy(ours, args);
    int length = 0;
    const bool isDone = formatSimple(buffer, room, fmt, &ours, &length);
    va_end(ours);
    return COD_LIKELY(isDone) ? length : vsnprintf(buffer, room, fmt, args);
}
