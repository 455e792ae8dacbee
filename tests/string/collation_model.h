#pragma once

// Collations over decoded characters: what each slot's comment says in a few lines, quadratic where that is obvious. Knows of code pages
// what their lookups tell. Calls nothing of string/.

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/string/ani_collation.h>

#include "codepage/ani_codepage_internal.h"

namespace collation_model {

using Bytes = std::string;
using Size = std::size_t;
constexpr CodUint32 kNothing = ~0u;

struct Character {
    Bytes bytes;
    CodUint32 code = 0;          // the code point for UTF8 and UTF16; of an invalid sequence the byte or the surrogate
    CodUint32 point = kNothing;  // the code point, when the code stands for one
    bool isValid = false;
};
using Characters = std::vector<Character>;

// ---- Characters and their bytes ----

constexpr auto byteAt = [](const Bytes &text, Size at) { return at < text.size() ? CodUint32{static_cast<CodUint8>(text[at])} : 0; };
constexpr auto isSurrogate = [](CodUint32 point) { return point >> 11 == 0xD800 >> 11; };

inline Bytes bigEndian(CodUint32 number, Size size) {
    return size == 0 ? "" : bigEndian(number >> 8, size - 1) + static_cast<char>(number);
}

inline Bytes utf8Of(CodUint32 point) {
    if (point < 0x80) {
        return bigEndian(point, 1);
    }
    const CodUint32 size = point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
    Bytes bytes = bigEndian(0xF00u >> size | point >> 6 * (size - 1), 1);
    for (CodUint32 left = size - 1; left > 0; left--) {
        bytes += bigEndian(0x80 | (point >> 6 * (left - 1) & 0x3F), 1);
    }
    return bytes;
}

inline Bytes utf16Of(CodUint32 point) {
    const auto unit = [](CodUint32 value) { return bigEndian((value & 0xFF) << 8 | value >> 8, 2); };
    return point < 0x10000 ? unit(point) : unit(0xD7C0 + (point >> 10)) + unit(0xDC00 | (point & 0x3FF));
}

inline Bytes bytesOf(CodUint16 charset, CodUint32 code) {
    const Size size = code < 0x100 ? 1 : code < 0x10000 ? 2 : code < 0x1000000 ? 3 : 4;
    return charset == UTF8 ? utf8Of(code) : charset == UTF16 ? utf16Of(code) : bigEndian(code, size);
}

// The code of bytes that are one valid character.
inline std::optional<CodUint32> codeOf(CodUint16 charset, const Bytes &bytes) {
    const CodUint32 b0 = byteAt(bytes, 0), b1 = byteAt(bytes, 1), unit = b1 << 8 | b0, size = static_cast<CodUint32>(bytes.size());
    CodUint32 number = 0, point = b0 & (size == 1 ? 0x7F : 0x7F >> size);
    for (CodUint32 i = 0; i < size; i++) {
        number = number << 8 | byteAt(bytes, i);
        point = i == 0 ? point : point << 6 | (byteAt(bytes, i) & 0x3F);
    }
    const auto when = [](bool is, CodUint32 code) { return is ? std::optional(code) : std::nullopt; };
    if (charset == UTF8) {
        return when(point < 0x110000 && !isSurrogate(point) && bytes == utf8Of(point), point);
    }
    if (charset == UTF16) {
        const CodUint32 pair = 0x10000 + ((unit & 0x3FF) << 10) + ((byteAt(bytes, 3) << 8 | byteAt(bytes, 2)) & 0x3FF);
        return size == 4 ? when(bytes == utf16Of(pair), pair) : when(size == 2 && !isSurrogate(unit), unit);
    }
    const auto isIn = [&](Size at, CodUint32 low, CodUint32 high) { return byteAt(bytes, at) >= low && byteAt(bytes, at) <= high; };
    const bool hasLead = isIn(0, 0x81, 0xFE), isOfFour = hasLead && isIn(1, 0x30, 0x39) && isIn(2, 0x81, 0xFE) && isIn(3, 0x30, 0x39);
    if (size == 1 || (charset != GBK && charset != GB18030)) {
        return when(size == 1 && ((charset != GBK && charset != GB18030) || b0 < 0x80 || (charset == GBK && b0 == 0x80)), b0);
    }
    return when(size == 2 ? hasLead && isIn(1, 0x40, 0xFE) && b1 != 0x7F : size == 4 && charset == GB18030 && isOfFour, number);
}

constexpr auto isBare = [](CodUint16 charset, CodUint32 code) { return charset == ASCII && code >= 0x80; };

inline Character makeCharacter(CodUint16 charset, CodUint32 code) {
    CodBool isNull = false;
    const CodUint32 point = aniCodepageGetElementToUni(aniGetCodepageIdByCharset(charset), code, &isNull);
    return {bytesOf(charset, code), code, isNull || isBare(charset, code) ? kNothing : point, true};
}

// Whole ones are pairs of surrogates; else each half is a character.
inline Characters decode(CodUint16 charset, const Bytes &text, bool isWhole) {
    Characters list;
    for (Size at = 0; at < text.size(); at += list.back().bytes.size()) {
        const Bytes unit = text.substr(at, charset == UTF16 ? 2 : 1);
        const CodUint32 value = byteAt(unit, 1) << 8 | byteAt(unit, 0);
        list.push_back({unit, value, kNothing, charset == UTF16 && unit.size() == 2 && !isWhole});
        for (Size size = 1; size <= (isWhole || charset != UTF16 ? 4 : 2) && at + size <= text.size(); size++) {
            const auto code = codeOf(charset, text.substr(at, size));
            code ? void(list.back() = makeCharacter(charset, *code)) : void();
        }
    }
    return list;
}

// Empty where the charset lacks the code point.
inline Bytes encode(CodUint16 charset, CodUint32 point) {
    CodBool isNull = false;
    const CodUint32 code = aniCodepageGetElementFromUni(aniGetCodepageIdByCharset(charset), point, &isNull);
    return isNull || isBare(charset, code) ? "" : bytesOf(charset, code);
}

using CaseLookup = CodUint32 (*)(CodUint32, CodUint32, CodBool *);

inline Character cased(CodUint16 charset, const Character &c, CaseLookup lookup) {
    CodBool isNull = false;
    const CodUint32 code = lookup(aniGetCodepageIdByCharset(charset), c.code, &isNull);
    return !c.isValid || isNull || charset == BINARY_CS || isBare(charset, c.code) ? c : makeCharacter(charset, code);
}

inline bool isChinese(CodUint32 point) {
    const auto isIn = [&](CodUint32 low, CodUint32 high) { return point >= low && point <= high; };
    return cod::pinyinWeight(point) != 0 || isIn(0x3400, 0x4DBF) || isIn(0x4E00, 0x9FFF) || isIn(0xF900, 0xFAFF) || isIn(0x20000, 0x3FFFF);
}

// Offsets of the characters, and the end.
inline std::vector<Size> offsets(const Characters &list) {
    std::vector<Size> at = {0};
    std::for_each(list.begin(), list.end(), [&](const Character &c) { at.push_back(at.back() + c.bytes.size()); });
    return at;
}

// ---- The slots ----

// Views are told as offset and end; failures are thrown as their codes.
struct View {
    Size begin, end;
};

struct Collation {
    CodUint16 charset, sort, caseMode;

    Characters counted(const Bytes &text) const {
        return decode(charset, text, false);
    }
    Characters whole(const Bytes &text) const {
        return decode(charset, text, true);
    }
    // The size of some characters, none of which may be invalid.
    Size sizeOf(Characters::const_iterator begin, Characters::const_iterator end) const {
        constexpr CodError kErrors[] = {ERR_CMM_GBK_SEQUENCE_WRONG, ERR_CMM_UTF8_SEQUENCE_WRONG, ERR_CMM_UTF16_SEQUENCE_WRONG};
        Size size = 0;
        for (auto c = begin; c != end; ++c) {
            size += c->isValid ? c->bytes.size() : throw kErrors[charset == UTF8 ? 1 : charset == UTF16 ? 2 : 0];
        }
        return size;
    }
    Size count(const Bytes &text) const {
        const Characters list = counted(text);
        return sizeOf(list.begin(), list.end()), list.size();
    }
    Size countOfValid(const Bytes &text) const {
        const Characters list = whole(text);
        return sizeOf(list.begin(), list.end()), counted(text).size();
    }
    static void requireIndex(bool isThere) {
        isThere ? void() : throw CodError{ERR_CMM_OUT_OF_INDEX};
    }
    static Size boundaryBefore(const Characters &list, Size offset) {
        const std::vector<Size> at = offsets(list);
        return *std::prev(std::upper_bound(at.begin(), at.end(), offset));
    }

    // ---- Equality: what two characters have in common that are equal ----

    Character lowered(const Character &c) const {
        return cased(charset, c, aniCodepageGetElementToLower);
    }
    Bytes key(const Character &c) const {
        return (c.isValid ? "" : "invalid ") + (caseMode == CASE_INS ? lowered(c) : c).bytes;
    }
    std::vector<Bytes> keys(const Bytes &text) const {
        std::vector<Bytes> list;
        const Characters characters = whole(text);
        std::transform(characters.begin(), characters.end(), std::back_inserter(list), [&](const Character &c) { return key(c); });
        return list;
    }
    bool equal(const Bytes &left, const Bytes &right) const {
        return keys(left) == keys(right);
    }

    // ---- Trimming ----

    template <class Goes>
    View trimmed(const Bytes &text, bool atLeft, Goes goes) const {
        const Characters list = whole(text);
        const auto stays = std::not_fn(goes);
        const auto first = std::find_if(list.begin(), list.end(), stays);
        const auto last = std::find_if(list.rbegin(), list.rend(), stays);
        const std::vector<Size> at = offsets(list);
        return atLeft ? View{at[Size(first - list.begin())], text.size()} : View{0, at[Size(list.rend() - last)]};
    }
    View trim(const Bytes &text, bool atLeft) const {
        return trimmed(text, atLeft, [](const Character &c) { return c.point == 0x20; });
    }
    View trimSet(const Bytes &text, const Bytes &set, bool atLeft) const {
        const std::vector<Bytes> list = keys(set);
        return trimmed(text, atLeft, [&](const Character &c) { return std::find(list.begin(), list.end(), key(c)) != list.end(); });
    }
    View trimInvalid(const Bytes &text) const {
        return trimmed(text, false, [](const Character &c) { return !c.isValid; });
    }

    // ---- Case ----

    Bytes map(const Bytes &text, CaseLookup lookup) const {
        Bytes result;
        const Characters list = whole(text);
        sizeOf(list.begin(), list.end());
        std::for_each(list.begin(), list.end(), [&](const Character &c) { result += cased(charset, c, lookup).bytes; });
        return result;
    }
    bool isCaseFoldWord(const Bytes &text) const {
        const Characters list = whole(text);
        return std::any_of(list.begin(), list.end(), [&](const Character &c) {
            return lowered(c).code != c.code || cased(charset, c, aniCodepageGetElementToUpper).code != c.code;
        });
    }

    // ---- Parts and positions ----

    // Of `size` items the index of the first, and behind the last one.
    static View part(Size size, CodInt64 start, CodUint32 wanted) {
        const auto items = static_cast<CodInt64>(size);
        const CodInt64 begin = start > 0 ? start - 1 : start == 0 ? 0 : start < -items ? items : items + start;
        return begin >= items ? View{size, size} : View{Size(begin), Size(std::min<CodInt64>(items, begin + wanted))};
    }
    View substr(const Bytes &text, CodInt64 start, CodUint32 wanted) const {
        const Characters list = counted(text);
        const View items = part(list.size(), start, wanted);
        sizeOf(list.begin(), start < 0 ? list.end() : list.begin() + std::ptrdiff_t(items.end));
        return {offsets(list)[items.begin], offsets(list)[items.end]};
    }
    View substrb(const Bytes &text, CodInt64 start, CodUint32 wanted) const {
        const View bytes = part(text.size(), start, wanted);
        const std::vector<Size> at = offsets(whole(text));
        const Size begin = *std::lower_bound(at.begin(), at.end(), bytes.begin);
        return {begin, std::max(begin, boundaryBefore(whole(text), bytes.end))};
    }
    Size charPos(const Bytes &text, CodUint32 position) const {
        const Characters list = counted(text);
        const Size size = sizeOf(list.begin(), list.begin() + std::min<std::ptrdiff_t>(position - 1, std::ssize(list)));
        return requireIndex(position - 1 <= list.size()), size;
    }
    Size charPos2(const Bytes &text, CodUint32 offset) const {
        requireIndex(offset <= text.size());
        const Characters list = counted(text);
        const std::vector<Size> at = offsets(list);
        const auto behind = std::upper_bound(at.begin(), at.end(), offset) - at.begin();
        return sizeOf(list.begin(), list.begin() + std::min(behind, std::ssize(list))), Size(behind);
    }
    Size nextCharLengthB(const Bytes &text, CodUint32 from) const {
        requireIndex(from <= text.size());
        const Characters list = counted(text.substr(from));
        return sizeOf(list.begin(), list.begin() + (list.empty() ? 0 : 1));
    }
    Size posMove(const Bytes &text, CodUint32 from, CodInt32 steps) const {
        requireIndex(from <= text.size());
        const Characters before = counted(text.substr(0, from)), behind = counted(text.substr(from));
        const auto back = std::min<CodInt64>(std::ssize(before), -CodInt64{steps}), on = std::min<CodInt64>(std::ssize(behind), steps);
        return steps < 0 ? from - sizeOf(before.end() - back, before.end()) : from + sizeOf(behind.begin(), behind.begin() + on);
    }
    Size charBoundary(const Bytes &text, CodUint32 offset) const {
        return boundaryBefore(whole(text), offset);
    }
    Size getDisplayWidth(const Bytes &text) const {
        Size columns = 0;
        const Characters list = whole(text);
        std::for_each(list.begin(), list.end(), [&](const Character &c) { columns += cod::displayColumns(c.point); });
        return columns;
    }

    // ---- Order ----

    using Weight = std::pair<int, Bytes>;
    enum Class { kPoint, kChinese, kUnlisted, kUnassigned, kInvalid };

    Weight weight(const Character &c, CodUint32 next) const {
        const Character lower = lowered(c);
        if (!c.isValid) {
            return {kInvalid, bigEndian(c.bytes.size() == 2 ? c.code : 0x10000 + c.code, 4)};
        }
        if (sort == BINARY) {
            const Character &of = caseMode == CASE_INS ? lower : c;
            return {kPoint, charset == UTF16 ? bigEndian(of.code, 4) : of.bytes};
        }
        if (c.point == kNothing || encode(charset, c.point) != c.bytes) {
            return {kUnassigned, c.bytes};
        }
        if (sort == CHINESE_PINYIN && isChinese(c.point)) {
            const CodUint32 pinyin = cod::pinyinWeightBefore(c.point, next);
            return {pinyin != 0 ? kChinese : kUnlisted, bigEndian(pinyin != 0 ? pinyin : c.point, 4)};
        }
        return {kPoint, bigEndian(lower.point, 4)};
    }
    // What is looked at first, and where that is alike.
    std::pair<std::vector<Weight>, std::vector<Weight>> weights(const Bytes &text) const {
        if (sort == BINARY && caseMode == CASE_SENS && charset != UTF16) {
            return {{{kPoint, text}}, {}};
        }
        std::vector<Weight> first, second;
        const Characters list = whole(text);
        for (Size i = 0; i < list.size(); i++) {
            const Character &c = list[i], lower = lowered(c);
            first.push_back(weight(c, i + 1 < list.size() ? list[i + 1].point : kNothing));
            second.emplace_back(caseMode == CASE_SENS && lower.code != c.code, (caseMode == CASE_SENS ? c : lower).bytes);
        }
        return {first, second};
    }
    CodInt32 compare(const Bytes &left, const Bytes &right) const {
        const auto order = weights(left) <=> weights(right);
        return order < 0 ? -1 : order > 0 ? 1 : 0;
    }

    // ---- Search ----

    std::vector<View> occurrences(const Bytes &text, const Bytes &sub) const {
        const std::vector<Bytes> in = keys(text), wanted = keys(sub);
        const std::vector<Size> at = offsets(whole(text));
        std::vector<View> found;
        for (Size i = 0; i + wanted.size() <= in.size(); i++) {
            const bool isHere = std::equal(wanted.begin(), wanted.end(), in.begin() + std::ptrdiff_t(i));
            isHere ? found.push_back({at[i], at[i + wanted.size()]}) : void();
        }
        return found;
    }
    Size in(const Bytes &text, const Bytes &sub, CodInt64 start, CodUint32 nth) const {
        const auto size = static_cast<CodInt64>(countOfValid(text));
        std::vector<Size> positions;
        for (const View &found : occurrences(text, sub)) {
            const auto position = std::ssize(counted(text.substr(0, found.begin))) + 1;
            const bool isThere = start > 0 ? position >= start : position <= size + 1 + start && start >= -size && start != 0;
            isThere ? positions.push_back(Size(position)) : void();
        }
        start < 0 ? std::reverse(positions.begin(), positions.end()) : void();
        return nth > 0 && nth <= positions.size() ? positions[nth - 1] : 0;
    }
    Size find(const Bytes &text, const Bytes &sub, Size from) const {
        const std::vector<View> found = occurrences(text.substr(from), sub);
        return found.empty() ? COD_TEXT_NOT_FOUND : from + found.front().begin;
    }
    Size findLast(const Bytes &text, const Bytes &sub, Size end) const {
        const std::vector<View> found = occurrences(text.substr(0, end), sub);
        return found.empty() ? COD_TEXT_NOT_FOUND : found.back().begin;
    }
    // Head and tail, when the separator is there.
    std::optional<std::pair<View, View>> split(const Bytes &text, const Bytes &separator, bool fromBehind) const {
        const std::vector<View> found = occurrences(text, separator);
        if (separator.empty() || found.empty()) {
            return {};
        }
        const View at = fromBehind ? found.back() : found.front();
        return {{{0, at.begin}, {at.end, text.size()}}};
    }

    // ---- Sets ----

    Bytes deDuplicate(const Bytes &text) const {
        Bytes result;
        std::set<Bytes> seen;
        countOfValid(text);
        const Characters list = whole(text);
        std::for_each(list.begin(), list.end(), [&](const Character &c) { result += seen.insert(key(c)).second ? c.bytes : ""; });
        return result;
    }
    Bytes translate(const Bytes &text, const Bytes &from, const Bytes &to) const {
        Bytes result;
        countOfValid(text), countOfValid(from), countOfValid(to);
        const std::vector<Bytes> places = keys(from);
        const Characters others = whole(to);
        for (const Character &c : whole(text)) {
            const auto place = Size(std::find(places.begin(), places.end(), key(c)) - places.begin());
            result += place == places.size() ? c.bytes : place < others.size() ? others[place].bytes : "";
        }
        return result;
    }

    // ---- Unicode ----

    Character toUni(const Bytes &text, CodUint32 offset) const {
        requireIndex(offset < text.size());
        const Characters list = whole(text.substr(offset));
        sizeOf(list.begin(), list.begin() + 1);
        return list.front().point == kNothing ? throw CodError{ERR_CMM_CONVERT_STRING} : list.front();
    }
};

}  // namespace collation_model
