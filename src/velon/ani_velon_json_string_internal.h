#pragma once

// What is read from JSON text is put elsewhere; and why a text is refused.

#include <vel_infra/base/cod_types.h>

#include "velon/ani_velon_json_internal.h"

namespace cod::velon {

// The first fault that the reader meets: a key that is there twice is met at the end of its object, a text that is too large when the
// document is.
enum class Fault : CodUint8 {
    kNone,
    kRaised,  // by the owner of the memory, or without a position
    kSyntax,
    kEscape,
    kTooDeep,
    kTooMany,
    kKeyTooLong,
};

struct Failure {
    Fault fault = Fault::kNone;
    CodUint64 offset = 0;
    const char *reason = nullptr;
};

inline constexpr const char *kUnexpectedEnd = "unexpected end of the text";

// begin: of the text that the offset counts in.
COD_COLD CodResult raiseFailure(const Failure &failure, const CodUint8 *begin);
COD_COLD CodResult raiseInvalidUtf8(const CodUint8 *begin, CodUint64 offset);

// A place in the text and one in the output. in == null: it has failed.
struct Place {
    const CodUint8 *in;
    CodUint8 *out;
};
constexpr Place kFailed = {nullptr, nullptr};

// What stands at a byte that is special within a string, other than the quote at its end. begin: of the text, for the failure.
Place readSpecial(Place at, const CodUint8 *begin, const CodUint8 *end, Failure *failure);

// Copies up to sixteen bytes of a string. Returns how many stand before the first special one; 16: there is none.
inline CodUint32 copyPlain(Place at, const CodUint8 *end) {
    const __m128i chunk = loadChunk(at.in, static_cast<CodUint64>(end - at.in));
    storeChunk(at.out, chunk);
    return static_cast<CodUint32>(__builtin_ctz(specialBytes(chunk) | 1u << kChunk));
}

}  // namespace cod::velon
