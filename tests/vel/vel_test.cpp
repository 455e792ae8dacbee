#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <vel_infra/algorithm/ani_hashfunc.h>
#include <vel_infra/error/ani_error_base.h>

#include "csv_reader.h"
#include "printable.h"
#include "report.h"
#include "table_profile.h"
#include "value_store.h"
#include "work_memory.h"

namespace vel {
namespace {

using Random = std::mt19937_64;

CodText textOf(const std::string &text) {
    return {const_cast<char *>(text.data()), static_cast<CodUint32>(text.size()), 0};
}

std::string numbered(const char *prefix, CodUint64 number) {
    std::string text(prefix);
    text += std::to_string(number);
    return text;
}

std::string storedText(const StoredValue &value) {
    return {value.text, value.keptLength()};
}

class VelTest : public testing::Test {
protected:
    void SetUp() override {
        codCleanError();
        ASSERT_EQ(memory.init(), COD_SUCCESS);
    }
    void TearDown() override {
        EXPECT_EQ(mpoolVerify(memory.pool()), COD_SUCCESS);
    }

    WorkMemory memory;
};

// ---- The value store ----

struct Stream {
    const char *name;
    CodUint32 limit;
    CodUint64 bytes;
    int length;
    std::string (*next)(Random &random, int position);
};

std::string fewValues(Random &random, int) {
    return numbered("v", random() % 40);
}
std::string allDifferent(Random &, int position) {
    return numbered("row ", static_cast<CodUint64>(position));
}
std::string skewed(Random &random, int) {
    const double u = static_cast<double>(random() % 1000000 + 1) / 1e6;
    return numbered("z", static_cast<CodUint64>(1 / u));
}
// One heavy value among a crowd of single ones per stretch, which is the worst for a threshold that follows the data.
std::string heavyInTurns(Random &random, int position) {
    return random() % 3 == 0 ? numbered("heavy", static_cast<CodUint64>(position / 700))
                             : numbered("single", static_cast<CodUint64>(position));
}
std::string longOnes(Random &random, int) {
    return std::string(1 + random() % 3000, static_cast<char>('a' + random() % 4));
}
std::string sameBeginning(Random &random, int) {
    return std::string(StoredValue::kKeptBytes, 'x') + std::to_string(random() % 30);
}

// Values of sixteen bytes with one and the same 64-bit hash: any first half, and the second half that leads the hash back. A word
// enters the hash as mix(word), which can be undone.
std::string equalHashes(Random &random, int) {
    constexpr CodUint64 kMultiplier = 0xc6a4a7935bd1e995ULL;
    constexpr CodUint64 kInverse = 0x5f7a0ea7e59b19bdULL;
    static_assert(kMultiplier * kInverse == 1);
    const auto mix = [](CodUint64 word) {
        word *= kMultiplier;
        return (word ^ (word >> 47)) * kMultiplier;
    };
    const auto unmix = [](CodUint64 word) {
        word *= kInverse;
        return (word ^ (word >> 47)) * kInverse;
    };
    const CodUint64 start = 0xe17a1465 ^ (16 * kMultiplier);
    const CodUint64 first = random() % 100;
    const CodUint64 words[2] = {first, unmix((start ^ mix(first)) * kMultiplier)};
    return {reinterpret_cast<const char *>(words), sizeof(words)};
}

const Stream kStreams[] = {
    {"few values", 64, 1 << 20, 5000, fewValues},
    {"all different", 64, 1 << 20, 5000, allDifferent},
    {"skewed", 64, 1 << 20, 30000, skewed},
    {"skewed, one place", 1, 1 << 20, 2000, skewed},
    {"heavy in turns", 64, 1 << 20, 30000, heavyInTurns},
    {"many places", 40000, 8 << 20, 150000, skewed},
    {"equal hashes", 1000, 1 << 20, 3000, equalHashes},
    {"equal hashes, thinned out", 40, 1 << 20, 3000, equalHashes},
    {"bytes decide", 100000, 20000, 20000, skewed},
    {"long values, bytes decide", 100000, 50000, 5000, longOnes},
    {"long values that differ behind the kept part", 64, 1 << 20, 2000, sameBeginning},
};

class ValueStoreLaws : public VelTest, public testing::WithParamInterface<Stream> {
protected:
    using Model = std::map<std::string, CodUint64>;

    // The stored values against the true counts. A cut value stands for all true ones that look alike.
    static void check(const ValueStore &store, const Model &model) {
        CodUint32 stored = 0;
        CodUint64 bytes = 0;
        std::map<std::string, bool> isStored;
        for (const StoredValue *value = store.first(); value != nullptr; value = value->next) {
            stored++;
            bytes += sizeof(StoredValue) + value->keptLength();
            if (value->length > StoredValue::kKeptBytes) {
                continue;
            }
            const auto truth = model.find(storedText(*value));
            ASSERT_NE(truth, model.end());
            ASSERT_TRUE(isStored.emplace(truth->first, true).second) << "stored twice";
            ASSERT_LE(value->count, truth->second);
            ASSERT_GE(value->count + value->missedMax, truth->second);
            ASSERT_LE(value->missedMax, store.missedBound());
        }
        ASSERT_EQ(stored, store.size());
        ASSERT_LE(stored, GetParam().limit);
        ASSERT_LE(bytes, GetParam().bytes + sizeof(StoredValue) * stored);
        for (const auto &[text, count] : model) {
            if (text.size() <= StoredValue::kKeptBytes && !isStored.contains(text)) {
                ASSERT_LE(count, store.missedBound()) << text;
            }
        }
        if (store.isExact()) {
            ASSERT_EQ(store.size(), model.size());
        }
    }
};

TEST_P(ValueStoreLaws, BoundsHoldAgainstTheTrueCounts) {
    const Stream &stream = GetParam();
    for (unsigned seed = 1; seed <= 3; seed++) {
        Random random(seed);
        ValueStore store;
        store.init(memory.pool());
        store.setLimits({.values = stream.limit, .bytes = stream.bytes});
        Model model;
        bool wasExact = true;
        for (int i = 0; i < stream.length; i++) {
            const std::string value = stream.next(random, i);
            const bool isFirst = ++model[value] == 1;
            bool isNew = false;
            ASSERT_EQ(store.add(textOf(value), &isNew), COD_SUCCESS);
            ASSERT_TRUE(isNew || !isFirst);
            if (wasExact && store.isExact()) {
                ASSERT_EQ(isNew, isFirst);
            }
            wasExact = store.isExact();
            if (i % (stream.length / 20) == 0 || i + 1 == stream.length) {
                check(store, model);
            }
        }
        if (!store.isExact() && stream.bytes >= 1 << 20) {
            EXPECT_LE(store.missedBound(), 2 * static_cast<CodUint64>(stream.length) / stream.limit);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, ValueStoreLaws, testing::ValuesIn(kStreams), [](const auto &row) {
    std::string name = row.param.name;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
    return name;
});

TEST_F(VelTest, ValuesMadeToCollideDoCollide) {
    Random random(3);
    std::set<std::string> values;
    std::set<CodUint64> hashes;
    for (int i = 0; i < 50; i++) {
        const std::string value = equalHashes(random, i);
        values.insert(value);
        hashes.insert(codMurmurHash64(value.data(), static_cast<CodUint32>(value.size())));
    }
    EXPECT_GT(values.size(), 20u);
    EXPECT_EQ(hashes.size(), 1u);
}

TEST_F(VelTest, LongValuesAreToldApartByWhatIsNotKept) {
    ValueStore store;
    store.init(memory.pool());
    const std::string beginning(StoredValue::kKeptBytes, 'x');
    bool isNew = false;
    for (const char *end : {"", "a", "b", "ab", "a"}) {
        ASSERT_EQ(store.add(textOf(beginning + end), &isNew), COD_SUCCESS);
    }
    EXPECT_FALSE(isNew);
    EXPECT_EQ(store.size(), 4u);
}

TEST_F(VelTest, MostCommonAgreesWithSortingTheTrueCounts) {
    Random random(7);
    for (int round = 0; round < 50; round++) {
        ValueStore store;
        store.init(memory.pool());
        std::map<std::string, CodUint64> model;
        for (int i = 0; i < 40; i++) {
            const std::string value(1 + random() % 3, static_cast<char>('\x7e' + random() % 4));
            model[value]++;
            bool isNew = false;
            ASSERT_EQ(store.add(textOf(value), &isNew), COD_SUCCESS);
        }
        std::vector<std::pair<std::string, CodUint64>> expected(model.begin(), model.end());
        std::stable_sort(expected.begin(), expected.end(), [](const auto &l, const auto &r) { return l.second > r.second; });
        expected.resize(std::min<size_t>(expected.size(), 5));
        const StoredValue *common[5];
        std::vector<std::pair<std::string, CodUint64>> found;
        const CodUint32 count = store.mostCommon(common, 5);
        for (CodUint32 i = 0; i < count; i++) {
            found.emplace_back(storedText(*common[i]), common[i]->count);
        }
        EXPECT_EQ(found, expected);
    }
}

// Every allocation fails once; what was counted before must stay readable or the failure be told.
TEST_F(VelTest, AFailedAllocationIsReportedAndNothingLeaks) {
    for (int n = 0;; n++) {
        WorkMemory scarce;
        codFailAllocAfter(n);
        CodResult result = scarce.init();
        if (result == COD_SUCCESS) {
            TableProfileOptions options = {};
            options.name = "input";
            options.valuesPerColumn = 50;
            TableProfile table(options);
            CsvReader reader("input", &table);
            result = table.init(scarce.pool()) == COD_SUCCESS ? reader.init(',') : COD_ERROR;
            for (int row = 0; result == COD_SUCCESS && row < 300; row++) {
                const std::string line = std::to_string(row) + "," + std::string(1000, 'y') + std::to_string(row) + "\n";
                result = reader.feed(line.data(), line.size());
            }
        }
        codFailAllocAfter(-1);
        if (result == COD_SUCCESS) {
            ASSERT_GT(n, 5);
            break;
        }
        ASSERT_NE(codGetErrorStackDepth(), 0u) << n;
        codCleanError();
    }
}

// ---- The reader ----

struct Recorder final : CsvSink {
    std::string seen;
    CodResult onField(const CodText &field) override {
        seen.append("[").append(field.str, field.len).append("]");
        return COD_SUCCESS;
    }
    CodResult onRow() override {
        seen += "\n";
        return COD_SUCCESS;
    }
};

// What was delivered, and the message of the failure behind it.
std::string readInPieces(const std::string &input, size_t piece, char delimiter = ',') {
    codCleanError();
    Recorder recorder;
    CsvReader reader("input", &recorder);
    CodResult result = reader.init(delimiter);
    for (size_t i = 0; result == COD_SUCCESS && i < input.size(); i += piece) {
        // A copy of its own, so that the address sanitizer sees a read beyond the piece.
        const std::vector<char> bytes(input.begin() + static_cast<long>(i),
                                      input.begin() + static_cast<long>(std::min(i + piece, input.size())));
        result = reader.feed(bytes.data(), bytes.size());
    }
    if (result == COD_SUCCESS) {
        result = reader.finish();
    }
    return recorder.seen + (result == COD_SUCCESS ? "" : codGetErrorMsg());
}

TEST_F(VelTest, ReaderSplitsFieldsAndRows) {
    const struct {
        const char *name;
        std::string input;
        char delimiter;
        std::string expected;
    } rows[] = {
        {"blanks are kept", " a , b\t\n\tc,  \n", ',', "[ a ][ b\t]\n[\tc][  ]\n"},
        {"quoted", "\"a,\"\"b\"\"\",\"x\ny\"\n\" q \",\"\"\n", ',', "[a,\"b\"][x\ny]\n[ q ][]\n"},
        {"all line ends", "a\nb\r\nc\rd", ',', "[a]\n[b]\n[c]\n[d]\n"},
        {"empty lines are no rows", "\n\na\n\r\n\nb\n\n", ',', "[a]\n[b]\n"},
        {"a line of blanks is a row", "a\n  \nb\n", ',', "[a]\n[  ]\n[b]\n"},
        {"empty fields", ",\n,,\n", ',', "[][]\n[][][]\n"},
        {"an empty last field at the end", "a,", ',', "[a][]\n"},
        {"byte order mark", "\xEF\xBB\xBF\"a\",b\n", ',', "[a][b]\n"},
        {"half a byte order mark", "\xEF\xBB", ',', "[\xEF\xBB]\n"},
        {"byte order mark alone", "\xEF\xBB\xBF", ',', ""},
        {"tabulator between fields", " a\t\tb \t\"c\td\"\n", '\t', "[ a][][b ][c\td]\n"},
        {"blank between fields", "a  b \"c d\"\n\t e\n", ' ', "[a][][b][c d]\n[\t][e]\n"},
        {"nothing", "", ',', ""},
        {"quote inside a field", "a,b\nc,d\"e\n", ',', "[a][b]\n[c]failed to parse input, row 2: field 2 has a quote in the wrong place"},
        {"text behind a quote", "a\n\"b\" ,c\n", ',', "[a]\nfailed to parse input, row 2: field 1 has a quote in the wrong place"},
        {"no closing quote", "a,b\nc,\"d\ne,f\n", ',', "[a][b]\n[c]failed to parse input, row 2: field 2 has no closing quote"},
        {"zero byte", std::string("a\nb,c\0d\n", 8), ',', "[a]\n[b]failed to parse input, row 2: field 2 holds a zero byte"},
        {"fault before a zero byte", std::string("a\nb\"\n\0", 6), ',',
         "[a]\nfailed to parse input, row 2: field 1 has a quote in the wrong place"},
    };
    for (const auto &row : rows) {
        for (size_t piece : {1, 2, 3, 7, 100000}) {
            EXPECT_EQ(readInPieces(row.input, piece, row.delimiter), row.expected) << row.name << ", pieces of " << piece;
        }
    }
}

TEST_F(VelTest, PiecesMakeNoDifference) {
    Random random(11);
    const std::string alphabet(",\n\"\r ab\t;\0\xEF\xBB\xBF", 13);
    for (int round = 0; round < 2000; round++) {
        std::string input;
        const size_t length = random() % 40;
        // Quotes and zero bytes end most inputs: rare in three rounds of four.
        const size_t letters = round % 4 == 0 ? alphabet.size() : 2;
        for (size_t i = 0; i < length; i++) {
            input += random() % 8 == 0 ? alphabet[random() % alphabet.size()] : alphabet[random() % letters];
        }
        const std::string whole = readInPieces(input, input.size() + 1);
        for (size_t piece : {1, 2, 3, 7}) {
            ASSERT_EQ(readInPieces(input, piece), whole) << testing::PrintToString(input) << ", pieces of " << piece;
        }
    }
}

TEST_F(VelTest, FieldsMayBeUpToTheirLimit) {
    for (const bool isQuoted : {false, true}) {
        const std::string quote = isQuoted ? "\"" : "";
        const std::string most(CsvReader::kFieldLimit, 'x');
        const std::string good = "a," + quote + most + quote + ",b\n";
        EXPECT_EQ(readInPieces(good, 65536), "[a][" + most + "][b]\n");
        const std::string tooLong = "r\na," + quote + most + "x" + quote + ",b\n";
        EXPECT_EQ(readInPieces(tooLong, 65536), "[r]\n[a]failed to parse input, row 2: field 2 is longer than 1,048,576 bytes");
        EXPECT_EQ(readInPieces("a," + quote + most + most + quote, 4096),
                  "[a]failed to parse input, row 1: field 2 is longer than 1,048,576 bytes");
    }
}

TEST_F(VelTest, AReadThatFailsMidwayNamesTheRow) {
    // A socket whose other end closes with unread bytes gives what was sent, and then a fault.
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ASSERT_EQ(write(ends[0], "unread", 6), 6);
    ASSERT_EQ(write(ends[1], "a\nb\n", 4), 4);
    close(ends[1]);
    Recorder recorder;
    CsvReader reader("input", &recorder);
    ASSERT_EQ(reader.init(','), COD_SUCCESS);
    EXPECT_EQ(reader.readAll(ends[0], nullptr), COD_ERROR);
    EXPECT_EQ(recorder.seen, "[a]\n[b]\n");
    EXPECT_THAT(codGetErrorMsg2(), testing::MatchesRegex("VEL-00207 failed to parse input, row 3: .*reset.*; VEL-00328 read file failed"));
    close(ends[0]);
}

// ---- The table ----

std::string profileText(const std::string &input, TableProfileOptions options, size_t piece = 100000) {
    codCleanError();
    WorkMemory memory;
    options.name = "input";
    TableProfile table(options);
    CsvReader reader("input", &table);
    CodResult result = memory.init();
    result = result == COD_SUCCESS ? table.init(memory.pool()) : result;
    result = result == COD_SUCCESS ? reader.init(',') : result;
    for (size_t i = 0; result == COD_SUCCESS && i < input.size(); i += piece) {
        result = reader.feed(input.data() + i, std::min(piece, input.size() - i));
    }
    result = result == COD_SUCCESS ? reader.finish() : result;
    result = result == COD_SUCCESS ? table.finish() : result;
    if (result != COD_SUCCESS) {
        return codGetErrorMsg();
    }
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    writeReport(out, table, "input");
    fclose(out);
    std::string report(text, size);
    free(text);
    return report;
}

TEST_F(VelTest, ReportShowsEveryFigure) {
    EXPECT_EQ(profileText("name,note\nbob,\nann, x \nbob,\"two\nlines\"\n\xC3\xA9\xFF\\,\"\"\"\"\n", {}),
              "column 1 \"name\"\n"
              "  rows                          4\n"
              "  empty                         0\n"
              "  distinct                      3\n"
              "  shortest bytes                3  \"bob\"\n"
              "  longest bytes                 4  \"\xC3\xA9\\xFF\\\\\"\n"
              "  most common                   2  \"bob\"\n"
              "  most common                   1  \"ann\"\n"
              "  most common                   1  \"\xC3\xA9\\xFF\\\\\"\n"
              "\n"
              "column 2 \"note\"\n"
              "  rows                          4\n"
              "  empty                         1\n"
              "  distinct                      3\n"
              "  shortest bytes                1  \"\\\"\"\n"
              "  longest bytes                 9  \"two\\nlines\"\n"
              "  most common                   1  \" x \"\n"
              "  most common                   1  \"\\\"\"\n"
              "  most common                   1  \"two\\nlines\"\n"
              "\n"
              "4 rows, 2 columns, input\n");
}

TEST_F(VelTest, ApproximateFiguresAreMarked) {
    std::string input = "v\n";
    for (CodUint64 i = 0; i < 3000; i++) {
        input += i % 3 == 0 ? "early" : numbered("u", i);
        input += '\n';
    }
    for (int i = 0; i < 500; i++) {
        input += "late\n";
    }
    TableProfileOptions options = {};
    options.valuesPerColumn = 100;
    const std::string report = profileText(input, options);
    EXPECT_THAT(report, testing::HasSubstr("most common               1,000  \"early\"\n"));
    EXPECT_THAT(report, testing::ContainsRegex("most common                ~500  \"late\"  .at most 5[0-9][0-9].\n"));
    EXPECT_THAT(report, testing::ContainsRegex("distinct +~(1,9[5-9][0-9]|2,0[0-5][0-9])"));
}

TEST_F(VelTest, ColumnsAreChosenByNameAndNumber) {
    const struct {
        const char *name;
        const char *columns;
        bool hasHeader;
        const char *input;
        std::vector<std::string> titles;
        const char *error;
    } rows[] = {
        {"all", nullptr, true, "a,b\n1,2\n", {"column 1 \"a\"", "column 2 \"b\""}, ""},
        {"in the order asked for", "b,1", true, "a,b\n1,2\n", {"column 2 \"b\"", "column 1 \"a\""}, ""},
        {"a name goes before a number", "1", true, "a,1\n1,2\n", {"column 2 \"1\""}, ""},
        {"an empty name", "", true, ",b\n1,2\n", {"column 1 \"\""}, ""},
        {"without header", "2", false, "1,2\n", {"column 2 \"column 2\""}, ""},
        {"without header, by name", "column 1", false, "1,2\n", {"column 1 \"column 1\""}, ""},
        {"unknown name", "a,c", true, "a,b\n1,2\n", {}, "invalid parameter, reason: there is no column \"c\" in input"},
        {"number too large", "3", true, "a,b\n", {}, "invalid parameter, reason: there is no column \"3\" in input"},
        {"number 0", "0", false, "1,2\n", {}, "invalid parameter, reason: there is no column \"0\" in input"},
        {"twice", "a,1", true, "a,b\n", {}, "invalid parameter, reason: --columns names a column twice: \"1\" in input"},
        {"twice in the header", nullptr, true, "a,b,a\n", {}, "failed to parse input, row 1: column \"a\" is named twice"},
    };
    for (const auto &row : rows) {
        TableProfileOptions options = {};
        options.columns = row.columns;
        options.hasHeader = row.hasHeader;
        const std::string report = profileText(row.input, options);
        size_t place = 0;
        for (const std::string &title : row.titles) {
            place = report.find(title + "\n", place);
            ASSERT_NE(place, std::string::npos) << row.name << ": " << title << " in\n" << report;
        }
        if (row.titles.empty()) {
            EXPECT_EQ(report, row.error) << row.name;
        } else {
            EXPECT_THAT(report, testing::HasSubstr(std::to_string(row.titles.size()) + " column")) << row.name;
        }
    }
}

TEST_F(VelTest, AllColumnsTakePartInTheFirstRowWithoutHeader) {
    TableProfileOptions options = {};
    options.hasHeader = false;
    options.columns = "2";
    const std::string report = profileText("1,x\n2,x\n", options);
    EXPECT_THAT(report, testing::HasSubstr("most common                   2  \"x\""));
    EXPECT_THAT(report, testing::HasSubstr("2 rows, 1 column, input\n"));
}

TEST_F(VelTest, TooManyColumnsAreRefused) {
    const std::string most(TableProfile::kMaxColumns - 1, ',');
    TableProfileOptions options = {};
    options.hasHeader = false;
    EXPECT_THAT(profileText(most + "\n", options), testing::HasSubstr("1 row, 4,096 columns"));
    EXPECT_EQ(profileText(most + ",\n", options), "failed to parse input, row 1: more than 4096 columns");
    EXPECT_EQ(profileText(std::string(TableProfile::kNameLimit + 1, 'n') + "\n", {}),
              "failed to parse input, row 1: the name of column 1 is longer than 1024 bytes");
}

// ---- Printing ----

TEST(Printable, TextsFitOneLine) {
    const struct {
        const char *name;
        std::string text;
        bool isCut;
        CodUint32 limit;
        std::string expected;
    } rows[] = {
        {"plain", "abc", false, 72, "abc"},
        {"controls", std::string("a\n\r\t\0\x1b\x7f", 7), false, 72, "a\\n\\r\\t\\x00\\x1B\\x7F"},
        {"backslash and quote", "\\\"", false, 72, "\\\\\\\""},
        {"utf-8", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", false, 72, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"latin-1", "\xE9t\xE9", false, 72, "\\xE9t\\xE9"},
        {"overlong", "\xC0\xAF\xE0\x80\xAF", false, 72, "\\xC0\\xAF\\xE0\\x80\\xAF"},
        {"surrogate", "\xED\xA0\x80", false, 72, "\\xED\\xA0\\x80"},
        {"beyond unicode", "\xF4\x90\x80\x80\xFF", false, 72, "\\xF4\\x90\\x80\\x80\\xFF"},
        {"c1 control", "\xC2\x85", false, 72, "\\xC2\\x85"},
        {"line separator", "\xE2\x80\xA8", false, 72, "\\xE2\\x80\\xA8"},
        {"right-to-left override", "\xE2\x80\xAE", false, 72, "\\xE2\\x80\\xAE"},
        {"just fits", "abcd", false, 4, "abcd"},
        {"cut", "abcde", false, 4, "abcd\xE2\x80\xA6"},
        {"cut before a character", "abc\xC3\xA9", false, 4, "abc\xE2\x80\xA6"},
        {"cut before an escape", "abc\n", false, 4, "abc\xE2\x80\xA6"},
        {"a beginning", "abc", true, 72, "abc\xE2\x80\xA6"},
        {"a beginning that ends inside a character", "ab\xE2\x82", true, 72, "ab\xE2\x80\xA6"},
        {"an end inside a character", "ab\xE2\x82", false, 72, "ab\\xE2\\x82"},
    };
    for (const auto &row : rows) {
        std::vector<char> out(row.limit + 4);
        const CodUint32 length = writePrintable(textOf(row.text), row.isCut, '"', row.limit, out.data());
        EXPECT_EQ(std::string(out.data()), row.expected) << row.name;
        EXPECT_EQ(length, row.expected.size()) << row.name;
    }
}

TEST(Printable, CountsAreGrouped) {
    char buffer[kCountSize];
    EXPECT_STREQ(formatCount(0, buffer), "0");
    EXPECT_STREQ(formatCount(999, buffer), "999");
    EXPECT_STREQ(formatCount(1000, buffer), "1,000");
    EXPECT_STREQ(formatCount(18446744073709551615u, buffer), "18,446,744,073,709,551,615");
}

}  // namespace
}  // namespace vel
