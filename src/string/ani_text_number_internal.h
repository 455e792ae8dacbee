#pragma once

// Numbers and booleans as texts: the slots of collations from fromInt to toBool, as string/ani_collation.h words them. Charsets differ in
// nothing but the width of a character: that of UTF16 is two bytes, all others have ASCII where numbers are concerned.

#include <vel_infra/number/ani_number.h>

namespace cod {

template <bool isWide>
struct TextNumbers {
    static CodResult fromInt(CodInt64 value, CodText *dst, CodUint32 bufSize);
    static CodResult fromUint(CodUint64 value, CodText *dst, CodUint32 bufSize);
    // -0.0 is written as 0, as NUMBER has it.
    static CodResult fromDouble(CodDouble value, CodText *dst, CodUint32 bufSize);
    static CodResult fromFloat(CodFloat value, CodText *dst, CodUint32 bufSize);
    static CodResult fromNumber(const CodNumber *value, CodText *dst, CodUint32 bufSize);
    static CodResult fromNumberByForm(const CodNumber *value, const CodText *form, CodText *dst, CodUint32 bufSize);
    static CodResult fromNumberBySciForm(const CodNumber *value, const CodText *form, CodText *dst, CodUint32 bufSize);

    static CodResult toNumberByForm(const CodText *text, const CodText *form, CodNumber *value);
    static CodResult toNumber(const CodText *text, CodNumber *value);
    static CodResult toTruncNumber(const CodText *text, CodNumber *value);
    // Exponents beyond those of NUMBER are read as well: all that fromDouble writes is read back.
    static CodResult toFloat(const CodText *text, CodFloat *value);
    static CodResult toDouble(const CodText *text, CodDouble *value);
    static CodResult toUint64(const CodText *text, CodUint64 *value);
    static CodResult toUint32(const CodText *text, CodUint32 *value);
    static CodResult toUint16(const CodText *text, CodUint16 *value);
    static CodResult toUint8(const CodText *text, CodUint8 *value);
    static CodResult toBool(const CodText *text, CodBool *value);
};

extern template struct TextNumbers<false>;
extern template struct TextNumbers<true>;

}  // namespace cod
