#include <vel_infra/string/ani_collation.h>

#include <sys/mman.h>

#include <array>
#include <cmath>
#include <ctime>
#include <tuple>

#include "string/collation_model.h"
#include "support/collection_support.h"

namespace {

using namespace collation_model;
using collection_support::expectError;
using collection_support::Random;

constexpr bool kIsSlow = COD_WITH_ASAN || COD_WITH_TSAN;
constexpr CodUint16 kCharsets[] = {ASCII, GBK, UTF8, ISO88591, UTF16, GB18030, BINARY_CS};

struct Collations : testing::Test {
    Collations() {
        EXPECT_EQ(aniCodepageInitFrom(CODEPAGE_FOLDER), COD_SUCCESS) << codGetErrorMsg2();
        codCleanError();
    }
};

template <class Body>
void forEachCollation(Body body) {
    for (CodUint16 i = 0; i < 6 * std::size(kCharsets); i++) {
        const Collation model = {kCharsets[i / 6], CodUint16(i % 6 / 2), CodUint16(i % 2)};
        const CodCollation *ops = codGetCollation(model.charset, model.sort, model.caseMode);
        SCOPED_TRACE(Bytes(ops->collationName->str, ops->collationName->len));
        body(*ops, model);
    }
}

CodText textOf(Bytes &&) = delete;
CodText textOf(const Bytes &bytes) {
    return {const_cast<char *>(bytes.data()), CodUint32(bytes.size()), 0};
}

Bytes encodeAll(CodUint16 charset, const std::u32string &points) {
    Bytes bytes;
    std::for_each(points.begin(), points.end(), [&](char32_t point) { bytes += encode(charset, point); });
    return bytes;
}

// ---- Texts and buffers at the end or the begin of pages between others that end the process when they are touched ----

struct Page {
    static constexpr Size kSize = 4096;
    char *room(Size size) const {
        return open + kSize - size;
    }
    char *const open = static_cast<char *>(mmap(nullptr, 3 * kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) + kSize;
    const int opened = mprotect(open, kSize, PROT_READ | PROT_WRITE);
};

// What stands around the text continues characters of every charset.
CodText guarded(int index, const Bytes &bytes, bool atEnd = true) {
    static const Page pages[3];
    std::memset(pages[index].open, 0x81, Page::kSize);
    char *place = atEnd ? pages[index].room(bytes.size()) : pages[index].open;
    std::copy(bytes.begin(), bytes.end(), place);
    return {place, CodUint32(bytes.size()), 7};
}

template <class Slot, class... Arguments>
CodResult writeInto(Size size, Bytes &bytes, Slot slot, Arguments... arguments) {
    static const Page page;
    CodText dst = {page.room(size), 77, 7};
    const CodResult result = slot(arguments..., &dst, CodUint32(size));
    EXPECT_TRUE(dst.str == page.room(size) && dst.aux == 7 && (result == COD_SUCCESS ? dst.len <= size : dst.len == 77));
    bytes.assign(dst.str, result == COD_SUCCESS ? dst.len : 0);
    return result;
}

// ---- What a slot gives, as a text that can be compared and printed ----

template <std::integral Number>
std::string told(Number number) {
    return std::to_string(number);
}
std::string told(const View &view) {
    return told(view.begin) + ".." + told(view.end);
}
std::string told(const Bytes &bytes) {
    std::string text = "bytes";
    std::for_each(bytes.begin(), bytes.end(), [&](char byte) { text += " " + told(CodUint8(byte)); });
    return text;
}
std::string toldPart(const View &part) {
    return part.begin == part.end ? "nothing" : told(part);
}
std::string toldError(CodError code) {
    return "error " + told(code);
}

struct Case {
    const CodCollation &ops;
    Collation model;
    Bytes a, b, c;
    CodText text, sub, set;   // a, b, c before or behind a guard
    CodInt64 start;           // a position, or outside, or far out
    CodUint32 count, offset;  // around the text's length
    CodUint32 boundary;       // of a character
    bool inAllSizes;
};
using K = const Case &;

// Nothing, or the one error of a call.
std::string failure(CodResult result) {
    EXPECT_EQ(codGetErrorStackDepth(), result == COD_SUCCESS ? 0u : 1u);
    const std::string text = toldError(codGetErrorCode());
    codCleanError();
    return result == COD_SUCCESS ? "" : text;
}

// A part of the text; nothing has no address.
View view(K k, const CodText &part) {
    const auto begin = part.len == 0 && k.text.len == 0 ? 0 : part.str - k.text.str;
    EXPECT_TRUE(begin >= 0 && begin + part.len <= k.text.len && part.aux == 7);
    return {Size(begin), Size(begin) + part.len};
}

template <class Trim, class... More>
std::string trimmed(K k, Trim trim, More... more) {
    CodText text = k.text;
    trim(&text, more...);
    return told(view(k, text));
}

template <class Slot, class... Arguments>
std::string number(K k, Slot slot, Arguments... arguments) {
    CodUint32 result = 77;
    const std::string error = failure(slot(&k.text, arguments..., &result));
    EXPECT_TRUE(error.empty() || result == 77);
    return error.empty() ? told(result) : error;
}

std::string part(K k, CodTextPart slot) {
    CodText result = {nullptr, 77, 7};
    const std::string error = failure(slot(&k.text, k.start, k.count, &result));
    EXPECT_TRUE(error.empty() || result.len == 77);
    return !error.empty() ? error : result.len == 0 ? "nothing" : told(view(k, result));
}

std::string split(K k, CodTextSplit slot) {
    CodText head = {nullptr, 77, 7}, tail = head;
    const bool isSplit = slot(&k.text, &k.sub, &head, &tail);
    return (isSplit ? "at " : "not ") + told(view(k, head)) + " " + told(view(k, tail));
}

std::string toldSplit(K k, bool fromBehind) {
    const auto views = k.model.split(k.a, k.b, fromBehind);
    const Size size = k.a.size(), cut = fromBehind ? 0 : size;
    return views ? "at " + told(views->first) + " " + told(views->second) : "not " + told(View{0, cut}) + " " + told(View{cut, size});
}

// The bytes written. Smaller buffers are refused.
template <class Slot, class... Arguments>
std::string written(K k, Slot slot, Arguments... arguments) {
    constexpr CodError kTooSmall[] = {213, 231, 221, 213, 226, 231, 213};
    const CodError code = kTooSmall[k.model.charset % 249];
    Bytes bytes, again;
    const std::string error = failure(writeInto(Page::kSize, bytes, slot, arguments...));
    EXPECT_TRUE(!error.empty() || (writeInto(bytes.size(), again, slot, arguments...) == COD_SUCCESS && again == bytes)) << told(bytes);
    for (Size size = 0; size < bytes.size(); size += k.inAllSizes ? 1 : bytes.size()) {
        const CodUint32 needed = CodUint32(bytes.size()), given = CodUint32(needed - 1 - size);
        const std::string message = "source string's length(" + told(needed) + ") must less than the buffer size(" + told(given) + ")";
        expectError(code, code == ERR_CMM_COPY_DATA ? message : "", [&] { return writeInto(given, again, slot, arguments...); });
    }
    EXPECT_TRUE(error.empty() || failure(writeInto(k.count % 64, again, slot, arguments...)) == error);
    return error.empty() ? told(bytes) : error;
}

const CodLikeSubInfo *infoOf(K k) {
    static CodLikeSubInfo info;
    std::memset(static_cast<void *>(&info), 0xEE, sizeof(info));
    k.ops.setLikeSubInfo(&k.sub, &info);
    return &info;
}

std::string toUni(K k) {
    CodUint32 point = 77, bytes = 78;
    const std::string error = failure(k.ops.toUni(&k.text, k.boundary, &point, &bytes));
    EXPECT_TRUE(error.empty() || (point == 77 && bytes == 78));
    return error.empty() ? told(point) + " of " + told(bytes) : error;
}

std::string toldUni(K k) {
    const Character c = k.model.toUni(k.a, k.boundary);
    return told(c.point) + " of " + told(c.bytes.size());
}

// ---- Each slot, and what the model says of it ----

using Tell = std::string (*)(K);
using Slot = std::tuple<const char *, Tell, Tell>;
#define SLOT(name, call, arguments, tell, rule) \
    Slot(                                       \
        #name, [](K k) { return call arguments; }, [](K k) { return tell(k.model.rule); })
const Slot kSlots[] = {
    SLOT(trimLeft, trimmed, (k, k.ops.trimLeft), told, trim(k.a, true)),
    SLOT(trimRight, trimmed, (k, k.ops.trimRight), told, trim(k.a, false)),
    SLOT(trimCharLeft, trimmed, (k, k.ops.trimCharLeft, &k.set), told, trimSet(k.a, k.c, true)),
    SLOT(trimCharRight, trimmed, (k, k.ops.trimCharRight, &k.set), told, trimSet(k.a, k.c, false)),
    SLOT(upper, written, (k, k.ops.upper, &k.text), told, map(k.a, aniCodepageGetElementToUpper)),
    SLOT(lower, written, (k, k.ops.lower, &k.text), told, map(k.a, aniCodepageGetElementToLower)),
    SLOT(isCaseFoldWord, told, (k.ops.isCaseFoldWord(&k.text)), told, isCaseFoldWord(k.a)),
    SLOT(substr, part, (k, k.ops.substr), toldPart, substr(k.a, k.start, k.count)),
    SLOT(substrb, part, (k, k.ops.substrb), toldPart, substrb(k.a, k.start, k.count)),
    SLOT(length, number, (k, k.ops.length), told, count(k.a)),
    SLOT(compare, told, (k.ops.compare(&k.text, &k.sub)), told, compare(k.a, k.b)),
    SLOT(equal, told, (k.ops.equal(&k.text, &k.sub)), told, equal(k.a, k.b)),
    SLOT(in, number, (k, k.ops.in, &k.sub, k.start, k.count), told, in(k.a, k.b, k.start, k.count)),
    SLOT(in first, number, (k, k.ops.in, &k.sub, k.start, 1u), told, in(k.a, k.b, k.start, 1)),
    SLOT(kmpIn, told, (k.ops.kmpIn(&k.text, &k.sub)), told, find(k.a, k.b, 0) != COD_TEXT_NOT_FOUND),
    SLOT(kmpGetFirstSubPos, told, (k.ops.kmpGetFirstSubPos(&k.text, &k.sub)), told, find(k.a, k.b, 0)),
    SLOT(inLong, told, (k.ops.inLong(&k.text, k.boundary, infoOf(k))), told, find(k.a, k.b, k.boundary)),
    SLOT(backwardInLongFast, told, (k.ops.backwardInLongFast(&k.text, k.boundary, infoOf(k))), told, findLast(k.a, k.b, k.boundary)),
    SLOT(charPos, number, (k, k.ops.charPos, k.count), told, charPos(k.a, k.count)),
    SLOT(charPos2, number, (k, k.ops.charPos2, k.offset), told, charPos2(k.a, k.offset)),
    SLOT(deDuplicate, written, (k, k.ops.deDuplicate, &k.text), told, deDuplicate(k.a)),
    SLOT(nextCharLengthB, number, (k, k.ops.nextCharLengthB, k.boundary), told, nextCharLengthB(k.a, k.boundary)),
    SLOT(nextCharLengthB beyond, number, (k, k.ops.nextCharLengthB, k.text.len + 1), told, nextCharLengthB(k.a, k.text.len + 1)),
    SLOT(getDisplayWidth, told, (k.ops.getDisplayWidth(&k.text)), told, getDisplayWidth(k.a)),
    SLOT(posMove, number, (k, k.ops.posMove, k.boundary, CodInt32(k.start)), told, posMove(k.a, k.boundary, CodInt32(k.start))),
    SLOT(posMove beyond, number, (k, k.ops.posMove, k.text.len + 1, 1), told, posMove(k.a, k.text.len + 1, 1)),
    SLOT(translate, written, (k, k.ops.translate, &k.text, &k.sub, &k.set), told, translate(k.a, k.b, k.c)),
    {"split", [](K k) { return split(k, k.ops.split); }, [](K k) { return toldSplit(k, false); }},
    {"splitReverse", [](K k) { return split(k, k.ops.splitReverse); }, [](K k) { return toldSplit(k, true); }},
    SLOT(charBoundary, told, (k.ops.charBoundary(&k.text, k.offset)), told, charBoundary(k.a, k.offset)),
    SLOT(trimInvalidChar, trimmed, (k, k.ops.trimInvalidChar), told, trimInvalid(k.a)),
    {"toUni", toUni, toldUni}};
#undef SLOT

void expectAsTheModel(K k) {
    for (const auto &[name, ours, rule] : kSlots) {
        std::string wanted;
        try {
            wanted = rule(k);
        } catch (CodError code) {
            wanted = toldError(code);
        }
        EXPECT_EQ(ours(k), wanted) << name << "(" << told(k.a) << "; " << told(k.b) << "; " << told(k.c) << "; start " << k.start
                                   << ", count " << k.count << ", offset " << k.offset << ", boundary " << k.boundary;
    }
}

// ---- Texts ----

// Letters that have another case elsewhere, are longer there or share it; blanks; what is read otherwise before another character;
// characters that no list has; the ends of ranges.
const std::u32string kPoints =
    U"aAaAbBcC zZ10.\u212AkK\u0130iI\u0131\u00DF\u1E9E\u00E9\u00C9\u00FF\u0178\u00B5\u00D7\u03A9\u03C9\u2126\u0414\u0434\u023A\u2C65\u01C4"
    U"\u01C5\u01C6\uFF41\uFF21\u3000\u91CD\u5E86\u91CD\u5E86\u6C88\u9633\u85CF\u6587\u4E2D\u963F\u4E00\u9FA5\u9F98\u2FD1\u9F4A\u3400\u9FFF"
    U"\U00020000\U0002A6DF\U00030000\U0001F600\U00010400\U00010428\U0001E922\uD7FF\uE000\uFFFD\uFFFF\U00010000\U0010FFFF\u0080\u07FF\u0800";
// What is cut off, in the wrong place, beyond a range, assigned to nothing, or has two codes, in one charset or another.
constexpr CodUint32 kOddPieces[] = {
    0x80,       0xFF,       0xC3,       0xC080,     0xE4,       0xE4B8, 0xEDA080, 0xE09FBF,   0xF09F98,   0xF08FBFBF, 0xF4908080,
    0x01D8,     0x3DD8,     0x00DC,     0xFFDF,     0x81,       0x8130, 0x817F,   0x813081,   0x8431A439, 0x8431A530, 0x81308130,
    0x90308130, 0xE3329A35, 0xE3329A36, 0xFE39FE39, 0xAAA1,     0xA2AB, 0xFE51,   0x95329031, 0xFE52,     0x95329033, 0xFE53,
    0x95329730, 0xFE6C,     0x9536B937, 0x9630BA35, 0x9635B630, 0x8140, 0xA8BC,   0};

using Alphabet = std::vector<Bytes>;

// A few pieces, so that texts of them find each other: a third of the alphabets is valid, a fifth of the others has any bytes.
Alphabet alphabetOf(CodUint16 charset, Random &random) {
    Alphabet list(1 + random.below(5));
    const bool isValid = random.oneIn(3), isOfBytes = !isValid && random.oneIn(5);
    for (Bytes &piece : list) {
        do {
            const CodUint32 odd = isOfBytes ? random.below(256) : kOddPieces[random.below(CodUint32(std::size(kOddPieces)))];
            const Bytes good = encode(charset, kPoints[random.below(CodUint32(kPoints.size()))]);
            piece = random.oneIn(isOfBytes ? 1 : 6) ? bytesOf(BINARY_CS, odd) : good;
        } while (piece.empty() || (isValid && Collation{charset, 0, 0}.trimInvalid(piece).end != piece.size()));
    }
    return list;
}

Bytes textFrom(const Alphabet &alphabet, Random &random, CodUint32 most) {
    Bytes text;
    for (CodUint32 n = random.below(most); n > 0; n--) {
        text += alphabet[random.below(CodUint32(alphabet.size()))];
    }
    return text;
}

Case makeCase(const CodCollation &ops, const Collation &model, const Bytes &a, const Bytes &b, const Bytes &c, Random &random) {
    constexpr CodInt64 kFar[] = {INT64_MIN, INT64_MIN + 1, INT32_MIN, -65536, 65536, INT32_MAX, INT64_MAX, CodInt64{1} << 32};
    const auto around = [&] { return random.oneIn(20) ? ~0u - random.below(2) : random.below(CodUint32(a.size()) + 3); };
    const auto near = CodInt64{random.below(2 * CodUint32(a.size()) + 5)} - CodInt64(a.size()) - 2;
    const CodInt64 start = random.oneIn(20) ? kFar[random.below(CodUint32(std::size(kFar)))] : near;
    const bool atEnd = !random.oneIn(3);
    const std::vector<Size> at = offsets(model.whole(a));
    const CodText texts[] = {guarded(0, a, atEnd), guarded(1, b, atEnd), guarded(2, c, atEnd)};
    const auto boundary = CodUint32(at[random.below(CodUint32(at.size()))]);
    return {ops, model, a, b, c, texts[0], texts[1], texts[2], start, around(), around(), boundary, random.oneIn(8)};
}

TEST_F(Collations, everySlotAsTheModelForRandomTexts) {
    Random random(29);
    for (int i = 0; i < (kIsSlow ? 150 : 600) && !HasFailure(); i++) {
        forEachCollation([&](const CodCollation &ops, const Collation &model) {
            const Alphabet alphabet = alphabetOf(model.charset, random);
            const Bytes a = textFrom(alphabet, random, random.oneIn(3) ? 40 : 12), c = textFrom(alphabet, random, 4);
            Bytes part = a.substr(random.below(CodUint32(a.size()) + 1), random.oneIn(3) ? 99 : random.below(9));
            // What is another case in a byte of its own is another character in a longer one.
            const Size flipped = random.below(CodUint32(part.size()) + 6);
            flipped < part.size() ? void(part[flipped] ^= 0x20) : void();
            const Bytes other = textFrom(alphabet, random, 5);
            expectAsTheModel(makeCase(ops, model, a, random.oneIn(2) ? part : other, c, random));
        });
    }
}

TEST_F(Collations, everySlotAsTheModelForEveryShortText) {
    Random random(31);
    forEachCollation([&](const CodCollation &ops, const Collation &model) {
        const Alphabet some = {
            "a", "\xe4", "\xb8", "\x81", "0", "\xff", "\xdf\xd8", encode(model.charset, U'A'), encode(model.charset, 0x4E2D)};
        const auto n = CodUint32(some.size());
        const CodUint32 step = kIsSlow ? 60 : 6;
        for (CodUint32 i = (model.sort * 2u + model.caseMode) % step; i < n * n * n && !HasFailure(); i += step) {
            const Bytes tail = some[i / n % n] + some[i % n], a = random.oneIn(3) ? tail : some[i / n / n] + tail;
            expectAsTheModel(makeCase(ops, model, a, some[random.below(n)], some[random.below(n)], random));
        }
    });
}

// What is another case in a byte of its own is another character in a longer one, at every place of longer texts.
TEST_F(Collations, bytesOfACharacterHaveNoCaseOfTheirOwn) {
    for (const CodUint16 charset : std::array<CodUint16, 3>{GBK, UTF16, GB18030}) {
        const Collation model = {charset, BINARY, CASE_INS};
        for (CodUint32 code = 0x4000; code < 0x10000; code += kIsSlow ? 97 : 3) {
            const Bytes around = encodeAll(charset, std::u32string(code % 19, U'a')), left = bigEndian(code, 2);
            for (const CodUint32 flip : {0x20u, 0x2000u}) {
                const Bytes right = bigEndian(code ^ flip, 2);
                const CodText l = guarded(0, around + left + around), r = guarded(1, around + right + around);
                EXPECT_EQ(codGetCollation(charset, BINARY, CASE_INS)->equal(&l, &r), model.equal(left, right)) << charset << " " << code;
            }
        }
    }
}

// ---- Laws ----

Bytes keyOf(const Bytes &text, CodTextMap slot) {
    Bytes key;
    const CodText source = guarded(0, text);
    EXPECT_EQ(writeInto(6 * text.size(), key, slot, &source), COD_SUCCESS) << told(text);
    return key;
}

constexpr auto sign = [](auto order) { return order < 0 ? -1 : order > 0 ? 1 : 0; };

TEST_F(Collations, orderIsTotalAndThatOfTheKeys) {
    Random random(37);
    for (int i = 0; i < (kIsSlow ? 100 : 1500) && !HasFailure(); i++) {
        forEachCollation([&](const CodCollation &ops, const Collation &model) {
            const Alphabet alphabet = alphabetOf(model.charset, random);
            const Bytes texts[] = {textFrom(alphabet, random, 6), textFrom(alphabet, random, 6), textFrom(alphabet, random, 6)};
            SCOPED_TRACE(told(texts[0]) + "; " + told(texts[1]) + "; " + told(texts[2]));
            const auto order = [&](int left, int right) {
                const CodText l = guarded(1, texts[left]), r = guarded(2, texts[right]);
                const CodInt32 result = ops.compare(&l, &r);
                EXPECT_EQ(result, sign(keyOf(texts[left], ops.nlsSort) <=> keyOf(texts[right], ops.nlsSort)));
                EXPECT_EQ(result, -ops.compare(&r, &l));
                EXPECT_EQ(result == 0, model.caseMode == CASE_INS ? ops.equal(&l, &r) : texts[left] == texts[right]);
                return result;
            };
            const CodInt32 ab = order(0, 1), bc = order(1, 2), ac = order(0, 2);
            EXPECT_TRUE(ab * bc < 0 || ac == (ab != 0 ? ab : bc));
            const Bytes bare = texts[0].substr(0, model.trim(texts[0], false).end), key = keyOf(texts[0], ops.mysqlSort);
            EXPECT_EQ(key, keyOf(bare, ops.nlsSort));
            EXPECT_TRUE((model.charset == UTF16 && bare.size() % 2 == 1) ||
                        keyOf(bare + bytesOf(model.charset, ' '), ops.mysqlSort) == key);
            const Case k = makeCase(ops, model, texts[1], "", "", random);
            EXPECT_TRUE(written(k, ops.nlsSort, &k.text).starts_with("bytes") && written(k, ops.mysqlSort, &k.text).starts_with("bytes"));
        });
    }
}

// What is ordered by code points and pinyin is ordered alike in the charsets that have all of them.
TEST_F(Collations, theOrderOfCharactersIsOneInAllCharsets) {
    Random random(41);
    const auto randomPoints = [&] {
        std::u32string points(random.below(4), U' ');
        std::generate(points.begin(), points.end(), [&] { return kPoints[random.below(CodUint32(kPoints.size()))]; });
        return points;
    };
    for (CodUint16 i = 0; i < (kIsSlow ? 2000 : 60000) && !HasFailure(); i++) {
        const std::u32string points[] = {randomPoints(), randomPoints()};
        const auto order = [&](CodUint16 charset) {
            const Bytes left = encodeAll(charset, points[0]), right = encodeAll(charset, points[1]);
            const CodText l = textOf(left), r = textOf(right);
            return codGetCollation(charset, 1 + i % 4 / 2, i % 2)->compare(&l, &r);
        };
        EXPECT_TRUE(order(UTF8) == order(UTF16) && order(UTF8) == order(GB18030)) << told(encodeAll(UTF8, points[0] + U"|" + points[1]));
    }
}

TEST_F(Collations, positionsPartsAndCodePointsAreInverse) {
    Random random(43);
    forEachCollation([&](const CodCollation &ops, const Collation &model) {
        const Bytes bytes = encodeAll(model.charset, kPoints), a = encode(model.charset, U'a');
        const CodText text = textOf(bytes), letter = textOf(a);
        CodUint32 count = 0, offset = 0, position = 0, size = 0, moved = 0, back = 0;
        ASSERT_EQ(ops.length(&text, &count), COD_SUCCESS);
        for (CodUint32 p = 1; p <= count; p++) {
            CodText part = {};
            ASSERT_EQ(ops.charPos(&text, p, &offset) | ops.charPos2(&text, offset, &position), COD_SUCCESS);
            ASSERT_EQ(ops.nextCharLengthB(&text, offset, &size) | ops.substr(&text, p, 1, &part), COD_SUCCESS);
            ASSERT_EQ(ops.posMove(&text, 0, CodInt32(p - 1), &moved) | ops.posMove(&text, text.len, CodInt32(p - 1 - count), &back),
                      COD_SUCCESS);
            EXPECT_TRUE(position == p && moved == offset && back == offset && part.str == text.str + offset && part.len == size) << p;
        }
        EXPECT_EQ(offset + size, text.len);
        Bytes joined, folded;
        CodText rest = text, head = {}, tail = {};
        for (; rest.len != 0; rest = tail) {
            joined.append(rest.str, ops.split(&rest, &letter, &head, &tail) ? head.len + letter.len : rest.len);
        }
        EXPECT_EQ(joined, bytes);
        const Size room = (model.charset == UTF8 || model.charset == GB18030 ? 2 : 1) * bytes.size();
        for (const CodTextMap map : {ops.lower, ops.upper}) {
            EXPECT_EQ(writeInto(room, folded, map, &text), COD_SUCCESS);
        }
        for (CodUint32 point = 0; point < 0x110400; point += point < 0x3000 ? 1 : 1 + random.below(kIsSlow ? 9000 : 900)) {
            const Bytes wanted = encode(model.charset, point);
            const std::string error = failure(writeInto(4, folded, ops.fromUni, point));
            const CodText made = textOf(folded);
            EXPECT_TRUE(wanted.empty() ? error == toldError(ERR_CMM_CONVERT_STRING) : folded == wanted) << point << error;
            EXPECT_TRUE(wanted.empty() || (ops.toUni(&made, 0, &position, &size) == COD_SUCCESS && position == point && size == made.len));
        }
        EXPECT_EQ(written(makeCase(ops, model, "", "", "", random), ops.fromUni, U'a'), told(a));
    });
}

// ---- The table ----

TEST_F(Collations, standAtTheirPlacesUnderTheirNames) {
    const CodCollation *found = nullptr;
    CodUint32 count = 0;
    forEachCollation([&](const CodCollation &ops, const Collation &model) {
        const CharsetAttr &charset = gCharsetNames[model.charset];
        void *slots[offsetof(CodCollation, flag) / sizeof(void *)];
        std::memcpy(slots, &ops, sizeof(slots));
        EXPECT_EQ(std::count(std::begin(slots), std::end(slots), nullptr), 0);
        const CodUint32 fixed = isCharsetFixedLen(model.charset) ? COD_COLLATION_FIXED_LEN : 0;
        EXPECT_EQ(ops.flag, model.caseMode | fixed | (charset.isNational ? COD_COLLATION_NATIONAL : 0));
        EXPECT_EQ(ops.collationId, (model.charset * 3 + model.sort) * 2 + model.caseMode);
        const Bytes sorts[] = {"_BINARY_", "_PINYIN_", "_GENERAL_"}, modes[] = {"CS", "CI"};
        Bytes name = Bytes(charset.name.str, charset.name.len) + sorts[model.sort] + modes[model.caseMode];
        EXPECT_EQ(Bytes(ops.collationName->str, ops.collationName->len), name);
        name[count % name.size()] = char(std::tolower(name[count % name.size()]));
        const CodText text = textOf(name), less = {text.str, text.len - 1, 0};
        EXPECT_TRUE(codGetCollationByName(&text, &found) == COD_SUCCESS && found == &ops);
        expectError(ERR_CMM_INVALID_COLLATION_NAME, "", [&] { return codGetCollationByName(&less, &found); });
        count++;
    });
    for (CodUint32 i = 0; i < 300 * 16; i++) {
        count -= codGetCollation(CodUint16(i / 16), i / 4 % 4, i % 4) == nullptr ? 0 : 1;
    }
    EXPECT_TRUE(count == 0 && codGetCollation(65535, 0, 0) == nullptr && codGetCollation(0, 65535, 65535) == nullptr);
    for (const Bytes name : {"", "UTF8", "UTF8_BINARY", "UTF8_BINARY_CX", "UTF8_BINARY_CI ", "_BINARY_CI", "LATIN1_BINARY_CI"}) {
        const CodText text = textOf(name);
        expectError(232, "invalid collation name \"" + name + "\"", [&] { return codGetCollationByName(&text, &found); });
        expectError(ERR_CMM_POINTER_NULL, "", [&] { return codGetCollationByName(&text, nullptr); });
    }
    expectError(ERR_CMM_POINTER_NULL, "", [&] { return codGetCollationByName(nullptr, &found); });
}

// ---- Without the code pages ----

TEST_F(Collations, knowTheCaseOfUnicodeWithoutThePages) {
    const auto lower = [](CodUint32 point) { return aniCodepageGetElementToLower(CODEPAGE_UCS, point, nullptr); };
    for (CodUint32 point = 0; point < 0x110000; point += point == 0xD7FF ? 0x801 : kIsSlow && point > 0x20000 ? 97 : 1) {
        for (CodUint32 other : {lower(point), aniCodepageGetElementToUpper(CODEPAGE_UCS, point, nullptr), point ^ 1, point / 2 + 0x41}) {
            other = isSurrogate(other) ? U'a' : other;
            const Bytes left = utf8Of(point), right = utf8Of(other);
            const CodText l = textOf(left), r = textOf(right);
            ASSERT_EQ(utf8CaseInsCmpWithoutCodePage(&l, &r), sign(CodInt64{lower(point)} - lower(other))) << point << " " << other;
        }
    }
}

Bytes upperOf(CodUint16 charset, const Bytes &text) {
    Bytes upper;
    for (const Character &c : decode(charset, text, true)) {
        upper += cased(charset, c, aniCodepageGetElementToUpper).bytes;
    }
    return upper;
}

// Without the page of the charset, letters of ASCII alone have another case.
std::vector<Bytes> asciiKeys(CodUint16 charset, const Bytes &text) {
    std::vector<Bytes> keys;
    for (const Character &c : decode(charset, text, true)) {
        keys.push_back(!c.isValid ? "invalid " + c.bytes : c.code < 0x80 ? Bytes(1, char(std::tolower(int(c.code)))) : c.bytes);
    }
    return keys;
}

// All that the converter takes, then the rest as it is.
std::vector<Bytes> utf16Keys(CodUint16 charset, const Bytes &text) {
    std::vector<Bytes> keys;
    const Characters list = decode(charset, text, true);
    const auto end =
        std::find_if(list.begin(), list.end(), [&](const Character &c) { return c.point == kNothing || charset == BINARY_CS; });
    std::transform(list.begin(), end, std::back_inserter(keys),
                   [](const Character &c) { return bigEndian(aniCodepageGetElementToLower(CODEPAGE_UCS, c.point, nullptr), 4); });
    const Bytes rest = text.substr(offsets(list)[Size(end - list.begin())]);
    return rest.empty() ? void() : keys.push_back("\xff" + rest), keys;
}

TEST_F(Collations, equalityOfTextsGoesByWhatIsLoaded) {
    struct Pair {
        CodUint16 charset;
        Bytes left, right;
        bool isEqual, isAsciiEqual;
        CodInt32 order, utf8Order, utf16Order;
    };
    Random random(47);
    std::vector<Pair> pairs;
    for (int i = 0; i < (kIsSlow ? 2000 : 20000); i++) {
        const CodUint16 charset = kCharsets[Size(i) % std::size(kCharsets)];
        const Collation model = {charset, BINARY, CASE_INS}, utf8 = {UTF8, BINARY, CASE_INS};
        const Alphabet alphabet = alphabetOf(charset, random);
        const Bytes left = textFrom(alphabet, random, 5);
        const Bytes other = textFrom(alphabet, random, 5), right = random.oneIn(2) ? upperOf(charset, left) : other;
        pairs.push_back({charset, left, right, model.equal(left, right), asciiKeys(charset, left) == asciiKeys(charset, right),
                         model.compare(left, right), utf8.compare(left, right),
                         sign(utf16Keys(charset, left) <=> utf16Keys(charset, right))});
    }
    for (const bool isLoaded : {true, false}) {
        for (const Pair &p : pairs) {
            SCOPED_TRACE(told(p.left) + "; " + told(p.right) + "; charset " + told(p.charset) + (isLoaded ? "" : ", nothing loaded"));
            const CodText l = guarded(0, p.left), r = guarded(1, p.right);
            const CodCollation &ops = *codGetCollation(p.charset, BINARY, CASE_INS);
            const bool isGbk = p.charset == GBK || p.charset == GB18030, isUnicode = p.charset == UTF8 || p.charset == UTF16;
            const bool isEqual = isLoaded || !isGbk ? p.isEqual : p.isAsciiEqual, isSame = p.left == p.right;
            const bool isBySlot = isLoaded || p.charset == ASCII || p.charset == UTF16;
            const bool isWithoutPage = l.len == r.len && (p.charset == UTF8 ? p.utf8Order : p.utf16Order) == 0;
            // The converter takes code points above U+10FFFF, and replaces them.
            const bool isBeyond = (p.left + " " + p.right).find("\xf4\x90") != Bytes::npos;
            EXPECT_TRUE(ops.equal(&l, &r) == isEqual && (!isEqual || ops.kmpIn(&l, &r)));
            EXPECT_TRUE(isUnicode ? ops.compare(&l, &r) == p.order : (ops.compare(&l, &r) == 0) == isEqual);
            EXPECT_EQ(utf8CaseInsCmpWithoutCodePage(&l, &r), p.utf8Order);
            EXPECT_TRUE(isBeyond || codTextCompareByConvertUTF16(&l, &r, p.charset) == p.utf16Order);
            EXPECT_EQ(codTextEqual(&l, &r, CASE_INS, p.charset), isBySlot ? p.isEqual : isWithoutPage);
            EXPECT_TRUE(codTextEqual(&l, &r, CASE_SENS, p.charset) == isSame && codTextEqual(&l, &r, 2, p.charset) == isSame);
            EXPECT_TRUE(codTextEqual(&l, &r, CASE_INS, 77) == isSame && codTextEqual(&l, &r, CASE_INS, 65535) == isSame);
        }
        aniCodepageClose();
    }
}

TEST_F(Collations, mapNothingAboveAsciiWithoutThePages) {
    const std::string refused = toldError(ERR_CMM_INVALID_CODEPAGE);
    const auto isEncoded = [](CodUint16 charset) { return charset != ASCII && charset != ISO88591 && charset != BINARY_CS; };
    Bytes texts[256], made;
    for (const CodUint16 charset : kCharsets) {
        texts[charset] = encodeAll(charset, isEncoded(charset) ? U"aZ\u0434" : U"aZ\u00E9");
    }
    aniCodepageClose();
    forEachCollation([&](const CodCollation &ops, const Collation &model) {
        const CodText text = textOf(texts[model.charset]), ascii = {text.str, model.charset == UTF16 ? 4u : 2u, 0};
        const bool isGbk = model.charset == GBK || model.charset == GB18030;
        for (const CodTextMap map : {ops.upper, ops.lower}) {
            EXPECT_EQ(failure(writeInto(16, made, map, &ascii)), "");
            EXPECT_EQ(failure(writeInto(16, made, map, &text)), isEncoded(model.charset) ? refused : "");
        }
        CodUint32 point = 0, size = 0;
        EXPECT_EQ(ops.getDisplayWidth(&text), text.len == ascii.len ? 2u : 3u);
        EXPECT_TRUE(!isEncoded(model.charset) || failure(ops.toUni(&text, ascii.len, &point, &size)) == (isGbk ? refused : ""));
        EXPECT_TRUE(!isGbk || failure(writeInto(16, made, ops.fromUni, 0x434u)) == refused);
    });
}

// ---- Numbers: in each charset what they are in ASCII, where they are those of NUMBER ----

TEST_F(Collations, numbersAreTheSameInEveryCharset) {
    const CodCollation &plain = *codGetCollation(ASCII, BINARY, CASE_SENS);
    forEachCollation([&](const CodCollation &ops, const Collation &model) {
        const auto wide = [&](const Bytes &ascii) { return encodeAll(model.charset, std::u32string(ascii.begin(), ascii.end())); };
        const Bytes form = "S999.99", forms[] = {wide(form), wide("9.99EEEE")};
        const CodText formText = textOf(form), formTexts[] = {textOf(forms[0]), textOf(forms[1])};
        CodNumber n = {}, wanted = {};
        for (const Bytes ascii : {"0", " -1.5 ", "255", "256", "1e3", "12x", "", "Infinity", "true", " OFF ", "18446744073709551615"}) {
            const Bytes bytes = wide(ascii);
            const CodText text = guarded(0, bytes), same = guarded(1, ascii);
            const auto read = [&](auto slot, auto value, auto... more) {
                auto other = value;
                const std::string error = failure((ops.*slot)(&text, more.first..., &value));
                EXPECT_EQ(error, failure((plain.*slot)(&same, more.second..., &other))) << ascii;
                EXPECT_TRUE(!error.empty() || std::memcmp(&value, &other, sizeof(value)) == 0) << ascii;
            };
            read(&CodCollation::toNumber, CodNumber{}), read(&CodCollation::toTruncNumber, CodNumber{});
            read(&CodCollation::toNumberByForm, CodNumber{}, std::pair(&formTexts[0], &formText));
            read(&CodCollation::toFloat, CodFloat{}), read(&CodCollation::toDouble, CodDouble{}), read(&CodCollation::toBool, CodBool{});
            read(&CodCollation::toUint64, CodUint64{}), read(&CodCollation::toUint32, CodUint32{});
            read(&CodCollation::toUint16, CodUint16{}), read(&CodCollation::toUint8, CodUint8{});
            EXPECT_EQ(failure(plain.toNumber(&same, &n)), failure(codNumberFromText(&same, &wanted)));
            EXPECT_EQ(codNumberCompare(&n, &wanted), 0);
        }
        const auto writes = [&](const Bytes &ascii, auto... call) {
            Bytes bytes;
            EXPECT_TRUE(writeInto(wide(ascii).size(), bytes, call...) == COD_SUCCESS && bytes == wide(ascii)) << ascii;
            expectError(ERR_CMM_FORMAT_STR_OVERFLOW, "", [&] { return writeInto(wide(ascii).size() - 1, bytes, call...); });
        };
        EXPECT_EQ(codNumberFromStr("-12.50", &n), COD_SUCCESS);
        writes("-12.5", ops.fromNumber, &n), writes(" -12.50", ops.fromNumberByForm, &n, &formTexts[0]);
        writes("-1.25E+01", ops.fromNumberBySciForm, &n, &formTexts[1]), writes("-9223372036854775808", ops.fromInt, INT64_MIN);
        writes("18446744073709551615", ops.fromUint, UINT64_MAX), writes("0.03", ops.fromDouble, 0.03);
        writes("-Infinity", ops.fromFloat, -HUGE_VALF);
    });
}

TEST_F(Collations, textsThatAreNowhereAreEmpty) {
    forEachCollation([](const CodCollation &ops, const Collation &) {
        const CodText none = {nullptr, 0, 0};
        CodText text = none, result = {nullptr, 77, 0}, tail = result;
        CodUint32 numbers[6] = {77, 77, 77, 77, 77, 77};
        ops.trimLeft(&text), ops.trimCharRight(&text, &none), ops.trimInvalidChar(&text);
        EXPECT_EQ(ops.length(&none, &numbers[0]) | ops.charPos(&none, 1, &numbers[1]) | ops.charPos2(&none, 0, &numbers[2]), COD_SUCCESS);
        EXPECT_EQ(ops.posMove(&none, 0, -1, &numbers[3]) | ops.nextCharLengthB(&none, 0, &numbers[4]), COD_SUCCESS);
        EXPECT_EQ(ops.in(&none, &none, 1, 1, &numbers[5]) | ops.substr(&none, 0, 9, &result) | ops.lower(&none, &tail, 0), COD_SUCCESS);
        EXPECT_EQ((std::array{text.len, result.len, tail.len, numbers[0], numbers[1], numbers[2], numbers[3], numbers[4], numbers[5]}),
                  (std::array<CodUint32, 9>{0, 0, 0, 0, 0, 1, 0, 0, 1}));
        EXPECT_TRUE(ops.equal(&none, &none) && ops.compare(&none, &none) == 0 && ops.kmpIn(&none, &none));
        EXPECT_TRUE(!ops.split(&none, &none, &result, &tail) && ops.charBoundary(&none, 5) == 0 && ops.getDisplayWidth(&none) == 0);
        expectError(ERR_CMM_OUT_OF_INDEX, "index 0 is out of [1, 1]", [&] { return ops.charPos(&none, 0, &numbers[0]); });
    });
}

// ---- Chinese words ----

TEST_F(Collations, wordsStandInTheOrderOfTheirPinyin) {
    std::u32string words =
        U"abc яблоко 阿姨 爱 安全 八 爸爸 北京 编程 冰 菜 茶 重庆 出口 春天 大 点心 东西 二 飞机 高兴 汉语 花 加油 家 开始 老师 妈妈 麻 马 "
        U"骂 "
        U"明天 南京 朋友 七 人 上海 沈阳 十 时间 天津 同学 我 西安 学生 学校 一 藏文 中国 中文 重要 作 ";
    Bytes last[std::size(kCharsets)];
    for (Size blank = 0; (blank = words.find(U' ')) != words.npos; words.erase(0, blank + 1)) {
        for (const CodUint32 c : {1u, 2u, 4u, 5u}) {
            const Bytes bytes = encodeAll(kCharsets[c], words.substr(0, blank));
            const CodText before = textOf(last[c]), text = textOf(bytes);
            EXPECT_EQ(codGetCollation(kCharsets[c], CHINESE_PINYIN, CASE_SENS)->compare(&before, &text), -1) << told(bytes);
            last[c] = bytes;
        }
    }
}

// ---- Search ----

TEST_F(Collations, searchTakesLinearTime) {
    if (kIsSlow) {
        GTEST_SKIP();
    }
    constexpr CodUint32 kSize = 65536;
    forEachCollation([&](const CodCollation &ops, const Collation &model) {
        const char32_t point = encode(model.charset, 0x4E2D).empty() ? U'a' : 0x4E2D;
        const Bytes a = encode(model.charset, point), b = encode(model.charset, U'b');
        const auto repeat = [&](Size size) { return encodeAll(model.charset, std::u32string(size / a.size(), point)); };
        const Bytes same = repeat(kSize), half = repeat(kSize / 2), quarter = repeat(kSize / 4);
        Bytes waves, fewWaves;  // what is searched for stands at each of many waves
        while (waves.size() < kSize) {
            waves += repeat(kSize / 256) + b;
            fewWaves = waves.size() < kSize / 64 ? waves : fewWaves;
        }
        const std::pair<Bytes, Bytes> searches[] = {
            {same, half + b}, {same, b + half}, {same, quarter + b + quarter}, {same, half}, {waves, fewWaves}};
        for (const auto &[bytes, pattern] : searches) {
            const CodText text = textOf(bytes), sub = textOf(pattern);
            const bool isThere = bytes.find(pattern) != Bytes::npos;
            CodText head = {}, tail = {};
            CodLikeSubInfo info = {};
            CodUint32 position = 0;
            const std::clock_t begin = std::clock();
            ops.setLikeSubInfo(&sub, &info);
            ops.split(&text, &sub, &head, &tail);
            ops.splitReverse(&text, &sub, &head, &tail);
            EXPECT_EQ(ops.inLong(&text, 0, &info) != COD_TEXT_NOT_FOUND, isThere);
            EXPECT_EQ(ops.backwardInLongFast(&text, text.len, &info) != COD_TEXT_NOT_FOUND, isThere);
            EXPECT_EQ(ops.in(&text, &sub, 1, ~0u, &position) | ops.in(&text, &sub, -1, ~0u, &position), COD_SUCCESS);
            const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
            EXPECT_LT(seconds, 0.2) << pattern.size() << " bytes in " << bytes.size();
        }
    });
}

}  // namespace
