#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

struct Outcome {
    int status;  // of exit, or 128 and the signal
    std::string out;
    std::string err;
};

// Runs the command from a shell, in a folder of its own. The input is standard input and also the file "in"; descriptor 9 is a pipe that
// nobody reads.
class Command : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/vel_command_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(dup2(ends[1], 9), 9);
        close(ends[0]);
    }
    void TearDown() override {
        close(9);
        std::filesystem::remove_all(folder);
    }

    std::string read(const char *file) const {
        std::ifstream stream(folder + "/" + file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    // What the arguments redirect goes before what is redirected here.
    Outcome run(const std::string &arguments, const std::string &input) const {
        std::ofstream(folder + "/in", std::ios::binary) << input;
        const int status = system(("cd " + folder + " && < in > out 2> err " VEL_COMMAND " " + arguments).c_str());
        return {WEXITSTATUS(status), read("out"), read("err")};
    }

    std::string folder;
};

const char kFullReport[] =
    "column 1 \"name\"\n"
    "  rows                          8\n"
    "  empty                         1\n"
    "  distinct                      6\n"
    "  shortest bytes                1  \"\\\"\"\n"
    "  longest bytes                 9  \"two\\nlines\"\n"
    "  valid utf8                  yes\n"
    "  longest chars                 9  \"two\\nlines\"\n"
    "  minimum                          \" x \"\n"
    "  maximum                          \"two\\nlines\"\n"
    "  most common                   2  \"bob\"\n"
    "  most common                   1  \" x \"\n"
    "  most common                   1  \"\\\"\"\n"
    "  most common                   1  \"2 \\\\ lines\"\n"
    "  most common                   1  \"ann\"\n"
    "\n"
    "8 rows, 1 column, standard input\n";

const char kLog[] =
    "2026-11-21 09:05:07.123 4711 [ERROR][errno=00301]: file operation failed\nand more\n"
    "2026-11-21 09:05:07.124 4711 [ERROR][errno=00301]: file operation failed\n2026-11-21 09:05:06.000 4712 [FATAL][errno=99999]: unknown";
const char kLogReport[] =
    "  first           2026-11-21 09:05:06.000\n"
    "  last            2026-11-21 09:05:07.124\n"
    "  ERROR                         2  2026-11-21 09:05:07.123  2026-11-21 09:05:07.124\n"
    "  FATAL                         1  2026-11-21 09:05:06.000  2026-11-21 09:05:06.000\n"
    "  other lines                   1\n"
    "  VEL-00301                     2  2026-11-21 09:05:07.123  2026-11-21 09:05:07.124  ERR_CMM_FILE_OPER\n"
    "  VEL-99999                     1  2026-11-21 09:05:06.000  2026-11-21 09:05:06.000  -\n\n4 lines, standard input\n";

const char kNoLog[] =
    "\n[INFO] x\n2026-02-29 09:05:07.123 1 [INFO] x\n 2026-11-21 09:05:07.123 1 [INFO] x\n2026-11-21 09:05:07.12 1 [INFO] x\n"
    "2026-11-21T09:05:07.123 1 [INFO] x\n2026-11-21 09:05:07.123 [INFO] x\n2026-11-21 09:05:07.123 1 [NOTE] x\n"
    "2026-11-21 09:05:07.123 1 [INFO]x\n2026-11-21 09:05:07.123 1 [INFO\n2026-11-21 09:05:07.123 1 [INFO][errno=]: x\n"
    "2026-11-21 09:05:07.123 1 [INFO][errno=9999999999]: x";

const char kPackable[] = "day\n100\n103\n104\n107\n110\n";
const std::string kPacked("VELP\1\2\3\0\5\0\0\0\0\0\0\0day\x0E\0\0\0\x64\0\0\0\5\0\0\0\2\2\0\0\xDC\3", 37);

const char kJson[] = "{\"bb\":1,\"a\":[true,7,1.5,10000000000],\"ab\":\"x\"}";
const char kJsonSummary[] = "object, 8 values, 76 bytes";
const char kJsonDump[] =
    "offset    bytes                          meaning\n"
    "00000000  01 47 00 00 00                 object, 76 bytes in all\n"
    "00000005  03 00                            3 members\n"
    "00000007  14 00 00 00                      key \"a\" at 00000019\n"
    "0000000B  40 00 00 00                      key \"ab\" at 00000045\n"
    "0000000F  0E 00 00 00                      key \"bb\" at 00000013\n"
    "00000013  02 00 62 62                      key \"bb\"\n"
    "00000017  07 01                              tinyint 1\n"
    "00000019  01 00 61                         key \"a\"\n"
    "0000001C  02 24 00 00 00                     array, 41 bytes in all\n"
    "00000021  04 00                                4 elements\n"
    "00000023  05 01 00 00 00                       [0] bool true\n"
    "00000028  07 07 00 00 00                       [1] tinyint 7\n"
    "0000002D  04 16 00 00 00                       [2] number at 00000037\n"
    "00000032  0A 1B 00 00 00                       [3] bigint at 0000003C\n"
    "00000037  04 03 02 01 0F                       number 1.5\n"
    "0000003C  0A 00 E4 0B 54 02 00 00 00           bigint 10000000000\n"
    "00000045  02 00 61 62                      key \"ab\"\n"
    "00000049  03 01 78                           string \"x\"\n";

const char kJsonReport[] =
    "{\n  \"columns\": [\n    {\n      \"column\": 1,\n      \"name\": \"v\",\n      \"rows\": 3,\n      \"empty\": 1,\n"
    "      \"distinct\": 2,\n      \"shortest_bytes\": 1,\n      \"shortest\": \"7\",\n      \"longest_bytes\": 2,\n"
    "      \"longest\": \"12\",\n      \"type\": \"NUMBER(2,0)\",\n      \"minimum\": 7,\n      \"maximum\": 12,\n"
    "      \"sum\": 19,\n      \"mean\": 9.5,\n      \"packed_bits\": 4,\n      \"packed_bits_text_ratio\": 5,\n"
    "      \"packed_from_min\": 3,\n      \"packed_from_min_text_ratio\": 6.7,\n      \"packed_as_steps\": null,\n"
    "      \"most_common\": [\n        {\n          \"value\": \"12\",\n          \"count\": 1\n        },\n        {\n"
    "          \"value\": \"7\",\n          \"count\": 1\n        }\n      ]\n    }\n  ],\n  \"rows\": 3,\n"
    "  \"file\": \"standard input\"\n}\n";

// More different values than a column holds, after one that is common early and before one that is common late.
std::string crowd() {
    std::string input = "v\n";
    for (int i = 0; i < 70500; i++) {
        input += (i >= 70000 ? "late" : i % 70 == 0 ? "early" : std::to_string(i)) + "\n";
    }
    return input;
}

std::string manyCodes() {
    std::string input;
    for (int code = 1; code <= 4098; code++) {
        input += "2026-11-21 09:05:07.123 1 [WARN][errno=" + std::to_string(code) + "]: x\n";
    }
    return input;
}

TEST_F(Command, GoodInputIsAnsweredOnStandardOutput) {
    const std::vector<std::string> outOfIndex = {
        "code       VEL-00212\nname       ERR_CMM_OUT_OF_INDEX\ntemplate   index %u is out of [%u, %u]\nSQL state  "};
    const struct {
        std::string arguments;
        std::string input;
        std::vector<std::string> expected;  // in this order
    } rows[] = {
        {"profile", "name\nbob\nbob\n x \n\"two\nlines\"\r\nann\n\n\"\"\n\"\"\"\"\n2 \\ lines", {kFullReport}},
        {"profile", "p\n12.50\n\"\"\n-0.5", {" NUMBER(3,1)\n  minimum                    -0.5\n", " 12.5\n  sum  ", "mean "}},
        {"profile", "v\n1e125\n1e-120", {" -  (246 digits needed, NUMBER has 38)\n", " -  (cannot be held exactly)\n  mean "}},
        {"profile", "v\n0.1\n" + std::string(38, '9'), {std::string(38, '9') + "  (rounded)\n"}},
        {"profile",
         "v\n12\n\"\"\n10\n25\n",
         {" 15.666667\n  packed bits                   5  (the text takes 4.8 times as much)\n"
          "  packed from min               4  (the text takes 6.0 times as much)\n  packed as steps               -\n  most common"}},
        {"profile", "v\n1\n1.5\n", {" 1.25\n  most common"}},
        {"profile",
         "d\n2026-11-21\n\n2024-02-29\n",
         {" DATE\n  earliest             2024-02-29\n  latest               2026-11-21\n  span                   996 days\n"}},
        {"profile", "d\n2026-11-21\n2026-11-21t00:00:07.5", {" TIMESTAMP\n", " 2026-11-21T00:00:07.500000\n", " +00 00:00:07.500000\n"}},
        {"profile", "d\n2026-11-21 09:05-01\n2026-11-21 09:05+08:00", {"  (with zone, shown in UTC)\n", "21T01:05:00\n", "21T10:05:00\n"}},
        {"profile", "d\n2026-11-21\n2026-11-21 10:00Z", {" TIMESTAMP  (with and without zone)\n"}},
        {"profile", "d\n2026-11-21\n2026-02-29\n2026-11-22\n", {"longest bytes                10  \"2026-11-21\"\n  valid"}},
        {"profile", "v\nx\n\"\"\n\xFFy\n\xFF\n", {" no\n  invalid row                   4\n  longest chars                 -\n", "FFy\""}},
        {"profile", "v\néé\nabc\n10\n9\n", {"longest chars                 3  \"abc\"\n", "  \"10\"\n", "  \"éé\"\n"}},
        {"profile", "v\n上海\n安\n北京\n", {"  minimum                          \"上海\"\n  maximum                          \"安\"\n"}},
        {"profile --collation utf8_pinyin_cs", "v\n上海\n安\nz\n北京\n", {"minimum                          \"z\"\n", " \"上海\"\n  most"}},
        {"profile --collation UTF8_GENERAL_CI", "v\nb\na\nB\n", {"  \"a\"\n  maximum", "  \"b\"\n  most"}},
        {"profile --json", "v\n12\n\"\"\n7\n", {kJsonReport}},
        {"profile --json", crowd(), {"\"distinct_is_estimate\": true", "500,\n          \"count_at_most\": 501\n", "\"rows\": 70500"}},
        {"profile --json",
         "v\n1e125\n1e-120",
         {"\"type\": null,\n      \"type_note\": \"246 digits", "\"sum\": null,\n      \"sum_note\": "}},
        {"profile --json", "d\n2026-11-21\n", {"\"type\": \"DATE\",\n      \"earliest\": \"2026-11-21\",", "\"span\": \"0 days\""}},
        {"profile --json", "\xE9\x01\n" + std::string(255, 'y') + "\xE2\x82\xAC", {"\xEF\xBF\xBD\\u0001\"", std::string(255, 'y') + "…\""}},
        {"profile --json",
         "v\nx\néé\n",
         {"_utf8\": true,\n", "chars\": 2,\n      \"longest_chars_value\": \"éé\",\n      \"minimum\": \"x\",\n"}},
        {"profile --json", "v\n\xFF\n", {"\"valid_utf8\": false,\n      \"invalid_row\": 2,\n      \"longest_chars\": null,\n"}},
        {"log", kLog, {kLogReport}},
        {"log in", kNoLog, {"  first                         -\n", "other lines                  12\n\n12 lines, in\n"}},
        {"log -", manyCodes(), {"other lines                   0\n  VEL-00001", "  VEL-04096   ", "  other codes                   2\n"}},
        {"profile", crowd(), {"distinct                ~6", " 1,000  \"early\"\n", " ~500  \"late\"  (at most 501)\n", "70,500 rows,"}},
        {"profile", "a\n" + std::string(2000, 'y') + "\n", {"longest bytes             2,000  \"" + std::string(72, 'y') + "…\"\n"}},
        {"profile in --delimiter ';'", "a;b\n1; x\n", {"  most common                   1  \" x\"\n", "\n1 row, 2 columns, in\n"}},
        {"profile - --delimiter=';'", "a;b\n", {"  longest bytes                 -\n\n", "\n0 rows, 2 columns, standard input\n"}},
        {"profile -d '\\t'", "a\tb\n", {"0 rows, 2 columns"}},
        {"profile -d tab", "a\tb\n", {"0 rows, 2 columns"}},
        {"profile -c b,1", "a,b\n1,2\n", {"column 2 \"b\"\n", "column 1 \"a\"\n", "1 row, 2 columns"}},
        {"profile -c 1", "a,1\n1,2\n", {"column 2 \"1\"\n", "1 row, 1 column,"}},
        {"profile -c ''", ",b\n1,2\n", {"column 1 \"\"\n", "1 row, 1 column,"}},
        {"profile --no-header -c 2", "1,x\n2,x\n", {"column 2 \"column 2\"\n", "   2  \"x\"\n", "2 rows, 1 column,"}},
        {"profile --no-header", std::string(4095, ','), {"1 row, 4,096 columns"}},
        {"profile", std::string(1024, 'n'), {"0 rows, 1 column,"}},
        {"profile", "\"a\n\r\t\x1b\x7f\\\"\"\"", {"column 1 \"a\\n\\r\\t\\x1B\\x7F\\\\\\\"\"\n"}},
        {"profile", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", {"\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"\n"}},
        {"profile", "\xE9t\xE9 \xE2\x82", {"\"\\xE9t\\xE9 \\xE2\\x82\"\n"}},
        {"profile", "\xC0\xAF\xE0\x80\xAF", {"\"\\xC0\\xAF\\xE0\\x80\\xAF\"\n"}},
        {"profile", "\xED\xA0\x80\xF4\x90\x80\x80", {"\"\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80\"\n"}},
        {"profile", "\xC2\x85\xE2\x80\xA8\xE2\x80\xAE", {"\"\\xC2\\x85\\xE2\\x80\\xA8\\xE2\\x80\\xAE\"\n"}},
        {"profile", std::string(70, 'n') + "\xC3\xA9", {std::string(70, 'n') + "\xC3\xA9\"\n"}},
        {"profile", std::string(71, 'n') + "\xC3\xA9", {std::string(71, 'n') + "…\"\n"}},
        {"profile", std::string(71, 'n') + "\\", {std::string(71, 'n') + "…\"\n"}},
        {"error 212", "", outOfIndex},
        {"error vel-00212", "", outOfIndex},
        {"error err_cmm_OUT_OF_INDEX", "", outOfIndex},
        {"error 4412", "", {"ERR_ANS_VALUE_ERROR"}},
        {"profile --help", "", {"Usage: vel profile"}},
        {"pack - --column day -o packed", kPackable, {"5 values, 37 bytes, 59.2 bits each, 1.54 of the text, packed\n"}},
        {"pack -d ';' -c 2 -o packed", "a;2\n5;6\n", {"1 value, 33 bytes, 264.0 bits each, 8.25 of the text, packed\n"}},
        {"unpack packed", "", {"2\n6\n"}},
        {"pack in --no-header -c 'column 2' -o packed", "x,6\nx,7\n", {"2 values, 41 bytes"}},
        {"unpack - < packed", "", {"column 2\n6\n7\n"}},
        {"pack -c 'a,\"b' -o packed", "\"a,\"\"b\"\n", {"0 values, 20 bytes, 0.0 bits each"}},
        {"unpack packed", "", {"\"a,\"\"b\"\n"}},
        {"pack -c 1 -o packed", "\xEF\xBB\xBF\xEF\xBB\xBFn\n", {"0 values"}},
        {"unpack packed", "", {"\"\xEF\xBB\xBFn\"\n"}},
        {"convert --from utf-8 --to gbk", "a\xE4\xB8\xAD\xE2\x82\xAC", {"a\xD6\xD0\x80"}},
        {"convert in --from cp936 --to UTF16 -o packed", "a\xD6\xD0", {}},
        {"convert packed --from utf16le --to gb18030", "", {"a\xD6\xD0"}},
        {"convert --from latin1 --to utf8", "", {}},
        {"codepage verify", "", {"gbk ", "gb18030 ", "pinyin.sort ", ", 0 disagree\n"}},
        {"json encode in -o packed", kJson, {kJsonSummary + std::string(", 1.65 of the text, packed\n")}},
        {"json check packed", "", {kJsonSummary + std::string(", packed\n")}},
        {"json decode packed", "", {kJson + std::string("\n")}},
        {"json decode --indent -o text packed", "", {}},
        {"json get --json text '$.a'", "", {"[true,7,1.5,10000000000]\n"}},
        {"json get packed '$.a[0]'", "", {"true\n"}},
        {"json get packed '$.a[last]'", "", {"10000000000\n"}},
        {"json get packed '$.ab'", "", {"\"x\"\n"}},
        {"json dump --json", kJson, {kJsonDump}},
        {"json dump --json",
         "\"" + std::string(300, 'y') + "\"",
         {"03 AC 02 79 79 79 79 79 79 ..  string \"" + std::string(40, 'y') + "…\", 300 bytes\n"}},
        {"json encode -o packed", "[1E0]", {"array, 2 values, 21 bytes, 4.20 of the text, packed\n"}},
        {"json decode --typed-doubles --indent packed", "", {"[\n  1E0\n]\n"}},
    };
    for (const auto &row : rows) {
        const Outcome outcome = run(row.arguments, row.input);
        EXPECT_EQ(outcome.status, 0) << row.arguments;
        EXPECT_EQ(outcome.err, "") << row.arguments;
        size_t place = 0;
        for (const std::string &text : row.expected) {
            place = outcome.out.find(text, place);
            ASSERT_NE(place, std::string::npos) << row.arguments << ": " << text << "\nin\n" << outcome.out;
        }
    }
}

TEST_F(Command, FailuresAreOneLineOnStandardErrorAndNoOutput) {
    const std::string good = "a,b,c,d\n1,2,3,4\n";
    const std::string parse = "VEL-00207 failed to parse standard input, row ";
    const std::string invalid = "VEL-00003 invalid parameter, reason: ";
    const std::string lost = "VEL-00301 file operation \"write to standard output\" failed, errno ";
    const struct {
        std::string arguments;
        std::string input;
        int status;
        std::string error;
    } rows[] = {
        {"profile", "", 1, parse + "1: the input is empty"},
        {"profile --no-header", "\n\n", 1, parse + "1: the input is empty"},
        {"profile", good + "1,2,3\n", 1, parse + "3: expected 4 fields, found 3"},
        {"profile", good + "1,2,3,4,5,6\n", 1, parse + "3: expected 4 fields, found 6"},
        {"profile", "a\n1\n1,2", 1, parse + "3: expected 1 field, found 2"},
        {"profile", good + "1,\"2,3,4\n1,2,3,4\n", 1, parse + "3: field 2 has no closing quote"},
        {"profile", good + "1,2\",3,4\n", 1, parse + "3: field 2 has a quote in the wrong place"},
        {"profile", good + std::string("1,2,\0,4\n", 8), 1, parse + "3: field 3 holds a zero byte"},
        {"profile", good + std::string("1\"\n\0", 4), 1, parse + "3: field 1 has a quote in the wrong place"},
        {"profile", good + "1," + std::string(100'000'000, 'x'), 1, parse + "3: field 2 is longer than 1,048,576 bytes"},
        {"profile", "\"a\n\",\"a\n\"\n", 1, parse + "1: column \"a\\\\n\" is named twice"},
        {"profile --no-header", std::string(4096, ','), 1, parse + "1: more than 4096 columns"},
        {"profile", "a," + std::string(1025, 'n'), 1, parse + "1: the name of column 2 is longer than 1024 bytes"},
        {"profile -c 'a,e\n'", good, 1, invalid + "there is no column \"e\\\\n\" in standard input"},
        {"profile -c 5", good, 1, invalid + "there is no column \"5\" in standard input"},
        {"profile -c 0", good, 1, invalid + "there is no column \"0\" in standard input"},
        {"profile -c a,1", good, 1, invalid + "--columns names a column twice: \"1\" in standard input"},
        {"profile --collation ''", good, 1, "VEL-00232 invalid collation name \"\""},
        {"profile --collation 'UTF8_BINARY\n'", good, 1, "VEL-00232 invalid collation name \"UTF8_BINARY\\\\n\""},
        {"profile --collation GBK_BINARY_CS", good, 1, "VEL-00232 invalid collation name \"GBK_BINARY_CS\""},
        {"profile missing.csv", "", 1, "VEL-00313 failed to open file missing.csv, errno 2, [^\n]*"},
        {"profile 'bad\nname\x1b'", "", 1, "VEL-00313 failed to open file bad\\\\nname\\\\x1B, errno 2, [^\n]*"},
        {"profile .", "", 1, "VEL-00313 failed to open file ., errno 21, [^\n]*"},
        // Opens, and fails at the first byte.
        {"profile /proc/self/mem", "", 1, "VEL-00207 failed to parse /proc/self/mem, row 1: errno 5, [^\n]*; VEL-00328 read file failed"},
        {"log /proc/self/mem", "", 1, "VEL-00207 failed to parse /proc/self/mem, row 1: errno 5, [^\n]*; VEL-00328 read file failed"},
        {"profile --log missing", good, 1, "VEL-00319 failed to open directory missing, errno 2, [^\n]*"},
        {"profile --log in", good, 1, "VEL-00319 failed to open directory in, errno 20, [^\n]*"},
        {"pack -c v -o packed", "v\n1\n-1\n", 1, parse + "3: \"-1\" is no whole number from 0 to 4294967295 in plain digits"},
        {"pack -c v -o packed", "v\n4294967296", 1, parse + "2: \"4294967296\" is no whole number from 0 to 4294967295 in plain digits"},
        {"pack -c v -o packed", "v\n007", 1, parse + "2: \"007\" is no whole number from 0 to 4294967295 in plain digits"},
        {"pack -c w -o packed", "v,w\n1,2\n3,\n", 1, parse + "3: the field is empty"},
        {"pack -c w -o packed", "v,w\n1\n", 1, parse + "2: expected 2 fields, found 1"},
        {"pack -c v -o packed", "v,v\n1,2\n", 1, parse + "1: column \"v\" is named twice"},
        {"pack -c 1 -o packed", std::string(1025, 'n'), 1, parse + "1: the name of column 1 is longer than 1024 bytes"},
        {"pack -c v -o packed", "", 1, parse + "1: the input is empty"},
        {"pack -c 0 -o packed", good, 1, invalid + "there is no column \"0\" in standard input"},
        {"pack -c a -o missing/packed", good, 1, "VEL-00311 failed to create file missing/packed, errno 2, [^\n]*"},
        {"pack -c a -o /dev/null", good, 1, "VEL-00331 file /dev/null is invalid, reason: there is [^\n]*"},
        {"pack -c a -o -", good, 2, "vel: [^\n]+"},
        {"pack -c a", good, 2, "vel: [^\n]+"},
        {"pack -o packed", good, 2, "vel: [^\n]+"},
        {"unpack missing", "", 1, "VEL-00313 failed to open file missing, errno 2, [^\n]*"},
        {"unpack in", "VELP", 1, "VEL-00331 file in is invalid, reason: it is no packed column"},
        {"unpack", good + good, 1, "VEL-00331 file standard input is invalid, reason: it is no packed column"},
        {"unpack", "VELP\2" + kPacked.substr(5), 1, "VEL-00331 file [^\n]* its version is 2, not 1"},
        {"unpack", "VELP\1\4" + kPacked.substr(6), 1, "VEL-00331 file [^\n]* its head is damaged"},
        {"unpack > /dev/full", kPacked, 1, lost + "28, [^\n]*"},
        {"convert in --from utf8 --to gbk -o packed", "ab\xFF", 1,
         "VEL-00218 in: string conversion failed, the bytes at offset 2 [^\n]* of UTF8, or [^\n]* GBK lacks"},
        {"convert --from utf8 --to ascii -o packed", std::string(200000, 'x') + "\xC3\xA9", 1,
         "VEL-00218 standard input: [^\n]* offset 200000 [^\n]*"},
        {"convert --from utf8 --to utf16 -o packed", "ab\xC3", 1, "VEL-00218 standard input: [^\n]* offset 2 [^\n]*"},
        {"convert --from big5 --to utf8", "a", 1, "VEL-00216 invalid charset name \"big5\""},
        {"convert --from utf8 --to binary", "a", 1, "VEL-00216 invalid charset name \"binary\""},
        {"convert missing --from utf8 --to utf16", "", 1, "VEL-00313 failed to open file missing, [^\n]*"},
        {"convert --from utf8", "a", 2, "vel: [^\n]+"},
        {"convert --from utf8 --to utf16 > /dev/full", "abc", 1, lost + "28, [^\n]*"},
        {"codepage verify --dir missing", "", 1, "VEL-00313 failed to open file missing/iso88591, [^\n]*"},
        {"json check", "", 1, "VEL-00702 standard input: index out of bounds in velon: the len is 0 but the index is 0"},
        {"json check in",
         "\x0A"
         "123456789",
         1, "VEL-00714 in: velon data length 9 mismatch the actual data length 10"},
        {"json check /dev/zero", "", 1, "VEL-00331 file /dev/zero is invalid, reason: it is larger than 33,554,432 bytes"},
        {"json check /proc/self/mem", "", 1, "VEL-00207 failed to parse /proc/self/mem, row 1: errno 5, [^\n]*"},
        {"json encode -o packed", "[1,\n 2x]", 1, "VEL-00712 standard input: JSON syntax error at line 2 column 3: [^\n]+"},
        {"json encode -o packed", "[1,\n \"\xFF\"]", 1, "VEL-00718 standard input: invalid velon string data at line 2 column 3"},
        {"json encode -o missing/packed", "1", 1, "VEL-00311 failed to create file missing/packed, errno 2, [^\n]*"},
        {"json decode -o packed", std::string("\x0C\0\0\0\0\0\0\xF8\x7F", 9), 1, "VEL-00008 standard input: type convert error[^\n]*"},
        {"json decode -o -", "\6", 2, "vel: [^\n]+"},
        {"json get in '$[0]'", "\6", 1, "VEL-00722 in: path expression \"\\$\\[0\\]\" has no result"},
        {"json get --json in '$.\"a\nb\"'", "{}", 1, "VEL-00722 in: path expression \"\\$.\"a\\\\nb\"\" has no result"},
        {"json get in 'a'", "\6", 1, "VEL-00721 in: path expression syntax error at column 1: [^\n]+"},
        {"json dump", "\3\1\xFF", 1, "VEL-00718 standard input: invalid velon string data"},
        {"json dump --json > /dev/full", "[[1,2],[3,4]]", 1, lost + "28, [^\n]*"},
        {"json", "", 2, "vel: [^\n]+"},
        {"error 4294967508", "", 1, invalid + "there is no error \"4294967508\""},
        {"error VEL-ERR_CMM_OUT_OF_INDEX", "", 1, invalid + "there is no error \"VEL-ERR_CMM_OUT_OF_INDEX\""},
        {"error 212x", "", 1, invalid + "there is no error \"212x\""},
        // Enough for a report that is written in several pieces.
        {"profile --no-header > /dev/full", std::string(100, ','), 1, lost + "28, [^\n]*"},
        {"profile --no-header >&9", std::string(100, ','), 1, lost + "32, [^\n]*"},
        {"error 1 >&9", "", 1, lost + "32, [^\n]*"},
        {"--help > /dev/full", "", 1, lost + "28, [^\n]*"},
        {"", "", 2, "vel: [^\n]+"},
        {"error", "", 2, "vel: [^\n]+"},
        {"profile 'a\nb' 'c\nd'", "", 2, "vel: [^\n]+"},
        {"profile --log ''", "", 2, "vel: [^\n]+"},
        {"profile -d ''", "", 2, "vel: [^\n]+"},
        {"profile -d '\"'", "", 2, "vel: [^\n]+"},
        {"profile -d '\n'", "", 2, "vel: [^\n]+"},
        {"profile -c a -c b", good, 2, "vel: [^\n]+"},
    };
    for (const auto &row : rows) {
        const Outcome outcome = run(row.arguments, row.input);
        EXPECT_EQ(outcome.status, row.status) << row.arguments;
        EXPECT_EQ(outcome.out, "") << row.arguments;
        EXPECT_THAT(outcome.err, testing::MatchesRegex(row.error + "\n")) << row.arguments;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 3) << row.arguments << " leaves a file behind";
    }
}

TEST_F(Command, PacksAColumnAndUnpacksTheSameText) {
    EXPECT_EQ(run("pack -c day -o packed", kPackable).err, "");
    EXPECT_EQ(read("packed"), kPacked);
    std::mt19937 random(5);
    for (const uint32_t count : {0u, 1u, 65535u, 65536u, 65537u, 200000u}) {
        for (const uint32_t range : {0u, 1u, 1000u, UINT32_MAX}) {
            for (const bool isRising : {false, true}) {
                std::string text = "v\n";
                uint32_t value = 0;
                for (uint32_t i = 0; i < count; i++) {
                    const auto part = static_cast<uint32_t>(random()) & range;
                    value = isRising ? value + part / (count + 1) : part;
                    text += std::to_string(value) + "\n";
                }
                EXPECT_EQ(run("pack in -c v -o packed", text).err, "");
                const Outcome back = run("unpack packed", "");
                EXPECT_TRUE(back.status == 0 && back.out == text) << count << " values to " << range << back.err;
            }
        }
    }
}

// A chunk is written as a whole or not at all, and a file that ends too early never succeeds.
TEST_F(Command, DamagedPackedFilesFailInOneLine) {
    std::vector<std::string> files = {kPacked + "\n"};
    for (size_t size = 0; size < kPacked.size(); size++) {
        files.push_back(kPacked.substr(0, size));
    }
    const std::pair<size_t, int> changes[] = {{5, 3},  {8, 4},  {8, 6},  {15, -1}, {17, 0}, {19, 11}, {19, 15}, {22, -1},
                                              {27, 0}, {30, 1}, {31, 1}, {31, 33}, {32, 1}, {32, 3},  {33, 1}};
    for (const auto &[offset, byte] : changes) {
        files.push_back(kPacked);
        files.back()[offset] = static_cast<char>(byte);
    }
    for (const std::string &file : files) {
        const Outcome outcome = run("unpack", file);
        EXPECT_THAT(outcome.err, testing::MatchesRegex("VEL-00331 file standard input is invalid, reason: [^\n]+\n"));
        EXPECT_TRUE(outcome.status == 1 && std::string(kPackable).starts_with(outcome.out)) << testing::PrintToString(file);
    }
}

TEST_F(Command, KeepsALogOfItsOwnWork) {
    for (const char *arguments : {"profile --log .", "profile 'no\nfile' --log ./", "error 12 --log . >&9", "error 12 --log . >&- <&-"}) {
        run(arguments, "a\n1\n2\n");
    }
    const std::string info = "[-0-9]+ [.:0-9]+ [0-9]+ \\[INFO\\] ", error = "[-0-9]+ [.:0-9]+ [0-9]+ \\[ERROR\\]\\[errno=";
    const std::string lost = info + "start: vel error 12 --log .\n" + error + "00301\\]: file operation [^\n]*\n";
    EXPECT_THAT(read("run.log"), testing::MatchesRegex(info + "start: vel profile --log .\n" + info + "end: 2 rows, [0-9]+ ms\n" + info +
                                                       "start: vel profile no\\\\nfile --log ./\n" + error +
                                                       "00313\\]: failed to open file no\\\\nfile, errno 2, [^\n]*\n" + lost + lost));
    EXPECT_THAT(run("log run.log", "").out, testing::HasSubstr("  other lines                   0\n  VEL-00301                     2  "));
    std::filesystem::remove(folder + "/run.log");
    std::filesystem::create_directory(folder + "/run.log");
    const Outcome unusable = run("error 12 --log .", "");
    EXPECT_EQ(unusable.err, "VEL-00310 path . is invalid, reason: no run log can be opened in it\n");
    EXPECT_EQ(unusable.out.find("ERR_CMM"), std::string::npos);
}

}  // namespace
