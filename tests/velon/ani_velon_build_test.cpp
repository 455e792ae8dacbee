#include <deque>

#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_build_array.h>
#include <vel_infra/velon/ani_velon_build_object.h>
#include <vel_infra/velon/ani_velon_build_scalar.h>

#include "support/collection_support.h"
#include "velon/velon_walk.h"

namespace {

using namespace velon_model;
using namespace std::string_literals;
using collection_support::expectError;
using collection_support::WatchedMemory;

constexpr auto textOf = [](const Bytes &bytes) {
    return CodText{const_cast<char *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0};
};
constexpr auto bytesIn = [](const Velon &velon) { return Bytes(velon.data.ptr, velon.data.ptr + velon.data.len); };
const CodText kKey = {const_cast<char *>("k"), 1, 0};
const char *const kFull = "velon exceeds max size(33554432)";

// A scalar as builders take it; the strings stay where they are.
VelonValue asValue(const Value &v) {
    VelonValue out = {v.type, {}};
    const CodText text = textOf(v.data);
    std::memcpy(static_cast<void *>(&out.u), isCounted(v.type) ? raw(text).data() : v.data.data(), isCounted(v.type) ? 16 : v.data.size());
    return out;
}

// Either of the builders.
#define VELON_PUSH(prefix, Name, NAME, member, ref, ...) \
    case VELON_TYPE_##NAME:                              \
        return prefix##Name(__VA_ARGS__, ref v.u.member);
struct Builder {
    CodResult create(CodMemAlloc *owner, std::size_t count, bool sorted, CodUint32 size) {
        const auto n = static_cast<CodUint16>(count);
        return isObject ? velonObjectBuilderCreate(owner, n, sorted, size, &o) : velonArrayBuilderCreate(owner, n, size, &a);
    }
    CodResult createIn(VelonBuf *buf, std::size_t count, bool sorted, CodUint32 size, VelonDepth *depth) {
        const auto n = static_cast<CodUint16>(count);
        return isObject ? velonObjectBuilderNew(buf, n, sorted, size, depth, &o) : velonArrayBuilderNew(buf, n, size, depth, &a);
    }
    CodResult open(const CodText *key, std::size_t count, bool sorted, Builder *to) {
        const auto n = static_cast<CodUint16>(count);
        return isObject && to->isObject ? velonObjectBuilderPushObject(&o, key, n, sorted, &to->o)
               : isObject               ? velonObjectBuilderPushArray(&o, key, n, &to->a)
               : to->isObject           ? velonArrayBuilderPushObject(&a, n, sorted, &to->o)
                                        : velonArrayBuilderPushArray(&a, n, &to->a);
    }
    CodResult push(const CodText *key, const VelonValue &v) {
        switch (v.type + (isObject ? 0 : 100)) {
            VELON_CONTAINERS(VELON_PUSH, velonObjectBuilderPushFull, &o, key)
            VELON_SCALARS(VELON_PUSH, velonObjectBuilderPush, &o, key)
            case VELON_TYPE_NULL:
                return velonObjectBuilderPushNull(&o, key);
            case VELON_TYPE_NULL + 100:
                return velonArrayBuilderPushNull(&a);
        }
        switch (v.type) {
            VELON_CONTAINERS(VELON_PUSH, velonArrayBuilderPushFull, &a)
            VELON_SCALARS(VELON_PUSH, velonArrayBuilderPush, &a)
            default:
                return COD_ERROR;
        }
    }
    CodResult pushLazy(const CodText *key, const VelonLazyValue *lazy) {
        return isObject ? velonObjectBuilderPushLazyValue(&o, key, lazy) : velonArrayBuilderPushLazyValue(&a, lazy);
    }
    CodResult finish(Velon *velon) {
        return isObject ? velonObjectBuilderFinish(&o, velon) : velonArrayBuilderFinish(&a, velon);
    }
    void release() {
        isObject ? velonObjectBuilderFree(&o) : velonArrayBuilderFree(&a);
    }

    bool isObject;
    VelonObjectBuilder o = {};
    VelonArrayBuilder a = {};
};

#define VELON_BUILD(prefix, Name, NAME, member, ref, ...) \
    case VELON_TYPE_##NAME:                               \
        return prefix##Name(__VA_ARGS__, ref v.u.member, velon);
CodResult buildScalar(CodMemAlloc *owner, const VelonValue &v, Velon *velon) {
    switch (v.type) {
        VELON_SCALARS(VELON_BUILD, velonBuildScalar, owner)
        default:
            return velonBuildScalarNull(owner, velon);
    }
}

// Builds trees, each value by a way drawn at random. When failing, each call meets every failure of memory before it succeeds.
struct Build {
    template <typename Call>
    void run(Call call) {
        for (CodInt32 n = 0; !testing::Test::HasFatalFailure(); n++) {
            codFailAllocAfter(isFailing ? n : -1);
            const CodResult result = call();
            codFailAllocAfter(-1);
            if (result == COD_SUCCESS) {
                return;
            }
            ASSERT_TRUE(isFailing && codGetErrorCode() == ERR_CMM_ALLOC_MEMORY && codGetErrorStackDepth() == 1) << codGetErrorMsg2();
            codCleanError();
        }
    }
    // The value alone, as a member, as an element, each with other bytes behind it.
    VelonLazyValue elsewhere(const Value &v) {
        const CodUint32 way = trees.below(3);
        sources.push_back(way == 0   ? encode(v) + "?"
                          : way == 1 ? encode(objectOf({"long", "k"}, {arrayOf({v}), v}))
                                     : encode(arrayOf({arrayOf({v}), v, {VELON_TYPE_STRING, "s"}})));
        const Bytes &bytes = sources.back();
        const VelonData data = velonDataNew(reinterpret_cast<const CodUint8 *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0);
        VelonLazyValue lazy = {};
        VelonValue whole;
        CodBool found;
        EXPECT_EQ(velonDataReadLazyValue(&data, 0, &lazy) + velonDataReadValue(&data, 0, &whole), COD_SUCCESS);
        EXPECT_EQ(way == 0   ? COD_SUCCESS
                  : way == 1 ? velonObjectGetLazyValue(&whole.u.object, &kKey, &found, &lazy)
                             : velonArrayGetLazyValue(&whole.u.array, 1, &lazy),
                  COD_SUCCESS);
        return lazy;
    }
    bool sorted(const Value &v) {
        return std::is_sorted(v.keys.begin(), v.keys.end(), keyLess) && trees.below(2) == 0;
    }
    void fill(Builder &b, const Value &v) {
        for (std::size_t i = 0; i < v.values.size() && !testing::Test::HasFatalFailure(); i++) {
            const Value &child = v.values[i];
            const CodText key = b.isObject ? textOf(v.keys[i]) : CodText();
            const VelonLazyValue lazy = elsewhere(child);
            VelonValue value = asValue(child);
            isContainer(child.type) ? void(lazyGetter(&lazy)(child.type, &value)) : void();
            const CodUint32 way = trees.below(4);
            way == 0                               ? run([&] { return b.pushLazy(&key, &lazy); })
            : way == 1 || !isContainer(child.type) ? run([&] { return b.push(&key, value); })
                                                   : nest(b, &key, child);
        }
    }
    void nest(Builder &b, const CodText *key, const Value &v) {
        Builder nested = {v.type == VELON_TYPE_OBJECT};
        Velon view;
        const bool keySorted = sorted(v);
        run([&] { return b.open(key, v.values.size(), keySorted, &nested); });
        fill(nested, v);
        run([&] { return nested.finish(&view); });
        ASSERT_TRUE(view.owner == nullptr && bytesIn(view) == encode(v));
    }
    void outermost(const Value &v, Velon *velon) {
        const bool keySorted = sorted(v), isOwn = trees.below(2) == 0;
        const CodUint32 size = trees.below(2) * trees.below(200);
        VelonBuf buf = velonBufNew(&memory);
        VelonDepth none = {};
        Builder b = {v.type == VELON_TYPE_OBJECT};
        run([&] {
            const CodResult result = isOwn ? b.create(&memory, v.values.size(), keySorted, size)
                                           : b.createIn(&buf, v.values.size(), keySorted, size, size == 0 ? &none : nullptr);
            result == COD_SUCCESS ? void() : b.release();
            return result;
        });
        fill(b, v);
        run([&] { return b.finish(velon); });
        b.release();
    }
    // Expects the model's bytes, in memory that belongs to the document alone and is of exactly the size that a scalar needs.
    void document(const Value &v) {
        Velon velon = {};
        const std::size_t size = v.type == VELON_TYPE_NUMBER ? 22 : isCounted(v.type) ? v.data.size() + 5 : v.data.size() + 1;
        isContainer(v.type) ? outermost(v, &velon) : run([&] { return buildScalar(&memory, asValue(v), &velon); });
        ASSERT_TRUE(bytesIn(velon) == encode(v)) << testing::PrintToString(bytesIn(velon));
        ASSERT_TRUE(velon.owner == &memory && memory.live.size() == 1 && (isContainer(v.type) || memory.live.begin()->second == size));
        velonFree(&velon);
        ASSERT_TRUE(memory.live.empty() && velon.data.ptr == nullptr);
        sources.clear();
    }

    bool isFailing = false;
    Trees trees = {};
    WatchedMemory memory = {};
    std::deque<Bytes> sources = {};
};

TEST(VelonBuild, documentsEqualTheModelAndReadBack) {
    Build build;
    const int documents = COD_WITH_ASAN || COD_WITH_TSAN ? 2000 : 20000;
    for (int i = 0; i < documents && !HasFailure(); i++) {
        build.isFailing = i % 4 == 0;
        const Value v = build.trees.tree(6);
        const Bytes bytes = encode(v);
        build.document(v);
        Walker walker;
        ASSERT_EQ(walker.walk(bytes), Decoder(bytes).document());
        ASSERT_TRUE(walker.accepted && walker.faults.empty()) << testing::PrintToString(walker.faults);
    }
}

TEST(VelonBuild, bytesByHand) {
    const Value null, one = {VELON_TYPE_TINYINT, "\1"}, minus = {VELON_TYPE_SMALLINT, "\xfe\xff"}, ten = {VELON_TYPE_BIGINT, little(10, 8)};
    std::vector<std::pair<Value, Bytes>> rows = {
        {objectOf({"bb", "a", "ab"}, {one, null, one}), "\1\x1e\0\0\0\3\0\x14\0\0\0\x18\0\0\0\x0e\0\0\0\2\0bb\7\1\1\0a\6\2\0ab\7\1"s},
        {arrayOf({{VELON_TYPE_BOOL, "\1"}, {VELON_TYPE_TINYINT, "\7"}, {VELON_TYPE_FLOAT, raw(1.5f)}, ten}),
         "\2\x1f\0\0\0\4\0\5\1\0\0\0\7\7\0\0\0\x0b\0\0\xc0\x3f\x0a\x16\0\0\0\x0a\x0a\0\0\0\0\0\0\0"s},
        {arrayOf({{VELON_TYPE_TINYINT, "\xff"}, minus, null}), "\2\x11\0\0\0\3\0\7\xff\0\0\0\x08\xfe\xff\0\0\6\0\0\0\0"s},
    };
    for (auto [size, header] : {std::pair(0, "\0"s),
                                {127, "\x7f"},
                                {128, "\x80\1"},
                                {16383, "\xff\x7f"},
                                {16384, "\x80\x80\1"},
                                {2097151, "\xff\xff\x7f"},
                                {2097152, "\x80\x80\x80\1"}}) {
        const Bytes content(static_cast<std::size_t>(size), 's');
        rows.push_back({{VELON_TYPE_STRING, content}, "\3" + header + content});
        rows.push_back({{VELON_TYPE_BINARY, content}, "\x0d" + header + content});
    }
    Build build;
    for (const auto &[v, bytes] : rows) {
        EXPECT_TRUE(encode(v) == bytes) << testing::PrintToString(encode(v).substr(0, 40));
        build.document(v);
        build.document(arrayOf({v, v}));
    }
}

// ---- Limits ----

TEST(VelonBuild, mostLevelsMembersAndBytesOfAKey) {
    Build build;
    std::vector<Builder> open;
    Velon velon;
    for (std::size_t i = 0; i < 101; i++) {
        open.push_back({i % 2 == 0});
    }
    ASSERT_EQ(open[0].create(&build.memory, 1, false, 0), COD_SUCCESS);
    for (std::size_t i = 1; i < 100; i++) {
        ASSERT_EQ(open[i - 1].open(&kKey, 1, false, &open[i]), COD_SUCCESS);
    }
    for (bool isObject : {false, true}) {
        open[100].isObject = isObject;
        expectError(ERR_CMM_VELON_NESTING_TOO_DEEPLY, "nesting too deeply", [&] { return open[99].open(&kKey, 1, false, &open[100]); });
    }
    Value v;
    ASSERT_EQ(open[99].push(&kKey, asValue(v)), COD_SUCCESS);
    for (std::size_t i = 100; i-- > 0;) {
        ASSERT_EQ(open[i].finish(&velon), COD_SUCCESS);
        v = open[i].isObject ? objectOf({"k"}, {v}) : arrayOf({v});
    }
    EXPECT_TRUE(bytesIn(velon) == encode(v) && velonCheckData(&velon) == COD_SUCCESS);
    velonFree(&velon);

    Value members = {VELON_TYPE_OBJECT}, elements = {VELON_TYPE_ARRAY};
    for (CodUint32 i = 0; i < 65535; i++) {
        members.keys.push_back(std::to_string(i * 40503u % 65536));
        members.values.push_back({VELON_TYPE_SMALLINT, little(i, 2)});
        elements.values.push_back({VELON_TYPE_DATE, little(i, 8)});
    }
    build.document(members);
    build.document(elements);
    build.document(objectOf({Bytes(65535, 'k'), Bytes(65535, 'j')}, {{}, {}}));
    Walker walker;
    EXPECT_TRUE(walker.walk(encode(members)).values.size() == 65535 && walker.accepted && walker.faults.empty());
}

TEST(VelonBuild, largestDocument) {
    constexpr CodUint32 kMost = 33554432;
    const Bytes content(kMost, 'x');
    WatchedMemory memory;
    Velon velon;
    for (const auto &[around, isObject] : {std::pair(5 + 2 + 5 + 5u, false), {5 + 2 + 8 + (3 + 5) + (3 + 1), true}, {5, false}}) {
        for (CodUint32 more : {0u, 1u}) {
            const CodText value = {const_cast<char *>(content.data()), kMost - around + more, 0};
            const VelonValue string = {VELON_TYPE_STRING, {.text = value}}, null = {VELON_TYPE_NULL, {}};
            Builder b = {isObject};
            EXPECT_EQ(b.create(&memory, 1 + isObject, false, 0), COD_SUCCESS);
            auto build = [&, isObject = isObject, around = around] {
                return around == 5                  ? buildScalar(&memory, string, &velon)
                       : b.push(&kKey, string) != 0 ? COD_ERROR
                       : isObject                   ? b.push(&kKey, null)
                                                    : COD_SUCCESS;
            };
            if (more == 1) {
                expectError(ERR_CMM_VELON_EXCEEDS_MAX_SIZE, kFull, build);
            } else {
                EXPECT_TRUE(build() == COD_SUCCESS && (around == 5 || b.finish(&velon) == COD_SUCCESS) && velon.data.len == kMost);
                velonFree(&velon);
            }
            b.release();
        }
    }
    // A capacity that doubled does not reach beyond the limit.
    VelonArrayBuilder array;
    const CodText half = {const_cast<char *>(content.data()), kMost / 2 + 100, 0}, little = {half.str, 100, 0};
    EXPECT_EQ(velonArrayBuilderCreate(&memory, 3, 0, &array), COD_SUCCESS);
    EXPECT_EQ(velonArrayBuilderPushString(&array, &half), COD_SUCCESS);
    EXPECT_EQ(velonArrayBuilderPushString(&array, &little), COD_SUCCESS);
    const CodText over = {half.str, kMost - array.buf->len - 4, 0};  // with type and length one byte too many
    expectError(ERR_CMM_VELON_EXCEEDS_MAX_SIZE, kFull, [&] { return velonArrayBuilderPushString(&array, &over); });
    velonArrayBuilderFree(&array);
    EXPECT_TRUE(memory.live.empty());
}

// ---- Rules ----

// Every push is refused, with this error.
void expectRefused(Builder &b, const CodText &key, CodError code, const char *message) {
    Trees trees;
    Builder object = {true}, array = {false};
    for (int type = 3; type < _VELON_TYPE_COUNT_; type++) {
        const Value leaf = trees.leaf(type);
        expectError(code, message, [&] { return b.push(&key, asValue(leaf)); });
    }
    expectError(code, message, [&] { return b.open(&key, 0, false, &object); });
    expectError(code, message, [&] { return b.open(&key, 0, false, &array); });
}

TEST(VelonBuild, rulesOfCounting) {
    WatchedMemory memory;
    Builder b = {true}, nested = {false};
    Velon velon;
    const Value one = {VELON_TYPE_TINYINT, "\1"}, null;
    const char *isOpen = "inner builder is not finished", *isFull = "the number of elements reaches the element count(3)";
    const Bytes longest(65536, 'k');
    ASSERT_EQ(b.create(&memory, 3, false, 0), COD_SUCCESS);
    expectRefused(b, textOf(longest), ERR_CMM_INVALID_PARAMETER, "");
    ASSERT_EQ(b.open(&kKey, 3, false, &nested), COD_SUCCESS);
    expectRefused(b, kKey, 711, isOpen);
    expectError(711, isOpen, [&] { return velonObjectBuilderPushKey(&b.o, &kKey); });
    expectError(711, isOpen, [&] { return b.finish(&velon); });
    for (int i = 0; i < 3; i++) {
        expectError(709, "inconsistent element count, expected 3, actual " + std::to_string(i), [&] { return nested.finish(&velon); });
        expectError(701, "", [&] { return velonArrayBuilderPushValueEntry(&nested.a, VELON_TYPE_BOOL); });
        expectError(701, "", [&] { return velonArrayBuilderPushInlineValue(&nested.a, VELON_TYPE_STRING, 1); });
        ASSERT_EQ(i < 2 ? nested.push(&kKey, asValue(one)) : velonArrayBuilderPushInlineValue(&nested.a, VELON_TYPE_BOOL, 1), COD_SUCCESS);
    }
    expectRefused(nested, kKey, 708, isFull);
    expectError(708, isFull, [&] { return velonArrayBuilderPushInlineValue(&nested.a, VELON_TYPE_BOOL, 1); });
    ASSERT_EQ(nested.finish(&velon) + b.push(&kKey, asValue(null)), COD_SUCCESS);
    expectError(709, "inconsistent element count, expected 3, actual 2", [&] { return b.finish(&velon); });
    // The value after a key alone is the caller's; equal keys are not refused.
    ASSERT_EQ(velonObjectBuilderPushKey(&b.o, &kKey) + velonBufReserve(b.o.buf, 1), COD_SUCCESS);
    b.o.buf->ptr[b.o.buf->len++] = VELON_TYPE_NULL;
    expectRefused(b, kKey, 708, isFull);
    ASSERT_EQ(b.finish(&velon), COD_SUCCESS);
    EXPECT_EQ(velon.data.len, 5 + 2 + 3 * 4 + 3 * 3 + 22 + 2u);
    expectError(719, "unordered or duplicated velon object keys", [&] { return velonCheckData(&velon); });
    velonFree(&velon);
}

TEST(VelonBuild, lengthsAreCheckedBeforeAnythingElse) {
    WatchedMemory memory;
    VelonBuf buf = velonBufNew(&memory);
    Builder object = {true}, array = {false};
    Velon velon;
    ASSERT_EQ(object.create(&memory, 1, false, 0) + array.create(&memory, 1, false, 0), COD_SUCCESS);
    for (VelonType type : {VELON_TYPE_STRING, VELON_TYPE_BINARY}) {
        for (CodUint32 length : {0x0fffffffu, 0x10000000u, 0xffffffffu}) {
            const VelonValue v = {type, {.text = {const_cast<char *>("x"), length, 0}}};
            const CodError code = length == 0x0fffffff ? 704u : type == VELON_TYPE_STRING ? 705u : 706u;
            const Bytes message =
                "velon "s + velonTypeName(type) + " is too long, length: " + std::to_string(static_cast<CodInt32>(length));
            const std::function<CodResult()> calls[] = {
                [&] { return type == VELON_TYPE_STRING ? velonBufPushString(&buf, &v.u.text) : velonBufPushBinary(&buf, &v.u.bytes); },
                [&] { return array.push(&kKey, v); },
                [&] { return object.push(&kKey, v); },
                [&] { return buildScalar(&memory, v, &velon); },
            };
            for (const auto &call : calls) {
                expectError(code, code == 704 ? kFull : message, call);
            }
        }
    }
    object.release();
    array.release();
    EXPECT_TRUE(memory.live.empty() && buf.ptr == nullptr);
}

TEST(VelonBuild, sourcesMayLieInTheBuffer) {
    const Value list = arrayOf({{VELON_TYPE_TINYINT, "\5"}, {VELON_TYPE_STRING, "twelve bytes"}});
    const std::size_t count = 200, start = 5 + 2 + 4 * count;
    Value expected = objectOf({"k"}, {list});
    Build build;
    Builder b = {true};
    Velon velon;
    ASSERT_EQ(b.create(&build.memory, count, false, 0), COD_SUCCESS);
    build.nest(b, &kKey, list);
    for (std::size_t i = 1; i < count; i++) {
        const VelonData data = velonDataNew(b.o.buf->ptr + start + 3, static_cast<CodUint32>(encode(list).size()), 0);
        VelonValue whole, string;
        VelonLazyValue lazy;
        ASSERT_EQ(velonDataReadValue(&data, 0, &whole) + velonArrayGetValue(&whole.u.array, 1, &string), COD_SUCCESS);
        ASSERT_EQ(velonArrayGetLazyValue(&whole.u.array, static_cast<CodInt32>(i % 2), &lazy), COD_SUCCESS);
        const CodText key = {reinterpret_cast<char *>(const_cast<CodUint8 *>(data.ptr)), static_cast<CodUint32>(i % data.len), 0};
        expected.keys.push_back(bytesOf(key));
        expected.values.push_back(i % 3 == 0 ? list : list.values[i % 3 == 1 ? 1 : i % 2]);
        ASSERT_EQ(i % 3 == 2 ? b.pushLazy(&key, &lazy) : b.push(&key, i % 3 == 0 ? whole : string), COD_SUCCESS);
    }
    ASSERT_EQ(b.finish(&velon), COD_SUCCESS);
    EXPECT_EQ(bytesIn(velon).substr(start), encode(expected).substr(start));  // of equal keys any may stand first
    velonFree(&velon);
}

TEST(VelonBuf, growsAndHandsOver) {
    WatchedMemory memory;
    VelonBuf buf = velonBufNew(&memory), full;
    EXPECT_TRUE(buf.owner == &memory && buf.ptr == nullptr && buf.capacity == 0 && buf.len == 0);
    // Bytes in use, bytes wanted, capacity then.
    for (const auto &[len, extra, capacity] :
         {std::tuple(0u, 0u, 0u), {0, 1, 8}, {3, 5, 8}, {8, 1, 16}, {16, 17, 40}, {40, 1, 80}, {0, 170, 176}}) {
        buf.len = len;
        EXPECT_TRUE(velonBufReserve(&buf, extra) == COD_SUCCESS && buf.capacity == capacity) << buf.capacity << ", not " << capacity;
    }
    buf.len = 1;
    expectError(704, kFull, [&] { return velonBufReserve(&buf, 33554432); });
    expectError(704, kFull, [&] { return velonBufReserve(&buf, 0xffffffff); });
    codFailAllocAfter(0);
    expectError(ERR_CMM_ALLOC_MEMORY, "", [&] { return velonBufReserve(&buf, 1000); });
    EXPECT_TRUE(buf.capacity == 176 && buf.len == 1);
    buf.len = 0;
    const CodBytes binary = {reinterpret_cast<CodUint8 *>(kKey.str), 1, 0};
    const CodNumber number = {{{255, 0}}, 0, 0, 0};
    Velon velon;
    EXPECT_EQ(velonBufPushString(&buf, &kKey) + velonBufPushBinary(&buf, &binary) + velonBufPushNumber(&buf, &number), COD_SUCCESS);
    EXPECT_EQ(velonBufMoveToVelon(&buf, &velon), COD_SUCCESS);
    EXPECT_EQ(bytesIn(velon), "\1k\1k\1\xff");
    EXPECT_TRUE(velon.owner == &memory && velon.data.aux == 176 && buf.ptr == nullptr && buf.capacity == 0 && buf.len == 0);
    auto *bytes = const_cast<CodUint8 *>(velon.data.ptr);
    EXPECT_TRUE(velonBufFromRaw(&memory, bytes, 176, 176, &full) == COD_SUCCESS && full.ptr == bytes && full.len == full.capacity);
    expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return velonBufFromRaw(&memory, bytes, 1, 2, &buf); });
    velonBufFree(&full);
    EXPECT_TRUE(velonBufWithCapacity(&memory, 13, &buf) == COD_SUCCESS && memory.live.size() == 1 && memory.live.begin()->second == 13);
    velonBufFree(&buf);
    EXPECT_TRUE(velonBufWithCapacity(&memory, 0, &buf) == COD_SUCCESS && buf.ptr == nullptr && memory.live.empty());
    expectError(704, kFull, [&] { return velonBufWithCapacity(&memory, 33554433, &buf); });
}

}  // namespace
