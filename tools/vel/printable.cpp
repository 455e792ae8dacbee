#include "printable.h"

#include <charconv>
#include <cstdio>
#include <cstring>

namespace vel {

namespace {

struct Utf8Char {
    CodUint32 codePoint;
    CodUint32 length;   // bytes; 0: not UTF-8
    bool isUnfinished;  // not UTF-8 only because the text ends too early
};

// By the first byte: length, the bits it carries, and the least code point that may take this length.
struct Utf8Lead {
    CodUint8 mask;
    CodUint8 value;
    CodUint32 length;
    CodUint32 least;
};
constexpr Utf8Lead kLeads[] = {
    {0x80, 0x00, 1, 0x0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

bool isCodePoint(CodUint32 value) {
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

Utf8Char decodeUtf8(const CodUint8 *bytes, CodUint32 available) {
    for (const Utf8Lead &lead : kLeads) {
        if ((bytes[0] & lead.mask) != lead.value) {
            continue;
        }
        CodUint32 codePoint = bytes[0] & static_cast<CodUint8>(~lead.mask);
        for (CodUint32 i = 1; i < lead.length; i++) {
            if (i == available) {
                return {0, 0, true};
            }
            if ((bytes[i] & 0xC0) != 0x80) {
                return {0, 0, false};
            }
            codePoint = codePoint << 6 | (bytes[i] & 0x3F);
        }
        return {codePoint, codePoint >= lead.least && isCodePoint(codePoint) ? lead.length : 0, false};
    }
    return {0, 0, false};
}

// Would move the cursor, end the line, turn the direction of what follows, or not be seen at all.
bool isDisturbing(CodUint32 codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0) || codePoint == 0x2028 || codePoint == 0x2029 ||
           codePoint == 0x061C || (codePoint >= 0x200B && codePoint <= 0x200F) || (codePoint >= 0x202A && codePoint <= 0x202E) ||
           (codePoint >= 0x2060 && codePoint <= 0x206F) || (codePoint >= 0xE0000 && codePoint <= 0xE007F) || codePoint == 0xFEFF;
}

CodUint32 writeEscape(CodUint8 byte, char *out) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    out[0] = '\\';
    switch (byte) {
        case '\n':
            out[1] = 'n';
            return 2;
        case '\r':
            out[1] = 'r';
            return 2;
        case '\t':
            out[1] = 't';
            return 2;
        default:
            out[1] = 'x';
            out[2] = kDigits[byte >> 4];
            out[3] = kDigits[byte & 15];
            return 4;
    }
}

// One character, or one byte that is none: its printable form (at most 16 bytes) and how many bytes it stood for.
struct Piece {
    char text[16];
    CodUint32 length;
    CodUint32 taken;
};

Piece makePiece(const CodUint8 *bytes, const Utf8Char &character, char quote) {
    Piece piece = {};
    piece.taken = character.length == 0 ? 1 : character.length;
    if (character.length == 0 || isDisturbing(character.codePoint)) {
        for (CodUint32 i = 0; i < piece.taken; i++) {
            piece.length += writeEscape(bytes[i], piece.text + piece.length);
        }
        return piece;
    }
    if (bytes[0] == '\\' || (quote != '\0' && bytes[0] == static_cast<CodUint8>(quote))) {
        piece.text[piece.length++] = '\\';
    }
    memcpy(piece.text + piece.length, bytes, piece.taken);
    piece.length += piece.taken;
    return piece;
}

// U+FFFD for a byte that is no UTF-8.
Piece makeUtf8Piece(const CodUint8 *bytes, const Utf8Char &character) {
    Piece piece = {};
    piece.taken = character.length == 0 ? 1 : character.length;
    piece.length = character.length == 0 ? 3 : character.length;
    memcpy(piece.text, character.length == 0 ? reinterpret_cast<const CodUint8 *>("\xEF\xBF\xBD") : bytes, piece.length);
    return piece;
}

template <class MakePiece>
CodUint32 writePieces(const CodText &text, bool isCut, CodUint32 limit, char *out, MakePiece makePieceOf) {
    const auto *bytes = reinterpret_cast<const CodUint8 *>(text.str);
    CodUint32 length = 0;
    for (CodUint32 i = 0; i < text.len;) {
        const Utf8Char character = decodeUtf8(bytes + i, text.len - i);
        if (character.isUnfinished && isCut) {
            break;
        }
        const Piece piece = makePieceOf(bytes + i, character);
        if (length + piece.length > limit) {
            isCut = true;
            break;
        }
        memcpy(out + length, piece.text, piece.length);
        length += piece.length;
        i += piece.taken;
    }
    if (isCut) {
        memcpy(out + length, "…", 3);
        length += 3;
    }
    out[length] = '\0';
    return length;
}

}  // namespace

CodUint32 writePrintable(const CodText &text, bool isCut, char quote, CodUint32 limit, char *out) {
    return writePieces(text, isCut, limit, out,
                       [quote](const CodUint8 *bytes, const Utf8Char &character) { return makePiece(bytes, character, quote); });
}

CodUint32 writeUtf8(const CodText &text, bool isCut, CodUint32 limit, char *out) {
    return writePieces(text, isCut, limit, out, makeUtf8Piece);
}

PrintableName::PrintableName(const char *name)
    : PrintableName(CodText{const_cast<char *>(name), static_cast<CodUint32>(strlen(name)), 0}) {}

const char *formatCount(CodUint64 count, char *buffer) {
    char digits[kCountSize];
    const auto length = static_cast<CodUint32>(std::to_chars(digits, digits + sizeof(digits), count).ptr - digits);
    char *end = buffer;
    for (CodUint32 i = 0; i < length; i++) {
        if (i > 0 && (length - i) % 3 == 0) {
            *end++ = ',';
        }
        *end++ = digits[i];
    }
    *end = '\0';
    return buffer;
}

const char *formatUnits(CodUint64 count, const char *unit, char *buffer) {
    char number[kCountSize];
    snprintf(buffer, kUnitsSize, "%s %s%s", formatCount(count, number), unit, count == 1 ? "" : "s");
    return buffer;
}

}  // namespace vel
