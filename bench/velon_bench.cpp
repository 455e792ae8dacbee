// Documents: lookup, building, arrays, validation. Every format has the same members: integers, doubles, strings and bools in turn.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <deque>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_BSON_1_0
#include <bson/bson.h>
#endif
#ifdef VEL_INFRA_WITH_FLATBUFFERS
#include <flatbuffers/flexbuffers.h>
#endif
#ifdef VEL_INFRA_WITH_MSGPACK
#include <msgpack.hpp>
#endif
#ifdef VEL_INFRA_WITH_NLOHMANN_JSON
#include <nlohmann/json.hpp>
#endif
#ifdef VEL_INFRA_WITH_RAPIDJSON
#include <rapidjson/document.h>
#endif

namespace {

void check(bool right) {
    if (!right) {
        abort();
    }
}

void check(CodResult done) {
    check(done == COD_SUCCESS);
}

template <class... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

// ---- Data ----

using Value = std::variant<CodInt32, CodDouble, CodText, bool>;
struct Member {
    CodText key;  // terminated
    Value value;
};
using Members = std::vector<Member>;
using Records = std::vector<Members>;
using Numbers = std::vector<std::pair<CodInt32, CodDouble>>;
using KeyOrder = bool (*)(const CodText &, const CodText &);

// Processors learn by heart which way the branches of 10,000 lookups or pushes go.
constexpr size_t kLookups = 64000;
constexpr size_t kBuiltMembers = 32000;
constexpr size_t kLookupMembers = 64;  // at least: small objects are several, lest the same few keys come in turn
constexpr size_t kElements = 10000;
constexpr CodUint32 kBytesEach = 32;      // room for a member, as a program asks for that knows its rows
constexpr size_t kRecordsValues = 42000;  // 1 MB

constexpr auto kView = [](const CodText &text) { return std::string_view(text.str, text.len); };
constexpr auto kText = [](std::string_view view) {
    return CodText{const_cast<char *>(view.data()), static_cast<CodUint32>(view.size()), 0};
};
constexpr auto kRandomInteger = [](auto &random) { return static_cast<CodInt32>(random()); };
constexpr auto kRandomDouble = [](auto &random) { return static_cast<CodDouble>(random()) * 0x1p-40; };

CodText randomText(std::mt19937_64 &random, size_t shortest, size_t longest) {
    static std::deque<std::string> texts;
    std::string &letters = texts.emplace_back(shortest + random() % (longest - shortest + 1), ' ');
    std::ranges::generate(letters, [&] { return static_cast<char>('a' + random() % 26); });
    return kText(letters);
}

// Objects of `size` members, as many as make `count` in all; keys in the given order, if any.
Records randomObjects(size_t count, size_t size, KeyOrder before) {
    std::mt19937_64 random(size);
    Records objects((count + size - 1) / size);
    for (Members &members : objects) {
        std::set<std::string_view> keys;
        while (members.size() < size) {
            const CodText key = randomText(random, 4, 16);
            if (keys.insert(kView(key)).second) {
                members.push_back({key, {}});
            }
        }
        if (before) {
            std::ranges::sort(members, before, &Member::key);
        }
        for (size_t i = 0; i < size; i++) {
            const Value values[] = {kRandomInteger(random), kRandomDouble(random), randomText(random, 4, 24), random() % 2 != 0};
            members[i].value = values[i % std::size(values)];
        }
    }
    return objects;
}

constexpr Overloaded kDigest{
    [](CodInt32 value) { return static_cast<CodUint64>(value); },
    [](CodDouble value) { return std::bit_cast<CodUint64>(value); },
    [](const CodText &value) { return CodUint64{value.len} << 8 | static_cast<CodUint8>(value.str[value.len - 1]); },
    [](bool value) { return CodUint64{value}; },
};

// ---- Rows ----

void add(const std::string &work, const std::string &who, size_t items, auto run) {
    benchmark::RegisterBenchmark(("document: " + work + "/" + who).c_str(), [items, run](benchmark::State &state) {
        for (auto _ : state) {
            run();
            benchmark::ClobberMemory();
        }
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(items) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
}

// Lookups by key or index, in random order but that the types take turns.
template <class Format, class Key, class... Types>
struct Lookups {
    using Lookup = std::pair<const typename Format::Document *, Key>;

    const auto *addDocument(const auto &...source) {
        auto &document = documents.emplace_back();
        Format::build(document, source...);
        if constexpr (requires { document.open(); }) {
            document.open();
        }
        return &document;
    }

    void shuffle() {
        std::mt19937_64 random(1);
        CodUint64 sum = 0;
        for (size_t i = 0; i < kLookups; i++) {
            auto &all = ofType[i % sizeof...(Types)];
            const size_t place = i / sizeof...(Types) % all.size();
            if (place == 0) {
                std::ranges::shuffle(all, random);
            }
            lookups.push_back(all[place].first);
            sum += all[place].second;
        }
        check(sum == run());
    }

    CodUint64 run() const {
        CodUint64 sum = 0;
        const auto get = [&](const Lookup &lookup, auto value) {
            Format::kGet(*lookup.first, lookup.second, value);
            sum += kDigest(value);
        };
        for (auto lookup = lookups.begin(); lookup != lookups.end();) {
            (get(*lookup++, Types()), ...);
        }
        return sum;
    }

    std::deque<typename Format::Document> documents;
    std::array<std::vector<std::pair<Lookup, CodUint64>>, sizeof...(Types)> ofType;  // with the digests of their values
    std::vector<Lookup> lookups;
};

template <class Format>
auto lookupsIn(const Records &objects, bool sorted) {
    const auto all = std::make_shared<Lookups<Format, CodText, CodInt32, CodDouble, CodText, bool>>();
    for (const Members &members : objects) {
        const auto *document = all->addDocument(members, sorted);
        for (const Member &member : members) {
            all->ofType[member.value.index()].push_back({{document, member.key}, std::visit(kDigest, member.value)});
        }
    }
    all->shuffle();
    return all;
}

template <class Format>
void addObjects(size_t size) {
    const std::string members = ", " + std::to_string(size) + " members";
    if constexpr (!requires { Format::kHasNoLookup; }) {
        const auto lookups = lookupsIn<Format>(randomObjects(kLookupMembers, size, nullptr), false);
        add("look up a key" + members, Format::kWho, kLookups, [lookups] { benchmark::DoNotOptimize(lookups->run()); });
    }
    if constexpr (requires { Format::kBefore; }) {
        for (const auto &[keys, order] : {std::pair("unsorted", KeyOrder()), std::pair("sorted", Format::kBefore)}) {
            const Records objects = randomObjects(kBuiltMembers, size, order);
            lookupsIn<Format>(objects, order);
            const auto build = [objects, sorted = order != nullptr] {
                for (const Members &object : objects) {
                    typename Format::Document document;
                    Format::build(document, object, sorted);
                    benchmark::DoNotOptimize(&document);
                }
            };
            add(std::string("build an object, keys ") + keys + members, Format::kWho, objects.size() * size, build);
        }
    }
}

template <class Format>
void addArray() {
    std::mt19937_64 random(1);
    Numbers numbers(kElements / 2);
    std::ranges::generate(numbers, [&] { return std::pair(kRandomInteger(random), kRandomDouble(random)); });
    const auto all = std::make_shared<Lookups<Format, size_t, CodInt32, CodDouble>>();
    const auto *document = all->addDocument(numbers);
    for (size_t i = 0; i < kElements; i += 2) {
        all->ofType[0].push_back({{document, i}, kDigest(numbers[i / 2].first)});
        all->ofType[1].push_back({{document, i + 1}, kDigest(numbers[i / 2].second)});
    }
    all->shuffle();
    add("array of 10,000 mixed numbers, random index", Format::kWho, kLookups, [all] { benchmark::DoNotOptimize(all->run()); });
}

template <class Format>
void addValidation() {
    const auto document = std::make_shared<typename Format::Document>();
    Format::build(*document, randomObjects(kRecordsValues, 10, nullptr));
    add("validate 1 MB, per value", Format::kWho, kRecordsValues, [document] { check(Format::isValid(*document)); });
}

template <class Format>
bool addAll() {
    for (const size_t size : {4u, 16u, 64u, 1000u}) {
        addObjects<Format>(size);
    }
    if constexpr (requires(typename Format::Document document, Numbers numbers) { Format::build(document, numbers); }) {
        addArray<Format>();
    }
    if constexpr (requires { &Format::isValid; }) {
        addValidation<Format>();
    }
    return true;
}

// ---- Formats: of each what its rows need ----

template <class Format>
void pushAll(auto &to, const Members &members) {
    for (const Member &member : members) {
        std::visit([&](const auto &value) { Format::kPush(to, member.key, value); }, member.value);
    }
}

[[maybe_unused]] constexpr KeyOrder kByBytes = [](const CodText &left, const CodText &right) { return kView(left) < kView(right); };

struct Ours {
    static constexpr char kWho[] = "ours";
    static constexpr KeyOrder kBefore = [](const CodText &left, const CodText &right) { return velonCompareKey(&left, &right) < 0; };

    struct Document {
        ~Document() {
            velonFree(&velon);
        }
        void open() {
            check(velonGetValue(&velon, &root));
        }
        Velon velon{};
        VelonValue root;
    };

    static constexpr Overloaded kPush{
        [](auto &to, const CodText &key, CodInt32 value) { check(velonObjectBuilderPushInteger(&to, &key, value)); },
        [](auto &to, const CodText &key, CodDouble value) { check(velonObjectBuilderPushDouble(&to, &key, value)); },
        [](auto &to, const CodText &key, const CodText &value) { check(velonObjectBuilderPushString(&to, &key, &value)); },
        [](auto &to, const CodText &key, bool value) { check(velonObjectBuilderPushBool(&to, &key, value)); },
        [](auto &to, const Numbers::value_type &numbers) {
            check(velonArrayBuilderPushInteger(&to, numbers.first));
            check(velonArrayBuilderPushDouble(&to, numbers.second));
        },
        [](auto &to, const Members &members) {
            VelonObjectBuilder record;
            Velon view;
            check(velonArrayBuilderPushObject(&to, static_cast<CodUint16>(members.size()), false, &record));
            pushAll<Ours>(record, members);
            check(velonObjectBuilderFinish(&record, &view));
        },
    };
    template <auto kFunction>
    static constexpr auto kFind = [](const Document &from, const CodText &key, auto &value) {
        bool found = false;
        check(kFunction(&from.root.u.object, &key, &found, &value));
        check(found);
    };
    static constexpr Overloaded kGet{
        [](auto &from, const CodText &key, CodInt32 &value) { kFind<velonObjectGetInteger>(from, key, value); },
        [](auto &from, const CodText &key, CodDouble &value) { kFind<velonObjectGetDouble>(from, key, value); },
        [](auto &from, const CodText &key, CodText &value) { kFind<velonObjectGetString>(from, key, value); },
        [](auto &from, const CodText &key, bool &value) { kFind<velonObjectGetBool>(from, key, value); },
        [](auto &from, size_t index, CodInt32 &value) { check(velonArrayGetInteger(&from.root.u.array, int(index), &value)); },
        [](auto &from, size_t index, CodDouble &value) { check(velonArrayGetDouble(&from.root.u.array, int(index), &value)); },
    };

    static void build(Document &document, const Members &members, bool sorted = false) {
        VelonObjectBuilder builder;
        check(velonObjectBuilderCreate(codMemGetSystemAlloc(), static_cast<CodUint16>(members.size()), sorted,
                                       kBytesEach * static_cast<CodUint32>(members.size()), &builder));
        pushAll<Ours>(builder, members);
        check(velonObjectBuilderFinish(&builder, &document.velon));
    }
    static void build(Document &document, const auto &items) {
        constexpr size_t kEach = std::is_same_v<decltype(items), const Numbers &> ? 2 : 1;
        VelonArrayBuilder builder;
        check(velonArrayBuilderCreate(codMemGetSystemAlloc(), static_cast<CodUint16>(items.size() * kEach), 0, &builder));
        std::ranges::for_each(items, [&](const auto &item) { kPush(builder, item); });
        check(velonArrayBuilderFinish(&builder, &document.velon));
    }
    static bool isValid(const Document &document) {
        return velonCheckData(&document.velon) == COD_SUCCESS;
    }
};

[[maybe_unused]] const bool gOurs = addAll<Ours>();

std::string textOf(const auto &source) {
    Ours::Document document;
    CodText text;
    Ours::build(document, source);
    check(velonToJson(codMemGetSystemAlloc(), &document.velon, VELON_JSON_COMPACT, &text));
    const std::string copy(kView(text));
    codSysFree(text.str);
    return copy;
}

#ifdef VEL_INFRA_WITH_FLATBUFFERS
struct FlexBuffers {
    static constexpr char kWho[] = "peer: FlexBuffers";
    static constexpr KeyOrder kBefore = kByBytes;

    struct Document {
        void open() {
            map = flexbuffers::GetRoot(builder.GetBuffer()).AsMap();
            vector = flexbuffers::GetRoot(builder.GetBuffer()).AsVector();
        }
        flexbuffers::Builder builder{256, flexbuffers::BUILDER_FLAG_NONE};
        flexbuffers::Map map = flexbuffers::Map::EmptyMap();
        flexbuffers::Vector vector = flexbuffers::Vector::EmptyVector();
    };

    static constexpr Overloaded kPush{
        [](auto &to, const CodText &key, const auto &value) { to.Add(key.str, value); },
        [](auto &to, const CodText &key, const CodText &value) { to.Key(key.str, key.len), to.String(value.str, value.len); },
        [](auto &to, const Numbers::value_type &numbers) { to.Add(numbers.first), to.Add(numbers.second); },
        [](auto &to, const Members &members) { to.Map([&] { pushAll<FlexBuffers>(to, members); }); },
    };
    static constexpr Overloaded kRead{
        [](flexbuffers::Reference from, CodInt32 &value) { value = from.AsInt32(); },
        [](flexbuffers::Reference from, CodDouble &value) { value = from.AsDouble(); },
        [](flexbuffers::Reference from, bool &value) { value = from.AsBool(); },
        [](flexbuffers::Reference from, CodText &value) {
            value = kText({from.AsString().c_str(), from.AsString().length()});
        },
    };
    static constexpr Overloaded kGet{
        [](auto &from, const CodText &key, auto &value) { kRead(from.map[key.str], value); },
        [](auto &from, size_t index, auto &value) { kRead(from.vector[index], value); },
    };

    static void build(Document &document, const Members &members, bool) {
        kPush(document.builder, members);
        document.builder.Finish();
    }
    static void build(Document &document, const auto &items) {
        document.builder.Vector([&] { std::ranges::for_each(items, [&](const auto &item) { kPush(document.builder, item); }); });
        document.builder.Finish();
    }
    static bool isValid(const Document &document) {
        return flexbuffers::VerifyBuffer(document.builder.GetBuffer().data(), document.builder.GetSize());
    }
};
[[maybe_unused]] const bool gFlexBuffers = addAll<FlexBuffers>();
#endif

#ifdef VEL_INFRA_WITH_BSON_1_0
struct Bson {
    static constexpr char kWho[] = "peer: libbson";
    static constexpr KeyOrder kBefore = kByBytes;

    struct Document {
        ~Document() {
            bson_destroy(&bson);
        }
        bson_t bson = BSON_INITIALIZER;
    };

    static constexpr auto kLength = [](const CodText &text) { return static_cast<int>(text.len); };
    static constexpr Overloaded kPush{
        [](auto &to, auto &key, CodInt32 value) { check(bson_append_int32(&to.bson, key.str, kLength(key), value)); },
        [](auto &to, auto &key, CodDouble value) { check(bson_append_double(&to.bson, key.str, kLength(key), value)); },
        [](auto &to, auto &key, bool value) { check(bson_append_bool(&to.bson, key.str, kLength(key), value)); },
        [](auto &to, auto &key, const CodText &value) {
            check(bson_append_utf8(&to.bson, key.str, kLength(key), value.str, kLength(value)));
        },
    };
    static constexpr Overloaded kRead{
        [](const bson_iter_t &from, CodInt32 &value) { value = bson_iter_int32(&from); },
        [](const bson_iter_t &from, CodDouble &value) { value = bson_iter_double(&from); },
        [](const bson_iter_t &from, bool &value) { value = bson_iter_bool(&from); },
        [](const bson_iter_t &from, CodText &value) { value.str = const_cast<char *>(bson_iter_utf8(&from, &value.len)); },
    };
    static constexpr auto kGet = [](auto &from, const CodText &key, auto &value) {
        bson_iter_t found;
        check(bson_iter_init_find_w_len(&found, &from.bson, key.str, kLength(key)));
        kRead(found, value);
    };

    static void build(Document &document, const Members &members, bool) {
        pushAll<Bson>(document, members);
    }
    static void build(Document &document, const Records &records) {
        check(bson_init_from_json(&document.bson, ("{\"records\":" + textOf(records) + "}").c_str(), -1, nullptr));
    }
    static bool isValid(const Document &document) {
        return bson_validate(&document.bson, BSON_VALIDATE_UTF8, nullptr);
    }
};
[[maybe_unused]] const bool gBson = addAll<Bson>();
#endif

#ifdef VEL_INFRA_WITH_MSGPACK
struct MsgPack {
    static constexpr char kWho[] = "peer: msgpack";
    static constexpr bool kHasNoLookup = true;
    static constexpr KeyOrder kBefore = kByBytes;

    struct Document {
        void open() {
            root = msgpack::unpack(buffer.data(), buffer.size());
        }
        msgpack::sbuffer buffer;
        msgpack::object_handle root;
    };

    static constexpr Overloaded kPush{
        [](auto &to, const CodText &key, const auto &value) { to.pack(kView(key)).pack(value); },
        [](auto &to, const CodText &key, const CodText &value) { to.pack(kView(key)).pack(kView(value)); },
    };
    static constexpr Overloaded kRead{
        [](const msgpack::object &from, auto &value) { from.convert(value); },
        [](const msgpack::object &from, CodText &value) { value = kText(from.as<std::string_view>()); },
    };
    static constexpr auto kGet = [](auto &from, const CodText &key, auto &value) {
        const msgpack::object_map &map = from.root->via.map;
        kRead(std::find_if(map.ptr, map.ptr + map.size, [&](const auto &member) { return member.key == kView(key); })->val, value);
    };

    static void build(Document &document, const Members &members, bool) {
        msgpack::packer<msgpack::sbuffer> packer(document.buffer);
        packer.pack_map(static_cast<CodUint32>(members.size()));
        pushAll<MsgPack>(packer, members);
    }
};
[[maybe_unused]] const bool gMsgPack = addAll<MsgPack>();
#endif

#ifdef VEL_INFRA_WITH_NLOHMANN_JSON
struct Nlohmann {
    static constexpr char kWho[] = "peer: nlohmann::json";
    using Document = nlohmann::json;

    static constexpr Overloaded kRead{
        [](const Document &from, CodInt32 &value) { value = static_cast<CodInt32>(from.get_ref<const Document::number_integer_t &>()); },
        [](const Document &from, CodDouble &value) { value = from.get_ref<const Document::number_float_t &>(); },
        [](const Document &from, bool &value) { value = from.get_ref<const Document::boolean_t &>(); },
        [](const Document &from, CodText &value) { value = kText(from.get_ref<const Document::string_t &>()); },
    };
    static constexpr Overloaded kGet{
        [](auto &from, const CodText &key, auto &value) { kRead(*from.find(kView(key)), value); },
        [](auto &from, size_t index, auto &value) { kRead(from[index], value); },
    };
    static void build(Document &document, const auto &source, bool = false) {
        document = Document::parse(textOf(source));
    }
};
[[maybe_unused]] const bool gNlohmann = addAll<Nlohmann>();
#endif

#ifdef VEL_INFRA_WITH_RAPIDJSON
struct RapidJson {
    static constexpr char kWho[] = "peer: rapidjson";
    using Document = rapidjson::Document;

    static constexpr Overloaded kRead{
        [](const rapidjson::Value &from, auto &value) { value = from.Get<std::remove_reference_t<decltype(value)>>(); },
        [](const rapidjson::Value &from, CodText &value) {
            value = kText({from.GetString(), from.GetStringLength()});
        },
    };
    static constexpr Overloaded kGet{
        [](auto &from, const CodText &key, auto &value) {
            kRead(from.FindMember(rapidjson::Value(rapidjson::StringRef(key.str, key.len)))->value, value);
        },
        [](auto &from, size_t index, auto &value) { kRead(from[static_cast<rapidjson::SizeType>(index)], value); },
    };
    static void build(Document &document, const auto &source, bool = false) {
        document.Parse<rapidjson::kParseFullPrecisionFlag>(textOf(source).c_str());
    }
};
[[maybe_unused]] const bool gRapidJson = addAll<RapidJson>();
#endif

}  // namespace
