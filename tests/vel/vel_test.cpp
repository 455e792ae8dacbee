#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <vel_infra/algorithm/ani_hashfunc.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_json.h>

#include "codepage_folder.h"
#include "log_profile.h"
#include "packed_column.h"
#include "report.h"
#include "table_profile.h"
#include "velon_dump.h"
#include "velon_file.h"
#include "work_memory.h"

namespace vel {
namespace {

struct MemoryStream {
    char *bytes = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&bytes, &size);

    ~MemoryStream() {
        fclose(stream);
        free(bytes);
    }
    std::string text() {
        fflush(stream);
        return {bytes, size};
    }
};

using Random = std::mt19937_64;

// ---- The value store and its column ----

std::string skewed(Random &random, CodUint64) {
    return "z" + std::to_string(1000000 / (random() % 1000000 + 1));
}

constexpr CodUint32 kKept = StoredValue::kKeptBytes;

const struct Stream {
    const char *name;
    CodUint32 limit;
    CodUint64 bytes;
    CodUint64 length;
    std::string (*next)(Random &random, CodUint64 position);
    CodUint64 hashBits = UINT64_MAX;
} kStreams[] = {
    {"all different", 64, 1 << 20, 30000, [](Random &, CodUint64 i) { return "row " + std::to_string(i); }},
    {"one place", 1, 1 << 20, 2000, skewed},
    {"many places", 40000, 8 << 20, 150000, skewed},
    // One heavy value among a crowd of single ones per stretch, which is the worst for a threshold that follows the data.
    {"heavy in turns", 64, 1 << 20, 30000, [](Random &r, CodUint64 i) { return std::to_string(r() % 3 ? i : 1'000'000 + i / 700); }},
    {"equal hashes", 40, 1 << 20, 3000, [](Random &r, CodUint64) { return std::to_string(r() % 100); }, 3},
    {"long, equal hashes", 64, 1 << 20, 500, [](Random &r, CodUint64) { return std::string(kKept, 'x') + std::to_string(r() % 50); }, 0},
    {"long, alike", 64, 1 << 20, 2000, [](Random &r, CodUint64) { return std::string(kKept - r() % 3, 'x') + std::to_string(r() % 30); }},
    {"bytes decide", 100000, 20000, 20000, skewed},
    {"common are long, bytes decide", 100000, 20000, 5000,
     [](Random &r, CodUint64 i) { return r() % 2 ? std::to_string(i) : std::string(900, static_cast<char>('a' + r() % 15)); }},
    {"long, bytes decide", 100000, 50000, 5000,
     [](Random &r, CodUint64) { return std::string(1 + r() % 3000, static_cast<char>('a' + r() % 4)); }},
};

class VelTest : public testing::Test {
protected:
    using Model = std::map<std::string, CodUint64>;
    using Rank = std::tuple<CodInt64, std::string, size_t>;  // sorts like the most common values

    void SetUp() override {
        codCleanError();
        ASSERT_EQ(memory.init(), COD_SUCCESS);
        ASSERT_EQ(mctxCreate(memory.pool(), &shared), COD_SUCCESS);
    }
    void TearDown() override {
        mctxDestroy(shared);
        EXPECT_EQ(mpoolVerify(memory.pool()), COD_SUCCESS);
    }

    static Rank rank(CodUint64 count, const std::string &value, size_t length) {
        return {-static_cast<CodInt64>(count), value.substr(0, kKept), length};
    }

    // Against the true counts. A cut value stands for all true ones that look alike.
    static void check(const ColumnProfile &column, const Model &model, CodUint32 valueLimit, CodUint64 byteLimit) {
        const ValueStore &store = column.values();
        CodUint64 bytes = 0;
        std::vector<Rank> ranks;
        Model found;
        for (const StoredValue *value = store.first(); value != nullptr; value = value->next) {
            const std::string text(value->text, value->keptLength());
            bytes += (offsetof(StoredValue, text) + text.size() + 7) / 8 * 8;
            ranks.push_back(rank(value->count, text, value->length));
            ASSERT_LE(value->missedMax, store.missedBound());
            if (value->length <= kKept) {
                ASSERT_EQ(++found[text], 1u) << "stored twice";
                ASSERT_LE(value->count, model.at(text));
                ASSERT_GE(value->count + value->missedMax, model.at(text));
            }
        }
        std::vector<Rank> truth;
        for (const auto &[text, count] : model) {
            ASSERT_TRUE(text.size() > kKept || found.contains(text) || count <= store.missedBound()) << text;
            truth.push_back(rank(count, text, text.size()));
        }
        std::sort(ranks.begin(), ranks.end());
        std::sort(truth.begin(), truth.end());
        ASSERT_TRUE(!store.isExact() || ranks == truth);
        ASSERT_EQ(ranks.size(), store.size());
        ASSERT_LE(store.size(), valueLimit);
        ASSERT_LE(bytes, byteLimit);
        const StoredValue *common[5];
        ASSERT_EQ(store.mostCommon(common, 5), std::min<size_t>(5, ranks.size()));
        for (size_t i = 0; i < 5 && i < ranks.size(); i++) {
            ASSERT_EQ(rank(common[i]->count, {common[i]->text, common[i]->keptLength()}, common[i]->length), ranks[i]);
        }
    }

    WorkMemory memory;
    MemoryContext *shared = nullptr;
};

TEST_F(VelTest, CountsOfAColumnHoldAgainstTheTrueOnesInFlatMemory) {
    Random random(1);
    for (const Stream &stream : kStreams) {
        SCOPED_TRACE(stream.name);
        ColumnProfile column;
        column.init(memory.pool(), shared);
        column.setLimits({.values = stream.limit, .bytes = stream.bytes, .hashBits = stream.hashBits});
        const ValueStore &store = column.values();
        Model model;
        for (CodUint64 i = 0; i < stream.length; i++) {
            std::string value = stream.next(random, i);
            model[value]++;
            const CodUint32 size = store.size();
            ASSERT_EQ(column.add({value.data(), static_cast<CodUint32>(value.size()), 0}), COD_SUCCESS);
            // An eviction frees half of the places and of the bytes, and then one value is stored.
            ASSERT_TRUE(store.size() >= size || store.size() <= size / 2 + 1);
            if (store.size() < size && stream.bytes < 1 << 20) {
                ASSERT_NO_FATAL_FAILURE(check(column, model, stream.limit, stream.bytes / 2 + sizeof(StoredValue) + kKept + 8));
            } else if (i % (stream.length / 10) == 0 || i + 1 == stream.length) {
                ASSERT_NO_FATAL_FAILURE(check(column, model, stream.limit, stream.bytes));
            }
        }
        ASSERT_LE(memory.pool()->blockCount * CodUint64{WorkMemory::kBlockSize}, 2 * stream.bytes + (5 << 20)) << "memory grows";
        if (store.isExact() || strstr(stream.name, "equal hashes") == nullptr) {
            const auto distinct = static_cast<double>(model.size());
            EXPECT_NEAR(static_cast<double>(column.distinct()), distinct, store.isExact() ? 0 : distinct / 25);
        }
        // The median of all values decides where bytes do not.
        if (stream.bytes >= 1 << 20) {
            EXPECT_LE(store.missedBound(), 2 * stream.length / stream.limit);
        }
    }
}

// The n-th allocation fails, for every n until all succeed.
TEST_F(VelTest, AFailedAllocationIsReportedAndNothingLeaks) {
    const MemoryStream sink;
    const std::string text = testing::TempDir() + "vel_test.json";
    std::ofstream(text) << "{\"a\":[1,\"x\"]}";
    const auto profile = [&sink, &text] {
        WorkMemory scarce;
        COD_TRY(scarce.init());
        TableProfile table({.name = "input", .valuesPerColumn = 50});
        CsvReader reader("input", &table);
        COD_TRY(table.init(scarce.pool()));
        COD_TRY(reader.init(','));
        for (int row = 0; row < 300; row++) {
            const std::string line = std::to_string(row) + "," + std::string(1000, 'y') + std::to_string(row) + "\n";
            COD_TRY(reader.feed(line.data(), line.size()));
        }
        COD_TRY(reader.finish());
        COD_TRY(writeJsonReport(sink.stream, table, "input"));
        VelonFile file(text.c_str());
        COD_TRY(file.readJson());
        COD_TRY(writeVelonDump(sink.stream, file.document()));
        LogProfile log;
        COD_TRY(log.init(scarce.pool()));
        for (int code = 1001; code < 1300; code++) {
            const std::string line = "2026-11-21 09:05:07.123 1 [WARN][errno=" + std::to_string(code) + "]: x\n";
            COD_TRY(log.feed(line.data(), line.size()));
        }
        COD_TRY(log.finish());
        ColumnPacker packer(nullptr);
        COD_TRY(packer.init());
        ColumnUnpacker unpacker("input", stdout);
        return unpacker.init();
    };
    CodResult result = COD_ERROR;
    for (int n = 0; result != COD_SUCCESS; n++) {
        codCleanError();
        codFailAllocAfter(n);
        result = profile();
        codFailAllocAfter(-1);
        ASSERT_TRUE(result == COD_SUCCESS ? n > 5 : codGetErrorStackDepth() > 0) << n;
    }
}

// Against a sort of all values, for every collation.
TEST_F(VelTest, ExtremeTextsAreThoseOfASort) {
    ASSERT_EQ(loadCodepages(nullptr), COD_SUCCESS) << codGetErrorMsg2();
    const char *const pieces[] = {"a", "A", "b", "é", "É", "中", "北", "😀", " ", "\xFF"};
    const auto textOf = [](const std::string &value) { return CodText{const_cast<char *>(value.data()), CodUint32(value.size()), 0}; };
    const auto shown = [](const ExtremeValue &value) { return std::pair{value.length, std::string(value.text, value.kept)}; };
    const auto expected = [](const std::string &value) { return std::pair{CodUint32(value.size()), value.substr(0, 256)}; };
    Random random(3);
    for (CodUint16 round = 0; round < 1800; round++) {
        const CodCollation *collation = codGetCollation(UTF8, round % 3, round / 3 % 2);
        TextProfile profile;
        profile.init(shared, collation);
        std::vector<std::string> values(1 + random() % 12, std::string(std::array<size_t, 3>{0, 7, 300}[random() % 3], 'x'));
        std::pair<CodUint32, std::string> longest;
        CodUint32 row = 0, firstInvalidRow = 0;
        for (std::string &value : values) {
            auto characters = CodUint32(value.size());
            for (CodUint64 count = 1 + random() % 4; count > 0; count--, characters++) {
                value += pieces[random() % (random() % 8 == 0 ? 10 : 9)];
            }
            longest = characters > longest.first ? std::pair{characters, value} : longest;
            ASSERT_EQ(profile.add(textOf(value), ++row, value.find_first_not_of("xaAb ") == value.npos), COD_SUCCESS);
            firstInvalidRow = firstInvalidRow == 0 && value.find('\xFF') != value.npos ? row : firstInvalidRow;
        }
        ASSERT_EQ(profile.firstInvalidRow(), firstInvalidRow);
        ASSERT_TRUE(firstInvalidRow != 0 ||
                    (profile.longestCharacters() == longest.first && shown(profile.longest()) == expected(longest.second)));
        const auto isBefore = [&](const std::string &left, const std::string &right) {
            const CodText one = textOf(left), other = textOf(right);
            return collation->compare(&one, &other) < 0;
        };
        ASSERT_EQ(shown(profile.minimum()), expected(*std::min_element(values.begin(), values.end(), isBefore)));
        ASSERT_EQ(shown(profile.maximum()), expected(*std::max_element(values.begin(), values.end(), isBefore)));
    }
}

// ---- Dumps ----

// Every byte of the document stands in one line, in order.
void checkDump(const std::string &dump, const std::string &document) {
    std::istringstream lines(dump);
    std::string line;
    std::getline(lines, line);
    size_t next = 0;
    bool isCut = false;
    while (std::getline(lines, line)) {
        const size_t offset = std::stoul(line.substr(0, 8), nullptr, 16);
        if (line.ends_with(" shown above")) {
            ASSERT_TRUE(isCut || offset < next) << dump;
            continue;
        }
        ASSERT_TRUE(isCut ? offset > next : offset == next) << dump;
        next = offset;
        isCut = line.substr(10, 31).find("..") != std::string::npos;
        std::istringstream bytes(line.substr(10, 31));
        for (std::string byte; bytes >> byte && byte != "..";) {
            ASSERT_EQ(std::stoi(byte, nullptr, 16), static_cast<CodUint8>(document.at(next++))) << dump;
        }
    }
    ASSERT_TRUE(isCut || next == document.size()) << dump;
}

// Documents with bytes changed: those that are still accepted have offsets to what others lead to as well, and gaps.
TEST(VelonDumpTest, ShowsEveryByteOfWhateverIsAcceptedOnce) {
    codCleanError();
    const std::string text = R"({"b":[1,"x",[[],{"k":"0123456789abc"}],2.5,[7]],"a":{"x":null,"y":9e99,"b":true},"c":[[1],[1],"x","x"]})";
    Velon velon;
    const CodText json = {const_cast<char *>(text.data()), static_cast<CodUint32>(text.size()), 0};
    ASSERT_EQ(velonFromJson(codMemGetSystemAlloc(), &json, &velon), COD_SUCCESS);
    const std::string good(reinterpret_cast<const char *>(velonGetDataPtr(&velon)), velonGetDataLength(&velon));
    velonFree(&velon);
    Random random(7);
    int accepted = 0, shared = 0, unused = 0;
    for (int i = 0; i < 30000; i++) {
        std::string bytes = good;
        for (int change = 0; change < i % 4; change++) {
            bytes[random() % bytes.size()] = random() % 2 ? bytes[random() % bytes.size()] : static_cast<char>(random() % 128);
        }
        const VelonData data = {reinterpret_cast<const CodUint8 *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0};
        const Velon document = velonNew(nullptr, &data);
        if (velonCheckData(&document) == COD_SUCCESS) {
            MemoryStream stream;
            ASSERT_EQ(writeVelonDump(stream.stream, document), COD_SUCCESS);
            const std::string dump = stream.text();
            ASSERT_NO_FATAL_FAILURE(checkDump(dump, bytes));
            accepted++;
            shared += dump.find(" shown above\n") != std::string::npos;
            unused += dump.find(" unused, ") != std::string::npos;
        }
        codCleanError();
    }
    EXPECT_TRUE(accepted > 10000 && shared > 100 && unused > 100) << accepted << " " << shared << " " << unused;
}

// ---- Numbers ----

std::string textOf(bool isKnown, const CodNumber &number) {
    char text[COD_NUMBER_TEXT_SIZE];
    return isKnown && codNumber2Str(&number, text, sizeof(text)) == COD_SUCCESS ? text : "-";
}

// "precision,scale minimum maximum sum mean" of the values, each with a comma behind it; "~" before a sum that was rounded.
std::string figuresOf(const std::string &values) {
    codCleanError();
    NumericProfile profile;
    std::istringstream stream(values);
    std::set<std::string> known;
    for (std::string value; std::getline(stream, value, ',');) {
        profile.add({value.data(), static_cast<CodUint32>(value.size()), 0}, known.insert(value).second);
    }
    EXPECT_EQ(codGetErrorStackDepth(), 0u) << values;
    if (!profile.isNumeric()) {
        return "text";
    }
    CodNumber sum = {}, mean = {};
    bool isExact = true;
    const std::string sumText = textOf(profile.sum(&sum, &isExact), sum);
    return std::to_string(profile.precision()) + "," + std::to_string(profile.scale()) + " " + textOf(true, profile.minimum()) + " " +
           textOf(true, profile.maximum()) + (isExact ? " " : " ~") + sumText + " " + textOf(profile.mean(&mean), mean);
}

TEST(NumericProfileTest, TellsTheFiguresOfAColumn) {
    const std::string nines(COD_NUMBER_DIGITS, '9'), zeros(COD_NUMBER_DIGITS + 2, '0');
    const std::pair<std::string, std::string> rows[] = {
        {"", "text"},
        {"7", "1,0 7 7 7 7"},
        {"0,0.00,-0e5,0e-200", "1,0 0 0 0 0"},
        {"-5.00,-12.50,-.7", "3,1 -12.5 -0.7 -18.2 -6.0666667"},
        {"1e3, 25E-3 ,+4", "7,3 0.025 1000 1004.025 334.675"},
        {"-0.002,0.001,0", "1,3 -0.002 0.001 -0.001 -0.000333333"},
        {"1,2,2x", "text"},
        {"1e-131", "text"},
        {"1e125,1e-120", "246,120 1E-120 1E+125 - -"},
        {"9e125,9e125", "126,0 9E+125 9E+125 - 9E+125"},
        {nines + ",0.5", "39,1 0.5 " + nines + " ~1E+38 5" + zeros.substr(3)},
        {nines + "9", "text"},
        {"0." + zeros + "1" + zeros, "1,41 1E-41 1E-41 1E-41 1E-41"},
        {"12" + zeros, "42,0 1.2E+41 1.2E+41 1.2E+41 1.2E+41"},
    };
    for (const auto &[values, expected] : rows) {
        EXPECT_EQ(figuresOf(values), expected);
    }
}

std::string digitsOf(__int128 value) {
    return value < 0 ? "-" + digitsOf(-value) : (value < 10 ? "" : digitsOf(value / 10)) + static_cast<char>('0' + value % 10);
}

// value * 10^-places as NUMBER writes it.
std::string textOf(__int128 value, size_t places) {
    CodNumber number;
    return textOf(codNumberFromStr((digitsOf(value) + "e-" + std::to_string(places)).c_str(), &number) == COD_SUCCESS, number);
}

TEST(NumericProfileTest, AgreesWithIntegers) {
    Random random(3);
    for (size_t round = 0; round < 500; round++) {
        const size_t scale = random() % 4, length = 1 + random() % 300;
        const CodInt64 limit = std::stoll("1" + std::string(1 + round % 17, '0'));
        const CodInt64 least = round % 2 == 0 ? -limit : -limit / 4;
        std::set<CodInt64> values;
        std::string texts;
        __int128 sum = 0, count = 0;
        // An odd value needs the whole scale; a mean that is not tiny is rounded behind it.
        while (count < length || (sum < 0 ? -sum : sum) < count) {
            const CodInt64 value = (least + static_cast<CodInt64>(random() % static_cast<CodUint64>(limit))) | (count == 0 ? 1 : 0);
            texts += random() % 2 == 0 ? textOf(value, scale) + "," : digitsOf(value) + "000E-" + std::to_string(scale + 3) + " ,";
            values.insert(value);
            sum += value;
            count++;
        }
        const __int128 mean = (sum * 2'000'000 + (sum < 0 ? -count : count)) / (2 * count);
        const size_t precision = digitsOf(std::max(-*values.begin(), *values.rbegin())).size();
        EXPECT_EQ(figuresOf(texts), std::to_string(precision) + "," + std::to_string(scale) + " " + textOf(*values.begin(), scale) + " " +
                                        textOf(*values.rbegin(), scale) + " " + textOf(sum, scale) + " " + textOf(mean, scale + 6));
    }
}

// "bits from-minimum steps" of the values, each with a comma behind it; -1 where packing is not possible.
std::string bitsOf(const std::string &values) {
    NumericProfile numbers;
    IntegerProfile integers;
    std::istringstream stream(values);
    for (std::string value; std::getline(stream, value, ',');) {
        numbers.add({value.data(), static_cast<CodUint32>(value.size()), 0}, true);
        integers.add(numbers.latest(), static_cast<CodUint32>(value.size()));
    }
    EXPECT_EQ(codGetErrorStackDepth(), 0u) << values;
    return !integers.isIntegers() ? "none"
                                  : std::to_string(integers.bits()) + " " + std::to_string(integers.bitsFromMinimum()) + " " +
                                        std::to_string(integers.bitsOfSteps());
}

TEST(IntegerProfileTest, TellsTheBitsOfAColumn) {
    const std::pair<std::string, std::string> rows[] = {
        {"", "none"},
        {"0", "0 0 0"},
        {"255", "8 0 0"},
        {"256,256,257", "9 1 1"},
        {"7,3", "3 3 -1"},
        {"1e1, 12.0 ,+15", "4 3 2"},
        {"-1,0,0", "-1 1 1"},
        {"1,2.5,3", "none"},
        {"0,18446744073709551615", "none"},
        {"-9223372036854775808,9223372036854775807", "-1 64 64"},
        {"9223372036854775808", "none"},
        {"-9223372036854775809,1", "none"},
        {"0,4294967296,4294967297", "33 33 33"},
    };
    for (const auto &[values, expected] : rows) {
        EXPECT_EQ(bitsOf(values), expected) << values;
    }
}

// ---- Run logs ----

std::string textOf(const LogLines &lines) {
    return std::to_string(lines.count) + " " + lines.earliest + " " + lines.latest;
}

TEST_F(VelTest, LinesOfARunLogAreCountedInWhateverPiecesTheyCome) {
    Random random(7);
    for (const size_t count : {100, 300, 10000}) {
        std::string input;
        std::map<std::string, std::multiset<std::string>> times;  // by level, by code, and all under ""
        for (size_t i = 0; i < count; i++) {
            const std::string level = codGetLogLevelDesc(static_cast<CodLogLevel>(1 + random() % 8));
            const std::string code = random() % 2 == 0 ? "" : "-" + std::to_string(1 + random() % (1 + random() % count / 4));
            const std::string time = "20" + std::to_string(10 + random() % 90) + "-11-21 09:05:07." + std::to_string(100 + random() % 900);
            input += time + " " + std::to_string(random() / 2) + " [" + level + (code.empty() ? "] " : "][errno=" + code + "]: ") +
                     std::string(random() % 300, 'x') + (i + 1 == count ? "" : "\n");
            for (const std::string &label : std::set<std::string>{"", level, code}) {
                times[label].insert(time);
            }
        }
        for (const size_t piece : {1, 100, 1000000}) {
            LogProfile log;
            ASSERT_EQ(log.init(memory.pool()), COD_SUCCESS);
            for (size_t i = 0; i < input.size(); i += piece) {
                ASSERT_EQ(log.feed(&input[i], std::min(piece, input.size() - i)), COD_SUCCESS);
            }
            ASSERT_EQ(log.finish(), COD_SUCCESS);
            std::map<std::string, std::string> found = {{"", textOf(log.all())}}, expected;
            for (int level = COD_LOG_LEVEL_TRACE; level < LogProfile::kLevelEnd; level++) {
                found[codGetLogLevelDesc(static_cast<CodLogLevel>(level))] = textOf(log.level(level));
            }
            for (CodUint32 i = 0; i < log.codeCount(); i++) {
                found[std::to_string(log.code(i).code)] = textOf(log.code(i).lines);
            }
            for (const auto &[label, sorted] : times) {
                expected[label] = std::to_string(sorted.size()) + " " + *sorted.begin() + " " + *sorted.rbegin();
            }
            EXPECT_EQ(found, expected);
        }
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
std::string readInPieces(const std::string &input, size_t piece, char delimiter) {
    codCleanError();
    Recorder recorder;
    CsvReader reader("input", &recorder);
    CodResult result = reader.init(delimiter);
    for (size_t i = 0; result == COD_SUCCESS && i < input.size(); i += piece) {
        // A copy of its own, so that the address sanitizer sees a read beyond the piece.
        const std::string_view view = std::string_view(input).substr(i, piece);
        const std::vector<char> bytes(view.begin(), view.end());
        result = reader.feed(bytes.data(), bytes.size());
    }
    result = result == COD_SUCCESS ? reader.finish() : result;
    return recorder.seen + (result == COD_SUCCESS ? "" : codGetErrorMsg());
}

TEST(CsvReaderTest, SplitsFieldsAndRowsInWhateverPiecesTheyCome) {
    const std::string most(CsvReader::kFieldLimit, 'x');
    const std::string tooLong = "[a]failed to parse input, row 1: field 2 is longer than 1,048,576 bytes";
    struct Row {
        std::string input;
        char delimiter;
        std::string expected;
    };
    std::vector<Row> rows = {
        {" a , b\t\n\tc,  \n  \n", ',', "[ a ][ b\t]\n[\tc][  ]\n[  ]\n"},
        {"\"a,\"\"b\"\"\",\"x\ny\"\n\" q \",\"\"\n", ',', "[a,\"b\"][x\ny]\n[ q ][]\n"},
        {"\n\na\n\r\n\nb\r\nc\rd", ',', "[a]\n[b]\n[c]\n[d]\n"},
        {",\n,,\na,", ',', "[][]\n[][][]\n[a][]\n"},
        {"\xEF\xBB\xBF\"a\",b\n\xEF\xBB\xBF", ',', "[a][b]\n[\xEF\xBB\xBF]\n"},
        {"\xEF\xBB", ',', "[\xEF\xBB]\n"},
        {"\xEF\xBBx\n", ',', "[\xEF\xBBx]\n"},
        {" a\t\tb \t\"c\td\"\n", '\t', "[ a][][b ][c\td]\n"},
        {"a  b \"c d\"\n\t e\n", ' ', "[a][][b][c d]\n[\t][e]\n"},
        {"a," + most + ",b\n", ',', "[a][" + most + "][b]\n"},
        {"a,\"" + most + "\",b\n", ',', "[a][" + most + "][b]\n"},
        {"a," + most + "x,b\n", ',', tooLong},
        {"a,\"" + most + "x\",b\n", ',', tooLong},
    };
    Random random(11);
    const std::string alphabet(",\n\"\r ab\t;\0\xEF\xBB\xBF", 13);
    for (int round = 0; round < 2000; round++) {
        std::string input;
        // Quotes and zero bytes end most inputs: rare in three rounds of four.
        const size_t letters = round % 4 == 0 ? alphabet.size() : 2;
        for (size_t length = random() % 40; input.size() < length;) {
            input += alphabet[random() % (random() % 8 == 0 ? alphabet.size() : letters)];
        }
        rows.push_back({input, ',', readInPieces(input, input.size() + 1, ',')});
    }
    for (const Row &row : rows) {
        for (size_t piece : {1, 2, 3, 7, 4096, 100000}) {
            if (row.input.size() / piece < 1000) {
                EXPECT_EQ(readInPieces(row.input, piece, row.delimiter), row.expected) << testing::PrintToString(row.input) << piece;
            }
        }
    }
}

}  // namespace
}  // namespace vel
