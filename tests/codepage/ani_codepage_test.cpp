#include <vel_infra/codepage/ani_codepage.h>

#include <iconv.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "codepage/ani_codepage_internal.h"
#include "support/collection_support.h"

namespace {

using namespace collection_support;
namespace fs = std::filesystem;
using Lookup = CodUint32 (*)(CodUint32, CodUint32, CodBool *);

const fs::path kFolder = VEL_TEST_HOME "/admin/codepage";
constexpr const char *kNames[] = {"iso88591", "gbk", "ucs", "pinyin.sort", "gb18030"};
constexpr CodUint32 kIds[] = {0, 1, 2, 3, 4, 5, 256, ~0u};
constexpr CodUint32 kUnicodeEnd = 0x110000;
constexpr std::int64_t kNone = -1;
constexpr Lookup fromUni = aniCodepageGetElementFromUni, toUni = aniCodepageGetElementToUni, sortWeight = aniCodepageGetElementSort,
                 toLower = aniCodepageGetElementToLower, toUpper = aniCodepageGetElementToUpper;

std::int64_t find(Lookup lookup, CodUint32 id, std::int64_t key) {
    CodBool isNull = false;
    const CodUint32 element = lookup(id, static_cast<CodUint32>(key), &isNull);
    return isNull ? kNone : std::int64_t{element};
}

struct Codepages : testing::Test {
    Codepages() {
        EXPECT_EQ(aniCodepageInitFrom(kFolder.c_str()), COD_SUCCESS) << codGetErrorMsg2();
    }
    ~Codepages() override {
        aniCodepageClose();
    }
};

// One character by iconv.
std::int64_t encoded(iconv_t handle, CodUint32 character, CodUint32 size) {
    const CodUint32 swapped = __builtin_bswap32(character << 8 * (4 - size));
    CodUint32 result = 0;
    auto *in = const_cast<char *>(reinterpret_cast<const char *>(&swapped));
    auto *out = reinterpret_cast<char *>(&result);
    size_t inLeft = size, outLeft = sizeof(result);
    iconv(handle, nullptr, nullptr, nullptr, nullptr);
    const bool isThere = iconv(handle, &in, &inLeft, &out, &outLeft) == 0 && inLeft == 0 && outLeft < 4;
    return isThere ? std::int64_t{__builtin_bswap32(result) >> 8 * outLeft} : kNone;
}

TEST_F(Codepages, convertEveryCodeAsIconvDoes) {
    constexpr std::tuple<CodUint32, const char *, CodUint32, CodUint32> rows[] = {
        {0, "ISO-8859-1", 0x10000, 256}, {1, "GBK", 0x10000, 21920}, {2, "UTF-32BE", ~0u, 1112064}, {4, "GB18030", ~0u, 1112046}};
    for (const auto &[id, name, end, count] : rows) {
        iconv_t toUnicode = iconv_open("UTF-32BE", name), fromUnicode = iconv_open(name, "UTF-32BE");
        CodUint32 faults = 0, codes = 0;
        for (CodUint32 at = 0; at < std::min(end, 0x10000u + 126 * 12600); at++) {
            const CodUint32 size = id == CODEPAGE_UCS || at >= 0x10000 ? 4 : at >= 0x100 ? 2 : 1;
            const CodUint32 code = id == CODEPAGE_UCS || at < 0x10000 ? at : cod::gb18030CodeAt(at - 0x10000);
            const std::int64_t expected = encoded(toUnicode, code, size);
            codes += expected == kNone ? 0 : 1;
            faults += find(toUni, id, code) == expected ? 0 : 1;
        }
        for (CodUint32 codePoint = 0; codePoint < kUnicodeEnd + 64; codePoint++) {
            const std::int64_t code = find(fromUni, id, codePoint);
            faults += code != encoded(fromUnicode, codePoint, 4) || (code != kNone && find(toUni, id, code) != codePoint) ? 1 : 0;
        }
        EXPECT_TRUE(faults == 0 && codes == count) << name << " " << faults << " " << codes;
        EXPECT_EQ(iconv_close(toUnicode) | iconv_close(fromUnicode), 0);
    }
    for (const CodUint32 code : {0x8130812Fu, 0x8130813Au, 0x8431A530u, 0xE3329A36u, 0xFF308130u, ~0u}) {
        EXPECT_EQ(find(toUni, CODEPAGE_GB18030, code), kNone) << std::hex << code;
    }
}

TEST_F(Codepages, foldCaseAsUnicodeDoesWhereTheyHaveTheResult) {
    std::map<CodUint32, std::array<CodUint32, 2>> cases;  // lower and upper
    std::ifstream file(VEL_TEST_UNICODE_DATA);
    for (std::string line, field; std::getline(file, line);) {
        std::istringstream fields(line);
        CodUint32 values[15] = {};
        for (CodUint32 i = 0; i < 15 && std::getline(fields, field, ';'); i++) {
            values[i] = i == 0 || i > 11 ? CodUint32(std::strtoul(field.c_str(), nullptr, 16)) : 0;
        }
        cases[values[0]] = {values[13] == 0 ? values[0] : values[13], values[12] == 0 ? values[0] : values[12]};
    }
    CodUint32 faults = 0, folded = 0;
    for (CodUint32 codePoint = 0; codePoint < kUnicodeEnd; codePoint++) {
        const auto [lower, upper] = cases.contains(codePoint) ? cases.at(codePoint) : std::array{codePoint, codePoint};
        for (const CodUint32 id : {0u, 1u, 2u, 4u}) {
            const std::int64_t code = find(fromUni, id, codePoint);
            const auto codeOr = [&](CodUint32 other) { return find(fromUni, id, other) == kNone ? code : find(fromUni, id, other); };
            const bool isSame = codeOr(lower) == code && codeOr(upper) == code;
            folded += isSame ? 0 : 1;
            const bool isFolded = find(toLower, id, code) == codeOr(lower) && find(toUpper, id, code) == codeOr(upper);
            const bool isNeither = find(toLower, id, code) == kNone && find(toUpper, id, code) == kNone;
            faults += code == kNone || (isSame ? isNeither : isFolded) ? 0 : 1;
        }
    }
    EXPECT_TRUE(faults == 0 && folded > 5000) << faults << " " << folded;
    EXPECT_TRUE(toLower(CODEPAGE_UCS, 0x4E00, nullptr) == 0x4E00 && toLower(CODEPAGE_GBK, 0xA3C1, nullptr) == 0xA3E1);
    EXPECT_EQ(gb18030GetCpElementFromUni(0x10FFFF, nullptr), 0xE3329A35);
    EXPECT_TRUE(gb18030CpGetElementUpper(0xA7E1, nullptr) == 0xA7B1 && gb18030CpGetElementLower(0x9030E734, nullptr) == 0x9030EB34);
}

TEST_F(Codepages, weighHanInTheOrderOfPinyin) {
    CodUint32 last = 0;
    for (const std::u32string word : {U"阿", U"八", U"产", U"重庆", U"出", U"沈阳", U"十", U"是", U"西", U"藏文", U"中", U"重要", U"作"}) {
        const CodUint32 weight = cod::pinyinWeightBefore(word[0], word[1]);
        EXPECT_GT(weight, std::exchange(last, weight)) << std::hex << CodUint32(word[0]);
    }
    EXPECT_EQ(find(sortWeight, CODEPAGE_PINYIN_SORT, 0x2FD1), find(sortWeight, CODEPAGE_PINYIN_SORT, 0x9F4A) + 1);  // a radical
    for (const auto &[codePoint, columns] : {std::pair(U'a', 1u), {U'é', 1u}, {U'中', 2u}, {U'ａ', 2u}, {U'ｱ', 1u}, {U'😀', 2u}}) {
        EXPECT_EQ(cod::displayColumns(codePoint), columns) << std::hex << CodUint32(codePoint);
    }
}

TEST_F(Codepages, haveNoElementsOfTheOtherTypeOrBeforeLoading) {
    for (const bool isLoaded : {true, false}) {
        for (const CodUint32 id : kIds) {
            EXPECT_EQ(isCodepageInit(id), isLoaded && id < __CODEPAGE_COUNT__);
            for (const CodUint32 key : {0u, 0x41u, 0x4E00u, 0xB0A1u, 0x10400u, 0x90308130u, ~0u}) {
                for (const Lookup lookup : {fromUni, toUni, sortWeight, toLower, toUpper}) {
                    const bool isOfType = (id == CODEPAGE_PINYIN_SORT) == (lookup == sortWeight);
                    EXPECT_TRUE((isCodepageInit(id) && isOfType) || find(lookup, id, key) == kNone) << id << " " << key;
                }
            }
        }
        EXPECT_EQ(find(toUni, CODEPAGE_GBK, 0), isLoaded ? 0 : kNone);
        aniCodepageClose();
    }
    for (CodUint16 charset = 0; charset < 300; charset++) {
        const CodUint32 page = charset < 6 ? std::array{0u, 1u, 2u, 0u, 2u, 4u}[charset] : 0;
        EXPECT_TRUE(aniGetCodepageIdByCharset(charset) == page && (charset > 255 || gCharsetCodepageMap[charset] == page)) << charset;
    }
}

// A home with copies of the files, which a test spoils.
struct CodepageFiles : Codepages {
    CodepageFiles() {
        aniCodepageClose();
        fs::create_directories(folder);
        fs::copy(kFolder, folder, fs::copy_options::recursive);
        setenv("VELDB_HOME", home.c_str(), 1);
    }
    ~CodepageFiles() override {
        unsetenv("VELDB_HOME");
        fs::remove_all(home);
    }
    static auto loaded() {
        return std::count_if(std::begin(kIds), std::end(kIds), isCodepageInit);
    }
    const fs::path home = fs::path(testing::TempDir()) / ("codepage." + std::to_string(getpid())), folder = home / "admin/codepage";
};

TEST_F(CodepageFiles, areReadOnceAndInOrder) {
    unsetenv("VELDB_HOME");
    expectError(ERR_CMM_ENV_ERROR, "", aniCodepageInit);
    setenv("VELDB_HOME", home.c_str(), 1);
    fs::remove(folder / "ucs");
    expectError(ERR_CMM_OPEN_FILE, "", aniCodepageInit);
    EXPECT_TRUE(loaded() == 2 && fs::copy_file(kFolder / "ucs", folder / "ucs"));
    EXPECT_TRUE(aniCodepageInit() == COD_SUCCESS && loaded() == 5);
    fs::remove_all(folder);
    EXPECT_TRUE(aniCodepageInit() == COD_SUCCESS && find(toUni, CODEPAGE_GBK, 0xB0A1) == 0x554A);
    aniCodepageClose();
    expectError(ERR_CMM_OPEN_FILE, "", aniCodepageInit);
    expectError(ERR_CMM_OPEN_FILE, "", [] { return aniCodepageInitFrom(std::string(5000, 'x').c_str()); });
    expectError(ERR_CMM_POINTER_NULL, "", [] { return aniCodepageInitFrom(nullptr); });
    fs::create_directories(folder / "iso88591");
    expectError(ERR_CMM_INVALID_CODEPAGE, "Codepage is Invalid", aniCodepageInit);
}

TEST_F(CodepageFiles, areRefusedWhenTheyAreNoPages) {
    for (CodUint32 id = 0; id < __CODEPAGE_COUNT__; id++) {
        std::ifstream file(kFolder / kNames[id], std::ios::binary);
        const std::string good{std::istreambuf_iterator<char>(file), {}};
        std::vector<std::string> wrong = {"", good.substr(0, 127), good + "x", good.substr(0, good.size() - 1)};
        const auto change = [&](std::size_t at, int byte) { (wrong.emplace_back(good))[at] = static_cast<char>(byte); };
        for (CodUint32 at = 68, end = 128; at < 92; at += 4) {
            const CodUint32 size = *reinterpret_cast<const CodUint32 *>(&good[at]);
            end == good.size() ? void() : wrong.push_back(good.substr(0, end));
            change(at, good[at] + 1);
            change(at + 3, 0xFF);
            at % 8 != 4 || size == 0 ? void() : change(end + 1, 0xFF);  // an entry of the index behind the map
            at != 80 || size == 0 ? void() : change(end + 1, 0xD8);     // a code that leads to a surrogate
            end += size;
        }
        for (const auto &[at, byte] : {std::pair(0, 2), {0, 1 - good[0]}, {2, 1}, {64, 7}, {65, 1}, {66, 3}, {67, 1}, {67, 6 - good[67]}}) {
            change(std::size_t(at), byte);
        }
        for (const std::string &bytes : wrong) {
            std::ofstream(folder / kNames[id], std::ios::binary) << bytes;
            expectError(ERR_CMM_INVALID_CODEPAGE, "", aniCodepageInit);
            EXPECT_EQ(loaded(), id) << &bytes - wrong.data();
        }
        // The version is looked at behind loading, and at each call.
        for (const char version : {'\1', '\2'}) {
            std::ofstream(folder / kNames[id], std::ios::binary) << std::string(good).replace(1, 1, 1, version);
            expectError(ERR_CMM_INVALID_CODEPAGE, "", aniCodepageInit);
            EXPECT_EQ(loaded(), id + 1);
        }
        aniCodepageClose();
    }
}

TEST_F(CodepageFiles, failCleanlyWithoutMemory) {
    CodInt32 failures = 0;
    for (codFailAllocAfter(0); aniCodepageInit() != COD_SUCCESS && failures < 100; codFailAllocAfter(++failures)) {
        EXPECT_EQ(codGetErrorCode(), ERR_CMM_ALLOC_MEMORY);
        aniCodepageClose();
        codCleanError();
    }
    codFailAllocAfter(-1);
    EXPECT_TRUE(failures == 6 + 6 + 4 + 4 + 6 && loaded() == 5) << failures;
}

}  // namespace
