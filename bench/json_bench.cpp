// JSON text of 1 MB to documents and back: records with numbers, strings (every fourth Chinese), flags, an array and an object each.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_NLOHMANN_JSON
#include <nlohmann/json.hpp>
#endif
#ifdef VEL_INFRA_WITH_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#ifdef VEL_INFRA_WITH_SIMDJSON
#include <simdjson.h>
#endif

namespace {

constexpr size_t kTextSize = 1 << 20;

void check(bool right) {
    if (!right) {
        abort();
    }
}

// ---- The text, as every writer would have it: no blanks, and no zero ends a fraction ----

std::mt19937_64 gRandom(1);

unsigned below(unsigned limit) {
    return static_cast<unsigned>(gRandom() % limit);
}

std::string randomString(unsigned longest) {
    std::string letters = "\"";
    const bool isChinese = below(4) == 0;
    for (unsigned left = 2 + below(longest - 1); left > 0; left--) {
        if (isChinese) {
            const unsigned code = 0x4E00 + below(0x5000);
            for (const unsigned byte : {0xE0 | code >> 12, 0x80 | (code >> 6 & 63), 0x80 | (code & 63)}) {
                letters += static_cast<char>(byte);
            }
        } else {
            letters += "abcdefghijklmnopqrstuvwxyz      "[below(32)];
        }
    }
    letters += below(16) == 0 ? "\\n\"" : "\"";
    return letters;
}

std::string randomStrings(unsigned most) {
    std::string list = randomString(10);
    for (unsigned more = below(most); more > 0; more--) {
        list += ',';
        list += randomString(10);
    }
    return list;
}

// A fraction's digits: as many as `unit` has zeros.
unsigned fraction(unsigned unit) {
    return 10 * below(unit / 10) + 1 + below(9);
}

const std::string gText = [] {
    std::string text = "[";
    for (unsigned id = 1; text.size() < kTextSize; id++) {
        char record[1000];
        const char *format = R"({"id":%u,"name":%s,"price":%u.%02u,"active":%s,"sold":%s,"note":%s,"tags":[%s],)"
                             R"("address":{"street":%s,"city":%s,"zip":%u,"location":[%u.%06u,-%u.%06u]}},)";
        const char *flags[] = {"false", "true"};
        snprintf(record, sizeof record, format, id, randomString(20).c_str(), below(10000), fraction(100), flags[below(2)], flags[below(2)],
                 below(2) == 0 ? "null" : randomString(50).c_str(), randomStrings(5).c_str(), randomString(24).c_str(),
                 randomString(12).c_str(), 10000 + below(90000), below(90), fraction(1000000), below(180), fraction(1000000));
        text += record;
    }
    text.back() = ']';
    return text;
}();

// ---- Rows ----

void add(const std::string &name, auto run) {
    benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State &state) {
        for (auto _ : state) {
            auto result = run();
            benchmark::DoNotOptimize(&result);
            benchmark::ClobberMemory();
        }
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(gText.size()) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
}

// Without the digits: peers write some fractions with more of them than need be.
std::string sortedCharacters(std::string_view text) {
    std::string characters(text);
    std::erase_if(characters, [](char c) { return '0' <= c && c <= '9'; });
    std::ranges::sort(characters);
    return characters;
}

// Document read(), Text write(document): both free themselves. Members may be written in another order.
void addBoth(const std::string &who, auto read, auto write) {
    static const auto document = read();
    const auto text = write(document);
    const std::string_view written(text);
    check(sortedCharacters(written) == sortedCharacters(gText) && written.size() - gText.size() < gText.size() / 1000);
    add("JSON text to document, per byte/" + who, read);
    add("document to JSON text, per byte/" + who, [write] { return write(document); });
}

struct OurDocument : Velon {
    OurDocument() {
        const CodText text{const_cast<char *>(gText.data()), static_cast<CodUint32>(gText.size()), 0};
        check(velonFromJson(codMemGetSystemAlloc(), &text, this) == COD_SUCCESS);
    }
    ~OurDocument() {
        velonFree(this);
    }
};

struct OurText : CodText {
    explicit OurText(const Velon &document) {
        check(velonToJson(codMemGetSystemAlloc(), &document, VELON_JSON_COMPACT, this) == COD_SUCCESS);
    }
    ~OurText() {
        codSysFree(str);
    }
    explicit operator std::string_view() const {
        return {str, len};
    }
};

#ifdef VEL_INFRA_WITH_RAPIDJSON
struct RapidText : rapidjson::StringBuffer {
    explicit operator std::string_view() const {
        return {GetString(), GetSize()};
    }
};

rapidjson::Document readByRapidJson() {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag>(gText.data(), gText.size());
    return document;
}

RapidText writeByRapidJson(const rapidjson::Document &document) {
    RapidText text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    check(document.Accept(writer));
    return text;
}
#endif

[[maybe_unused]] const bool gRegistered = [] {
    addBoth(
        "ours", [] { return OurDocument(); }, [](const OurDocument &document) { return OurText(document); });
#ifdef VEL_INFRA_WITH_RAPIDJSON
    addBoth("peer: rapidjson (exact doubles, UTF-8 checked)", readByRapidJson, writeByRapidJson);
#endif
#ifdef VEL_INFRA_WITH_NLOHMANN_JSON
    const auto readByNlohmann = [] { return nlohmann::json::parse(gText); };
    addBoth("peer: nlohmann::json", readByNlohmann, [](const nlohmann::json &document) { return document.dump(); });
#endif
#ifdef VEL_INFRA_WITH_SIMDJSON
    static const simdjson::padded_string text(gText);
    static simdjson::dom::parser parser;
    const auto readBySimdJson = [] { return parser.parse(text).value(); };
    addBoth("peer: simdjson::dom, parser kept", readBySimdJson, [](simdjson::dom::element document) { return simdjson::minify(document); });
#endif
    return true;
}();

}  // namespace
