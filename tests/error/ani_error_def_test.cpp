#include <vel_infra/error/ani_error.h>
#include <vel_infra/error/ani_error_def.h>

#include <algorithm>
#include <climits>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include <vel_infra/memory/ani_allocator.h>

#include "support/memory_support.h"

namespace {

using namespace memory_support;

// The runs of codes of the library's table, in table order.
constexpr std::pair<CodUint32, CodUint32> kRuns[] = {{0, 34},    {36, 54},   {100, 107}, {109, 115}, {200, 203},
                                                     {206, 232}, {300, 308}, {310, 341}, {400, 430}, {500, 513},
                                                     {517, 521}, {600, 619}, {621, 622}, {620, 620}, {700, 724}};
// The templates that other modules and clients rely on to the letter.
constexpr char kGolden[] =
    "1 warning: %s|2 internal error: %s|3 invalid parameter, reason: %s|4 feature \"%s\" has not been implemented yet|"
    "5 invalid %s type: %u|6 null pointer|7 no %s method for %s %s|8 type convert error : %s|9 invalid comparison between %s and %s|"
    "11 divided by zero|12 numeric overflow|13 value is larger than %s allowed|14 illegal conversion from %s to %s|"
    "24 value is less than %s allowed|40 data value out of range|44 \"%s\" has not been supported|45 illegal data format|"
    "46 the %s buffer size is too small|47 %s is not allowed|101 cannot allocate %ld bytes for %s|102 cannot create memory object %s|"
    "103 no free block in %s|104 allocate unexpected size from memory pool, mem type %s|105 out of memory to allocate %s of size = %ld|"
    "109 work stack overflow, try to push %d bytes|110 worker thread stack overflow, size allowed cannot exceed %u bytes|"
    "113 buddy allocator %s is out of memory|115 failed to allocate %ld bytes memory quota for %s|"
    "201 failed to snprintf, src size = %u, dst size = %u|202 invalid string, reason: %s|203 const string length exceeds %u|"
    "208 binary string '%s' out of range|209 invalid string '%s', reason: %s|211 no data found|212 index %u is out of [%u, %u]|"
    "214 too many type processor array|215 length of concat texts exceeds the buffer limit|218 string conversion failed|"
    "219 the formatted string length(%u) is longer than the buffer size(%u)|220 utf8 sequence is wrong|"
    "221 utf8 character buffer is too small|228 character set mismatch|229 character set conversion failed, exceeds the buffer size(%u)|"
    "301 file operation \"%s\" failed, %s|304 %s is an invalid disk device/file, reason: %s|313 failed to open file %s, %s|"
    "325 write file failed|328 read file failed|402 failed to %s, %s|506 system call %s error, errno = %d|"
    "509 failed to load dynamic library %s, %s|604 failed to compress data, %s|605 failed to decompress data, %s|"
    "701 invalid velon type value: %d|704 velon exceeds max size(%d)|705 velon string is too long, length: %d|710 nesting too deeply|"
    "712 JSON syntax error at line %d column %d: %s|";

class Registry : public CleanState {
protected:
    Registry() {
        codUnRegErrorDef();
    }
    ~Registry() override {
        codFailAllocAfter(-1);
        codUnRegErrorDef();
    }

    using Row = std::tuple<CodUint32, std::string, std::string>;
    static Row rowOf(const CodErrDef &def) {
        return {def.code, def.name, def.fmt};
    }
    // What is registered, in code order.
    static std::multiset<Row> rows() {
        const CodErrDef *defs = nullptr;
        CodUint32 count = 0;
        EXPECT_EQ(codGetErrorDefList(&defs, &count), COD_SUCCESS);
        EXPECT_TRUE(std::is_sorted(defs, defs + count, [](auto &left, auto &right) { return left.code < right.code; }));
        std::multiset<Row> result;
        std::for_each(defs, defs + count, [&](auto &def) { result.insert(rowOf(def)); });
        return result;
    }
};

TEST_F(Registry, HoldsTheTablesOfAllModules) {
    CodUint32 pos = 0, last = 1199;
    for (auto [code, end] : kRuns) {
        for (; code <= end; code++, pos++) {
            ASSERT_NE(codGetErrDef(pos), nullptr);
            EXPECT_EQ(codGetErrDef(pos)->code, code);
            EXPECT_EQ(*codGetErrDef(pos)->fmt == '\0', code % 100 == 0) << code;
        }
    }
    EXPECT_EQ(codGetErrCount(), pos);
    for (CodUint32 i = 0; i < aniGetErrCount(); i++) {
        const CodErrDef *def = aniGetErrDef(i);
        ASSERT_TRUE(def != nullptr && def->code > last && def->code <= 9409 && def->name != nullptr && def->fmt != nullptr);
        last = def->code;
    }
    ASSERT_GT(aniGetErrCount(), 0u);
    EXPECT_TRUE(codGetErrDef(pos) == nullptr && aniGetErrDef(aniGetErrCount()) == nullptr);

    ASSERT_EQ(codRegErrModANS(), COD_SUCCESS);
    ASSERT_EQ(codRegErrModCMM(), COD_SUCCESS);
    EXPECT_EQ(rows().size(), pos + aniGetErrCount());
    std::istringstream in(kGolden);
    CodUint32 code = 0, count = 0;
    for (std::string fmt; in >> code && std::getline(in.ignore(), fmt, '|'); count++) {
        const CodErrDef *def = codFindErrorDef(code);
        ASSERT_TRUE(def != nullptr && def->code == code) << code;
        EXPECT_EQ(def->fmt, fmt);
    }
    EXPECT_STREQ(codFindErrorDef(ERR_CMM_NO_DATA_FOUND)->name, "ERR_CMM_NO_DATA_FOUND");
    EXPECT_EQ(count, 58u);
    expectRefusals({{[] { return codRegErrorDef(nullptr, 1); }, ERR_CMM_POINTER_NULL, "null pointer"},
                    {[] { return codGetErrorDefList(nullptr, nullptr); }, ERR_CMM_POINTER_NULL}});
    EXPECT_EQ(codRegErrorDef(nullptr, 0), COD_SUCCESS);
}

TEST_F(Registry, AgreesWithASetOverRandomTables) {
    static const char *kTexts[] = {"", "A", "text %s", "another"};
    Random random(5);
    for (int round = 0; round < 30; round++) {
        codUnRegErrorDef();
        std::multiset<Row> expected;
        EXPECT_EQ(codFindErrorDef(0), nullptr);
        for (int module = 0; module < 6; module++) {
            std::vector<CodErrDef> defs(random.below(120));
            for (CodErrDef &def : defs) {
                def = {random.below(300), random.pick(kTexts), random.pick(kTexts)};
                expected.insert(rowOf(def));
            }
            ASSERT_EQ(codRegErrorDef(defs.data(), static_cast<CodUint32>(defs.size())), COD_SUCCESS);
            defs.assign(defs.size(), {});  // the registry holds copies
            ASSERT_EQ(rows(), expected);
        }
        for (CodUint32 code = 0; code < 301; code++) {
            const CodErrDef *def = codFindErrorDef(code);
            auto first = expected.lower_bound({code, "", ""});
            ASSERT_EQ(def != nullptr, first != expected.end() && std::get<0>(*first) == code) << code;
            ASSERT_TRUE(def == nullptr || (def->code == code && expected.count(rowOf(*def)) > 0));
        }
    }
}

TEST_F(Registry, FailedAllocationKeepsWhatWasThere) {
    const CodErrDef kOwn[] = {{9000, "OWN_B", "b"}, {8000, "OWN_A", "a"}};
    CodResult result = COD_ERROR;
    for (CodInt32 n = 0; result != COD_SUCCESS; n++) {
        codUnRegErrorDef();
        ASSERT_EQ(codRegErrorDef(kOwn, 2), COD_SUCCESS);
        codFailAllocAfter(n);
        result = codRegErrModCMM();
        codFailAllocAfter(-1);
        std::multiset<Row> left = rows();
        EXPECT_EQ(left.count(rowOf(kOwn[0])) + left.count(rowOf(kOwn[1])), 2u);
        EXPECT_EQ(left.size() == 241, result == COD_SUCCESS);
        if (result != COD_SUCCESS || n == 0) {
            expectRaised(ERR_CMM_ALLOC_MEMORY);
            ASSERT_EQ(codRegErrModCMM(), COD_SUCCESS);
            EXPECT_GE(rows().size(), 241u);
        }
    }
}

TEST(ErrorDefinitions, CompareByTheDifferenceIn32Bits) {
    const CodErrDef kDefs[] = {{0, "", ""}, {3, "", ""}, {0x80000000u, "", ""}, {0xFFFFFFFFu, "", ""}};
    const CodInt32 kExpected[4][4] = {
        {0, -3, INT_MIN, 1}, {3, 0, INT_MIN + 3, 4}, {INT_MIN, INT_MAX - 2, 0, INT_MIN + 1}, {-1, -4, INT_MAX, 0}};
    for (int pair = 0; pair < 16; pair++) {
        EXPECT_EQ(codErrDefCmp(&kDefs[pair / 4], &kDefs[pair % 4]), kExpected[pair / 4][pair % 4]) << pair;
    }
}

TEST(SqlState, EveryOtherCodeIsGeneral) {
    const std::map<CodError, std::string> kStates = {{0, "00000"},   {4, "0A000"},   {101, "03000"}, {102, "03000"},
                                                     {103, "03000"}, {104, "03000"}, {109, "03000"}, {301, "04000"},
                                                     {302, "04000"}, {401, "08000"}, {402, "08000"}, {404, "08000"}};
    for (CodError code = 0; code < 10000; code++) {
        auto found = kStates.find(code);
        EXPECT_EQ(aneGetSqlState(code), found == kStates.end() ? "HY000" : found->second) << code;
    }
}

}  // namespace
