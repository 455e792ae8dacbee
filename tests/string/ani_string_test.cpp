#include <vel_infra/string/ani_string.h>

#include <clocale>
#include <thread>

#include "support/collection_support.h"

namespace {

using collection_support::expectError;
using collection_support::Random;
using namespace std::string_literals;

CodText textOf(const std::string &bytes) {
    return {const_cast<char *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0};
}

const CodUint16 kCharsets[] = {ASCII, GBK, UTF8, ISO88591, UTF16, GB18030};

// A text of characters that every charset has, and the same by all of them.
std::string inCharset(const std::string &ascii, CodUint16 charset) {
    std::string text;
    for (const char c : ascii) {
        text += c;
        text += charset == UTF16 ? "\0"s : "";
    }
    return text;
}

TEST(String, copyNeedsRoomForTheBytesAlone) {
    const std::string source = "0123456789";
    const CodText src = textOf(source);
    std::string room(10, '?');
    CodText dst = {room.data(), 99, 7};
    EXPECT_TRUE(codTextCopy(&src, &dst, 10) == COD_SUCCESS && room == source && dst.len == 10 && dst.aux == 7);
    room.assign(10, '?');
    expectError(213, "source string's length(10) must less than the buffer size(9)", [&] { return codTextCopy(&src, &dst, 9); });
    EXPECT_EQ(room, std::string(10, '?'));
    const CodText none = {nullptr, 0, 0};
    EXPECT_TRUE(codTextCopy(&none, &dst, 0) == COD_SUCCESS && dst.len == 0);
}

TEST(String, conversionOfNothingAndWithinACharset) {
    const CodText none = {nullptr, 0, 0};
    const std::string ten = "0123456789";
    const CodText text = textOf(ten);
    for (const CodUint16 to : kCharsets) {
        const CodUint32 zeros = to == UTF16 ? 2 : 1;
        for (CodUint32 room = 0; room < 4; room++) {
            char buf[4] = {1, 1, 1, 1};
            CodUint32 len = 9;
            EXPECT_TRUE(codTextConvert(&none, to, buf, room, &len, GBK) == COD_SUCCESS && len == 0);
            EXPECT_EQ(std::count(buf, buf + 4, 0), std::min(room, zeros));
        }
        CodUint32 len = 77;
        std::vector<char> buf(10 + zeros, 1);
        EXPECT_TRUE(codTextConvert(&text, to, buf.data(), 10 + zeros, &len, to) == COD_SUCCESS && len == 10);
        EXPECT_EQ(std::string(buf.data(), 10 + zeros), ten + std::string(zeros, '\0'));
        len = 77;
        expectError(213, "", [&] { return codTextConvert(&text, to, buf.data(), 9 + zeros, &len, to); });
        EXPECT_EQ(len, 77U);
        expectError(213, "", [&] { return codTextConvert(&text, to, nullptr, 0, &len, to); });
    }
}

TEST(String, conversionBetweenCharsetsInExactlyTheRoomNeeded) {
    const std::string mixed = "vel \xe4\xb8\xad\xe6\x96\x87 \xc3\xa9";  // UTF-8
    for (const CodUint16 from : kCharsets) {
        for (const CodUint16 to : kCharsets) {
            if (from == to) {
                continue;
            }
            const bool isAscii = from == ASCII || from == ISO88591 || to == ASCII || to == ISO88591;
            std::string source = inCharset("plain text 123", from);
            if (!isAscii) {
                std::vector<char> buf(64);
                CodUint32 len = 0;
                const CodText utf8 = textOf(mixed);
                ASSERT_EQ(codTextConvert(&utf8, from, buf.data(), 64, &len, UTF8), COD_SUCCESS);
                source.assign(buf.data(), len);
            }
            const CodText text = textOf(source);
            std::vector<char> wide(128, 1);
            CodUint32 len = 0;
            ASSERT_EQ(codTextConvert(&text, to, wide.data(), 128, &len, from), COD_SUCCESS);
            const CodUint32 zeros = to == UTF16 ? 2 : 1;
            const std::string result(wide.data(), len + zeros);
            for (CodUint32 room = 0; room < len + zeros; room++) {
                std::vector<char> tight(room);
                CodUint32 untouched = 77;
                expectError(213, "", [&] { return codTextConvert(&text, to, tight.data(), room, &untouched, from); });
                EXPECT_EQ(untouched, 77U);
            }
            std::vector<char> exact(len + zeros);
            ASSERT_EQ(codTextConvert(&text, to, exact.data(), len + zeros, nullptr, from), COD_SUCCESS);
            EXPECT_EQ(std::string(exact.data(), exact.size()), result);
            const std::string whole = result.substr(0, len);
            const CodText back = textOf(whole);
            ASSERT_EQ(codTextConvert(&back, from, wide.data(), 128, &len, to), COD_SUCCESS);
            EXPECT_EQ(std::string(wide.data(), len), source);
        }
    }
}

TEST(String, whatCannotBeConvertedIsRefused) {
    const struct {
        std::string bytes;
        CodUint16 from;
    } rows[] = {{"\xff", UTF8},       {"a\xc3", UTF8},           {"\xed\xa0\x80", UTF8}, {"\x81", GBK}, {"\x80\x20", ASCII}, {"a", UTF16},
                {"\x00\xd8"s, UTF16}, {"\x81\x30\x81", GB18030}, {"text", BINARY_CS},    {"text", 77},  {"text", 256}};
    for (const auto &row : rows) {
        const CodText text = textOf(row.bytes);
        for (const CodUint16 to : kCharsets) {
            char buf[64];
            if (to != row.from) {
                expectError(218, "string conversion failed", [&] { return codTextConvert(&text, to, buf, 64, nullptr, row.from); });
            }
        }
    }
    char buf[8];
    const std::string bytes = "text";
    const CodText text = textOf(bytes);
    void *handle = nullptr;
    expectError(218, "", [&] { return codOpenIconvHandle(BINARY_CS, UTF8, &handle); });
    // The system has no converter of this name: its failure is a handle, which conversions refuse.
    ASSERT_EQ(codOpenIconvHandle(UTF8, BINARY_CS, &handle), COD_SUCCESS);
    expectError(218, "", [&] { return codTextConvertWithIconv(handle, &text, BINARY_CS, buf, 8, nullptr, UTF8); });
    codCloseIconvHandle(handle);
    expectError(ERR_CMM_POINTER_NULL, "", [&] { return codTextConvertWithIconv(nullptr, &text, GBK, buf, 8, nullptr, UTF8); });
}

TEST(String, aKeptHandleForgetsWhatATextLeftInIt) {
    void *handle = nullptr;
    ASSERT_EQ(codOpenIconvHandle(UTF8, GBK, &handle), COD_SUCCESS);
    const std::string cut = "\xe4\xb8", whole = "\xe4\xb8\xad";
    const CodText cutText = textOf(cut), wholeText = textOf(whole);
    for (int i = 0; i < 3; i++) {
        char buf[8];
        CodUint32 len = 0;
        expectError(218, "", [&] { return codTextConvertWithIconv(handle, &cutText, GBK, buf, 8, &len, UTF8); });
        ASSERT_EQ(codTextConvertWithIconv(handle, &wholeText, GBK, buf, 8, &len, UTF8), COD_SUCCESS);
        EXPECT_EQ(std::string(buf, len + 1), "\xd6\xd0\0"s);
    }
    codCloseIconvHandle(handle);
}

// Converters that the thread keeps follow the locale, and one text does not change the next one's result.
TEST(String, keptConvertersGiveWhatFreshOnesGive) {
    const std::string texts[] = {"\xc3\xa9\xe2\x82\xac", "\xe4\xb8\xad", "\xc2\xa9 \xe2\x80\x9cq\xe2\x80\x9d", "\xe4\xb8", "plain"};
    for (const char *locale : {"C", "C.UTF-8", "en_US.UTF-8", "C"}) {
        if (setlocale(LC_ALL, locale) == nullptr) {
            continue;
        }
        for (const std::string &utf8 : texts) {
            for (const CodUint16 to : {ASCII, ISO88591, GBK, UTF16}) {
                const CodText text = textOf(utf8);
                char kept[64] = {}, fresh[64] = {};
                CodUint32 keptLen = 0, freshLen = 0;
                void *handle = nullptr;
                ASSERT_EQ(codOpenIconvHandle(UTF8, to, &handle), COD_SUCCESS);
                const CodResult result = codTextConvertWithIconv(handle, &text, to, fresh, 64, &freshLen, UTF8);
                codCloseIconvHandle(handle);
                EXPECT_EQ(codTextConvert(&text, to, kept, 64, &keptLen, UTF8), result) << locale << " " << utf8 << " to " << to;
                EXPECT_TRUE(keptLen == freshLen && (result != COD_SUCCESS || memcmp(kept, fresh, freshLen) == 0)) << locale << " " << utf8;
            }
        }
    }
    codCleanError();
    for (int i = 0; i < 20; i++) {
        std::thread([] {
            char buf[8];
            const std::string bytes = "\xd6\xd0";
            const CodText text = textOf(bytes);
            EXPECT_EQ(codTextConvert(&text, UTF8, buf, 8, nullptr, GBK), COD_SUCCESS);
        }).join();
    }
}

// A text in pieces through a small buffer gives what it gives at once.
TEST(String, piecesGiveTheWhole) {
    Random random(4);
    const std::string characters[] = {"a", "\xc3\xa9", "\xe4\xb8\xad", "\xf0\x9f\x98\x80", " "};
    for (int i = 0; i < 300; i++) {
        std::string utf8;
        for (CodUint32 n = random.below(40); n > 0; n--) {
            utf8 += characters[random.below(5)];
        }
        const CodUint16 to = random.oneIn(2) ? UTF16 : GB18030;
        const CodText text = textOf(utf8);
        std::vector<char> whole(400);
        CodUint32 len = 0;
        ASSERT_EQ(codTextConvert(&text, to, whole.data(), 400, &len, UTF8), COD_SUCCESS);
        std::string pieces;
        for (CodUint32 at = 0; at < text.len;) {
            // The piece ends anywhere, the buffer too; both hold a character at least.
            const CodUint32 size = std::min<CodUint32>(text.len - at, 4 + random.below(12));
            const CodUint32 room = 4 + random.below(12);
            std::vector<char> buf(room);
            const CodText piece = {text.str + at, size, 0};
            CodUint32 read = 0, written = 0;
            ASSERT_EQ(codTextStreamConvertWithTrunc(&piece, to, buf.data(), room, UTF8, &read, &written), COD_SUCCESS);
            ASSERT_TRUE(read > 0 && read <= size && written <= room);
            pieces.append(buf.data(), written);
            at += read;
        }
        EXPECT_EQ(pieces, std::string(whole.data(), len));
    }
}

TEST(String, aPieceThatDoesNotEndWellIsTold) {
    const std::string text = "ab\xe4\xb8\xad";
    char buf[16];
    CodUint32 read = 9, written = 9;
    const CodText whole = textOf(text), cut = {whole.str, 4, 0}, empty = {nullptr, 0, 0};
    expectError(213, "source string's length(5) must less than the buffer size(5)",
                [&] { return codTextStreamConvert(&whole, UTF16, buf, 5, UTF8, &read, &written); });
    EXPECT_TRUE(read == 2 && written == 4);
    expectError(218, "", [&] { return codTextStreamConvert(&cut, UTF16, buf, 16, UTF8, &read, &written); });
    EXPECT_TRUE(read == 2 && written == 4);
    EXPECT_TRUE(codTextStreamConvert(&whole, UTF16, buf, 6, UTF8, &read, &written) == COD_SUCCESS && read == 5 && written == 6);
    EXPECT_TRUE(codTextStreamConvert(&empty, UTF16, nullptr, 0, UTF8, &read, &written) == COD_SUCCESS && read == 0 && written == 0);
    const std::string bad = "ab\xff";
    const CodText badText = textOf(bad);
    expectError(218, "", [&] { return codTextStreamConvertWithTrunc(&badText, UTF16, buf, 16, UTF8, &read, &written); });
    EXPECT_TRUE(read == 2 && written == 4);
}

}  // namespace
