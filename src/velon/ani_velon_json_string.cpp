// Strings of JSON text: escapes, and the texts of failures.

#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_util.h>

#include "base/cod_utf8.h"
#include "velon/ani_velon_base_internal.h"
#include "velon/ani_velon_json_string_internal.h"

namespace cod::velon {
namespace {

constexpr const char *kUnknownEscape = "unknown escape";
constexpr const char *kControlCharacter = "control character in a string";

// ---- Escapes ----

CodUint8 *putUtf8(CodUint8 *out, CodUint32 codePoint) {
    const auto tail = [&](CodUint32 shift) { return static_cast<CodUint8>(0x80 | (codePoint >> shift & 0x3F)); };
    if (codePoint < 0x80) {
        *out++ = static_cast<CodUint8>(codePoint);
    } else if (codePoint < 0x800) {
        *out++ = static_cast<CodUint8>(0xC0 | codePoint >> 6);
        *out++ = tail(0);
    } else if (codePoint < 0x10000) {
        *out++ = static_cast<CodUint8>(0xE0 | codePoint >> 12);
        *out++ = tail(6);
        *out++ = tail(0);
    } else {
        *out++ = static_cast<CodUint8>(0xF0 | codePoint >> 18);
        *out++ = tail(12);
        *out++ = tail(6);
        *out++ = tail(0);
    }
    return out;
}

constexpr bool isSurrogate(CodUint32 unit) {
    return unit - 0xD800 < 0x800;
}

// Four hexadecimal digits, or false.
bool readHex(const CodUint8 *in, const CodUint8 *end, CodUint32 *unit) {
    constexpr CodInt64 kDigits = 4;
    *unit = 0;
    for (CodInt64 i = 0; i < kDigits; i++) {
        const CodUint32 c = in + i < end ? in[i] : 0;
        const CodUint32 letter = (c | 0x20) - 'a';
        if (c - '0' >= 10 && letter >= 6) {
            return false;
        }
        *unit = *unit << 4 | (c - '0' < 10 ? c - '0' : letter + 10);
    }
    return true;
}

// The four digits behind \u, and the escape behind them when two make one character. At most four bytes are written.
Place readUnicode(Place at, const CodUint8 *end) {
    CodUint32 first = 0;
    CodUint32 second = 0;
    if (!readHex(at.in, end, &first)) {
        return kFailed;
    }
    at.in += 4;
    if (!isSurrogate(first)) {
        return {at.in, putUtf8(at.out, first)};
    }
    const bool isPair = first < 0xDC00 && end - at.in >= 6 && at.in[0] == '\\' && at.in[1] == 'u' && readHex(at.in + 2, end, &second) &&
                        second - 0xDC00 < 0x400;
    if (!isPair) {
        return kFailed;
    }
    return {at.in + 6, putUtf8(at.out, 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00))};
}

COD_COLD Place failEscape(Failure *failure, Fault fault, CodUint64 offset, const char *reason) {
    *failure = {fault, offset, reason};
    return kFailed;
}

// ---- Raising ----

CodTextPos positionOf(const CodUint8 *begin, CodUint64 offset) {
    CodTextPos pos = {1, 1, static_cast<CodUint32>(offset)};
    for (CodUint64 i = 0; i < offset; i++) {
        pos.column = begin[i] == '\n' ? 1 : pos.column + 1;
        pos.line += begin[i] == '\n';
    }
    return pos;
}

CodResult raiseAt(const Failure &failure, CodTextPos pos) {
    const int line = static_cast<int>(pos.line);
    const int column = static_cast<int>(pos.column);
    switch (failure.fault) {
        case Fault::kEscape:
            return codRaise(ERR_CMM_VELON_INVALID_UNICODE_ESCAPE, line, column);
        case Fault::kTooDeep:
            return raiseNestedTooDeeply();
        case Fault::kTooMany:
            return codRaise(ERR_CMM_VELON_TOO_MANY_CHILDREN, static_cast<int>(VELON_MAX_ELEMENTS));
        case Fault::kKeyTooLong:
            return codRaise(ERR_CMM_INVALID_PARAMETER, "a key is too long");
        default:
            return codRaise(ERR_CMM_VELON_JSON_SYNTAX_ERROR, line, column, failure.reason);
    }
}

}  // namespace

CodResult raiseFailure(const Failure &failure, const CodUint8 *begin) {
    if (failure.fault != Fault::kRaised) {
        const CodTextPos pos = positionOf(begin, failure.offset);
        raiseAt(failure, pos);
        codSetPos(pos);
    }
    return COD_ERROR;
}

CodResult raiseInvalidUtf8(const CodUint8 *begin, CodUint64 offset) {
    codRaise(ERR_CMM_VELON_INVALID_UNICODE);
    codSetPos(positionOf(begin, offset));
    return COD_ERROR;
}

Place readSpecial(Place at, const CodUint8 *begin, const CodUint8 *end, Failure *failure) {
    const CodUint64 offset = static_cast<CodUint64>(at.in - begin);
    if (at.in == end || (*at.in == '\\' && at.in + 1 == end)) {
        return failEscape(failure, Fault::kSyntax, static_cast<CodUint64>(end - begin), kUnexpectedEnd);
    }
    if (*at.in != '\\') {
        return failEscape(failure, Fault::kSyntax, offset, kControlCharacter);
    }
    const CodUint8 c = at.in[1];
    if (c == 'u') {
        at = readUnicode({at.in + 2, at.out}, end);
        return at.in != nullptr ? at : failEscape(failure, Fault::kEscape, offset, nullptr);
    }
    *at.out = kUnescaped.to[c];
    return *at.out != 0 ? Place{at.in + 2, at.out + 1} : failEscape(failure, Fault::kSyntax, offset, kUnknownEscape);
}

namespace {

// All bytes of a string that has no quotes around it. Returns the end of the output, or null.
CodUint8 *resolve(Place at, const CodUint8 *end, Failure *failure) {
    const CodUint8 *begin = at.in;
    while (at.in != nullptr && at.in != end) {
        const CodUint32 plain = copyPlain(at, end);
        at = {at.in + plain, at.out + plain};
        if (plain < kChunk && at.in != end) {
            const bool isQuote = *at.in == '"';
            at = isQuote ? failEscape(failure, Fault::kSyntax, static_cast<CodUint64>(at.in - begin), "a quote in a string")
                         : readSpecial(at, begin, end, failure);
        }
    }
    return at.out;
}

}  // namespace
}  // namespace cod::velon

using namespace cod;
using namespace cod::velon;

CodResult jsonStringToOwned(CodMemAlloc *owner, const CodText *json, CodText *text) {
    if (anyNull(owner, json, text) || (json->str == nullptr && json->len != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (json->len == 0) {
        text->str = nullptr;
        text->len = 0;
        return COD_SUCCESS;
    }
    if (json->len > UINT32_MAX - kChunk) {
        return codRaise(ERR_CMM_OUT_OF_MEMORY, "a JSON string", static_cast<long>(json->len));
    }
    const auto *begin = reinterpret_cast<const CodUint8 *>(json->str);
    const CodUint64 valid = isValidUtf8(begin, json->len) ? json->len : utf8ValidPrefix(begin, json->len);
    // What is resolved is never longer; whole chunks are written.
    void *memory = nullptr;
    COD_TRY(owner->alloc(owner, json->len + kChunk, &memory));
    auto *out = static_cast<CodUint8 *>(memory);
    Failure failure;
    const CodUint8 *outEnd = resolve({begin, out}, begin + valid, &failure);
    if (outEnd == nullptr || valid != json->len) {
        if (owner->free != nullptr) {
            owner->free(owner, memory);
        }
        // A fault before the bytes that are no UTF-8 comes first.
        const bool isBefore = outEnd == nullptr && failure.offset != valid;
        return isBefore || valid == json->len ? raiseFailure(failure, begin) : raiseInvalidUtf8(begin, valid);
    }
    text->str = static_cast<CodChar *>(memory);
    text->len = static_cast<CodUint32>(outEnd - out);
    return COD_SUCCESS;
}

CodResult jsonStringPushUnicode(VelonBuf *buf, CodUint32 codePoint) {
    if (anyNull(buf)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (isSurrogate(codePoint) || codePoint > 0x10FFFF) {
        return codRaise(ERR_CMM_VELON_INVALID_UNICODE);
    }
    CodUint8 bytes[4];
    const CodUint32 size = static_cast<CodUint32>(putUtf8(bytes, codePoint) - bytes);
    COD_TRY(velonBufReserve(buf, size));
    memcpy(buf->ptr + buf->len, bytes, size);
    buf->len += size;
    return COD_SUCCESS;
}
