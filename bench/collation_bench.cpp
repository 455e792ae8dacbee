// Comparison, search, length and sort keys of texts by their collations: UTF-8.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <random>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_ICU
#include <unicode/ucol.h>
#include <unicode/ustring.h>
#endif

namespace {

constexpr size_t kTextSize = 64 << 10;
constexpr size_t kPairs = 1024;

void check(bool right) {
    if (!right) {
        abort();
    }
}

std::string chinese(std::mt19937 &random) {
    const unsigned code = 0x4E00 + static_cast<unsigned>(random()) % 5000;
    return {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F)), static_cast<char>(0x80 | (code & 0x3F))};
}
std::string letter(std::mt19937 &random) {
    return {static_cast<char>('a' + random() % 26)};
}

CodText asText(const std::string &text) {
    return {const_cast<char *>(text.data()), static_cast<CodUint32>(text.size()), 0};
}

// Characters up to a size; one in `letterOneIn` is a letter, none for 0.
std::string makeText(std::mt19937 &random, unsigned letterOneIn, size_t size) {
    std::string text;
    while (text.size() < size) {
        const bool isLetter = text.size() + 3 > size || (letterOneIn != 0 && random() % letterOneIn == 0);
        text += isLetter ? letter(random) : chinese(random);
    }
    return text;
}

void add(const std::string &name, size_t items, auto work) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        for (auto _ : state) {
            work();
            benchmark::ClobberMemory();
        }
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(items) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
}

// ---- Equality of 32 bytes in another case ----

struct Pair {
    std::string left;
    std::string right;
};

std::vector<Pair> makePairs(unsigned letterOneIn) {
    std::mt19937 random(letterOneIn);
    std::vector<Pair> pairs(kPairs);
    for (Pair &pair : pairs) {
        pair.left = makeText(random, letterOneIn, 32);
        pair.right = pair.left;
        for (char &c : pair.right) {
            c = c >= 'a' && c <= 'z' && random() % 2 == 0 ? static_cast<char>(c - 0x20) : c;
        }
    }
    return pairs;
}

void addEquality(const std::string &kind, unsigned letterOneIn) {
    const std::string name = "equal without case, 32 bytes, " + kind;
    const std::vector<Pair> pairs = makePairs(letterOneIn);
    const auto forAll = [pairs](auto isEqual) {
        return [pairs, isEqual] {
            for (const Pair &pair : pairs) {
                check(isEqual(pair.left, pair.right));
            }
        };
    };
    const CodCollation *collation = codGetCollation(UTF8, BINARY, CASE_INS);
    add(name + "/ours", kPairs, forAll([collation](const std::string &left, const std::string &right) {
            const CodText one = asText(left);
            const CodText other = asText(right);
            return collation->equal(&one, &other);
        }));
    if (letterOneIn == 1) {
        add(name + "/peer: strncasecmp", kPairs,
            forAll([](const std::string &left, const std::string &right) { return strncasecmp(left.data(), right.data(), 32) == 0; }));
    }
#ifdef VEL_INFRA_WITH_ICU
    add(name + "/peer: ICU u_strCaseCompare", kPairs, forAll([](const std::string &left, const std::string &right) {
            UChar units[2][64];
            int32_t counts[2];
            UErrorCode status = U_ZERO_ERROR;
            u_strFromUTF8(units[0], 64, &counts[0], left.data(), static_cast<int32_t>(left.size()), &status);
            u_strFromUTF8(units[1], 64, &counts[1], right.data(), static_cast<int32_t>(right.size()), &status);
            return u_strCaseCompare(units[0], counts[0], units[1], counts[1], U_FOLD_CASE_DEFAULT, &status) == 0;
        }));
#endif
}

// ---- Length and search: 64 KiB ----

void addLength(const std::string &kind, unsigned letterOneIn) {
    std::mt19937 random(letterOneIn);
    const std::string name = "length in characters, 64 KiB, " + kind;
    const std::string text = makeText(random, letterOneIn, kTextSize);
    const CodCollation *collation = codGetCollation(UTF8, BINARY, CASE_SENS);
    add(name + "/ours", 1, [text, collation] {
        const CodText whole = asText(text);
        CodUint32 count = 0;
        check(collation->length(&whole, &count) == COD_SUCCESS && count != 0);
    });
    // simdutf, whose count does not check the text either, is in no package; it cannot be quicker than a pass that only looks for a byte.
    add(name + "/peer: memchr of a byte that is not there", 1, [text] { check(memchr(text.data(), 0xFF, text.size()) == nullptr); });
}

// The word stands at the end. In the text of letters each of its own is frequent.
void addSearch(const std::string &kind, unsigned letterOneIn, const std::string &word, CodCaseMode mode) {
    std::mt19937 random(letterOneIn);
    const std::string name = std::string("search for 8 bytes in 64 KiB") + (mode == CASE_INS ? " without case, " : ", ") + kind;
    const std::string text = makeText(random, letterOneIn, kTextSize - word.size()) + word;
    const CodCollation *collation = codGetCollation(UTF8, BINARY, mode);
    add(name + "/ours", 1, [text, word, collation] {
        const CodText whole = asText(text);
        const CodText wanted = asText(word);
        check(collation->kmpGetFirstSubPos(&whole, &wanted) == text.size() - word.size());
    });
    if (mode == CASE_SENS) {
        add(name + "/peer: memmem", 1, [text, word] {
            check(memmem(text.data(), text.size(), word.data(), word.size()) == text.data() + (text.size() - word.size()));
        });
    } else {
        add(name + "/peer: strcasestr", 1, [text, word] { check(strcasestr(text.c_str(), word.c_str()) != nullptr); });
    }
}

// ---- Pinyin: words of ten characters ----

void addPinyin() {
    std::mt19937 random(7);
    std::vector<std::string> words(kPairs);
    for (std::string &word : words) {
        for (int i = 0; i < 10; i++) {
            word += chinese(random);
        }
    }
    const CodCollation *collation = codGetCollation(UTF8, CHINESE_PINYIN, CASE_SENS);
    add("sort key of ten Chinese characters, pinyin/ours", kPairs, [words, collation] {
        char buffer[256];
        for (const std::string &word : words) {
            const CodText text = asText(word);
            CodText key = {buffer, 0, 0};
            check(collation->nlsSort(&text, &key, sizeof(buffer)) == COD_SUCCESS && key.len != 0);
        }
    });
    add("compare ten Chinese characters, pinyin/ours", kPairs, [words, collation] {
        for (size_t i = 1; i < words.size(); i++) {
            const CodText left = asText(words[i - 1]);
            const CodText right = asText(words[i]);
            check(collation->compare(&left, &right) != 0);
        }
    });
#ifdef VEL_INFRA_WITH_ICU
    UErrorCode status = U_ZERO_ERROR;
    static UCollator *icu = ucol_open("zh@collation=pinyin", &status);
    check(U_SUCCESS(status));
    std::vector<std::u16string> wide;
    for (const std::string &word : words) {
        UChar units[32];
        int32_t count = 0;
        u_strFromUTF8(units, 32, &count, word.data(), static_cast<int32_t>(word.size()), &status);
        wide.emplace_back(units, static_cast<size_t>(count));
    }
    add("sort key of ten Chinese characters, pinyin/peer: ICU, from UTF-16", kPairs, [wide] {
        uint8_t buffer[256];
        for (const std::u16string &word : wide) {
            check(ucol_getSortKey(icu, word.data(), static_cast<int32_t>(word.size()), buffer, sizeof(buffer)) > 0);
        }
    });
    add("compare ten Chinese characters, pinyin/peer: ICU, UTF-8", kPairs, [words] {
        for (size_t i = 1; i < words.size(); i++) {
            UErrorCode result = U_ZERO_ERROR;
            check(ucol_strcollUTF8(icu, words[i - 1].data(), static_cast<int32_t>(words[i - 1].size()), words[i].data(),
                                   static_cast<int32_t>(words[i].size()), &result) != UCOL_EQUAL);
        }
    });
#endif
}

[[maybe_unused]] const bool gRegistered = [] {
    check(aniCodepageInitFrom(CODEPAGE_FOLDER) == COD_SUCCESS);
    struct Kind {
        const char *name;
        unsigned letterOneIn;
        const char *word;
    };
    for (const Kind &kind : {Kind{"ASCII", 1, "database"}, Kind{"Chinese", 0, "数据db"}, Kind{"mixed", 2, "数据db"}}) {
        addEquality(kind.name, kind.letterOneIn);
        addLength(kind.name, kind.letterOneIn);
        addSearch(kind.name, kind.letterOneIn, kind.word, CASE_SENS);
    }
    addSearch("ASCII", 1, "database", CASE_INS);
    addPinyin();
    return true;
}();

}  // namespace
