#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_util.h>

#include "support/collection_support.h"
#include "velon/velon_walk.h"

namespace {

using namespace velon_model;
using namespace std::string_literals;
using collection_support::expectError;

const CodText kX = {const_cast<char *>("x"), 1, 0};

TEST(Velon, bytesThatAreNoTypes) {
    for (char type : "\x00\x11\x7f\xff"s) {
        Bytes in[] = {"\3\1s", encode(objectOf({"x"}, {{VELON_TYPE_STRING, "s"}})), encode(arrayOf({{}, {VELON_TYPE_STRING, "s"}}))};
        VelonData data[3];
        for (int i = 0; i < 3; i++) {
            data[i] = velonDataNew(reinterpret_cast<CodUint8 *>(in[i].data()), static_cast<CodUint32>(in[i].size()), 0);
        }
        const Velon root = velonNew(nullptr, &data[0]);
        const Bytes message = "invalid velon type value: " + std::to_string(static_cast<CodUint8>(type));
        VelonObject object;
        VelonArray array;
        VelonValue got;
        CodBool found;
        ASSERT_EQ(velonDataReadObject(&data[1], 1, &object) + velonDataReadArray(&data[2], 1, &array), COD_SUCCESS);
        in[0][0] = in[1][14] = in[2][12] = type;
        for (int wanted = 1; wanted < _VELON_TYPE_COUNT_; wanted++) {
            for (const Getter &get : {rootGetter(&root), memberGetter(&object, &kX, &found), elementGetter(&array, 1)}) {
                wanted == VELON_TYPE_NULL ? void() : expectError(701, message, [&] { return get(static_cast<VelonType>(wanted), &got); });
            }
        }
        expectError(701, message, [&] { return velonGetType(&root, &got.type); });
        expectError(701, message, [&] { return velonGetValue(&root, &got); });
        expectError(701, message, [&] { return velonObjectGetType(&object, &kX, &found, &got.type); });
        expectError(701, message, [&] { return velonObjectGetValue(&object, &kX, &found, &got); });
        expectError(701, message, [&] { return velonArrayGetType(&array, 1, &got.type); });
        in[2][12] = VELON_TYPE_STRING;  // the value's own type byte is another one
        in[2][17] = type;
        expectError(701, message, [&] { return velonArrayGetValue(&array, 1, &got); });
        in[2][17] = VELON_TYPE_BINARY;
        expectError(703, "velon type mismatched, expect string, but actual binary", [&] { return velonArrayGetValue(&array, 1, &got); });
    }
}

TEST(Velon, boundsOfContainers) {
    for (const auto &[type, width] : {std::pair(VELON_TYPE_OBJECT, 4), {VELON_TYPE_ARRAY, 5}}) {
        const Bytes head(1, static_cast<char>(type));
        // Bytes, then length and index of the message.
        const std::tuple<Bytes, int, int> rows[] = {{head, 1, 7},
                                                    {head + Bytes(5, '\0'), 6, 7},
                                                    {head + little(0x8000, 4) + little(0x1234, 2), 7, 7 + 0x1234 * width},
                                                    {head + little(3, 4) + little(0, 2), 7, 8},
                                                    {head + little(0x7ffffff0, 4) + little(0, 2), 7, 0x7ffffff5}};
        for (const auto &[bytes, len, index] : rows) {
            const std::vector<CodUint8> exact(bytes.begin(), bytes.end());
            const VelonData data = velonDataNew(exact.data(), static_cast<CodUint32>(exact.size()), 0);
            const Velon velon = velonNew(nullptr, &data);
            const Bytes message =
                "index out of bounds in velon: the len is " + std::to_string(len) + " but the index is " + std::to_string(index);
            VelonValue got;
            for (const Getter &get : {rootGetter(&velon), uncheckedGetter(&velon)}) {
                expectError(702, message, [&, t = type] { return get(t, &got); });
            }
        }
    }
}

TEST(Velon, handlesAndNames) {
    for (int type = -1; type < 18; type++) {
        const bool is = type >= 1 && type <= 16;
        const CodText *text = velonTypeNameText(static_cast<VelonType>(type));
        EXPECT_EQ(velonTypeIsValid(static_cast<CodUint32>(type)), is);
        EXPECT_STREQ(velonTypeName(static_cast<VelonType>(type)), is ? kNames[type] : nullptr);
        EXPECT_TRUE(is ? bytesOf(*text) == kNames[type] : text == nullptr) << type;
    }
    collection_support::WatchedMemory memory;
    void *block;
    ASSERT_EQ(memory.alloc(&memory, 2, &block), COD_SUCCESS);
    std::memcpy(block, "\7\x80", 2);
    const VelonData data = velonDataNew(static_cast<CodUint8 *>(block), 2, 9);
    Velon velon = velonNew(&memory, &data);
    CodInt8 tiny;
    CodInt64 big = 77;
    EXPECT_TRUE(velonGetDataPtr(&velon) == block && velonGetDataLength(&velon) == 2 && velon.data.aux == 9);
    EXPECT_TRUE(velonGetTinyintUnchecked(&velon, &tiny) == COD_SUCCESS && tiny == -128);
    expectError(702, "", [&] { return velonGetBigintUnchecked(&velon, &big); });
    velonFree(&velon);
    EXPECT_TRUE(big == 77 && memory.live.empty() && velon.owner == nullptr && velon.data.ptr == nullptr && velon.data.len == 0);
    velonFree(&velon);
    velon.data.len = 1;
    velonInit(&velon);
    EXPECT_TRUE(velon.owner == nullptr && velon.data.ptr == nullptr && velon.data.len == 0);
    // A lookup among no members reads nothing.
    const VelonObject none = {};
    CodBool found = true;
    CodUint32 size;
    const std::function<CodResult()> withNull[] = {
        [&] { return velonGetInteger(nullptr, nullptr); },
        [&] { return velonCheckData(nullptr); },
        [&] { return velonObjectGetTinyint(&none, nullptr, &found, &tiny); },
        [&] { return velonObjectGetTinyint(&none, &kX, nullptr, &tiny); },
        [&] { return velonArrayGetTinyint(nullptr, 0, &tiny); },
        [&] { return velonLazyGetTinyint(nullptr, &tiny); },
        [&] { return velonDataReadValue(&data, 0, nullptr); },
        [&] { return velonDataReadString(&data, 0, nullptr, &size); },
        [&] { return velonVarintDecode(nullptr, 1, &size, &size); },
        [&] { return velonCheckValidUTF8(nullptr, 1); },
    };
    for (const auto &call : withNull) {
        expectError(ERR_CMM_POINTER_NULL, "null pointer", call);
    }
    EXPECT_TRUE(velonObjectContainsKey(&none, &kX, &found) == COD_SUCCESS && !found && tiny == -128);
}

// ---- Pieces of the format ----

TEST(VelonUtil, varints) {
    for (CodUint32 value : {0u, 1u, 127u, 128u, 16383u, 16384u, 2097151u, 2097152u, 0x0fffffffu, 0x10000000u, 0xffffffffu}) {
        CodUint8 out[VELON_VARINT_SIZE];
        CodUint32 written = 0, got = 77, consumed = 77;
        EXPECT_EQ(velonVarintEncode(value, out, &written), COD_SUCCESS);
        EXPECT_EQ(Bytes(out, out + written), varint(value));
        for (CodUint32 available = 0; available <= written; available++) {
            const std::vector<CodUint8> cut(out, out + available);
            auto decode = [&] { return velonVarintDecode(cut.data(), available, &got, &consumed); };
            const bool isTooLarge = available >= 4 && value > 0x0fffffff;
            if (isTooLarge || available < written) {
                expectError(isTooLarge ? 707 : 702, isTooLarge ? "invalid varint in velon" : "", decode);
            } else {
                EXPECT_EQ(decode(), COD_SUCCESS);
            }
        }
        EXPECT_TRUE(value > 0x0fffffff ? got == 77 && consumed == 77 : got == value && consumed == written) << value;
    }
}

TEST(VelonUtil, orderOfKeysAndUtf8) {
    Trees trees;
    for (int i = 0; i < 200000; i++) {
        const Bytes a = trees.text(trees.below(3)), b = trees.text(trees.below(3));
        const CodText left = {const_cast<char *>(a.data()), static_cast<CodUint32>(a.size()), 0};
        const CodText right = {const_cast<char *>(b.data()), static_cast<CodUint32>(b.size()), 1};
        ASSERT_EQ(velonCompareKey(&left, &right), keyLess(a, b) ? -1 : a == b ? 0 : 1);
        // Valid text with a byte changed, or cut.
        Bytes text = trees.text(1 + trees.below(40));
        text[trees.below(text.size())] = i % 4 == 0 ? 'c' : static_cast<char>(trees.below(256));
        text.resize(text.size() - trees.below(2));
        const std::vector<CodUint8> exact(text.begin(), text.end());
        ASSERT_EQ(velonCheckValidUTF8(exact.data(), static_cast<CodUint32>(exact.size())) == COD_SUCCESS, isUtf8(text))
            << testing::PrintToString(text);
    }
    codCleanError();
    EXPECT_EQ(velonCheckValidUTF8(nullptr, 0), COD_SUCCESS);
}

}  // namespace
