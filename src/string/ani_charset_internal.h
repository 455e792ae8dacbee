#pragma once

// Characters of the charsets, one at a time: to and from code points, by rules and code pages.
//
// read: the code point at `in` and the bytes that it takes; kBad and the bytes that are bad together, at least one. There is a byte.
// write: the bytes written for a code point, at most kMostBytes; 0: the charset lacks it.

#include <string.h>

#include <vel_infra/string/ani_charset.h>

#include "base/cod_bytes.h"
#include "codepage/ani_codepage_internal.h"

namespace cod {

constexpr CodUint32 kBad = ~0u;
constexpr CodUint32 kMostBytes = 4;
constexpr CodUint32 kReplacement = 0xFFFD;

struct ReadCharacter {
    CodUint32 codePoint;  // kBad: none
    CodUint32 bytes;
};

struct AsciiCharset {
    static constexpr CodUint32 kUnit = 1;
    static ReadCharacter read(const CodUint8 *in, const CodUint8 *end) {
        (void)end;
        return {in[0] < 0x80 ? in[0] : kBad, 1};
    }
    static CodUint32 write(CodUint32 codePoint, CodUint8 *out) {
        out[0] = static_cast<CodUint8>(codePoint);
        return codePoint < 0x80;
    }
};

struct Iso88591Charset {
    static constexpr CodUint32 kUnit = 1;
    static ReadCharacter read(const CodUint8 *in, const CodUint8 *end) {
        (void)end;
        return {in[0], 1};
    }
    static CodUint32 write(CodUint32 codePoint, CodUint8 *out) {
        out[0] = static_cast<CodUint8>(codePoint);
        return codePoint < 0x100;
    }
};

struct Utf8Charset {
    static constexpr CodUint32 kUnit = 1;

    static bool isTail(const CodUint8 *in, const CodUint8 *end) {
        return in < end && (*in & 0xC0) == 0x80;
    }
    [[gnu::always_inline]] static ReadCharacter read(const CodUint8 *in, const CodUint8 *end) {
        const CodUint32 lead = in[0];
        if (lead < 0x80) {
            return {lead, 1};
        }
        if (lead >= 0xE0 && lead < 0xF0 && COD_LIKELY(end - in >= 3)) {
            const CodUint32 second = in[1] ^ 0x80u;
            const CodUint32 third = in[2] ^ 0x80u;
            const CodUint32 codePoint = (lead & 0x0F) << 12 | second << 6 | third;
            if (COD_LIKELY((second | third) < 0x40 && codePoint >= 0x800 && codePoint >> 11 != 0x1B)) {
                return {codePoint, 3};
            }
        }
        return readOther(in, end);
    }
    // Two and four bytes, and what is bad.
    [[gnu::noinline]] static ReadCharacter readOther(const CodUint8 *in, const CodUint8 *end) {
        const CodUint32 lead = in[0];
        if (lead >= 0xC2 && lead < 0xE0) {
            return isTail(in + 1, end) ? ReadCharacter{(lead & 0x1F) << 6 | (in[1] & 0x3Fu), 2} : ReadCharacter{kBad, 1};
        }
        if (lead < 0xE0 || lead > 0xF4) {
            return {kBad, 1};
        }
        // The second byte keeps overlong forms, surrogates and what is above U+10FFFF out.
        const CodUint8 lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const CodUint8 highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (end - in < 2 || in[1] < lowest || in[1] > highest) {
            return {kBad, 1};
        }
        if (!isTail(in + 2, end)) {
            return {kBad, 2};
        }
        if (lead < 0xF0) {
            return {(lead & 0x0F) << 12 | (in[1] & 0x3Fu) << 6 | (in[2] & 0x3Fu), 3};
        }
        if (!isTail(in + 3, end)) {
            return {kBad, 3};
        }
        return {(lead & 0x07) << 18 | (in[1] & 0x3Fu) << 12 | (in[2] & 0x3Fu) << 6 | (in[3] & 0x3Fu), 4};
    }
    static CodUint32 write(CodUint32 codePoint, CodUint8 *out) {
        const auto tail = [codePoint](CodUint32 shift) { return static_cast<CodUint8>(0x80 | (codePoint >> shift & 0x3F)); };
        if (codePoint < 0x80) {
            out[0] = static_cast<CodUint8>(codePoint);
            return 1;
        }
        if (codePoint < 0x800) {
            out[0] = static_cast<CodUint8>(0xC0 | codePoint >> 6);
            out[1] = tail(0);
            return 2;
        }
        if (codePoint < 0x10000) {
            out[0] = static_cast<CodUint8>(0xE0 | codePoint >> 12);
            out[1] = tail(6);
            out[2] = tail(0);
            return 3;
        }
        out[0] = static_cast<CodUint8>(0xF0 | codePoint >> 18);
        out[1] = tail(12);
        out[2] = tail(6);
        out[3] = tail(0);
        return 4;
    }
};

struct Utf16Charset {
    static constexpr CodUint32 kUnit = 2;

    static ReadCharacter read(const CodUint8 *in, const CodUint8 *end) {
        if (COD_UNLIKELY(end - in < 2)) {
            return {kBad, 1};
        }
        const CodUint32 unit = loadLe<CodUint16>(in);
        if (COD_LIKELY(unit >> 11 != 0x1B)) {
            return {unit, 2};
        }
        const CodUint32 low = end - in >= 4 ? loadLe<CodUint16>(in + 2) : 0;
        if (unit >= 0xDC00 || low >> 10 != 0x37) {
            return {kBad, 2};
        }
        return {0x10000 + ((unit & 0x3FF) << 10 | (low & 0x3FF)), 4};
    }
    static CodUint32 write(CodUint32 codePoint, CodUint8 *out) {
        if (COD_LIKELY(codePoint < 0x10000)) {
            const auto unit = static_cast<CodUint16>(codePoint);
            memcpy(out, &unit, sizeof(unit));
            return 2;
        }
        const CodUint32 beyond = codePoint - 0x10000;
        const CodUint32 pair = (0xD800 | beyond >> 10) | (0xDC00 | (beyond & 0x3FF)) << 16;
        memcpy(out, &pair, sizeof(pair));
        return 4;
    }
};

// Two bytes, highest first.
inline CodUint32 writeTwo(CodUint32 code, CodUint8 *out) {
    out[0] = static_cast<CodUint8>(code >> 8);
    out[1] = static_cast<CodUint8>(code);
    return 2;
}

struct GbkCharset {
    static constexpr CodUint32 kUnit = 1;
    static constexpr CodUint32 kSingle = 0x80;  // the one byte above ASCII that is a character by itself, where the page has it

    static ReadCharacter read(const CodUint8 *in, const CodUint8 *end) {
        const CodUint32 lead = in[0];
        if (lead < 0x80) {
            return {lead, 1};
        }
        if (COD_UNLIKELY(lead == kSingle)) {
            const CodUint32 single = codeToUnicode<CODEPAGE_GBK>(lead);
            return {single != 0 ? single : kBad, 1};
        }
        const CodUint32 codePoint = COD_LIKELY(end - in >= 2) ? codeToUnicode<CODEPAGE_GBK>(lead << 8 | in[1]) : 0;
        return COD_LIKELY(codePoint != 0) ? ReadCharacter{codePoint, 2} : ReadCharacter{kBad, pairBytes(in, end)};
    }
    // The bytes of what stands for nothing: a pair, of which a letter or digit is not taken away, or its first byte alone.
    static CodUint32 pairBytes(const CodUint8 *in, const CodUint8 *end) {
        const bool isPair = isLead(in[0]) && end - in >= 2 && in[1] >= 0x80 && in[1] != 0xFF;
        return isPair ? 2 : 1;
    }
    static bool isLead(CodUint8 byte) {
        return byte > 0x80 && byte < 0xFF;
    }
    static CodUint32 write(CodUint32 codePoint, CodUint8 *out) {
        if (codePoint < 0x80) {
            out[0] = static_cast<CodUint8>(codePoint);
            return 1;
        }
        const CodUint32 code = unicodeToCode<CODEPAGE_GBK>(codePoint);
        if (COD_LIKELY(code > 0xFF)) {
            return writeTwo(code, out);
        }
        out[0] = static_cast<CodUint8>(code);
        return code != 0;
    }
};

struct Gb18030Charset {
    static constexpr CodUint32 kUnit = 1;

    static ReadCharacter read(const CodUint8 *in, const CodUint8 *end) {
        const CodUint32 lead = in[0];
        if (lead < 0x80) {
            return {lead, 1};
        }
        const bool isFour = end - in >= 2 && isDigit(in[1]);
        if (COD_UNLIKELY(end - in < (isFour ? 4 : 2))) {
            return {kBad, badBytes(in, end)};
        }
        const CodUint32 code = isFour ? __builtin_bswap32(loadLe<CodUint32>(in)) : lead << 8 | in[1];
        const CodUint32 codePoint = codeToUnicode<CODEPAGE_GB18030>(code);
        return COD_LIKELY(codePoint != 0) ? ReadCharacter{codePoint, isFour ? 4u : 2u} : ReadCharacter{kBad, badBytes(in, end)};
    }
    static bool isDigit(CodUint8 byte) {
        return byte >= 0x30 && byte < 0x3A;
    }
    // The bytes of what stands for nothing: as much as begins a code of four bytes, or as in GBK.
    static CodUint32 badBytes(const CodUint8 *in, const CodUint8 *end) {
        if (!GbkCharset::isLead(in[0]) || end - in < 2 || !isDigit(in[1])) {
            return GbkCharset::pairBytes(in, end);
        }
        if (end - in == 2) {
            return 2;
        }
        if (!GbkCharset::isLead(in[2])) {
            return 1;
        }
        return end - in == 3 ? 3 : isDigit(in[3]) ? 4 : 1;
    }
    static CodUint32 write(CodUint32 codePoint, CodUint8 *out) {
        if (codePoint < 0x80) {
            out[0] = static_cast<CodUint8>(codePoint);
            return 1;
        }
        const CodUint32 code = unicodeToCode<CODEPAGE_GB18030>(codePoint);
        if (COD_LIKELY(code < 0x10000)) {
            return code > 0xFF ? writeTwo(code, out) : 0;
        }
        const CodUint32 bytes = __builtin_bswap32(code);
        memcpy(out, &bytes, sizeof(bytes));
        return 4;
    }
};

}  // namespace cod
