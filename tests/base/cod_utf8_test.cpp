#include "base/cod_utf8.h"

#include <sys/mman.h>

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

CodUint8 *const kOpenPage = [] {
    void *pages = mmap(nullptr, 3 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    CodUint8 *page = static_cast<CodUint8 *>(pages) + kPage;
    EXPECT_EQ(mprotect(page, kPage, PROT_READ | PROT_WRITE), 0);
    return page;
}();

bool isJudged(const CodUint8 *data, std::size_t length, std::size_t prefix) {
    return utf8ValidPrefix(data, length) == prefix && isValidUtf8(data, length) == (prefix == length);
}

// The prefix is valid.
void check(std::string_view prefix, std::string_view rest) {
    const std::size_t length = prefix.size() + rest.size();
    const std::size_t expected = prefix.size() + prefixByModel(rest);
    for (CodUint8 *place : {kOpenPage, kOpenPage + kPage - length}) {
        std::copy(rest.begin(), rest.end(), std::copy(prefix.begin(), prefix.end(), place));
        EXPECT_TRUE(isJudged(place, length, expected))
            << testing::PrintToString(std::string(prefix).append(rest)) << ": " << utf8ValidPrefix(place, length) << ", not " << expected;
    }
}

std::string makePrefix(std::size_t length, bool isAscii) {
    std::string prefix(isAscii ? length : length % 3, 'a');
    while (prefix.size() < length) {
        prefix += "\u4E2D";
    }
    return prefix;
}

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
    EXPECT_TRUE(isJudged(nullptr, 0, 0) && kFirstUse == 2);
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
    for (std::size_t length = 0; length <= 70; length++) {
        const std::string prefixes[] = {makePrefix(length, true), makePrefix(length, false)};
        for (std::size_t i = 0; i < sequences.size(); i++) {
            check(prefixes[(i / 2 + length) % 2], sequences[i] + std::string(i % 3 == 0 ? i % 16 : 0, 'a'));
        }
    }
}

TEST_P(Utf8, judgesMutatedTexts) {
    Random random(3629);
    for (int i = 0; i < 20000 && !HasFailure(); i++) {
        const std::string parts[] = {std::string(random.below(300), 'x'), "a", "\u00DF", "\u4E2D\uFFFF", "\U0001F600\U0010FFFF"};
        std::string text;
        for (std::size_t length = random.below(random.oneIn(8) ? 700 : 300); text.size() < length;) {
            text += parts[random.oneIn(20) ? 0 : 1 + random.below(4)];
        }
        for (std::uint32_t changes = random.below(3); changes > 0 && !text.empty(); changes--) {
            text[random.below(static_cast<std::uint32_t>(text.size()))] = static_cast<char>(random.next());
        }
        check("", text.substr(0, text.size() - (random.oneIn(2) ? 0 : std::min<std::size_t>(text.size(), random.below(4)))));
    }
}

}  // namespace
