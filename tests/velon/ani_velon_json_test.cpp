#include <vel_infra/velon/ani_velon_json.h>

#include <algorithm>
#include <clocale>
#include <cmath>

#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_util.h>

#include "support/collection_support.h"
#include "velon/velon_model.h"

namespace {

using collection_support::expectError;
using collection_support::Random;
using collection_support::WatchedMemory;
using std::string;

// A copy whose memory ends with the last byte, until the next copy is made.
CodText exact(const string &given) {
    static std::vector<char> copy;
    copy = std::vector<char>(given.begin(), given.end());
    return {copy.data(), static_cast<CodUint32>(copy.size()), 0};
}

string bytesOf(const Velon &velon) {
    return {reinterpret_cast<const char *>(velon.data.ptr), velon.data.len};
}

// The document of a text, "" when it is refused.
string encode(const string &json) {
    WatchedMemory memory;
    const CodText text = exact(json);
    Velon velon = {};
    codCleanError();
    const bool isRead = velonFromJson(&memory, &text, &velon) == COD_SUCCESS;
    EXPECT_EQ(memory.live.size(), isRead ? 1u : 0u);
    EXPECT_TRUE(!isRead || (memory.live.begin()->second == velon.data.aux && velonCheckData(&velon) == COD_SUCCESS)) << codGetErrorMsg();
    return bytesOf(velon);
}

// The text of a document, "" when it is refused.
string decode(const string &bytes, CodUint32 flags = VELON_JSON_COMPACT) {
    WatchedMemory memory;
    const CodText copy = exact(bytes);
    const Velon velon = {nullptr, {reinterpret_cast<const CodUint8 *>(copy.str), copy.len, 0}};
    CodText text = {};
    codCleanError();
    const bool isWritten = velonToJson(&memory, &velon, flags, &text) == COD_SUCCESS;
    EXPECT_EQ(memory.live.size(), isWritten ? 1u : 0u);
    return {text.str, text.len};
}

string repeat(const string &part, std::size_t count) {
    string all;
    for (std::size_t i = 0; i < count; i++) {
        all += part;
    }
    return all;
}

// The text without the mark "^", which stands where the fault is.
void expectRefused(string json, CodError code, const string &message = {}) {
    SCOPED_TRACE(json.substr(0, 60));
    const std::size_t offset = json.find('^');
    json.erase(offset, 1);
    const string before = json.substr(0, offset);
    EXPECT_EQ(encode(json), "");
    EXPECT_EQ(codGetErrorCode(), code) << codGetErrorMsg();
    const CodTextPos pos = codGetErrorPos();
    EXPECT_EQ(pos.offset, offset);
    EXPECT_EQ(pos.line, 1 + std::count(before.begin(), before.end(), '\n'));
    EXPECT_EQ(pos.column, offset - (before.rfind('\n') + 1) + 1);
    const string place = "line " + std::to_string(pos.line) + " column " + std::to_string(pos.column);
    const string whole = code == ERR_CMM_VELON_JSON_SYNTAX_ERROR        ? "JSON syntax error at " + place + ": " + message
                         : code == ERR_CMM_VELON_INVALID_UNICODE_ESCAPE ? "invalid unicode escape at " + place
                                                                        : message;
    EXPECT_EQ(codGetErrorMsg(), whole);
    if (json.size() > 1 && json.front() == '"' && json.back() == '"') {
        WatchedMemory memory;
        CodText text = {}, inner = exact(json.substr(1, json.size() - 2));
        EXPECT_EQ(jsonStringToOwned(&memory, &inner, &text), COD_ERROR);
        EXPECT_EQ(codGetErrorCode(), code);
        EXPECT_EQ(codGetErrorPos().column, pos.column - 1);
        EXPECT_TRUE(memory.live.empty() && text.str == nullptr);
    }
}

std::vector<string> split(const string &words, char separator) {
    std::vector<string> list(1);
    for (char c : words) {
        c == separator ? list.emplace_back() : list.back() += c;
    }
    return list;
}

TEST(VelonFromJson, acceptsTheGrammar) {
    for (const string json : {"null", "true", "false", "0", "-1", R"("")", "[]", "{}", R"([[],[{}],{"":[]}])", R"([true,false,null,"x"])",
                              R"({"bb":1,"a":2,"ab":3})", R"({"a":{"a":{"a":1}},"":0})", "\"\x7f\""}) {
        EXPECT_EQ(decode(encode(json)), json);
    }
    EXPECT_EQ(decode(encode("\t\r\n 1 \t\r\n")), "1");
    EXPECT_EQ(decode(encode(" [ 1 ,\n 2 ] ")), "[1,2]");
    EXPECT_EQ(decode(encode(" { \"a\" : 1 ,\t\"b\"\n:\r[ ] } ")), "{\"a\":1,\"b\":[]}");
    for (std::size_t i = 0; i < 40; i++) {
        EXPECT_EQ(decode(encode(string(i, '\n') + "[" + string(i, ' ') + "0" + string(i, '\t') + "]" + string(i, '\r'))), "[0]");
        EXPECT_EQ(decode(encode(string(i, ' ') + "[0," + string(i, ' ') + "1]")), "[0,1]");
        EXPECT_EQ(encode(string(i, ' ') + "x[0]"), "");
    }
}

TEST(VelonFromJson, refusesTheRestWithItsPlace) {
    const string as(16, 'a'), zeros(400, '0');
    const std::pair<const char *, std::vector<string>> syntax[] = {
        {"unexpected end of the text",
         {"^", " \n ^", "[^", "{^", "[1^", "[1,^", "{\"a\"^", "{\"a\":^", "{\"a\":1^", "{\"a\":1,^", "-^", "1.^", "1e^", "1e+^", "\"^",
          "\"abc^", "\"abc\\^", "\"" + as + "^"}},
        {"unexpected character", {"1 ^2", "[]^]", "{}^x", "true^x", "0^x10", "1.5^.5", "1^//"}},
        {"a value is expected",
         {"[1,\n 2,\r\n\n ^x]", "^\xef\xbb\xbf[]", "[1,^]", "[^,1]", "^]", "{\"a\":^}", "^'a'", "^tru", "^True", "^nul", "[^fals3]", "^NaN",
          "^+1", "^.5"}},
        {"a comma or ] is expected", {"[1 ^2]", "[1^}", "[1^\x0b]", "[\"a\"^:1]"}},
        {"a comma or } is expected", {"{\"a\":1^]", "{\"a\":1 ^\"b\":2}"}},
        {"a key is expected", {"{^1:2}", "{\"a\":1,^}", "{^,}", "{^a:1}"}},
        {"a colon is expected", {"{\"a\"^}", "{\"a\" ^1}", "{\"a\"^,1}"}},
        {"a number begins with 0", {"^01", "-^01", "[^00]"}},
        {"a digit is expected", {"-^x", "[1.^]", "1.^e5", "1e^x", "-^-1", "[1e-^]"}},
        {"number too large",
         {"^1e309", "[0,^-1e400]", "^1" + zeros, "^1e99999999999999999999", "^1.7976931348623159e308", "^1" + zeros + "E0"}},
        {"control character in a string", {"\"a^\tb\"", string("\"^\0\"", 4), "\"a^\nb\"", "{\"" + as + "^\x1f\":1}"}},
        {"unknown escape", {R"("^\x")", R"("ab^\U0041")", R"(["^\'"])"}},
        {"duplicate key",
         {"{\"a\":1,\"b\":2,\n^\"a\":3,\"a\":4}", R"({"abcdefghi":1,^"abcdefghi":2})", R"({"":1,^"":1})", R"({"bb":1,^"bb":2,"a":1,"a":2})",
          R"({"\u0061":1,^"a":1})", R"([{"a":1,"b":2},{"b":1,^"b":2}])", R"([{"abcdefgh":1,"b":2},{"abcdefgh":1,^"abcdefgh":2}])"}}};
    for (const auto &[reason, texts] : syntax) {
        for (const string &json : texts) {
            expectRefused(json, ERR_CMM_VELON_JSON_SYNTAX_ERROR, reason);
        }
    }
    for (const string json :
         {R"("^\u12g4")", R"("a^\u123")", R"("^\u12)", R"("^\ud800")", R"("^\udc00")", R"("^\ud800\ud800")", R"("^\ud800\n")"}) {
        expectRefused(json, ERR_CMM_VELON_INVALID_UNICODE_ESCAPE);
    }
    for (const string json : {"\"^\xff\"", "1\n^\xc3", "[\"^\xed\xa0\x80\"]", "\"^\xc3", "[1,^\xff"}) {
        expectRefused(json, ERR_CMM_VELON_INVALID_UNICODE, "invalid velon string data");
    }
    expectRefused("[^x,\"\xff\"]", ERR_CMM_VELON_JSON_SYNTAX_ERROR, "a value is expected");
}

TEST(VelonFromJson, numbersTakeTheirTypes) {
    const string nines37(37, '9'), nines38 = "9" + nines37, half = "1.00000000000000011102230246251565404236316680908203125";
    // Texts, each with what is written of it where that differs, and with what is when doubles are typed where that differs again.
    const std::pair<VelonType, string> rows[] = {
        {VELON_TYPE_TINYINT, "127 -128 7.0=7 70e-1=7 1e2=100 1E+2=100 -0=0 -0.0=0 0e999999999999999999999=0 7e0=7 7E+0=7 7E00=7 7E-0=7"},
        {VELON_TYPE_SMALLINT, "128 -129 32767 -32768 12800e-2=128"},
        {VELON_TYPE_INTEGER, "32768 -32769 2147483647 -2147483648 1E5=100000"},
        {VELON_TYPE_BIGINT, "2147483648 -2147483649 9223372036854775807 -9223372036854775808 1e18=1000000000000000000"},
        {VELON_TYPE_BIGINT, "9223372036854775807." + string(30, '0') + "=9223372036854775807 -922337203685477580.8e1=-9223372036854775808"},
        {VELON_TYPE_NUMBER, "9223372036854775808 -9223372036854775809 18446744073709551617 1e19=10000000000000000000 0.1 -1.50=-1.5"},
        {VELON_TYPE_NUMBER,
         nines38 + " 0." + nines38 + " " + nines38 + "0000=9." + nines37 + "E+41 " + nines38 + "e88=9." + nines37 + "E+125"},
        {VELON_TYPE_NUMBER, "1e125=1E+125 9.9e125=9.9E+125 1e-130=1E-130 1.234e-130=1.234E-130 0." + string(88, '0') + "5=5E-89"},
        {VELON_TYPE_NUMBER, "0." + string(1000, '0') + "1e1000=0.1 1" + string(125, '0') + "=1E+125"},
        {VELON_TYPE_DOUBLE, "9" + nines38 + "=1e+39=1" + string(39, '0') + "E0 1e126=1e+126 1e-131=1e-131 9.9e-131 1e308=1e+308 5e-324"},
        {VELON_TYPE_DOUBLE, "1.7976931348623157e308=1.7976931348623157e+308 2e-324=0=0E0 -1e-400=-0=-0E0 1e-99999999999999999999=0=0E0"},
        // The middle between two doubles, and the same with a digit far behind it.
        {VELON_TYPE_DOUBLE, half + "=1=1E0 " + half + string(900, '0') + "1=1.0000000000000002=1.0000000000000002E0"},
        {VELON_TYPE_DOUBLE, "7E0=7=7E0 0E0=0=0E0 -0E0=-0=-0E0 -12.5E0=-12.5=-12.5E0 0.1E0=0.1=0.1E0 0.00000123E0=1.23e-06=0.00000123E0"},
        {VELON_TYPE_DOUBLE,
         "72057594037927936E0=7.205759403792794e+16=72057594037927940E0 9007199254740991E0=9007199254740991=9007199254740991E0"},
        {VELON_TYPE_DOUBLE,
         "0.30000000000000004E0=0.30000000000000004=0.30000000000000004E0 1" + string(22, '0') + "E0=1e+22=1" + string(22, '0') + "E0"}};
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    for (const auto &[type, texts] : rows) {
        for (const string &row : split(texts, ' ')) {
            const std::vector<string> words = split(row, '=');
            const string json = words[0], written = words[words.size() > 1], typed = words.back(), bytes = encode(json),
                         inArray = encode("[" + json + "]");
            ASSERT_FALSE(bytes.empty() || inArray.empty()) << json;
            EXPECT_EQ(bytes[0], type) << json;
            EXPECT_EQ(inArray[7], type) << json;
            EXPECT_EQ(decode(bytes), written);
            EXPECT_EQ(decode(inArray, VELON_JSON_TYPED_DOUBLES), "[" + typed + "]");
            EXPECT_EQ(encode(typed), bytes) << json;
        }
    }
    std::setlocale(LC_ALL, "C");
}

TEST(VelonJson, stringsAndTheirEscapes) {
    // As written in JSON, and what it is.
    const std::pair<string, string> rows[] = {{R"(\"\\\/\b\f\n\r\t)", "\"\\/\b\f\n\r\t"},
                                              {R"(\u0041\u00e9\u20AC\uFFFF)", "A\xc3\xa9\xe2\x82\xac\xef\xbf\xbf"},
                                              {R"(\ud83d\ude00\uDBFF\uDFFF)", "\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf"},
                                              {R"(a\u0000b)", string("a\0b", 3)},
                                              {"\xc3\xa9\xf0\x9f\x98\x80", "\xc3\xa9\xf0\x9f\x98\x80"},
                                              {R"(\u0000\u001f\u007f)", string("\0\x1f\x7f", 3)},
                                              {repeat("a", 127), repeat("a", 127)},
                                              {repeat("a", 128), repeat("a", 128)},
                                              {repeat("\\n", 20000), repeat("\n", 20000)}};
    for (const auto &[json, meant] : rows) {
        for (std::size_t shift = 0; shift < 18; shift++) {
            const string padding(shift, 'x'), bytes = encode("\"" + padding + json + "\"");
            const string key = "{\"" + padding + json + "\":1}";
            ASSERT_EQ(bytes[0], VELON_TYPE_STRING) << json;
            ASSERT_EQ(bytes.substr(1), velon_model::varint(padding.size() + meant.size()) + padding + meant);
            ASSERT_EQ(encode(decode(bytes)), bytes);
            ASSERT_EQ(encode(decode(encode(key))), encode(key));
            const CodText copy = exact(padding + json);
            WatchedMemory memory;
            CodText text = {};
            ASSERT_EQ(jsonStringToOwned(&memory, &copy, &text), COD_SUCCESS);
            ASSERT_EQ(string(text.str, text.len), padding + meant);
        }
    }
    EXPECT_EQ(decode(encode(R"("\u0008\u000c\u001F\/\u0022\u007f")")), "\"\\b\\f\\u001f/\\\"\x7f\"");
    CodText text = {}, quoted = exact("a\"b");
    expectError(ERR_CMM_VELON_JSON_SYNTAX_ERROR, "JSON syntax error at line 1 column 2: a quote in a string",
                [&] { return jsonStringToOwned(codMemGetSystemAlloc(), &quoted, &text); });
    VelonBuf buf = velonBufNew(codMemGetSystemAlloc());
    for (CodUint32 codePoint : {0x24u, 0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
        EXPECT_EQ(jsonStringPushUnicode(&buf, codePoint), COD_SUCCESS);
    }
    EXPECT_EQ(string(reinterpret_cast<char *>(buf.ptr), buf.len),
              "$\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf");
    expectError(ERR_CMM_VELON_INVALID_UNICODE, "", [&] { return jsonStringPushUnicode(&buf, 0xD800); });
    expectError(ERR_CMM_VELON_INVALID_UNICODE, "", [&] { return jsonStringPushUnicode(&buf, 0x110000); });
    velonBufFree(&buf);
}

// ---- Random documents ----

using velon_model::little;
using velon_model::raw;
using velon_model::Value;

// A value and the text that is written of it.
struct Sample {
    Value value;
    string json;
};

struct Samples : Random {
    explicit Samples(CodUint64 seed) : Random(seed) {}

    Sample scalar() {
        const auto bits = static_cast<CodInt64>(next()) >> below(64);
        const string piece(oneIn(10) ? below(200) : below(9), 'x');
        const string digits = std::to_string(bits), number = digits + "." + string(below(5), '0') + "17";
        const string real =
            oneIn(2) ? std::to_string(below(100000)) + ".5E0" : (oneIn(2) ? "-7.03e+" : "7.03e-") + std::to_string(140 + below(160));
        const std::size_t width =
            (bits != static_cast<CodInt8>(bits)) + (bits != static_cast<CodInt16>(bits)) + (bits != static_cast<CodInt32>(bits));
        CodNumber n;
        EXPECT_EQ(codNumberFromStr(number.c_str(), &n), COD_SUCCESS);
        const Sample all[] = {
            {{static_cast<VelonType>(VELON_TYPE_TINYINT + width), little(static_cast<CodUint64>(bits), std::size_t{1} << width)}, digits},
            {{VELON_TYPE_NUMBER, raw(n)}, number},
            {{VELON_TYPE_DOUBLE, raw(std::strtod(real.c_str(), nullptr))}, real},
            {{}, "null"},
            {{VELON_TYPE_BOOL, "\1"}, "true"},
            {{VELON_TYPE_BOOL, string(1, '\0')}, "false"},
            {{VELON_TYPE_STRING, piece + "\n\"\x1e\xc3\xa9" + piece}, "\"" + piece + "\\n\\\"\\u001e\xc3\xa9" + piece + "\""}};
        return all[below(std::size(all))];
    }
    // Objects of the same count mostly have the same keys.
    template <class Child>
    Sample container(bool isObject, CodUint32 count, Child child) {
        Sample result = {{isObject ? VELON_TYPE_OBJECT : VELON_TYPE_ARRAY}, isObject ? "{" : "["};
        const CodUint64 factor = oneIn(6) ? 104729 : 7919;
        for (CodUint32 i = 0; i < count; i++) {
            const string key = std::to_string(i * i * factor % 100003) + (i % 3 == 0 ? "\xc3\xa9" : i % 3 == 1 ? "" : "key");
            const Sample member = child();
            result.json += string(i == 0 ? "" : ",") + (isObject ? "\"" + key + "\":" : "") + member.json;
            result.value.values.push_back(member.value);
            isObject ? result.value.keys.push_back(key) : void();
        }
        result.json += isObject ? "}" : "]";
        return result;
    }
    Sample any(CodUint32 depth) {
        return depth == 0 || oneIn(2) ? scalar() : container(oneIn(2), oneIn(10) ? below(100) : below(6), [&] { return any(depth - 1); });
    }
    // Containers of mostly the same count, or of few counts that differ much.
    Sample rows(bool isEven) {
        const CodUint32 counts[] = {0, 1, 24, 25, oneIn(20) ? 5000 : 300u};
        return container(false, 30, [&] {
            const CodUint32 count = isEven && !oneIn(5) ? 12 : isEven ? below(40) : counts[below(5)];
            return container(!oneIn(3), count, [&] { return any(isEven); });
        });
    }
};

TEST(VelonJson, readsAndWritesAsTheModelHasIt) {
    Samples samples(7);
    for (int i = 0; i < 600; i++) {
        const Sample sample = i % 8 == 0 ? samples.rows(i % 40 != 0) : samples.any(4);
        const string bytes = encode(sample.json);
        ASSERT_TRUE(bytes == velon_model::encode(sample.value)) << sample.json;
        ASSERT_TRUE(decode(bytes, VELON_JSON_TYPED_DOUBLES) == sample.json) << sample.json;
        ASSERT_TRUE(encode(decode(bytes, VELON_JSON_TYPED_DOUBLES | VELON_JSON_INDENTED)) == bytes) << sample.json;
        for (CodUint32 j = 0; j < 5 && (sample.json[0] == '[' || sample.json[0] == '{'); j++) {
            ASSERT_EQ(encode(sample.json.substr(0, samples.below(static_cast<CodUint32>(sample.json.size())))), "") << sample.json;
        }
    }
}

// ---- Limits and failures ----

// The beginning of an object.
string members(CodUint32 count) {
    string json = "{";
    for (CodUint32 i = 0; i < count; i++) {
        json += (i == 0 ? "\"" : ",\"") + std::to_string(100000 + i) + "\":0";
    }
    return json;
}

TEST(VelonFromJson, limits) {
    EXPECT_EQ(encode(repeat("[", 100) + repeat("]", 100)).size(), 99 * 12 + 7u);
    EXPECT_NE(encode(repeat("{\"a\":", 100) + "1" + repeat("}", 100)), "");
    expectRefused(repeat("[", 100) + "^[" + repeat("]", 101), ERR_CMM_VELON_NESTING_TOO_DEEPLY, "nesting too deeply");
    expectRefused(repeat("{\"a\":", 100) + "^[", ERR_CMM_VELON_NESTING_TOO_DEEPLY, "nesting too deeply");
    const CodError tooMany = ERR_CMM_VELON_TOO_MANY_CHILDREN, syntax = ERR_CMM_VELON_JSON_SYNTAX_ERROR;
    EXPECT_EQ(encode("[" + repeat("0,", 65534) + "0]").size(), 7 + 5 * 65535u);
    expectRefused("[" + repeat("0,", 65535) + "^0]", tooMany, "too many children in velon, limit is 65535");
    expectRefused("[" + repeat("[],", 65535) + "^[]]", tooMany, "too many children in velon, limit is 65535");
    string json = members(65535);
    EXPECT_EQ(encode(json + "}").size(), 7 + 14 * 65535u);
    expectRefused(json + ",^\"x\":1}", tooMany, "too many children in velon, limit is 65535");
    json.replace(json.size() - 10, 10, "^\"100000\":0");
    expectRefused(json + "}", syntax, "duplicate key");
    EXPECT_EQ(encode("{\"" + string(65535, 'k') + "\":null}").size(), 7 + 4 + 2 + 65535 + 1u);
    expectRefused("{^\"" + string(65536, 'k') + "\":null}", ERR_CMM_INVALID_PARAMETER, "invalid parameter, reason: a key is too long");
    const string longest(VELON_MAX_SIZE - 5, 'x');
    EXPECT_EQ(encode("\"" + longest + "\"").size(), CodUint32{VELON_MAX_SIZE});
    for (const string &tooLarge :
         {"\"" + longest + "x\"", "[\"" + longest + "\"]", "[" + repeat("\"" + string(1000000, 'y') + "\",", 40) + "0]"}) {
        EXPECT_EQ(encode(tooLarge), "");
        EXPECT_STREQ(codGetErrorMsg(), "velon exceeds max size(33554432)");
    }
}

TEST(VelonJson, failedAllocationsLeaveNothing) {
    const string json = members(1500) + ",\"long\":\"" + repeat("\\t\\u0001", 1000) + "\",\"s\":[" + repeat("[],", 2000) + "1.5E0]}";
    for (int variant = 0; variant < 4; variant++) {
        WatchedMemory memory;
        memory.extend = variant % 2 == 0 ? memory.extend : nullptr;
        memory.free = variant < 2 ? memory.free : nullptr;
        Velon velon = {};
        CodText text = {};
        const auto failAll = [&](std::size_t live, auto call) {
            int failures = 0;
            for (CodResult result = COD_ERROR; result != COD_SUCCESS; failures++) {
                codFailAllocAfter(failures);
                result = call();
                codFailAllocAfter(-1);
                EXPECT_TRUE(result == COD_SUCCESS || codGetErrorCode() == ERR_CMM_ALLOC_MEMORY);
                EXPECT_TRUE(variant >= 2 || memory.live.size() == live + (result == COD_SUCCESS));
                EXPECT_TRUE(result == COD_SUCCESS || (live == 0 ? velon.data.ptr == nullptr : text.str == nullptr));
                codCleanError();
            }
            EXPECT_GT(failures, 2);
        };
        const CodText copy = exact(json);
        failAll(0, [&] { return velonFromJson(&memory, &copy, &velon); });
        failAll(1, [&] { return velonToJson(&memory, &velon, VELON_JSON_INDENTED | VELON_JSON_TYPED_DOUBLES, &text); });
        EXPECT_TRUE(encode(string(text.str, text.len)) == bytesOf(velon));
    }
}

// ---- Writing ----

TEST(VelonToJson, indentsAndWritesTypesThatNoTextGives) {
    EXPECT_EQ(decode(encode("{\"a\":[1,{\"b\":null},[]],\"c\":{}}"), VELON_JSON_INDENTED),
              "{\n  \"a\": [\n    1,\n    {\n      \"b\": null\n    },\n    []\n  ],\n  \"c\": {}\n}");
    const auto scalar = [](VelonType type, const auto &value) { return velon_model::encode({type, raw(value)}); };
    constexpr CodInt64 day = COD_USECS_PER_DAY;
    const std::vector<std::pair<string, string>> rows = {
        {scalar(VELON_TYPE_FLOAT, 0.1f), "0.1E0"},
        {scalar(VELON_TYPE_FLOAT, -1e-40f), "-0." + string(39, '0') + "1E0"},
        {scalar(VELON_TYPE_DATE, 20778 * day), "\"2026-11-21\""},
        {scalar(VELON_TYPE_TIMESTAMP, 20778 * day + 5000001), "\"2026-11-21T00:00:05.000001\""},
        {scalar(VELON_TYPE_TIME, CodInt64{32707000123}), "\"09:05:07.000123\""},
        {scalar(VELON_TYPE_TIME, CodInt64{0}), "\"00:00:00\""},
        {scalar(VELON_TYPE_TIME, day - 1), "\"23:59:59.999999\""},
        {scalar(VELON_TYPE_BOOL, CodUint8{7}), "true"}};
    for (const auto &[bytes, json] : rows) {
        EXPECT_EQ(decode(bytes, VELON_JSON_TYPED_DOUBLES), json);
    }
    const std::vector<string> binaries = {"", "f", "fo", "foo", "\xfb\xff\xfe\x01"}, base64 = {"", "Zg==", "Zm8=", "Zm9v", "+//+AQ=="};
    for (std::size_t i = 0; i < binaries.size(); i++) {
        EXPECT_EQ(decode(velon_model::encode({VELON_TYPE_BINARY, binaries[i]})), "\"" + base64[i] + "\"");
    }
    string shared = velon_model::encode({VELON_TYPE_ARRAY});
    for (int i = 0; i < 40; i++) {
        const string entry = "\2" + little(12, 4);
        shared = "\2" + little(12 + shared.size(), 4) + little(2, 2) + entry + entry + shared;
    }
    Value deep = {VELON_TYPE_ARRAY};
    for (int i = 0; i < VELON_MAX_DEPTH; i++) {
        deep = Value{VELON_TYPE_ARRAY, {}, {}, {deep}};
    }
    EXPECT_EQ(decode(velon_model::encode(deep)), repeat("[", 101) + repeat("]", 101));
    const std::pair<string, CodUint32> refused[] = {
        {scalar(VELON_TYPE_DOUBLE, std::nan("")), ERR_CMM_TYPECONV_ERROR},
        {scalar(VELON_TYPE_FLOAT, HUGE_VALF), ERR_CMM_TYPECONV_ERROR},
        {scalar(VELON_TYPE_TIME, day), ERR_CMM_VELON_INVALID_DATETIME},
        {scalar(VELON_TYPE_DATE, INT64_MAX), ERR_CMM_VELON_INVALID_DATETIME},
        {"\3\1\xff", ERR_CMM_VELON_INVALID_UNICODE},
        {"\3\2\"", ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS},
        {"", ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS},
        {string(1, '\0'), ERR_CMM_VELON_INVALID_TYPE},
        {shared, ERR_CMM_VELON_NESTING_TOO_DEEPLY},
        {velon_model::encode(Value{VELON_TYPE_ARRAY, {}, {}, {deep}}), ERR_CMM_VELON_NESTING_TOO_DEEPLY},
        {velon_model::encode({VELON_TYPE_OBJECT, {}, {"\xff"}, {{}}}), ERR_CMM_VELON_INVALID_UNICODE},
        {"\2" + little(9, 4) + little(1, 2) + "\3" + little(7, 4) + "\4x", ERR_CMM_VELON_UNEXPECTED_TYPE}};
    for (const auto &[bytes, code] : refused) {
        EXPECT_EQ(decode(bytes), "");
        EXPECT_EQ(codGetErrorCode(), code) << codGetErrorMsg();
    }
    const string bytes = encode("[\"text\",{\"a\":1.5,\"b\":[true,1e300]}]");
    for (std::size_t size = 0; size < bytes.size(); size++) {
        EXPECT_EQ(decode(bytes.substr(0, size)), "");
    }
}

TEST(VelonJson, refusesNull) {
    CodMemAlloc *owner = codMemGetSystemAlloc();
    Velon velon = {};
    CodText text = {}, noText = {nullptr, 1, 0};
    EXPECT_TRUE(velonFromJson(nullptr, &text, &velon) + velonFromJson(owner, &noText, &velon) + velonFromJson(owner, &text, nullptr) == -3);
    EXPECT_TRUE(velonToJson(owner, nullptr, 0, &text) + velonToJson(owner, &velon, 0, nullptr) == -2);
    EXPECT_TRUE(jsonStringToOwned(owner, &noText, &text) + jsonStringPushUnicode(nullptr, 'a') == -2);
    codCleanError();
}

}  // namespace
