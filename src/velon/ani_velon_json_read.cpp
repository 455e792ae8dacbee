// JSON text into a document: one pass over the text, one buffer.
//
// A container's count and table stand before its body and are known only at its end. Each opened container leaves a gap for as many
// entries as the last one of its kind and depth had, and collects its entries on a stack that all open containers share; at its end the
// body is moved if the guess was wrong, and the table is filled in. Offsets count from their own container, so that nothing inside of a
// moved body changes. Rows of equal shape, which most texts consist of, are never moved.

#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_json.h>
#include <vel_infra/velon/ani_velon_util.h>

#include "base/cod_utf8.h"
#include "number/ani_decimal_text_internal.h"
#include "number/ani_number_internal.h"
#include "velon/ani_velon_base_internal.h"
#include "velon/ani_velon_json_internal.h"

namespace cod::velon {
namespace {

// Why a text is refused, and where. The error is raised when it is certain that this is the first fault.
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

constexpr const char *kUnexpectedEnd = "unexpected end of the text";
constexpr const char *kUnknownEscape = "unknown escape";
constexpr const char *kControlCharacter = "control character in a string";
constexpr const char *kDigitExpected = "a digit is expected";

template <class T>
void store(CodUint8 *out, T value) {
    memcpy(out, &value, sizeof(value));
}

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

// A place in the text and one in the output. in == null: it has failed.
struct Place {
    const CodUint8 *in;
    CodUint8 *out;
};
constexpr Place kFailed = {nullptr, nullptr};

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

// What stands at a byte that is special within a string, other than the quote at its end. begin: of the text, for the failure.
[[gnu::noinline]] Place readSpecial(Place at, const CodUint8 *begin, const CodUint8 *end, Failure *failure) {
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

// Copies up to sixteen bytes of a string. Returns how many stand before the first special one; 16: there is none.
inline CodUint32 copyPlain(Place at, const CodUint8 *end) {
    const __m128i chunk = loadChunk(at.in, static_cast<CodUint64>(end - at.in));
    storeChunk(at.out, chunk);
    return static_cast<CodUint32>(__builtin_ctz(specialBytes(chunk) | 1u << kChunk));
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

COD_COLD CodResult raiseFailure(const Failure &failure, const CodUint8 *begin) {
    if (failure.fault != Fault::kRaised) {
        const CodTextPos pos = positionOf(begin, failure.offset);
        raiseAt(failure, pos);
        codSetPos(pos);
    }
    return COD_ERROR;
}

COD_COLD CodResult raiseInvalidUtf8(const CodUint8 *begin, CodUint64 offset) {
    codRaise(ERR_CMM_VELON_INVALID_UNICODE);
    codSetPos(positionOf(begin, offset));
    return COD_ERROR;
}

// ---- Numbers ----

constexpr bool isDigit(CodUint8 c) {
    return c - CodUint32{'0'} < 10;
}

// Appends the digits that stand at `in` to the value, modulo 2^64. Returns the place behind them.
inline const CodUint8 *readDigits(const CodUint8 *in, const CodUint8 *end, CodUint64 *value) {
    static constexpr CodUint32 powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
    while (end - in >= 8) {
        const CodUint64 word = loadLe<CodUint64>(in);
        // The top bit of each byte that is no digit, right up to the first one.
        const CodUint64 digits = word ^ 0x3030303030303030;
        const CodUint64 others = ((digits + 0x7676767676767676) | digits) & 0x8080808080808080;
        if (others != 0) {
            const CodUint32 bits = static_cast<CodUint32>(__builtin_ctzll(others)) - 7;
            // Moved to the word's end, the digits have zeros before them.
            *value = *value * powers[bits / 8] + parseEight(word << (56 - bits) << 8);
            return in + bits / 8;
        }
        *value = *value * 100000000 + parseEight(word);
        in += 8;
    }
    for (; in != end && isDigit(*in); in++) {
        *value = *value * 10 + (*in - CodUint32{'0'});
    }
    return in;
}

// What a number's text consists of.
struct NumberText {
    const CodUint8 *digits;    // the first one
    const CodUint8 *mantissa;  // behind the last one
    CodUint64 count;           // digits, the zero before a point included
    CodUint64 value;           // of all digits, right up to 19 of them
    CodInt64 exp;              // of the last digit
    bool isNegative;
    bool isDouble;  // by its suffix
};

// Digits of any number as 38 significant ones and a power of ten, as far as they are that.
struct Significant {
    U128 value = 0;
    CodInt64 exp = 0;  // of the value's last digit, which is not 0
    bool isExact = true;
};

// Zeros at the end are counted, not taken in, until another digit follows.
Significant readSignificant(const NumberText &text) {
    Significant result;
    CodUint64 zeros = 0;
    CodUint64 kept = 0;
    for (const CodUint8 *in = text.digits; in != text.mantissa; in++) {
        if (*in == '.' || (*in == '0' && kept == 0)) {
            continue;
        }
        if (*in == '0') {
            zeros++;
            continue;
        }
        kept += zeros + 1;
        if (kept > COD_NUMBER_DIGITS) {
            result.isExact = false;
            return result;
        }
        result.value = result.value * pow10(static_cast<CodUint32>(zeros + 1)) + (*in - CodUint32{'0'});
        zeros = 0;
    }
    result.exp = text.exp + static_cast<CodInt64>(zeros);
    return result;
}

Significant significantOf(const NumberText &text) {
    constexpr CodUint64 kWordDigits = 19;
    if (COD_UNLIKELY(text.count > kWordDigits)) {
        return readSignificant(text);
    }
    Significant result = {text.value, text.exp, true};
    if (text.value != 0) {
        result.exp += stripZeros(result.value, kMaxPower128);
    }
    return result;
}

// The digits as strtod takes them in any locale, without a point. So many decide every case but for whether something follows.
constexpr CodUint32 kMostDigits = 800;
// Decimal magnitudes beyond which every value is infinite, or zero.
constexpr CodInt64 kFarMagnitude = 400;

// The nearest double, infinite when it is beyond the type.
double readNearest(const NumberText &text) {
    char room[kMostDigits + 16];
    char *out = room;
    CodUint64 left = 0;  // digits that were left out
    bool isMore = false;
    for (const CodUint8 *in = text.digits; in != text.mantissa; in++) {
        if (*in == '.' || (*in == '0' && out == room)) {
            continue;
        }
        if (out - room < kMostDigits) {
            *out++ = static_cast<char>(*in);
        } else {
            left++;
            isMore |= *in != '0';
        }
    }
    CodInt64 exp = text.exp + static_cast<CodInt64>(left);
    const CodInt64 magnitude = exp + (out - room);
    if (out == room || magnitude < -kFarMagnitude) {
        return 0;
    }
    if (magnitude > kFarMagnitude) {
        return std::numeric_limits<double>::infinity();
    }
    if (isMore) {
        *out++ = '1';
        exp--;
    }
    *out++ = 'e';
    *std::to_chars(out, out + 8, exp).ptr = '\0';
    const int saved = errno;
    const double value = strtod(room, nullptr);
    errno = saved;
    return value;
}

// Powers of ten that a double holds exactly: one operation on exact operands is correctly rounded.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr CodInt64 kMaxExactPower = 22;

double nearestDouble(const NumberText &text, const Significant &number) {
    const bool isSimple = number.isExact && number.value < U128{1} << 53 && number.exp >= -kMaxExactPower && number.exp <= kMaxExactPower;
    if (!isSimple) {
        return readNearest(text);
    }
    const double value = static_cast<double>(lowOf(number.value));
    return number.exp < 0 ? value / kExactPowers[-number.exp] : value * kExactPowers[number.exp];
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
    CodUint8 *putNumber(Place at, const Significant &number, bool isNegative);
    CodUint8 *putDecimal(Place at, const NumberText &text);

    Place open(Place at, bool isObject);
    CodUint8 *settle(CodUint8 *out, VelonType type, CodUint32 count, CodUint32 entry);
    void pop(CodUint16 *counts, CodUint32 count);
    CodUint8 *closeArray(CodUint8 *out);
    CodUint8 *closeObject(CodUint8 *out);
    bool orderMembers(SortKey *keys, CodUint32 count);
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
    if (!pushOffset(at, type)) {
        return nullptr;
    }
    at.out[0] = static_cast<CodUint8>(type);
    store(at.out + 1, value);
    return at.out + 1 + sizeof(value);
}

CodUint8 *Reader::putDouble(Place at, double value) {
    if (!std::isfinite(value)) {
        return failPlace(at.in, "number too large").out;
    }
    if (!pushOffset(at, VELON_TYPE_DOUBLE)) {
        return nullptr;
    }
    at.out[0] = VELON_TYPE_DOUBLE;
    store(at.out + 1, value);
    return at.out + 1 + sizeof(value);
}

CodUint8 *Reader::putNumber(Place at, const Significant &number, bool isNegative) {
    if (!pushOffset(at, VELON_TYPE_NUMBER)) {
        return nullptr;
    }
    CodNumber n;
    storeNumber(&n, number.value, static_cast<CodInt32>(number.exp), isNegative);
    CodBytes stored = {at.out + 2, 0, 0};
    codEncodeNumber(&n, &stored);
    at.out[0] = VELON_TYPE_NUMBER;
    at.out[1] = static_cast<CodUint8>(stored.size);
    return at.out + 2 + stored.size;
}

// Whether it is an integer of 64 bits.
bool isBigint(const Significant &number, bool isNegative, CodInt64 *value) {
    constexpr U128 most = U128{1} << 63;
    if (number.exp < 0 || number.exp > 18 || number.value > most) {
        return false;
    }
    const U128 whole = number.value * pow10(static_cast<CodUint32>(number.exp));
    if (whole >= most + isNegative) {
        return false;
    }
    *value = static_cast<CodInt64>(isNegative ? 0 - lowOf(whole) : lowOf(whole));
    return true;
}

bool isHeldByNumber(const Significant &number) {
    const CodInt64 magnitude = number.exp + static_cast<CodInt64>(digits128(number.value));
    return magnitude >= COD_NUMBER_MIN_MAGNITUDE && magnitude <= COD_NUMBER_MAX_MAGNITUDE;
}

CodUint8 *Reader::putDecimal(Place at, const NumberText &text) {
    Significant number = significantOf(text);
    if (number.isExact && number.value == 0) {
        number.exp = 0;
    }
    CodInt64 integer = 0;
    if (number.isExact && !text.isDouble) {
        if (isBigint(number, text.isNegative, &integer)) {
            return putInteger(at, integer);
        }
        if (isHeldByNumber(number)) {
            return putNumber(at, number, text.isNegative);
        }
    }
    const double value = nearestDouble(text, number);
    return putDouble(at, text.isNegative ? -value : value);
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
    if (limit_ - at.out < static_cast<CodInt64>(kTableAt + gap) && (at.out = grow(at.out, kTableAt + gap)) == nullptr) {
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
    const CodUint32 second = findUnordered(keys, count, body);
    if (second != count) {
        return failSyntax(begin_ + (slots[keys[second].place()] >> 32), "duplicate key");
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
        if (c != (isObject ? '}' : ']')) {
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

namespace cod::velon {
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

CodResult jsonStringToOwned(CodMemAlloc *owner, const CodText *json, CodText *text) {
    if (anyNull(owner, json, text) || (json->str == nullptr && json->len != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const auto *begin = reinterpret_cast<const CodUint8 *>(json->str);
    if (!isValidUtf8(begin, json->len)) {
        return raiseInvalidUtf8(begin, utf8ValidPrefix(begin, json->len));
    }
    if (json->len == 0) {
        text->str = nullptr;
        text->len = 0;
        return COD_SUCCESS;
    }
    if (json->len > UINT32_MAX - kChunk) {
        return codRaise(ERR_CMM_OUT_OF_MEMORY, "a JSON string", static_cast<long>(json->len));
    }
    // What is resolved is never longer; whole chunks are written.
    void *memory = nullptr;
    COD_TRY(owner->alloc(owner, json->len + kChunk, &memory));
    auto *out = static_cast<CodUint8 *>(memory);
    Failure failure;
    const CodUint8 *outEnd = resolve({begin, out}, begin + json->len, &failure);
    if (outEnd == nullptr) {
        if (owner->free != nullptr) {
            owner->free(owner, memory);
        }
        return raiseFailure(failure, begin);
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
