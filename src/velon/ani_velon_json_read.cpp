// JSON text into a document: one pass over the text, one buffer.
//
// A container's count and table stand before its body and are known only at its end. Each opened container leaves a gap for as many
// entries as the last one of its kind and depth had, and collects its entries on a stack that all open containers share; at its end the
// body is moved if the guess was wrong, and the table is filled in. Offsets count from their own container, so that nothing inside of a
// moved body changes. Of rows of equal shape, which most texts consist of, only the first is moved.

#include <algorithm>
#include <cmath>

#include <vel_infra/velon/ani_velon_json.h>
#include <vel_infra/velon/ani_velon_util.h>

#include "base/cod_utf8.h"
#include "velon/ani_velon_base_internal.h"
#include "velon/ani_velon_json_number_internal.h"
#include "velon/ani_velon_json_string_internal.h"

namespace cod::velon {
namespace {

constexpr const char *kDigitExpected = "a digit is expected";

template <class T>
void store(CodUint8 *out, T value) {
    memcpy(out, &value, sizeof(value));
}

// ---- Containers ----

// An open container. The one at the bottom, of neither kind, stands for the document.
struct Frame {
    CodUint32 start;      // of its type byte in the buffer
    CodUint32 body;       // of its records or values, behind the gap
    CodUint32 firstSlot;  // on the stack of entries
    bool isObject;
    bool isArray;
};

// An entry of the stack. Member: where its record begins in the body, and above that where its key begins in the text. Element: its entry
// as it will stand in the table, and in the top bit whether the word in it is an offset, which then counts from the body.
using Slot = CodUint64;
constexpr Slot kIsOffset = Slot{1} << 63;

constexpr CodUint32 kFirstSlots = 512;

// Up to so many members the order of keys is remembered for the next object.
constexpr CodUint32 kMostRemembered = 24;

// A member as it is sorted: length and first six bytes of its key, the higher ones first.
struct SortKey {
    Slot prefix;
    Slot where;

    SortKey(Slot keyPrefix, CodUint32 record, CodUint32 place) : prefix(keyPrefix), where(Slot{place} << 32 | record) {}
    // Where the record begins in the body, and its place among the members as they were written.
    CodUint32 record() const {
        return static_cast<CodUint32>(where);
    }
    CodUint32 place() const {
        return static_cast<CodUint32>(where >> 32);
    }
};

constexpr CodUint32 kPrefixBytes = 6;

// Of a record; so many bytes behind its length may be read.
inline CodUint64 prefixOf(const CodUint8 *record) {
    const CodUint64 word = loadLe<CodUint64>(record);
    const CodUint64 length = word & 0xFFFF;
    const CodUint64 unused = length < kPrefixBytes ? 8 * (kPrefixBytes - length) : 0;
    return length << 48 | (__builtin_bswap64(word) & 0x0000FFFFFFFFFFFF) >> unused << unused;
}

// Of keys with equal prefixes.
int compareRests(const CodUint8 *body, const SortKey &left, const SortKey &right) {
    const CodUint64 length = left.prefix >> 48;
    return length <= kPrefixBytes ? 0 : memcmp(body + left.record() + 8, body + right.record() + 8, length - kPrefixBytes);
}

inline bool isBefore(const CodUint8 *body, const SortKey &left, const SortKey &right) {
    return left.prefix != right.prefix ? left.prefix < right.prefix : compareRests(body, left, right) < 0;
}

// Equal keys come in the order of the text.
inline bool isSortedBefore(const CodUint8 *body, const SortKey &left, const SortKey &right) {
    return isBefore(body, left, right) || (!isBefore(body, right, left) && left.where < right.where);
}

void sortKeys(SortKey *keys, CodUint32 count, const CodUint8 *body) {
    const auto before = [body](const SortKey &left, const SortKey &right) { return isSortedBefore(body, left, right); };
    if (count > kMostRemembered) {
        std::sort(keys, keys + count, before);
        return;
    }
    for (CodUint32 i = 1; i < count; i++) {
        const SortKey moved = keys[i];
        CodUint32 at = i;
        for (; at > 0 && before(moved, keys[at - 1]); at--) {
            keys[at] = keys[at - 1];
        }
        keys[at] = moved;
    }
}

// The first member that does not stand behind the one before it; count: there is none.
CodUint32 findUnordered(const SortKey *keys, CodUint32 count, const CodUint8 *body) {
    CodUint32 i = 1;
    while (i < count && isBefore(body, keys[i - 1], keys[i])) {
        i++;
    }
    return i < count ? i : count;
}

// Room behind the output at each token and within strings: a key's or value's head, a chunk, and what is written beyond the end.
constexpr CodUint32 kSlack = 64;

class Reader {
public:
    Reader(CodMemAlloc *owner, const CodUint8 *begin, const CodUint8 *end) : owner_(owner), begin_(begin), end_(end) {}
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    ~Reader() {
        if (slots_ != firstSlots_) {
            freeMemory(slots_);
        }
        freeMemory(buffer_);
    }

    bool read();
    const Failure &failure() const {
        return failure_;
    }
    // Hands over the document.
    Velon take();

private:
    void freeMemory(void *memory) {
        if (memory != nullptr && owner_->free != nullptr) {
            owner_->free(owner_, memory);
        }
    }

    COD_COLD bool fail(Fault fault, const CodUint8 *in, const char *reason);
    COD_COLD bool failSyntax(const CodUint8 *in, const char *reason);
    COD_COLD Place failPlace(const CodUint8 *in, const char *reason);
    COD_COLD bool failTooLarge();

    CodUint8 peek(const CodUint8 *in) const {
        return COD_LIKELY(in != end_) ? *in : 0;
    }
    const CodUint8 *skipBlanks(const CodUint8 *in) const;
    const CodUint8 *skipBlankRun(const CodUint8 *in) const;

    bool start();
    bool finish(Place at);
    COD_COLD CodUint8 *grow(CodUint8 *out, CodUint64 extra);
    CodUint8 *reserve(CodUint8 *out) {
        return COD_LIKELY(out <= limit_) ? out : grow(out, kSlack);
    }
    COD_COLD bool growSlots(CodUint64 needed);
    COD_COLD bool makeSlot(const CodUint8 *in);
    void limitSlots();
    bool push(const CodUint8 *in, Slot slot);
    CodUint32 offsetInBody(const CodUint8 *out) const {
        return static_cast<CodUint32>(out - buffer_) - frame_->body;
    }
    bool pushOffset(Place at, VelonType type) {
        return !frame_->isArray || push(at.in, kIsOffset | Slot{offsetInBody(at.out)} << 8 | static_cast<CodUint64>(type));
    }

    Place readStringBytes(Place at);
    Place readString(Place at);
    Place readKey(Place at);
    Place readLiteral(Place at);
    Place readNumber(Place at);
    const CodUint8 *readFraction(const CodUint8 *in, NumberText *text);
    const CodUint8 *readExponent(const CodUint8 *in, NumberText *text);
    Place readDecimal(Place at, const CodUint8 *in, CodUint64 value);
    // These put the value of the text that begins at at.in. Null: it has failed.
    CodUint8 *putInline(Place at, VelonType type, CodUint32 width, CodUint32 word);
    CodUint8 *putInteger(Place at, CodInt64 value);
    CodUint8 *putDouble(Place at, double value);
    CodUint8 *putNumber(Place at, const CodNumber &number);
    template <class T>
    CodUint8 *putWide(Place at, VelonType type, T value);
    CodUint8 *putDecimal(Place at, const NumberText &text);

    Place open(Place at, bool isObject);
    CodUint8 *settle(CodUint8 *out, VelonType type, CodUint32 count, CodUint32 entry);
    void pop(CodUint16 *counts, CodUint32 count);
    CodUint8 *closeArray(CodUint8 *out);
    CodUint8 *closeObject(CodUint8 *out);
    bool orderMembers(SortKey *keys, CodUint32 count);
    COD_COLD bool failDuplicate(const SortKey *keys, CodUint32 count, const CodUint8 *body);
    Place readToNext(Place at);

    CodMemAlloc *owner_;
    const CodUint8 *begin_;
    const CodUint8 *end_;
    CodUint8 *buffer_ = nullptr;
    CodUint8 *limit_ = nullptr;  // kSlack before the buffer's end
    CodUint32 capacity_ = 0;
    CodUint32 length_ = 0;  // of the whole document
    CodUint64 gaps_ = 0;    // bytes of the open containers' gaps

    Frame *frame_ = frames_;
    Slot *slots_ = firstSlots_;
    Slot *slotTop_ = firstSlots_;
    Slot *slotLimit_ = firstSlots_;  // as far as the open container may go
    CodUint32 slotCapacity_ = kFirstSlots;

    Failure failure_;
    // What the last object and the last array of each depth had.
    CodUint16 memberCounts_[VELON_MAX_DEPTH + 1] = {};
    CodUint16 elementCounts_[VELON_MAX_DEPTH + 1] = {};
    CodUint8 orders_[VELON_MAX_DEPTH + 1][kMostRemembered];
    Frame frames_[VELON_MAX_DEPTH + 1];
    Slot firstSlots_[kFirstSlots];
};

bool Reader::fail(Fault fault, const CodUint8 *in, const char *reason) {
    failure_ = {fault, static_cast<CodUint64>(in - begin_), reason};
    return false;
}

bool Reader::failSyntax(const CodUint8 *in, const char *reason) {
    return fail(Fault::kSyntax, in, in == end_ ? kUnexpectedEnd : reason);
}

Place Reader::failPlace(const CodUint8 *in, const char *reason) {
    failSyntax(in, reason);
    return kFailed;
}

bool Reader::failTooLarge() {
    codRaise(ERR_CMM_VELON_EXCEEDS_MAX_SIZE, static_cast<int>(VELON_MAX_SIZE));
    failure_.fault = Fault::kRaised;
    return false;
}

// ---- Memory ----

bool Reader::start() {
    // Most documents are somewhat larger than their texts.
    const CodUint64 textLength = static_cast<CodUint64>(end_ - begin_);
    capacity_ = static_cast<CodUint32>(std::min<CodUint64>(textLength + textLength / 4, VELON_MAX_SIZE)) + 2 * kSlack;
    void *memory = nullptr;
    if (owner_->alloc(owner_, capacity_, &memory) != COD_SUCCESS) {
        failure_.fault = Fault::kRaised;
        return false;
    }
    buffer_ = static_cast<CodUint8 *>(memory);
    limit_ = buffer_ + capacity_ - kSlack;
    frames_[0] = {0, 0, 0, false, false};
    return true;
}

// Makes room for `extra` bytes and the slack. Gaps that may turn out to be too wide do not count as size.
CodUint8 *Reader::grow(CodUint8 *out, CodUint64 extra) {
    const CodUint64 used = static_cast<CodUint64>(out - buffer_);
    const CodUint64 most = VELON_MAX_SIZE + gaps_ + 2 * kSlack;
    if (used + extra + kSlack > most) {
        failTooLarge();
        return nullptr;
    }
    const CodUint64 wanted = std::max(used + extra + kSlack, std::min<CodUint64>(CodUint64{capacity_} * 2, most));
    void *memory = buffer_;
    if (codMemExtend(owner_, &memory, capacity_, static_cast<CodUint32>(wanted), true) != COD_SUCCESS) {
        failure_.fault = Fault::kRaised;
        return nullptr;
    }
    buffer_ = static_cast<CodUint8 *>(memory);
    capacity_ = static_cast<CodUint32>(wanted);
    limit_ = buffer_ + capacity_ - kSlack;
    return buffer_ + used;
}

// Room for so many slots in all.
bool Reader::growSlots(CodUint64 needed) {
    const CodUint32 used = static_cast<CodUint32>(slotTop_ - slots_);
    const CodUint64 wanted = std::max(needed, CodUint64{slotCapacity_} * 2);
    void *memory = slots_ == firstSlots_ ? nullptr : slots_;
    const CodUint32 oldSize = memory == nullptr ? 0 : slotCapacity_ * static_cast<CodUint32>(sizeof(Slot));
    const CodUint32 newSize = static_cast<CodUint32>(wanted * sizeof(Slot));
    const CodResult result =
        memory == nullptr ? owner_->alloc(owner_, newSize, &memory) : codMemExtend(owner_, &memory, oldSize, newSize, true);
    if (result != COD_SUCCESS) {
        failure_.fault = Fault::kRaised;
        return false;
    }
    if (slots_ == firstSlots_) {
        memcpy(memory, firstSlots_, used * sizeof(Slot));
    }
    slots_ = static_cast<Slot *>(memory);
    slotTop_ = slots_ + used;
    slotCapacity_ = static_cast<CodUint32>(wanted);
    limitSlots();
    return true;
}

void Reader::limitSlots() {
    slotLimit_ = slots_ + std::min<CodUint32>(slotCapacity_, frame_->firstSlot + VELON_MAX_ELEMENTS);
}

// One slot more, which the container may be too full for.
bool Reader::makeSlot(const CodUint8 *in) {
    const CodUint64 used = static_cast<CodUint64>(slotTop_ - slots_);
    return used - frame_->firstSlot == VELON_MAX_ELEMENTS ? fail(Fault::kTooMany, in, nullptr) : growSlots(used + 1);
}

inline bool Reader::push(const CodUint8 *in, Slot slot) {
    if (COD_UNLIKELY(slotTop_ == slotLimit_) && !makeSlot(in)) {
        return false;
    }
    *slotTop_++ = slot;
    return true;
}

bool Reader::finish(Place at) {
    const CodUint8 *in = skipBlanks(at.in);
    if (in != end_) {
        return failSyntax(in, "unexpected character");
    }
    const CodUint64 length = static_cast<CodUint64>(at.out - buffer_);
    length_ = static_cast<CodUint32>(length);
    return length <= VELON_MAX_SIZE || failTooLarge();
}

Velon Reader::take() {
    const Velon velon = {owner_, {buffer_, length_, capacity_}};
    buffer_ = nullptr;
    return velon;
}

// ---- Tokens ----

inline const CodUint8 *Reader::skipBlanks(const CodUint8 *in) const {
    return COD_LIKELY(in != end_ && *in > ' ') ? in : skipBlankRun(in);
}

const CodUint8 *Reader::skipBlankRun(const CodUint8 *in) const {
    const auto isBlankHere = [&] { return in != end_ && (*in == ' ' || *in == '\n' || *in == '\r' || *in == '\t'); };
    // Mostly there is one blank, or a whole line's beginning.
    in += isBlankHere();
    if (in != end_ && *in > ' ') {
        return in;
    }
    while (static_cast<CodUint64>(end_ - in) >= kChunk) {
        const __m128i chunk = loadChunk(in, kChunk);
        const auto is = [chunk](char c) { return _mm_cmpeq_epi8(chunk, _mm_set1_epi8(c)); };
        const __m128i blanks = _mm_or_si128(_mm_or_si128(is(' '), is('\n')), _mm_or_si128(is('\r'), is('\t')));
        const CodUint32 others = static_cast<CodUint32>(_mm_movemask_epi8(blanks)) ^ 0xFFFF;
        if (others != 0) {
            return in + __builtin_ctz(others);
        }
        in += kChunk;
    }
    while (isBlankHere()) {
        in++;
    }
    return in;
}

// From behind the opening quote. The bytes are put where at.out says; the place behind them is returned.
inline Place Reader::readStringBytes(Place at) {
    for (;;) {
        const CodUint32 plain = copyPlain(at, end_);
        at = {at.in + plain, at.out + plain};
        if (plain < kChunk) {
            if (COD_LIKELY(peek(at.in) == '"')) {
                return {at.in + 1, at.out};
            }
            at = readSpecial(at, begin_, end_, &failure_);
        }
        if (at.in == nullptr || (at.out = reserve(at.out)) == nullptr) {
            return kFailed;
        }
    }
}

// Puts a length of 128 or more in front of a string's bytes, where there is room for one byte.
[[gnu::noinline]] CodUint8 *putLongLength(CodUint8 *value, CodUint32 length) {
    CodUint8 header[VELON_VARINT_SIZE];
    CodUint32 size = 0;
    velonVarintEncode(length, header, &size);
    memmove(value + 1 + size, value + 2, length);
    memcpy(value + 1, header, size);
    return value + 1 + size + length;
}

inline Place Reader::readString(Place at) {
    if (!pushOffset(at, VELON_TYPE_STRING)) {
        return kFailed;
    }
    const CodUint64 start = static_cast<CodUint64>(at.out - buffer_);
    const Place end = readStringBytes({at.in + 1, at.out + 2});
    if (end.in == nullptr) {
        return kFailed;
    }
    CodUint8 *value = buffer_ + start;
    const CodUint32 length = static_cast<CodUint32>(end.out - value) - 2;
    value[0] = VELON_TYPE_STRING;
    if (COD_UNLIKELY(length >= 128)) {
        return {end.in, putLongLength(value, length)};
    }
    value[1] = static_cast<CodUint8>(length);
    return end;
}

// A member's key and the colon, up to its value.
inline Place Reader::readKey(Place at) {
    if (peek(at.in) != '"') {
        return failPlace(at.in, "a key is expected");
    }
    at.out = reserve(at.out);
    if (at.out == nullptr || !push(at.in, Slot{static_cast<CodUint64>(at.in - begin_)} << 32 | offsetInBody(at.out))) {
        return kFailed;
    }
    const CodUint64 start = static_cast<CodUint64>(at.out - buffer_);
    const Place end = readStringBytes({at.in + 1, at.out + 2});
    if (end.in == nullptr) {
        return kFailed;
    }
    const CodUint64 length = static_cast<CodUint64>(end.out - buffer_) - start - 2;
    if (COD_UNLIKELY(length > VELON_MAX_KEY_LENGTH)) {
        fail(Fault::kKeyTooLong, at.in, nullptr);
        return kFailed;
    }
    store(buffer_ + start, static_cast<CodUint16>(length));
    const CodUint8 *in = skipBlanks(end.in);
    if (peek(in) != ':') {
        return failPlace(in, "a colon is expected");
    }
    return {skipBlanks(in + 1), end.out};
}

inline CodUint8 *Reader::putInline(Place at, VelonType type, CodUint32 width, CodUint32 word) {
    if (frame_->isArray) {
        return push(at.in, Slot{word} << 8 | static_cast<CodUint64>(type)) ? at.out : nullptr;
    }
    at.out[0] = static_cast<CodUint8>(type);
    store(at.out + 1, word);
    return at.out + 1 + width;
}

Place Reader::readLiteral(Place at) {
    const CodUint64 left = static_cast<CodUint64>(end_ - at.in);
    const auto is = [&](const char *name, CodUint64 length) { return left >= length && memcmp(at.in, name, length) == 0; };
    if (is("true", 4)) {
        return {at.in + 4, putInline(at, VELON_TYPE_BOOL, 1, 1)};
    }
    if (is("false", 5)) {
        return {at.in + 5, putInline(at, VELON_TYPE_BOOL, 1, 0)};
    }
    if (is("null", 4)) {
        return {at.in + 4, putInline(at, VELON_TYPE_NULL, 0, 0)};
    }
    return failPlace(at.in, "a value is expected");
}

// ---- Numbers ----

// A value of eight bytes.
template <class T>
CodUint8 *Reader::putWide(Place at, VelonType type, T value) {
    static_assert(sizeof(value) == 8);
    if (!pushOffset(at, type)) {
        return nullptr;
    }
    at.out[0] = static_cast<CodUint8>(type);
    store(at.out + 1, value);
    return at.out + 1 + sizeof(value);
}

inline CodUint8 *Reader::putInteger(Place at, CodInt64 value) {
    const CodUint64 magnitude = static_cast<CodUint64>(value < 0 ? ~value : value);
    const CodUint32 bits = 64 - static_cast<CodUint32>(__builtin_clzll(magnitude | 1));
    // The widths are 1, 2, 4 and 8 bytes: the logarithm, and with it the type.
    const CodUint32 width = static_cast<CodUint32>(bits > 7) + (bits > 15) + (bits > 31);
    const VelonType type = static_cast<VelonType>(VELON_TYPE_TINYINT + width);
    if (width < 3) {
        const CodUint32 used = 0xFFFFFFFF >> (32 - (8u << width));
        return putInline(at, type, 1u << width, static_cast<CodUint32>(value) & used);
    }
    return putWide(at, type, value);
}

CodUint8 *Reader::putDouble(Place at, double value) {
    return std::isfinite(value) ? putWide(at, VELON_TYPE_DOUBLE, value) : failPlace(at.in, "number too large").out;
}

CodUint8 *Reader::putNumber(Place at, const CodNumber &number) {
    if (!pushOffset(at, VELON_TYPE_NUMBER)) {
        return nullptr;
    }
    CodBytes stored = {at.out + 2, 0, 0};
    codEncodeNumber(&number, &stored);
    at.out[0] = VELON_TYPE_NUMBER;
    at.out[1] = static_cast<CodUint8>(stored.size);
    return at.out + 2 + stored.size;
}

CodUint8 *Reader::putDecimal(Place at, const NumberText &text) {
    const JsonNumber number = numberOf(text);
    switch (number.kind) {
        case NumberKind::kInteger:
            return putInteger(at, number.integer);
        case NumberKind::kNumber:
            return putNumber(at, number.number);
        default:
            return putDouble(at, number.binary);
    }
}

// From the point on.
const CodUint8 *Reader::readFraction(const CodUint8 *in, NumberText *text) {
    const CodUint8 *digits = in + 1;
    in = readDigits(digits, end_, &text->value);
    if (in == digits) {
        return failPlace(in, kDigitExpected).in;
    }
    text->count += static_cast<CodUint64>(in - digits);
    text->exp = digits - in;
    return in;
}

// From the mark on.
const CodUint8 *Reader::readExponent(const CodUint8 *in, NumberText *text) {
    // More than any exponent that could matter, and than digits that there could be.
    constexpr CodInt64 huge = CodInt64{1} << 40;
    const CodUint8 *mark = in++;
    const CodUint8 sign = peek(in);
    in += sign == '-' || sign == '+';
    if (!isDigit(peek(in))) {
        return failPlace(in, kDigitExpected).in;
    }
    CodInt64 magnitude = 0;
    for (; isDigit(peek(in)); in++) {
        magnitude = std::min(magnitude * 10 + (*in - '0'), huge);
    }
    text->exp += sign == '-' ? -magnitude : magnitude;
    text->isDouble = in - mark == 2 && mark[0] == 'E' && mark[1] == '0';
    return in;
}

// A number with a fraction, an exponent or many digits; `in` stands behind the digits before the point, which make up the value.
[[gnu::noinline]] Place Reader::readDecimal(Place at, const CodUint8 *in, CodUint64 value) {
    const bool isNegative = *at.in == '-';
    const CodUint8 *digits = at.in + isNegative;
    NumberText text = {digits, in, static_cast<CodUint64>(in - digits), value, 0, isNegative, false};
    if (peek(in) == '.') {
        in = readFraction(in, &text);
    }
    text.mantissa = in;
    if (in != nullptr && (peek(in) | 0x20) == 'e') {
        in = readExponent(in, &text);
    }
    return in != nullptr ? Place{in, putDecimal(at, text)} : kFailed;
}

inline Place Reader::readNumber(Place at) {
    constexpr CodUint64 most = CodUint64{1} << 63;
    const bool isNegative = *at.in == '-';
    const CodUint8 *digits = at.in + isNegative;
    CodUint64 value = 0;
    const CodUint8 *in = readDigits(digits, end_, &value);
    const CodUint64 count = static_cast<CodUint64>(in - digits);
    if (COD_UNLIKELY(count == 0)) {
        return failPlace(in, kDigitExpected);
    }
    if (COD_UNLIKELY(*digits == '0' && count > 1)) {
        return failPlace(digits, "a number begins with 0");
    }
    const CodUint8 next = peek(in);
    if (next != '.' && (next | 0x20) != 'e' && count < 20 && value < most + isNegative) {
        return {in, putInteger(at, static_cast<CodInt64>(isNegative ? 0 - value : value))};
    }
    return readDecimal(at, in, value);
}

// ---- Containers ----

// Returns the place of the first token within.
Place Reader::open(Place at, bool isObject) {
    const VelonType type = isObject ? VELON_TYPE_OBJECT : VELON_TYPE_ARRAY;
    const CodUint64 depth = static_cast<CodUint64>(frame_ - frames_) + 1;
    if (depth > VELON_MAX_DEPTH) {
        fail(Fault::kTooDeep, at.in, nullptr);
        return kFailed;
    }
    if (!pushOffset(at, type)) {
        return kFailed;
    }
    const CodUint32 gap = isObject ? kKeyEntry * memberCounts_[depth] : kValueEntry * elementCounts_[depth];
    gaps_ += gap;
    if (limit_ - at.out < CodInt64{kTableAt} + gap && (at.out = grow(at.out, kTableAt + gap)) == nullptr) {
        return kFailed;
    }
    const CodUint32 start = static_cast<CodUint32>(at.out - buffer_);
    const CodUint32 body = start + kTableAt + gap;
    *++frame_ = {start, body, static_cast<CodUint32>(slotTop_ - slots_), isObject, !isObject};
    limitSlots();
    return {skipBlanks(at.in + 1), buffer_ + body};
}

// Brings the body to where a table of so many entries ends, and fills in what stands before the table.
CodUint8 *Reader::settle(CodUint8 *out, VelonType type, CodUint32 count, CodUint32 entry) {
    const Frame &frame = *frame_;
    const CodUint32 table = frame.start + kTableAt;
    const CodUint32 body = table + entry * count;
    gaps_ -= frame.body - table;
    if (COD_UNLIKELY(body != frame.body)) {
        const CodInt64 shift = CodInt64{body} - frame.body;
        if (shift > limit_ - out && (out = grow(out, static_cast<CodUint64>(shift))) == nullptr) {
            return nullptr;
        }
        CodUint8 *from = buffer_ + frame.body;
        memmove(from + shift, from, static_cast<CodUint64>(out - from));
        out += shift;
    }
    CodUint8 *value = buffer_ + frame.start;
    value[0] = static_cast<CodUint8>(type);
    store(value + 1, static_cast<CodUint32>(out - value) - kCountAt);
    store(value + kCountAt, static_cast<CodUint16>(count));
    return out;
}

void Reader::pop(CodUint16 *counts, CodUint32 count) {
    counts[frame_ - frames_] = static_cast<CodUint16>(count);
    slotTop_ = slots_ + frame_->firstSlot;
    frame_--;
    limitSlots();
}

CodUint8 *Reader::closeArray(CodUint8 *out) {
    const Slot *slots = slots_ + frame_->firstSlot;
    const CodUint32 count = static_cast<CodUint32>(slotTop_ - slots);
    out = settle(out, VELON_TYPE_ARRAY, count, kValueEntry);
    if (out == nullptr) {
        return nullptr;
    }
    const Slot toBody = Slot{2 + kValueEntry * count} << 8;
    const auto entryOf = [&](CodUint32 i) { return (slots[i] & ~kIsOffset) + (slots[i] >> 63) * toBody; };
    CodUint8 *entry = buffer_ + frame_->start + kTableAt;
    // What is written beyond an entry is the next one's.
    for (CodUint32 i = 0; i + 1 < count; i++, entry += kValueEntry) {
        store(entry, entryOf(i));
    }
    if (count != 0) {
        const Slot last = entryOf(count - 1);
        memcpy(entry, &last, kValueEntry);
    }
    pop(elementCounts_, count);
    return out;
}

// The first member in the text whose key was there before. Equal keys are neighbours, in the order of the text.
bool Reader::failDuplicate(const SortKey *keys, CodUint32 count, const CodUint8 *body) {
    const Slot *slots = slots_ + frame_->firstSlot;
    Slot first = ~Slot{0};
    for (CodUint32 i = 1; i < count; i++) {
        if (!isBefore(body, keys[i - 1], keys[i])) {
            first = std::min(first, slots[keys[i].place()] >> 32);
        }
    }
    return failSyntax(begin_ + first, "duplicate key");
}

// The members in the order of their keys.
bool Reader::orderMembers(SortKey *keys, CodUint32 count) {
    const CodUint64 depth = static_cast<CodUint64>(frame_ - frames_);
    const Slot *slots = slots_ + frame_->firstSlot;
    const CodUint8 *body = buffer_ + frame_->body;
    CodUint8 *order = orders_[depth];
    const bool isShort = count <= kMostRemembered;
    const bool isRemembered = isShort && count == memberCounts_[depth];
    for (CodUint32 i = 0; i < count; i++) {
        const CodUint32 place = isRemembered ? order[i] : i;
        const CodUint32 record = static_cast<CodUint32>(slots[place]);
        keys[i] = {prefixOf(body + record), record, place};
    }
    if (isRemembered && findUnordered(keys, count, body) == count) {
        return true;
    }
    sortKeys(keys, count, body);
    if (COD_UNLIKELY(findUnordered(keys, count, body) != count)) {
        return failDuplicate(keys, count, body);
    }
    for (CodUint32 i = 0; isShort && i < count; i++) {
        order[i] = static_cast<CodUint8>(keys[i].place());
    }
    return true;
}

CodUint8 *Reader::closeObject(CodUint8 *out) {
    const CodUint32 count = static_cast<CodUint32>(slotTop_ - slots_) - frame_->firstSlot;
    const CodUint32 needed = frame_->firstSlot + 3 * count;
    if (needed > slotCapacity_ && !growSlots(needed)) {
        return nullptr;
    }
    auto *keys = reinterpret_cast<SortKey *>(slotTop_);
    if (!orderMembers(keys, count) || (out = settle(out, VELON_TYPE_OBJECT, count, kKeyEntry)) == nullptr) {
        return nullptr;
    }
    CodUint8 *entry = buffer_ + frame_->start + kTableAt;
    for (CodUint32 i = 0; i < count; i++) {
        store(entry + kKeyEntry * i, 2 + kKeyEntry * count + keys[i].record());
    }
    pop(memberCounts_, count);
    return out;
}

// ---- The text ----

// From behind a value to the next one, over the ends of containers; to behind the last value.
inline Place Reader::readToNext(Place at) {
    while (frame_ != frames_) {
        at.in = skipBlanks(at.in);
        const CodUint8 c = peek(at.in);
        const bool isObject = frame_->isObject;
        if (c == ',') {
            at.in = skipBlanks(at.in + 1);
            return isObject ? readKey(at) : at;
        }
        const CodUint8 bracket = isObject ? '}' : ']';
        if (c != bracket) {
            return failPlace(at.in, isObject ? "a comma or } is expected" : "a comma or ] is expected");
        }
        at = {at.in + 1, isObject ? closeObject(at.out) : closeArray(at.out)};
        if (at.out == nullptr) {
            return kFailed;
        }
    }
    return at;
}

bool Reader::read() {
    if (!start()) {
        return false;
    }
    Place at = {skipBlanks(begin_), buffer_};
    do {
        at.out = reserve(at.out);
        if (at.out == nullptr) {
            return false;
        }
        const CodUint8 c = peek(at.in);
        if (c == '"') {
            at = readString(at);
        } else if (c == '{' || c == '[') {
            at = open(at, c == '{');
            if (at.in != nullptr && peek(at.in) != c + 2) {
                at = c == '{' ? readKey(at) : at;
                continue;
            }
        } else {
            at = isDigit(c) || c == '-' ? readNumber(at) : readLiteral(at);
        }
        if (at.in == nullptr || at.out == nullptr) {
            return false;
        }
        at = readToNext(at);
    } while (at.in != nullptr && frame_ != frames_);
    return at.in != nullptr && finish(at);
}

}  // namespace
}  // namespace cod::velon

using namespace cod;
using namespace cod::velon;

CodResult velonFromJson(CodMemAlloc *owner, const CodText *text, Velon *velon) {
    if (anyNull(owner, text, velon) || (text->str == nullptr && text->len != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const auto *begin = reinterpret_cast<const CodUint8 *>(text->str);
    const CodUint64 valid = isValidUtf8(begin, text->len) ? text->len : utf8ValidPrefix(begin, text->len);
    const bool isValid = valid == text->len;
    Reader reader(owner, begin, begin + valid);
    const bool isRead = reader.read();
    if (COD_LIKELY(isRead && isValid)) {
        *velon = reader.take();
        return COD_SUCCESS;
    }
    // A fault before the bytes that are no UTF-8 comes first.
    const Failure &failure = reader.failure();
    const bool isAtBytes = isRead || (failure.fault != Fault::kRaised && failure.offset == valid);
    return !isValid && isAtBytes ? raiseInvalidUtf8(begin, valid) : raiseFailure(failure, begin);
}
