#ifndef VEL_PRINTABLE_H
#define VEL_PRINTABLE_H

#include <vel_infra/base/cod_types.h>

namespace vel {

// Texts from outside made fit for one line: control characters, line separators, characters that turn the direction of writing and
// bytes that are not UTF-8 are shown as \n, \t, \r or \xNN, and a backslash as two.
//
// Writes at most `limit` bytes and a terminator to out, which has room for limit + 4. What does not fit is cut between characters,
// and "…" is appended; so it is when isCut says that text is only a beginning. With `quote` set, that character is written with a
// backslash in front. Returns the length.
CodUint32 writePrintable(const CodText &text, bool isCut, char quote, CodUint32 limit, char *out);

// The same for texts that a program reads: all characters as they are, and U+FFFD in place of each byte that is not UTF-8.
CodUint32 writeUtf8(const CodText &text, bool isCut, CodUint32 limit, char *out);

// A terminated printable form of at most kNameLimit bytes, for messages and titles.
class PrintableName {
public:
    static constexpr CodUint32 kNameLimit = 1000;

    explicit PrintableName(const char *name);
    explicit PrintableName(const CodText &name) {
        writePrintable(name, false, '\0', kNameLimit, buffer_);
    }
    const char *str() const {
        return buffer_;
    }

private:
    char buffer_[kNameLimit + 4];
};

constexpr CodUint32 kCountSize = 32;
// "1,234,567", terminated, in a buffer of kCountSize bytes. Returns buffer.
const char *formatCount(CodUint64 count, char *buffer);

constexpr CodUint32 kUnitsSize = kCountSize + 16;
// "1,234 rows" or "1 row", terminated, for a unit of at most ten bytes, in a buffer of kUnitsSize bytes. Returns buffer.
const char *formatUnits(CodUint64 count, const char *unit, char *buffer);

}  // namespace vel

#endif
