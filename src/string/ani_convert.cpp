// Strict conversion: one loop, made once for each pair of charsets.

#include <vel_infra/string/ani_convert.h>

#include <emmintrin.h>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>

#include "base/cod_utf16.h"
#include "string/ani_charset_internal.h"
#include "string/ani_text_internal.h"

namespace cod {
namespace {

// A text and the room for its conversion, and how far it has come.
struct Work {
    const CodUint8 *begin;
    const CodUint8 *in;
    const CodUint8 *end;
    CodUint8 *out;
    CodUint8 *outEnd;
    const CodUint8 *firstBad;     // end: none
    const CodUint8 *nextStretch;  // where wider vectors may be tried again
    CodConvertMode mode;
};

enum class Outcome { kWhole, kFull, kRefused };

constexpr CodInt64 kBlock = 16;     // characters
constexpr CodInt64 kStretch = 256;  // bytes

// Four blocks at a time: read before any of them is written, so that no load waits for a store of the same place in another page.
[[gnu::noinline]] void copyAscii(Work &work) {
    constexpr CodInt64 size = 4 * kBlock;
    while (work.end - work.in >= size && work.outEnd - work.out >= size) {
        const auto *from = reinterpret_cast<const __m128i *>(work.in);
        auto *to = reinterpret_cast<__m128i *>(work.out);
        const __m128i blocks[] = {_mm_loadu_si128(from), _mm_loadu_si128(from + 1), _mm_loadu_si128(from + 2), _mm_loadu_si128(from + 3)};
        if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(blocks[0], blocks[1]), _mm_or_si128(blocks[2], blocks[3]))) != 0) {
            return;
        }
        for (int i = 0; i < 4; i++) {
            _mm_storeu_si128(to + i, blocks[i]);
        }
        work.in += size;
        work.out += size;
    }
}

// Whole blocks of ASCII, as long as they come and there is room.
template <class Source, class Target>
inline void convertAscii(Work &work) {
    const __m128i zero = _mm_setzero_si128();
    while (work.end - work.in >= kBlock * Source::kUnit && work.outEnd - work.out >= kBlock * Target::kUnit) {
        const auto *from = reinterpret_cast<const __m128i *>(work.in);
        auto *to = reinterpret_cast<__m128i *>(work.out);
        const __m128i first = _mm_loadu_si128(from);
        __m128i block = first;
        if constexpr (Source::kUnit == 2) {
            const __m128i second = _mm_loadu_si128(from + 1);
            const __m128i others = _mm_and_si128(_mm_or_si128(first, second), _mm_set1_epi16(static_cast<CodInt16>(0xFF80)));
            if (_mm_movemask_epi8(_mm_cmpeq_epi8(others, zero)) != 0xFFFF) {
                return;
            }
            block = _mm_packus_epi16(first, second);
        } else if (_mm_movemask_epi8(first) != 0) {
            return;
        }
        if constexpr (Target::kUnit == 2) {
            _mm_storeu_si128(to, _mm_unpacklo_epi8(block, zero));
            _mm_storeu_si128(to + 1, _mm_unpackhi_epi8(block, zero));
        } else {
            _mm_storeu_si128(to, block);
        }
        work.in += kBlock * Source::kUnit;
        work.out += kBlock * Target::kUnit;
        if constexpr (Source::kUnit == 1 && Target::kUnit == 1) {
            copyAscii(work);
        }
    }
}

template <class Source, class Target>
constexpr Utf16Convert kConvertStretch = nullptr;
template <>
constexpr Utf16Convert kConvertStretch<Utf8Charset, Utf16Charset> = utf8ToUtf16;
template <>
constexpr Utf16Convert kConvertStretch<Utf16Charset, Utf8Charset> = utf16ToUtf8;

// Whole stretches, by wider vectors where the pair and the processor have them. Among many bad characters they would be begun in vain.
template <class Source, class Target>
inline void convertStretch(Work &work) {
    constexpr Utf16Convert stretch = kConvertStretch<Source, Target>;
    if (stretch != nullptr && work.end - work.in >= kBlock && work.in >= work.nextStretch) {
        const Utf16Progress done =
            stretch(work.in, static_cast<CodUint64>(work.end - work.in), work.out, static_cast<CodUint64>(work.outEnd - work.out));
        work.in += done.read;
        work.out += done.written;
        const bool isWorthIt = done.read >= CodUint64{kStretch} || work.end - work.in < kStretch;
        work.nextStretch = isWorthIt ? work.in : work.in + kStretch;
    }
}

// A short text is often ASCII alone, for which the wider vectors are not worth their call.
template <class Source, class Target>
inline void convertBlocks(Work &work) {
    if (work.end - work.in >= kStretch) {
        convertStretch<Source, Target>(work);
        convertAscii<Source, Target>(work);
    } else {
        convertAscii<Source, Target>(work);
        convertStretch<Source, Target>(work);
    }
}

template <class Target>
inline bool put(Work &work, CodUint32 codePoint, CodUint32 *written) {
    CodUint8 bytes[kMostBytes];
    if (COD_LIKELY(work.outEnd - work.out >= static_cast<CodInt64>(kMostBytes))) {
        *written = Target::write(codePoint, work.out);
        work.out += *written;
        return true;
    }
    *written = Target::write(codePoint, bytes);
    if (work.outEnd - work.out < static_cast<CodInt64>(*written)) {
        return false;
    }
    memcpy(work.out, bytes, *written);
    work.out += *written;
    return true;
}

// A bad character at work.in, of which work.in is moved past so many bytes.
template <class Target>
COD_COLD Outcome passBad(Work &work, CodUint32 bytes) {
    if (work.firstBad == work.end) {
        work.firstBad = work.in;
    }
    if (work.mode == COD_CONVERT_REFUSE) {
        return Outcome::kRefused;
    }
    work.in += bytes;
    if (work.mode == COD_CONVERT_SKIP) {
        return Outcome::kWhole;
    }
    CodUint32 written = 0;
    bool hasRoom = put<Target>(work, kReplacement, &written);
    if (hasRoom && written == 0) {
        hasRoom = put<Target>(work, '?', &written);
    }
    return hasRoom ? Outcome::kWhole : Outcome::kFull;
}

template <class Source, class Target>
Outcome convert(Work &work) {
    for (;;) {
        convertBlocks<Source, Target>(work);
        // Up to the next chance of a block.
        for (CodInt64 i = 0; i < kBlock; i++) {
            if (work.in == work.end) {
                return Outcome::kWhole;
            }
            const ReadCharacter character = Source::read(work.in, work.end);
            CodUint32 written = 0;
            if (COD_LIKELY(character.codePoint != kBad) && COD_UNLIKELY(!put<Target>(work, character.codePoint, &written))) {
                return Outcome::kFull;
            }
            if (COD_UNLIKELY(written == 0)) {
                const Outcome outcome = passBad<Target>(work, character.bytes);
                if (outcome != Outcome::kWhole) {
                    return outcome;
                }
            } else {
                work.in += character.bytes;
            }
        }
    }
}

using Convert = Outcome (*)(Work &work);

// The charsets in the order of their ids.
constexpr CodUint32 kCharsets = 6;
template <class Source>
constexpr Convert kConvertFrom[kCharsets] = {convert<Source, AsciiCharset>, convert<Source, GbkCharset>,
                                             convert<Source, Utf8Charset>,  convert<Source, Iso88591Charset>,
                                             convert<Source, Utf16Charset>, convert<Source, Gb18030Charset>};
constexpr const Convert *kConvert[kCharsets] = {kConvertFrom<AsciiCharset>,    kConvertFrom<GbkCharset>,   kConvertFrom<Utf8Charset>,
                                                kConvertFrom<Iso88591Charset>, kConvertFrom<Utf16Charset>, kConvertFrom<Gb18030Charset>};

CodResult checkCharset(CodUint16 charset) {
    if (charset >= kCharsets) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the charset has no characters");
    }
    const bool needsPage = charset == GBK || charset == GB18030;
    return needsPage && !isCodepageInit(aniGetCodepageIdByCharset(charset)) ? codRaise(ERR_CMM_INVALID_CODEPAGE) : COD_SUCCESS;
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codTextConvertStrict(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint32 *len,
                               CodUint16 srcCharset, CodConvertMode mode, CodUint32 *badOffset) {
    if (isMissing(text) || (buf == nullptr && bufSize != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (static_cast<CodUint32>(mode) >= __COD_CONVERT_MODE_COUNT__) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "unknown mode of conversion");
    }
    COD_TRY(checkCharset(srcCharset));
    COD_TRY(checkCharset(dstCharset));
    const CodUint32 terminator = terminatorSize(dstCharset);
    if (bufSize < terminator) {
        return codRaise(ERR_CMM_COPY_DATA, text->len, bufSize);
    }
    const auto *in = reinterpret_cast<const CodUint8 *>(text->str);
    auto *out = reinterpret_cast<CodUint8 *>(buf);
    const CodUint8 *end = text->len != 0 ? in + text->len : in;
    Work work = {in, in, end, out, out + (bufSize - terminator), end, in, mode};
    const Outcome outcome = kConvert[srcCharset][dstCharset](work);
    if (outcome == Outcome::kFull) {
        return codRaise(ERR_CMM_COPY_DATA, text->len, bufSize);
    }
    if (badOffset != nullptr) {
        *badOffset = static_cast<CodUint32>(work.firstBad - in);
    }
    if (outcome == Outcome::kRefused) {
        return codRaise(ERR_CMM_CONVERT_STRING);
    }
    memset(work.out, 0, terminator);
    if (len != nullptr) {
        *len = static_cast<CodUint32>(work.out - out);
    }
    return COD_SUCCESS;
}
