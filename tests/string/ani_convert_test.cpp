#include <vel_infra/string/ani_convert.h>

#include <iconv.h>

#include <vel_infra/codepage/ani_codepage.h>

#include "support/collection_support.h"

namespace {

using collection_support::expectError;
using collection_support::Random;
using namespace std::string_literals;

const CodUint16 kCharsets[] = {ASCII, GBK, UTF8, ISO88591, UTF16, GB18030};

class Convert : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(aniCodepageInitFrom(CODEPAGE_FOLDER), COD_SUCCESS) << codGetErrorMsg2();
    }
};

struct Result {
    CodResult result;
    std::string bytes;
    CodUint32 badOffset;
};
// Into exactly the room that is given, which the address sanitizer watches.
Result convert(const std::string &bytes, CodUint16 from, CodUint16 to, CodConvertMode mode, CodUint32 room = 4096) {
    std::vector<char> buf(room, '?');
    CodUint32 len = 0, badOffset = 77;
    const std::vector<char> exact(bytes.begin(), bytes.end());
    const CodText text = {const_cast<char *>(exact.data()), static_cast<CodUint32>(exact.size()), 0};
    codCleanError();
    const CodResult result = codTextConvertStrict(&text, to, buf.data(), room, &len, from, mode, &badOffset);
    return {result, std::string(buf.data(), len), badOffset};
}

// The system's converter without transliteration: the result and where it stops.
struct System {
    System(CodUint16 from, CodUint16 to) : handle(iconv_open(codGetCharsetSrcName(to), codGetCharsetSrcName(from))) {}
    System(const System &) = delete;
    System &operator=(const System &) = delete;
    ~System() {
        iconv_close(handle);
    }
    Result convert(const std::string &bytes) {
        char *in = const_cast<char *>(bytes.data()), buf[4096], *out = buf;
        size_t inLeft = bytes.size(), outLeft = sizeof(buf);
        iconv(handle, nullptr, nullptr, nullptr, nullptr);
        const bool isDone = iconv(handle, &in, &inLeft, &out, &outLeft) != size_t(-1);
        return {isDone ? COD_SUCCESS : COD_ERROR, std::string(buf, out), static_cast<CodUint32>(bytes.size() - inLeft)};
    }
    iconv_t handle;
};

// A code point's bytes, empty where the charset lacks it.
std::string encode(CodUint32 codePoint, CodUint16 charset) {
    static System fromUtf32[] = {{UTF16, ASCII}, {UTF16, GBK}, {UTF16, UTF8}, {UTF16, ISO88591}, {UTF16, UTF16}, {UTF16, GB18030}};
    std::u16string units;
    if (codePoint < 0x10000) {
        units = static_cast<char16_t>(codePoint);
    } else {
        units = {static_cast<char16_t>(0xD7C0 + (codePoint >> 10)), static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF))};
    }
    const Result result = fromUtf32[charset].convert(std::string(reinterpret_cast<const char *>(units.data()), 2 * units.size()));
    return result.result == COD_SUCCESS ? result.bytes : "";
}

TEST_F(Convert, everyCodePointAsTheSystemDoes) {
    for (CodUint32 codePoint = 1; codePoint < 0x110000; codePoint += codePoint >= 0x30000 ? 251 : 1) {
        std::string encoded[6];
        for (const CodUint16 charset : kCharsets) {
            encoded[charset] = encode(codePoint, charset);
        }
        for (const CodUint16 to : kCharsets) {
            if (!encoded[UTF16].empty()) {
                const Result result = convert(encoded[UTF16], UTF16, to, COD_CONVERT_REFUSE, 8);
                ASSERT_EQ(result.result == COD_SUCCESS ? result.bytes : "", encoded[to]) << std::hex << codePoint << " to " << to;
            }
            if (!encoded[to].empty()) {
                ASSERT_EQ(convert(encoded[to], to, UTF16, COD_CONVERT_REFUSE, 8).bytes, encoded[UTF16])
                    << std::hex << codePoint << " " << to;
            }
        }
    }
}

// Bytes drawn from what makes and breaks sequences in all charsets.
std::string randomBytes(Random &random, CodUint32 size) {
    static const CodUint8 kSome[] = {0,    'a',  'Z',  '0',  '9',  0x2F, 0x3A, 0x7F, 0x80, 0x81, 0xA1, 0xBF, 0xC1, 0xC2, 0xC3, 0xD7, 0xD8,
                                     0xDB, 0xDC, 0xDF, 0xE0, 0xE4, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFE, 0xFF, 0x90, 0x9F, 0xB8, 0xAD, 0x30};
    std::string bytes;
    while (bytes.size() < size) {
        if (random.oneIn(4)) {
            bytes.append(random.below(40), 'x');
        }
        bytes += static_cast<char>(random.oneIn(3) ? random.below(256) : kSome[random.below(std::size(kSome))]);
    }
    bytes.resize(size);
    return bytes;
}

// What is well up to the first bad character is converted as the system does, and both stop at the same place.
TEST_F(Convert, randomBytesAsTheSystemDoes) {
    Random random(7);
    for (const CodUint16 from : kCharsets) {
        for (const CodUint16 to : kCharsets) {
            System system(from, to);
            for (int i = 0; i < 1500; i++) {
                const std::string bytes = randomBytes(random, random.below(60));
                const Result ours = convert(bytes, from, to, COD_CONVERT_REFUSE);
                const Result theirs = system.convert(bytes);
                ASSERT_EQ(ours.result, theirs.result) << testing::PrintToString(bytes) << from << to;
                ASSERT_EQ(ours.badOffset, theirs.badOffset) << testing::PrintToString(bytes) << from << to;
                ASSERT_TRUE(ours.result != COD_SUCCESS || ours.bytes == theirs.bytes) << testing::PrintToString(bytes) << from << to;
            }
        }
    }
}

TEST_F(Convert, badCharactersAreReplacedOrLeftOut) {
    const struct {
        std::string bytes;
        CodUint16 from, to;
        std::string replaced, skipped;
        CodUint32 badOffset;
    } rows[] = {
        {"", UTF8, GBK, "", "", 0},
        {"abc", UTF8, GBK, "abc", "abc", 3},
        {"a\xff"
         "b",
         UTF8, GBK, "a?b", "ab", 1},
        {"a\xff"
         "b",
         UTF8, UTF8,
         "a\xef\xbf\xbd"
         "b",
         "ab", 1},
        {"\xe4\xb8", UTF8, UTF16, "\xfd\xff", "", 0},  // two bytes that belong together
        {"\xe4\xb8"
         "a\xe4",
         UTF8, UTF16,
         "\xfd\xff"
         "a\0\xfd\xff"s,
         "a\0"s, 0},
        {"\xed\xa0\x80", UTF8, ASCII, "???", "", 0},     // a surrogate: three bytes that each go wrong
        {"\xf0\x9f\x98\x80!", UTF8, GBK, "?!", "!", 0},  // a character that the target lacks
        {"\xc3\xa9\xe4\xb8\xad", UTF8, ISO88591, "\xe9?", "\xe9", 2},
        {"\x3d\xd8"
         "a\0"s,
         UTF16, UTF8,
         "\xef\xbf\xbd"
         "a",
         "a", 0},                                         // half a pair
        {"a\0b"s, UTF16, UTF8, "a\xef\xbf\xbd", "a", 2},  // half a unit
        {"\xd6\xd0\xd6", GBK, UTF8, "\xe4\xb8\xad\xef\xbf\xbd", "\xe4\xb8\xad", 2},
        {"\x81\x30\x81", GB18030, GB18030, "\x84\x31\xa4\x37", "", 0},
        {"\x81\x30"
         "a\x81",
         GB18030, UTF8,
         "\xef\xbf\xbd"
         "0a\xef\xbf\xbd",
         "0a", 0},
        {"\x84\x31\xa5\x30\xb0\xa1", GB18030, UTF8, "\xef\xbf\xbd\xe5\x95\x8a", "\xe5\x95\x8a", 0},  // four bytes that stand for nothing
        {"\xaa\xa1\xb0\xa1\x81 ", GBK, UTF8, "\xef\xbf\xbd\xe5\x95\x8a\xef\xbf\xbd ", "\xe5\x95\x8a ", 0},
        {"\x80", ASCII, GB18030, "\x84\x31\xa4\x37", "", 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes));
        const Result replaced = convert(row.bytes, row.from, row.to, COD_CONVERT_REPLACE),
                     skipped = convert(row.bytes, row.from, row.to, COD_CONVERT_SKIP);
        EXPECT_TRUE(replaced.result == COD_SUCCESS && replaced.bytes == row.replaced && replaced.badOffset == row.badOffset)
            << testing::PrintToString(replaced.bytes);
        EXPECT_TRUE(skipped.result == COD_SUCCESS && skipped.bytes == row.skipped && skipped.badOffset == row.badOffset)
            << testing::PrintToString(skipped.bytes);
        const Result refused = convert(row.bytes, row.from, row.to, COD_CONVERT_REFUSE);
        EXPECT_EQ(refused.badOffset, row.badOffset);
        EXPECT_EQ(refused.result == COD_SUCCESS, row.badOffset == row.bytes.size());
        EXPECT_EQ(codGetErrorCode(), refused.result == COD_SUCCESS ? 0U : 218U);
    }
}

TEST_F(Convert, roomIsForTheResultAndItsTerminator) {
    const std::string text = "plain ASCII that is longer than a block, and \xe4\xb8\xad\xe6\x96\x87\xf0\x9f\x98\x80 behind it";
    for (const CodUint16 to : {UTF8, UTF16, GB18030}) {
        const CodUint16 target = static_cast<CodUint16>(to);
        const std::string whole = convert(text, UTF8, target, COD_CONVERT_REFUSE).bytes;
        const auto needed = static_cast<CodUint32>(whole.size()) + (to == UTF16 ? 2 : 1);
        EXPECT_EQ(convert(text, UTF8, target, COD_CONVERT_REFUSE, needed).bytes, whole);
        for (CodUint32 room = 0; room < needed; room++) {
            EXPECT_EQ(convert(text, UTF8, target, COD_CONVERT_REFUSE, room).result, COD_ERROR);
            EXPECT_EQ(codGetErrorCode(), 213U);
        }
    }
    EXPECT_EQ(convert("a", UTF8, BINARY_CS, COD_CONVERT_SKIP).result, COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), ERR_CMM_INVALID_PARAMETER);
    EXPECT_EQ(convert("a", UTF8, GBK, static_cast<CodConvertMode>(3)).result, COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), ERR_CMM_INVALID_PARAMETER);
    aniCodepageClose();
    EXPECT_EQ(convert("a", UTF8, GBK, COD_CONVERT_SKIP).result, COD_ERROR);
    EXPECT_EQ(codGetErrorCode(), 224U);
    EXPECT_EQ(convert("a\xc3\xa9", UTF8, ISO88591, COD_CONVERT_SKIP).bytes, "a\xe9");
    ASSERT_EQ(aniCodepageInitFrom(CODEPAGE_FOLDER), COD_SUCCESS);
}

}  // namespace
