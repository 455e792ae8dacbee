#include "base/cod_utf8.h"

#include <sys/mman.h>

#include <vel_infra/string/ani_convert.h>

#include "base/cod_utf16.h"
#include "support/collection_support.h"

namespace {

using namespace collection_support;
using cod::isValidUtf8;
using cod::utf8ValidPrefix;
constexpr std::size_t kPage = 4096;
// By the choice that the first use makes.
const CodUint64 kFirstUse = utf8ValidPrefix(reinterpret_cast<const CodUint8 *>("\xC3\x9F\xC3"), 3);

// ---- The model: RFC 3629, section 4 ----

struct Form {
    CodUint8 first[2];
    CodUint8 second[2];
    std::size_t length;
};

constexpr Form kForms[] = {
    {{0x00, 0x7F}, {}, 1},           {{0xC2, 0xDF}, {0x80, 0xBF}, 2}, {{0xE0, 0xE0}, {0xA0, 0xBF}, 3},
    {{0xE1, 0xEC}, {0x80, 0xBF}, 3}, {{0xED, 0xED}, {0x80, 0x9F}, 3}, {{0xEE, 0xEF}, {0x80, 0xBF}, 3},
    {{0xF0, 0xF0}, {0x90, 0xBF}, 4}, {{0xF1, 0xF3}, {0x80, 0xBF}, 4}, {{0xF4, 0xF4}, {0x80, 0x8F}, 4},
};

bool isOfForm(const Form &form, std::string_view text) {
    const auto isIn = [&](std::size_t at, CodUint8 low, CodUint8 high) {
        return static_cast<CodUint8>(text[at]) >= low && static_cast<CodUint8>(text[at]) <= high;
    };
    bool is = form.length <= text.size() && isIn(0, form.first[0], form.first[1]);
    for (std::size_t i = 1; is && i < form.length; i++) {
        is = isIn(i, i == 1 ? form.second[0] : 0x80, i == 1 ? form.second[1] : 0xBF);
    }
    return is;
}

std::size_t prefixByModel(std::string_view text) {
    for (std::size_t at = 0;;) {
        const Form *form = std::find_if(kForms, std::end(kForms), [&](const Form &f) { return isOfForm(f, text.substr(at)); });
        if (form == std::end(kForms)) {
            return at;
        }
        at += form->length;
    }
}

// ---- Texts where reading too far or too early ends the process ----

CodUint8 *openPage() {
    void *pages = mmap(nullptr, 3 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    CodUint8 *page = static_cast<CodUint8 *>(pages) + kPage;
    EXPECT_EQ(mprotect(page, kPage, PROT_READ | PROT_WRITE), 0);
    return page;
}
CodUint8 *const kOpenPage = openPage();
CodUint8 *const kOtherPage = openPage();

bool isJudged(const CodUint8 *data, std::size_t length, std::size_t prefix) {
    return utf8ValidPrefix(data, length) == prefix && isValidUtf8(data, length) == (prefix == length);
}

bool isCounted(const CodUint8 *data, std::size_t length, bool isValid) {
    bool isFoundValid = !isValid;
    const CodUint64 count = cod::utf8CountCharacters(data, length, &isFoundValid);
    const auto leads = std::count_if(data, data + length, [](CodUint8 byte) { return (byte & 0xC0) != 0x80; });
    return isFoundValid == isValid && (!isValid || count == static_cast<CodUint64>(leads));
}

// The prefix is valid.
void check(std::string_view prefix, std::string_view rest) {
    const std::size_t length = prefix.size() + rest.size();
    const std::size_t expected = prefix.size() + prefixByModel(rest);
    for (CodUint8 *place : {kOpenPage, kOpenPage + kPage - length}) {
        std::copy(rest.begin(), rest.end(), std::copy(prefix.begin(), prefix.end(), place));
        EXPECT_TRUE(isJudged(place, length, expected))
            << testing::PrintToString(std::string(prefix).append(rest)) << ": " << utf8ValidPrefix(place, length) << ", not " << expected;
        EXPECT_TRUE(isCounted(place, length, expected == length)) << testing::PrintToString(std::string(prefix).append(rest));
    }
}

std::string makePrefix(std::size_t length, bool isAscii) {
    std::string prefix(isAscii ? length : length % 3, 'a');
    while (prefix.size() < length) {
        prefix += "\u4E2D";
    }
    return prefix;
}

// Not shorter than `length`.
std::string makeText(Random &random, std::size_t length) {
    const std::string parts[] = {std::string(random.below(300), 'x'), "a", "\u00DF", "\u4E2D\uFFFF", "\U0001F600\U0010FFFF"};
    std::string text;
    while (text.size() < length) {
        text += parts[random.oneIn(20) ? 0 : 1 + random.below(4)];
    }
    return text;
}

std::string changeBytes(Random &random, std::string text) {
    for (std::uint32_t changes = random.below(3); changes > 0 && !text.empty(); changes--) {
        text[random.below(static_cast<std::uint32_t>(text.size()))] = static_cast<char>(random.next());
    }
    return text;
}

// One thread is at work: the thread sanitizer, which is slow, sees a part of it.
constexpr std::size_t kEvery = COD_WITH_TSAN ? 9 : 1;

struct Utf8 : testing::TestWithParam<cod::Utf8Variant> {
    void SetUp() override {
        if (cod::setUtf8Variant(GetParam()) != GetParam()) {
            GTEST_SKIP() << "this processor has no such vectors";
        }
    }
    void TearDown() override {
        cod::setUtf8Variant(cod::detectUtf8Variant());
    }
};
INSTANTIATE_TEST_SUITE_P(Variants, Utf8, testing::Values(cod::kUtf8Scalar, cod::kUtf8Simd256, cod::kUtf8Simd512));

TEST_P(Utf8, judgesEverySequenceOfUpToThreeBytes) {
    EXPECT_TRUE(isJudged(nullptr, 0, 0) && isCounted(nullptr, 0, true) && kFirstUse == 2);
    for (std::uint32_t i = 0; i < 0x10000; i++) {
        const char bytes[] = {static_cast<char>(i >> 8), static_cast<char>(i)};
        check(makePrefix(i * 7 % 71, i % 3 != 0), std::string_view(bytes, i % 5 == 0 ? 1 : 2));
    }
    // The other lead bytes are characters or faults by themselves.
    for (std::uint32_t i = 0xC00000; i < 0x1000000 && !HasFailure(); i++) {
        const std::size_t before = (i >> 16) * 3 % 71;  // a length for each lead byte
        CodUint8 *place = kOpenPage + 100;
        if ((i & 0xFFFF) == 0) {
            const std::string prefix = makePrefix(before, (i >> 16) % 2 == 0);
            std::copy(prefix.begin(), prefix.end(), place - before);
        }
        place[0] = static_cast<CodUint8>(i >> 16), place[1] = static_cast<CodUint8>(i >> 8), place[2] = static_cast<CodUint8>(i);
        const std::size_t expected = before + prefixByModel({reinterpret_cast<char *>(place), 3});
        EXPECT_TRUE(isJudged(place - before, before + 3, expected)) << std::hex << i << " behind " << before;
    }
}

// Single lead and continuation bytes and characters of four bytes, at every place of a vector and behind its end.
TEST_P(Utf8, judgesTheLimitsAtEveryPlace) {
    constexpr std::string_view limits = "\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0";
    std::vector<std::string> sequences;
    for (std::uint32_t i = 0; i < 256 * 512; i++) {
        const std::string sequence = {static_cast<char>(i >> 9), limits[i >> 6 & 7], limits[i >> 3 & 7], limits[i & 7]};
        // Third and fourth bytes matter where a lead byte may ask for them.
        if (i >> 9 >= 0xEF || (i & 63) == 0) {
            sequences.push_back(sequence);
            sequences.push_back(sequence.substr(0, 1 + i % 4));
        }
    }
    for (std::size_t length = 0; length <= 70; length += kEvery) {
        const std::string prefixes[] = {makePrefix(length, true), makePrefix(length, false)};
        for (std::size_t i = 0; i < sequences.size(); i++) {
            check(prefixes[(i / 2 + length) % 2], sequences[i] + std::string(i % 3 == 0 ? i % 16 : 0, 'a'));
        }
    }
}

TEST_P(Utf8, judgesMutatedTexts) {
    Random random(3629);
    for (int i = 0; i < 20000 && !HasFailure(); i++) {
        const std::string text = changeBytes(random, makeText(random, random.below(random.oneIn(8) ? 700 : 300)));
        check("", text.substr(0, text.size() - (random.oneIn(2) ? 0 : std::min<std::size_t>(text.size(), random.below(4)))));
    }
}

// ---- UTF-16: what the vectors make of a text is what is made character by character ----

struct Converted {
    CodResult result;
    std::string bytes;
    CodUint32 badOffset;

    bool operator==(const Converted &other) const {
        return result == other.result && bytes == other.bytes && badOffset == other.badOffset;
    }
};

constexpr std::size_t kMostRoom = kPage - 2;

// Text and buffer end where their pages do. Room without the terminator.
Converted convert(std::string_view text, CodUint16 from, CodConvertMode mode, std::size_t room) {
    const CodUint16 to = from == UTF8 ? UTF16 : UTF8;
    const std::size_t size = room + (to == UTF16 ? 2 : 1);
    CodUint8 *in = kOpenPage + kPage - text.size();
    CodUint8 *out = kOtherPage + kPage - size;
    std::copy(text.begin(), text.end(), in);
    const CodText given = {reinterpret_cast<CodChar *>(in), static_cast<CodUint32>(text.size()), 0};
    CodUint32 len = 0, badOffset = 77;
    codCleanError();
    const CodResult result =
        codTextConvertStrict(&given, to, reinterpret_cast<CodChar *>(out), static_cast<CodUint32>(size), &len, from, mode, &badOffset);
    return {result, std::string(out, out + len), badOffset};
}

std::string toUtf16(const std::string &text) {
    return convert(text, UTF8, COD_CONVERT_REFUSE, kMostRoom).bytes;
}

void compare(std::string_view text, CodUint16 from, std::size_t room) {
    for (const CodConvertMode mode : {COD_CONVERT_REFUSE, COD_CONVERT_REPLACE, COD_CONVERT_SKIP}) {
        const Converted byVectors = convert(text, from, mode, room);
        const cod::Utf8Variant variant = cod::utf8Variant();
        cod::setUtf8Variant(cod::kUtf8Scalar);
        const Converted byCharacters = convert(text, from, mode, room);
        cod::setUtf8Variant(variant);
        EXPECT_EQ(byVectors, byCharacters) << testing::PrintToString(std::string(text)) << " from " << from << ", room " << room;
    }
}

// Of one kind of characters each, of all kinds in turn and at random, each several vectors long.
std::vector<std::string> makeTexts() {
    Random random(16);
    std::vector<std::string> texts = {makeText(random, 300)};
    for (const char *part : {"a", "\u00DF\u07FF", "\u0800\u4E2D\uD7FF\uE000\uFFFF", "\U00010000\U0001F600\U0010FFFF",
                             "a\u00DF\u4E2D\U0001F600", "abc\u4E2D\u6587xyz"}) {
        std::string text;
        while (text.size() < 300) {
            text += part;
        }
        texts.push_back(text);
    }
    return texts;
}

TEST_P(Utf8, convertsWholeTexts) {
    Random random(2781);
    for (int i = 0; i < 3000 && !HasFailure(); i++) {
        const std::string text = makeText(random, random.below(600));
        const std::string units = toUtf16(text);
        compare(text, UTF8, units.size());
        compare(units, UTF16, text.size());
        compare(changeBytes(random, text), UTF8, kMostRoom);
        compare(changeBytes(random, units), UTF16, kMostRoom);
        EXPECT_EQ(convert(units, UTF16, COD_CONVERT_REFUSE, text.size()).bytes, text);
        // No character is left to the slow way, nor written behind the room.
        const bool isVector = GetParam() != cod::kUtf8Scalar;
        CodUint8 *in = kOpenPage + kPage - text.size();
        CodUint8 *out = kOtherPage + kPage - units.size();
        std::copy(text.begin(), text.end(), in);
        const cod::Utf16Progress forth = cod::utf8ToUtf16(in, text.size(), out, units.size());
        EXPECT_EQ(forth.read, isVector ? text.size() : 0);
        EXPECT_EQ(forth.written, isVector ? units.size() : 0);
        std::copy(units.begin(), units.end(), out);
        const cod::Utf16Progress back = cod::utf16ToUtf8(out, units.size(), in, text.size());
        EXPECT_EQ(back.read, isVector ? units.size() : 0);
        EXPECT_EQ(back.written, isVector ? text.size() : 0);
    }
}

TEST_P(Utf8, convertsFaultsAtEveryPlace) {
    for (const std::string &text : makeTexts()) {
        const std::string units = toUtf16(text);
        for (std::size_t at = 0; at < text.size() && !HasFailure(); at += kEvery) {
            for (const char fault : {'a', '\0', '\x80', '\xBF', '\xC1', '\xC3', '\xE0', '\xED', '\xF0', '\xF4', '\xFF'}) {
                compare(std::string(text).replace(at, 1, 1, fault), UTF8, kMostRoom);
            }
            compare(text.substr(0, at), UTF8, kMostRoom);
        }
        for (std::size_t at = 0; at < units.size() && !HasFailure(); at += kEvery) {
            for (const char fault : {'\0', '\x07', '\xD7', '\xD8', '\xDB', '\xDC', '\xDF', '\xE0'}) {
                compare(std::string(units).replace(at, 1, 1, fault), UTF16, kMostRoom);
            }
            compare(units.substr(0, at), UTF16, kMostRoom);
        }
    }
}

TEST_P(Utf8, convertsIntoEveryRoom) {
    for (const std::string &text : makeTexts()) {
        const std::string units = toUtf16(text);
        for (std::size_t room = 0; room <= units.size() + 3; room++) {
            compare(text, UTF8, room);
        }
        for (std::size_t room = 0; room <= text.size() + 3; room++) {
            compare(units, UTF16, room);
        }
    }
}

}  // namespace
