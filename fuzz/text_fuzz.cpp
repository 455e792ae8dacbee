#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/string/ani_collation.h>

// The first byte chooses a collation, the next ones a position, a number and the size of a buffer, the fifth one where the second text
// begins. Every slot is called with both; keys must be ordered as the texts are, and a search must find what a loop over equal finds.

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

struct Input {
    const CodCollation &ops;
    CodText text, other;
    CodInt64 start;
    CodUint32 count, room;
};

// Into exactly the room given.
template <class Call>
std::string write(CodUint32 room, Call call) {
    std::vector<char> buffer(room);
    CodText dst = {buffer.data(), 0, 0};
    const bool isWritten = call(&dst, room) == COD_SUCCESS;
    require(dst.len <= room && (isWritten || dst.len == 0));
    return {dst.str, dst.len};
}

void takeParts(const Input &in) {
    const CodCollation &ops = in.ops;
    for (const CodTextTrim trim : {ops.trimLeft, ops.trimRight, ops.trimInvalidChar}) {
        CodText text = in.text;
        trim(&text);
        require(text.str >= in.text.str && text.str + text.len <= in.text.str + in.text.len);
    }
    for (const CodTextTrimSet trim : {ops.trimCharLeft, ops.trimCharRight}) {
        CodText text = in.text;
        trim(&text, &in.other);
        require(text.str >= in.text.str && text.str + text.len <= in.text.str + in.text.len);
    }
    CodText head = in.text, tail = in.text;
    ops.substr(&in.text, in.start, in.count, &head);
    require(ops.substrb(&in.text, in.start, in.count, &head) == COD_SUCCESS && head.len <= in.count);
    for (const CodTextSplit split : {ops.split, ops.splitReverse}) {
        require(!split(&in.text, &in.other, &head, &tail) || head.len + tail.len < in.text.len);
    }
}

void takeNumbers(const Input &in) {
    const CodCollation &ops = in.ops;
    const CodUint32 boundary = ops.charBoundary(&in.text, in.count);
    CodUint32 result = 0, bytes = 0;
    CodNumber number = {};
    alignas(8) CodUint8 value[8];
    ops.length(&in.text, &result);
    ops.in(&in.text, &in.other, in.start, in.count, &result);
    ops.charPos(&in.text, in.count, &result);
    ops.charPos2(&in.text, in.count, &result);
    ops.nextCharLengthB(&in.text, boundary, &result);
    ops.posMove(&in.text, boundary, static_cast<CodInt32>(in.start), &result);
    ops.toUni(&in.text, boundary, &result, &bytes);
    require(ops.getDisplayWidth(&in.text) <= 2 * in.text.len && (!ops.isCaseFoldWord(&in.text) || in.text.len > 0));
    ops.toNumberByForm(&in.text, &in.other, &number);
    ops.toTruncNumber(&in.text, &number);
    ops.toNumber(&in.text, &number);
    ops.toFloat(&in.text, reinterpret_cast<CodFloat *>(value));
    ops.toDouble(&in.text, reinterpret_cast<CodDouble *>(value));
    ops.toUint64(&in.text, reinterpret_cast<CodUint64 *>(value));
    ops.toBool(&in.text, reinterpret_cast<CodBool *>(value));
    write(in.room, [&](auto dst, auto room) { return ops.fromNumber(&number, dst, room); });
    write(in.room, [&](auto dst, auto room) { return ops.fromNumberByForm(&number, &in.other, dst, room); });
    write(in.room, [&](auto dst, auto room) { return ops.fromNumberBySciForm(&number, &in.other, dst, room); });
}

void writeTexts(const Input &in) {
    const CodCollation &ops = in.ops;
    for (const CodTextMap map : {ops.upper, ops.lower, ops.deDuplicate, ops.nlsSort, ops.mysqlSort}) {
        write(in.room, [&](auto dst, auto room) { return map(&in.text, dst, room); });
    }
    write(in.room, [&](auto dst, auto room) { return ops.translate(&in.text, &in.other, &in.text, dst, room); });
    write(in.room, [&](auto dst, auto room) { return ops.fromUni(in.count * 97, dst, room); });
}

void checkOrder(const Input &in) {
    const auto keyOf = [&](const CodText &text) {
        return write(6 * text.len, [&](auto dst, auto room) { return in.ops.nlsSort(&text, dst, room); });
    };
    const CodInt32 order = in.ops.compare(&in.text, &in.other), keys = keyOf(in.text).compare(keyOf(in.other));
    require(order == -in.ops.compare(&in.other, &in.text) && order == (keys > 0) - (keys < 0));
}

void checkSearch(const Input &in) {
    const CodText text = {in.text.str, std::min(in.text.len, 60u), 0}, &sub = in.other;
    CodUint32 first = COD_TEXT_NOT_FOUND, last = COD_TEXT_NOT_FOUND;
    for (CodUint32 begin = 0; begin <= text.len; begin++) {
        for (CodUint32 end = begin; in.ops.charBoundary(&text, begin) == begin && end <= text.len; end++) {
            const CodText part = {text.str + begin, end - begin, 0};
            if (in.ops.charBoundary(&text, end) == end && in.ops.equal(&part, &sub)) {
                first = std::min(first, begin);
                last = begin;
            }
        }
    }
    CodLikeSubInfo info;
    in.ops.setLikeSubInfo(&sub, &info);
    require(in.ops.kmpGetFirstSubPos(&text, &sub) == first && in.ops.kmpIn(&text, &sub) == (first != COD_TEXT_NOT_FOUND));
    require(in.ops.inLong(&text, 0, &info) == first && in.ops.backwardInLongFast(&text, text.len, &info) == last);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool isLoaded = aniCodepageInitFrom(CODEPAGE_FOLDER) == COD_SUCCESS;
    require(isLoaded);
    if (size < 5) {
        return 0;
    }
    constexpr CodUint16 kCharsets[] = {ASCII, GBK, UTF8, ISO88591, UTF16, GB18030, BINARY_CS};
    const CodCollation &ops = *codGetCollation(kCharsets[data[0] % 7], data[0] / 7 % 3, data[0] / 21 % 2);
    const std::size_t middle = 5 + data[4] % (size - 4);
    // The memory of each ends with its last byte.
    std::vector<char> text(data + 5, data + middle), other(data + middle, data + size);
    const CodText texts[] = {{text.data(), static_cast<CodUint32>(text.size()), 0},
                             {other.data(), static_cast<CodUint32>(other.size()), 0}};
    const Input in = {ops, texts[0], texts[1], static_cast<CodInt8>(data[1]), data[2], data[3]};
    for (const auto check : {takeParts, takeNumbers, writeTexts, checkOrder, checkSearch}) {
        check(in);
    }
    codCleanError();
    return 0;
}
