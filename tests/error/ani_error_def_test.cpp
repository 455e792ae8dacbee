#include <vel_infra/error/ani_error.h>
#include <vel_infra/error/ani_error_def.h>

#include <algorithm>
#include <climits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/memory/ani_allocator.h>

#include "support/memory_support.h"

namespace {

using memory_support::Random;

// Every row of the library's table in table order, without the prefix that all names share.
constexpr char kRows[] =
    "0 COMMON_BASE 1 WARNING 2 INTERNAL_ERROR 3 INVALID_PARAMETER 4 NOT_IMPLEMENTED 5 UNKNOWN_TYPE 6 POINTER_NULL 7 NO_OPERATOR_METHOD "
    "8 TYPECONV_ERROR 9 TYPECOMP_ERROR 10 CONCAT_STRING 11 DIVISION_BY_ZERO 12 NUMERIC_OVERFLOW 13 NUMERIC_TOO_LARGE 14 ILLEGAL_TYPECONV "
    "15 PARAMETER_INVALID_VALUE 16 PARAMETER_INVALID_SECTION 17 PARAMETER_INVALID_UNIT 18 PARAMETER_INVALID_ID "
    "19 PARAMETER_INI_DUPLICATE_LOAD 20 PARAMETER_INI_NOT_LOAD 21 PARAMETER_GET_ITEM_BY_NAME 22 PARAMETER_GET_ITEM_BY_ID "
    "23 PARAMETER_APPERAS_TWICE 24 NUMERIC_TOO_SMALL 25 NUMERIC_PREC_TOO_LARGE 26 YEAR_FORMAT_APPEARS_MORE 27 MONTH_FORMAT_APPEARS_MORE "
    "28 HOUR_FORMAT_APPEARS_MORE 29 AM_PM_REQUIRED 30 HH24_WITH_AM_PM 31 EXCEEDING_BIT_RANGE 32 SET_SESSION_PARAMETER "
    "33 UNSUPPORT_UNICODE_CHAR 34 SET_SYSTEM_PARAMETER 36 MD5_FAILED 37 DAY_WEEK_APPEARS_MORE 38 EXPRESS_VERSION 39 PARAMETER_REPEAT_SET "
    "40 DATA_VALUE_OUT_OF_RANGE 41 TLV_INVALID_DATA 42 TLV_WRITE_OUT_OF_BOUNDARY 43 TLV_READ_OUT_OF_BOUNDARY 44 NOT_SUPPORTED "
    "45 DATA_FORMAT_ERROR 46 BUFFER_SIZE_TOO_SMALL 47 NOT_ALLOWED 48 FAULT_POINT_NOT_HIT 49 UNI_PARAM_INVALID 50 DATE_FMT_TOO_LONG "
    "51 INVALID_ENUM_VALUE 52 INVALID_SET_VALUE 53 TIME_ZONE_HOURE_RANGE 54 TIME_ZONE_MINUTE_RANGE 100 MEMORY_BASE 101 ALLOC_MEMORY "
    "102 CREATE_MEMORY_OBJECT 103 ALLOC_MPOOL_BLOCK 104 ALLOC_MCTX_MEM 105 OUT_OF_MEMORY 106 MEMORY_COPY 107 MEMORY_MOVE "
    "109 WORKSTACK_OVERFLOW 110 THREADSTACK_OVERFLOW 111 SET_ALLOC_OPTION 112 ATTACH_SHM 113 BUDDY_OOM 114 BLOCK_SIZE_ILLEGAL "
    "115 ALLOC_MEM_QUOTA 200 DATA_BASE 201 STRING_SNPRINTF 202 STRING_ERROR 203 CONST_STRING_LIMIT 206 BYTES_ERROR 207 PARSER_ERROR "
    "208 SIZE_LIMITED 209 INVALID_NUMBER 210 DUPLICATE_OBJECT 211 NO_DATA_FOUND 212 OUT_OF_INDEX 213 COPY_DATA 214 ARRAY_OVERFLOW "
    "215 MEMORY_OVERFLOW 216 INVALID_CHARSET_NAME 217 BOOL_INVALID_VALUE 218 CONVERT_STRING 219 FORMAT_STR_OVERFLOW "
    "220 UTF8_SEQUENCE_WRONG 221 UTF8_BUFFER_SMALL 222 NLSSORT_INVALID 223 INVALID_HEX_NUMBER 224 INVALID_CODEPAGE "
    "225 UTF16_SEQUENCE_WRONG 226 UTF16_BUFFER_SMALL 227 INVALID_NCHARSET_NAME 228 CHARSET_MISMATCH 229 CHARSET_CONVERT "
    "230 GBK_SEQUENCE_WRONG 231 GBK_BUFFER_SMALL 232 INVALID_COLLATION_NAME 300 IO_BASE 301 FILE_OPER 302 INVALID_FILENAME "
    "303 INIFILE_ERROR 304 DEVICE_ERROR 305 NO_SPACE 306 DEVICE_BUSY 307 EXEC_INIFILE 308 INIFILE_LINE 310 INVALID_PATH_ERROR "
    "311 CREATE_FILE 312 LOCK_FILE 313 OPEN_FILE 314 REMOVE_FILE 315 RENAME_FILE 316 INIFILE_SAVE_ERROR 317 INIFILE_UNLOADED "
    "318 CREATE_DIRECTORY 319 OPEN_DIRECTORY 320 CLOSE_DIRECTORY 321 REMOVE_DIRECTORY 322 DUMP_TO_FILE_FAILED 323 NO_PUNCH_HOLE "
    "324 FILE_PAGE_SIZE 325 WRITE_FILE 326 INVALID_FILETYPE 327 INVALID_MODE 328 READ_FILE 329 INVALID_OFFSET 330 INVALID_PATH "
    "331 INVALID_FILE 332 ACCESS_DENIED 333 INVALID_MAX_LINESIZE 334 NO_DATA 335 CLOSE_FILE 336 OVER_FILES 337 NOT_SUPPORT_PATH "
    "338 S3_REQUEST 339 S3_RESOURCE 340 INVALID_DATAFILE_NAME 341 SCSI_PR_DIRTY 400 IPC_BASE 401 INIT_TCP_ENV 402 SOCKET_ERROR "
    "403 TOO_MANY_TCPLSNR 404 INVALID_IPADDR 405 PROTOCOL_CONNECT 406 CONNECT_CLOSED 407 SEND_FAIL 408 RECV_FAIL 409 EPOLL_FAIL "
    "410 UNKNOWN_PROTOCOL 411 SET_SOCKET 412 UNSUPPORT_LINK_TYPE 413 SOCKET_TIMEOUT 414 LOCAL_LSNR_FAIL 415 LSNR_FAIL "
    "416 MSG_BUFFER_OVERFLOW 417 INVALID_MSG_SIZE 418 INVALID_DESTINATION 419 CONNECT_NUM_LIMIT 420 DISCONTINUOUS_MEMORY "
    "421 HANDSHAKE_FAIL 422 SEND_TIMEOUT 423 ICS_NOT_STARTED 424 INVALID_LINK_ID 425 NODE_REMOVED 426 LINK_IN_USE 427 TAKE_LINK "
    "428 LSNR_FAIL_V6 429 GET_ADDR_FAIL 430 ICS_NODE_STOPPING 500 SYSTEM_BASE 501 LOCK_NOT_AVAILABLE 502 LOCK_FAILED 503 CREATE_THREAD "
    "504 CREATE_SEMAPHORE 505 ENV_ERROR 506 SYSTEM_CALL 507 DATE_OVERFLOW 508 TIME_OVERFLOW 509 LOAD_LIB_FAILED 510 CLOSE_LIB_FAILED "
    "511 GET_SYMS_FAILED 512 INIT_LIB_FAILED 513 CREATE_MUTEX 517 WORKER_POOL_CLOSED 518 WORKER_POOL_PARAM 519 CHECK_LIB_FAILED "
    "520 CHECK_SIGNATURE_FAILED 521 PROCESS_PERMISSION 600 THIRD_PARTY_BASE 601 DATA_ENCRYPTION 602 DATA_ENCRYPTION_KEY "
    "603 COMPRESS_ILLEGAL_INPUT 604 COMPRESS_FAILED 605 DECOMPRESS_FAILED 606 COMPRESS_TYPE_INVALID 607 ENCRYPTIONALGO_INVALID "
    "608 SSL_INIT 609 SSL_INVALID_ECDH 610 SSL_CONNECTION_FAILED 611 ENCRYPT_MODE 612 GENERATE_GUID 613 PKEY_INIT 614 UKEY_FAILED "
    "615 UKEY_TOO_MANY_DEVICES 616 UKEY_NO_DEVICE 617 UKEY_VERIFY_SIGN 618 SECURITY_OPERATION 619 TLCP_INIT 621 PKCS12_WRITE_FAILED "
    "622 PKCS12_READ_FAILED 620 PCIE_ERROR 700 VELON_BASE 701 VELON_INVALID_TYPE 702 VELON_INDEX_OUT_OF_BOUNDS 703 VELON_UNEXPECTED_TYPE "
    "704 VELON_EXCEEDS_MAX_SIZE 705 VELON_STRING_TOO_LONG 706 VELON_BINARY_TOO_LONG 707 VELON_INVALID_VARINT "
    "708 VELON_REACHES_ELEMENT_COUNT 709 VELON_INCONSISTENT_ELEMENT_COUNT 710 VELON_NESTING_TOO_DEEPLY 711 VELON_INNER_UNCOMPLETED "
    "712 VELON_JSON_SYNTAX_ERROR 713 VELON_TOO_MANY_CHILDREN 714 VELON_DATA_LENGTH_MISMATCHED 715 VELON_INVALID_BOOL "
    "716 VELON_INVALID_DATETIME 717 VELON_INVALID_NUMBER 718 VELON_INVALID_UNICODE 719 VELON_INVALID_KEY "
    "720 VELON_INVALID_UNICODE_ESCAPE 721 VELON_PATH_EXPR_SYNTAX_ERROR 722 VELON_PATH_EXPR_NO_RESULT 723 VELON_PATH_EXPR_MANY_RESULTS "
    "724 VELON_PATH_EXPR_FUNC_NEEDS_WRAP ";

// The rows whose templates other modules and clients rely on to the letter.
struct Template {
    CodUint32 code;
    const char *name;
    const char *fmt;
};
constexpr Template kTemplates[] = {
    {1, "ERR_CMM_WARNING", "warning: %s"},
    {2, "ERR_CMM_INTERNAL_ERROR", "internal error: %s"},
    {3, "ERR_CMM_INVALID_PARAMETER", "invalid parameter, reason: %s"},
    {4, "ERR_CMM_NOT_IMPLEMENTED", "feature \"%s\" has not been implemented yet"},
    {5, "ERR_CMM_UNKNOWN_TYPE", "invalid %s type: %u"},
    {6, "ERR_CMM_POINTER_NULL", "null pointer"},
    {7, "ERR_CMM_NO_OPERATOR_METHOD", "no %s method for %s %s"},
    {8, "ERR_CMM_TYPECONV_ERROR", "type convert error : %s"},
    {9, "ERR_CMM_TYPECOMP_ERROR", "invalid comparison between %s and %s"},
    {11, "ERR_CMM_DIVISION_BY_ZERO", "divided by zero"},
    {12, "ERR_CMM_NUMERIC_OVERFLOW", "numeric overflow"},
    {13, "ERR_CMM_NUMERIC_TOO_LARGE", "value is larger than %s allowed"},
    {14, "ERR_CMM_ILLEGAL_TYPECONV", "illegal conversion from %s to %s"},
    {24, "ERR_CMM_NUMERIC_TOO_SMALL", "value is less than %s allowed"},
    {40, "ERR_CMM_DATA_VALUE_OUT_OF_RANGE", "data value out of range"},
    {44, "ERR_CMM_NOT_SUPPORTED", "\"%s\" has not been supported"},
    {45, "ERR_CMM_DATA_FORMAT_ERROR", "illegal data format"},
    {46, "ERR_CMM_BUFFER_SIZE_TOO_SMALL", "the %s buffer size is too small"},
    {47, "ERR_CMM_NOT_ALLOWED", "%s is not allowed"},
    {101, "ERR_CMM_ALLOC_MEMORY", "cannot allocate %ld bytes for %s"},
    {102, "ERR_CMM_CREATE_MEMORY_OBJECT", "cannot create memory object %s"},
    {103, "ERR_CMM_ALLOC_MPOOL_BLOCK", "no free block in %s"},
    {104, "ERR_CMM_ALLOC_MCTX_MEM", "allocate unexpected size from memory pool, mem type %s"},
    {105, "ERR_CMM_OUT_OF_MEMORY", "out of memory to allocate %s of size = %ld"},
    {109, "ERR_CMM_WORKSTACK_OVERFLOW", "work stack overflow, try to push %d bytes"},
    {110, "ERR_CMM_THREADSTACK_OVERFLOW", "worker thread stack overflow, size allowed cannot exceed %u bytes"},
    {113, "ERR_CMM_BUDDY_OOM", "buddy allocator %s is out of memory"},
    {115, "ERR_CMM_ALLOC_MEM_QUOTA", "failed to allocate %ld bytes memory quota for %s"},
    {201, "ERR_CMM_STRING_SNPRINTF", "failed to snprintf, src size = %u, dst size = %u"},
    {202, "ERR_CMM_STRING_ERROR", "invalid string, reason: %s"},
    {203, "ERR_CMM_CONST_STRING_LIMIT", "const string length exceeds %u"},
    {208, "ERR_CMM_SIZE_LIMITED", "binary string '%s' out of range"},
    {209, "ERR_CMM_INVALID_NUMBER", "invalid string '%s', reason: %s"},
    {211, "ERR_CMM_NO_DATA_FOUND", "no data found"},
    {212, "ERR_CMM_OUT_OF_INDEX", "index %u is out of [%u, %u]"},
    {214, "ERR_CMM_ARRAY_OVERFLOW", "too many type processor array"},
    {215, "ERR_CMM_MEMORY_OVERFLOW", "length of concat texts exceeds the buffer limit"},
    {218, "ERR_CMM_CONVERT_STRING", "string conversion failed"},
    {219, "ERR_CMM_FORMAT_STR_OVERFLOW", "the formatted string length(%u) is longer than the buffer size(%u)"},
    {220, "ERR_CMM_UTF8_SEQUENCE_WRONG", "utf8 sequence is wrong"},
    {221, "ERR_CMM_UTF8_BUFFER_SMALL", "utf8 character buffer is too small"},
    {228, "ERR_CMM_CHARSET_MISMATCH", "character set mismatch"},
    {229, "ERR_CMM_CHARSET_CONVERT", "character set conversion failed, exceeds the buffer size(%u)"},
    {301, "ERR_CMM_FILE_OPER", "file operation \"%s\" failed, %s"},
    {304, "ERR_CMM_DEVICE_ERROR", "%s is an invalid disk device/file, reason: %s"},
    {313, "ERR_CMM_OPEN_FILE", "failed to open file %s, %s"},
    {325, "ERR_CMM_WRITE_FILE", "write file failed"},
    {328, "ERR_CMM_READ_FILE", "read file failed"},
    {402, "ERR_CMM_SOCKET_ERROR", "failed to %s, %s"},
    {506, "ERR_CMM_SYSTEM_CALL", "system call %s error, errno = %d"},
    {509, "ERR_CMM_LOAD_LIB_FAILED", "failed to load dynamic library %s, %s"},
    {604, "ERR_CMM_COMPRESS_FAILED", "failed to compress data, %s"},
    {605, "ERR_CMM_DECOMPRESS_FAILED", "failed to decompress data, %s"},
    {701, "ERR_CMM_VELON_INVALID_TYPE", "invalid velon type value: %d"},
    {704, "ERR_CMM_VELON_EXCEEDS_MAX_SIZE", "velon exceeds max size(%d)"},
    {705, "ERR_CMM_VELON_STRING_TOO_LONG", "velon string is too long, length: %d"},
    {710, "ERR_CMM_VELON_NESTING_TOO_DEEPLY", "nesting too deeply"},
    {712, "ERR_CMM_VELON_JSON_SYNTAX_ERROR", "JSON syntax error at line %d column %d: %s"},
};

class Registry : public memory_support::CleanErrors {
protected:
    Registry() {
        codUnRegErrorDef();
    }
    ~Registry() override {
        codFailAllocAfter(-1);
        codUnRegErrorDef();
    }

    using Row = std::tuple<CodUint32, std::string, std::string>;
    static std::multiset<Row> rows() {
        const CodErrDef *defs = nullptr;
        CodUint32 count = 0;
        EXPECT_EQ(codGetErrorDefList(&defs, &count), COD_SUCCESS);
        std::multiset<Row> result;
        for (CodUint32 i = 0; i < count; i++) {
            result.emplace(defs[i].code, defs[i].name, defs[i].fmt);
        }
        return result;
    }
    static bool sorted() {
        const CodErrDef *defs = nullptr;
        CodUint32 count = 0;
        EXPECT_EQ(codGetErrorDefList(&defs, &count), COD_SUCCESS);
        return std::is_sorted(defs, defs + count, [](const CodErrDef &left, const CodErrDef &right) { return left.code < right.code; });
    }
};

TEST(ErrorTable, HoldsEveryRowInOrder) {
    std::istringstream in(kRows);
    CodUint32 code = 0, pos = 0;
    for (std::string name; in >> code >> name; pos++) {
        const CodErrDef *def = codGetErrDef(pos);
        ASSERT_NE(def, nullptr) << pos;
        EXPECT_EQ(def->code, code);
        EXPECT_EQ(def->name, "ERR_CMM_" + name);
        EXPECT_EQ(*def->fmt == '\0', code % 100 == 0) << name;
    }
    EXPECT_EQ(pos, 239u);
    EXPECT_EQ(codGetErrCount(), 239u);
    EXPECT_EQ(codGetErrDef(239), nullptr);
    EXPECT_EQ(codGetErrDef(0xFFFFFFFFu), nullptr);
}

TEST_F(Registry, FindsTheTemplatesThatOthersRelyOn) {
    ASSERT_EQ(codRegErrModCMM(), COD_SUCCESS);
    for (const Template &row : kTemplates) {
        const CodErrDef *def = codFindErrorDef(row.code);
        ASSERT_NE(def, nullptr) << row.code;
        EXPECT_STREQ(def->name, row.name);
        EXPECT_STREQ(def->fmt, row.fmt);
    }
    for (CodUint32 unused : {35u, 108u, 116u, 199u, 204u, 205u, 309u, 514u, 725u, 0xFFFFFFFFu}) {
        EXPECT_EQ(codFindErrorDef(unused), nullptr) << unused;
    }
}

TEST(ServerErrorTable, LiesInItsRangeInOrder) {
    CodUint32 count = aniGetErrCount();
    ASSERT_GT(count, 0u);
    EXPECT_EQ(aniGetErrDef(count), nullptr);
    EXPECT_EQ(aniGetErrDef(0xFFFFFFFFu), nullptr);
    for (CodUint32 i = 0, last = 1199; i < count; i++) {
        const CodErrDef *def = aniGetErrDef(i);
        ASSERT_NE(def, nullptr);
        EXPECT_GT(def->code, last);
        EXPECT_LE(def->code, 9409u);
        EXPECT_NE(def->name, nullptr);
        EXPECT_NE(def->fmt, nullptr);
        last = def->code;
    }
}

TEST_F(Registry, SortsTablesOfSeveralModulesAndKeepsDuplicates) {
    EXPECT_TRUE(rows().empty());
    EXPECT_EQ(codFindErrorDef(0), nullptr);
    ASSERT_EQ(codRegErrModANS(), COD_SUCCESS);
    ASSERT_EQ(codRegErrModCMM(), COD_SUCCESS);
    EXPECT_EQ(rows().size(), 239u + aniGetErrCount());
    EXPECT_TRUE(sorted());
    ASSERT_EQ(codRegErrModCMM(), COD_SUCCESS);
    EXPECT_EQ(rows().size(), 2 * 239u + aniGetErrCount());
    EXPECT_TRUE(sorted());
    codUnRegErrorDef();
    codUnRegErrorDef();
    EXPECT_TRUE(rows().empty());
    EXPECT_EQ(codRegErrorDef(nullptr, 0), COD_SUCCESS);
    EXPECT_EQ(codRegErrorDef(nullptr, 1), COD_ERROR);
    memory_support::expectRaised(ERR_CMM_POINTER_NULL, "null pointer");
}

TEST_F(Registry, AgreesWithASetOverRandomTables) {
    Random random(5);
    for (int round = 0; round < 30; round++) {
        codUnRegErrorDef();
        std::multiset<Row> expected;
        for (int module = 0; module < 6; module++) {
            std::vector<CodErrDef> defs(random.below(120));
            for (CodErrDef &def : defs) {
                def = {random.below(300), kTemplates[random.below(58)].name, kTemplates[random.below(58)].fmt};
                expected.emplace(def.code, def.name, def.fmt);
            }
            ASSERT_EQ(codRegErrorDef(defs.data(), static_cast<CodUint32>(defs.size())), COD_SUCCESS);
            defs.assign(defs.size(), {});  // the registry holds copies
            ASSERT_EQ(rows(), expected);
            ASSERT_TRUE(sorted());
        }
        for (CodUint32 code = 0; code < 301; code++) {
            const CodErrDef *def = codFindErrorDef(code);
            auto first = expected.lower_bound({code, "", ""});
            ASSERT_EQ(def != nullptr, first != expected.end() && std::get<0>(*first) == code) << code;
            ASSERT_TRUE(def == nullptr || expected.count({def->code, def->name, def->fmt}) > 0);
        }
    }
}

TEST_F(Registry, FailedAllocationKeepsWhatWasThere) {
    const CodErrDef kOwn[] = {{9000, "OWN_B", "b"}, {8000, "OWN_A", "a"}};
    for (CodInt32 n = 0;; n++) {
        codUnRegErrorDef();
        ASSERT_EQ(codRegErrorDef(kOwn, 2), COD_SUCCESS);
        codFailAllocAfter(n);
        CodResult result = codRegErrModCMM();
        codFailAllocAfter(-1);
        EXPECT_EQ(rows().count({9000, "OWN_B", "b"}), 1u);
        EXPECT_EQ(rows().count({8000, "OWN_A", "a"}), 1u);
        if (result == COD_SUCCESS) {
            EXPECT_GT(n, 0);
            EXPECT_EQ(rows().size(), 241u);
            break;
        }
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_ALLOC_MEMORY)) << codGetErrorMsg2();
        codCleanError();
        EXPECT_LT(rows().size(), 241u);
        ASSERT_EQ(codRegErrModCMM(), COD_SUCCESS);
        EXPECT_TRUE(sorted());
        ASSERT_LT(n, 50);
    }
}

TEST(ErrorDefinitions, CompareByTheDifferenceIn32Bits) {
    const std::tuple<CodUint32, CodUint32, CodInt32> kCases[] = {
        {0, 0, 0},
        {5, 3, 2},
        {3, 5, -2},
        {724, 0, 724},
        {0, 0xFFFFFFFFu, 1},
        {0xFFFFFFFFu, 0, -1},
        {0x7FFFFFFFu, 0, INT_MAX},
        {0x80000000u, 0, INT_MIN},
        {0, 0x80000000u, INT_MIN},
        {0, 0x80000001u, INT_MAX},
    };
    for (auto [left, right, expected] : kCases) {
        CodErrDef leftDef = {left, "", ""}, rightDef = {right, "", ""};
        EXPECT_EQ(codErrDefCmp(&leftDef, &rightDef), expected) << left << " " << right;
    }
}

TEST(SqlState, EveryOtherCodeIsGeneral) {
    const std::map<CodError, std::string> kStates = {
        {0, "00000"},   {4, "0A000"},   {101, "03000"}, {102, "03000"}, {103, "03000"}, {104, "03000"},
        {109, "03000"}, {301, "04000"}, {302, "04000"}, {401, "08000"}, {402, "08000"}, {404, "08000"},
    };
    auto check = [&](CodError code) {
        auto found = kStates.find(code);
        EXPECT_EQ(aneGetSqlState(code), found == kStates.end() ? "HY000" : found->second) << code;
    };
    for (CodError code = 0; code < 10000; code++) {
        check(code);
    }
    check(0xFFFFFFFFu);
}

}  // namespace
