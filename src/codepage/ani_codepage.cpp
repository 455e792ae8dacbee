#include <vel_infra/codepage/ani_codepage.h>

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/memory/ani_allocator.h>

#include "codepage/ani_codepage_internal.h"

namespace cod {

constinit Codepage gCodepages[__CODEPAGE_COUNT__] = {};

}  // namespace cod

using cod::Codepage;
using cod::CodepageTable;
using cod::CodepageWord;
using cod::gCodepages;

namespace {

constexpr char kHomeVariable[] = "VELDB_HOME";

// What the words of a page's own codes may be, so that what is looked up can be written as it is.
using IsWord = bool (*)(CodUint32 word);
bool isAny(CodUint32) {
    return true;
}
bool isByte(CodUint32 word) {
    return word <= 0xFF;
}
bool isScalarValue(CodUint32 word) {
    return cod::scalarValue(word) == word;
}
bool isGb18030Code(CodUint32 word) {
    return cod::gb18030Key(word) != cod::kNoKey;
}

struct PageRow {
    const char *name;
    CodepageType type;
    CodUint32 wordWidth;
    IsWord isCode;
};

template <CodUint32 id>
constexpr PageRow pageRow(const char *name, CodepageType type, IsWord isCode) {
    return {name, type, sizeof(CodepageWord<id>), isCode};
}

constexpr PageRow kPages[__CODEPAGE_COUNT__] = {
    pageRow<CODEPAGE_ISO88591>("iso88591", CODEPAGE_TYPE_CHARSET, isByte),
    pageRow<CODEPAGE_GBK>("gbk", CODEPAGE_TYPE_CHARSET, isAny),
    pageRow<CODEPAGE_UCS>("ucs", CODEPAGE_TYPE_CHARSET, isScalarValue),
    pageRow<CODEPAGE_PINYIN_SORT>("pinyin.sort", CODEPAGE_TYPE_SORT, isAny),
    pageRow<CODEPAGE_GB18030>("gb18030", CODEPAGE_TYPE_CHARSET, isGb18030Code),
};

// ---- Loading ----

class PageFile {
public:
    explicit PageFile(const char *path) : fd_(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~PageFile() {
        if (isOpen()) {
            close(fd_);
        }
    }
    PageFile(const PageFile &) = delete;
    PageFile &operator=(const PageFile &) = delete;

    bool isOpen() const {
        return fd_ >= 0;
    }
    // False when the file ends before.
    bool readWhole(void *bytes, CodUint64 size) const {
        auto *next = static_cast<char *>(bytes);
        while (size > 0) {
            const ssize_t got = read(fd_, next, size);
            if (got <= 0 && !(got < 0 && errno == EINTR)) {
                return false;
            }
            next += std::max<ssize_t>(got, 0);
            size -= static_cast<CodUint64>(std::max<ssize_t>(got, 0));
        }
        return true;
    }
    CodUint64 size() const {
        struct stat status = {};
        return fstat(fd_, &status) == 0 ? static_cast<CodUint64>(status.st_size) : 0;
    }

private:
    int fd_;
};

COD_COLD CodResult raiseInvalid() {
    return codRaise(ERR_CMM_INVALID_CODEPAGE);
}

void freePage(Codepage *page) {
    for (const CodepageTable &table : {page->caseFold, page->toUnicode, page->fromUnicode}) {
        codSysFree(table.index);
        codSysFree(table.map);
    }
    *page = {};
}

CodUint64 sizeOfTables(const CodepageHead &head) {
    return CodUint64{head.casefoldIndexSize} + head.casefoldMapSize + head.toUnicodeIndexSize + head.toUnicodeMapSize +
           head.fromUnicodeIndexSize + head.fromUnicodeMapSize;
}

// A head that promises more than the file has must not make us take that much memory.
bool isHeadOf(const CodepageHead &head, CodUint32 id, CodUint64 fileSize) {
    const CodUint64 tables = sizeOfTables(head);
    const bool isLayoutKnown = head.dim == cod::kCodepageDim && head.wordWidth == kPages[id].wordWidth;
    return head.isBigEnd == 0 && head.id == id && head.type == kPages[id].type && fileSize == sizeof(head) + tables &&
           (tables == 0 || isLayoutKnown);
}

// Size 0 is no table.
CodResult readTable(const PageFile &file, CodUint32 size, void **table) {
    if (size == 0) {
        return COD_SUCCESS;
    }
    COD_TRY(codSysAlloc(size, table));
    return file.readWhole(*table, size) ? COD_SUCCESS : raiseInvalid();
}

template <class Word>
bool areWords(const void *map, CodUint32 size, IsWord isWord) {
    const auto *words = static_cast<const Word *>(map);
    return std::all_of(words, words + size / sizeof(Word), isWord);
}

// What lookups rely on: every entry of the index is a block of the map, and the words are what they should be.
CodResult readTables(const PageFile &file, CodUint32 indexSize, CodUint32 mapSize, const PageRow &row, CodUint32 planes, IsWord isWord,
                     CodepageTable *table) {
    const CodUint32 blockSize = cod::kCodepageBlock * row.wordWidth * planes;
    void *index = nullptr;
    const CodResult result = readTable(file, indexSize, &index);
    table->index = static_cast<CodUint16 *>(index);
    COD_TRY(result);
    COD_TRY(readTable(file, mapSize, &table->map));
    table->blocks = indexSize / sizeof(CodUint16);
    const bool isWhole = indexSize % sizeof(CodUint16) == 0 && mapSize % blockSize == 0 && (indexSize == 0) == (mapSize == 0);
    const auto isInMap = [count = mapSize / blockSize](CodUint16 block) { return block < count; };
    if (!isWhole || !std::all_of(table->index, table->index + table->blocks, isInMap)) {
        return raiseInvalid();
    }
    const bool areSound = row.wordWidth == sizeof(CodUint16) ? areWords<CodUint16>(table->map, mapSize, isWord)
                                                             : areWords<CodUint32>(table->map, mapSize, isWord);
    return areSound ? COD_SUCCESS : raiseInvalid();
}

CodResult readPage(const PageFile &file, CodUint32 id, Codepage *page) {
    const CodepageHead &head = page->head;
    if (!file.readWhole(&page->head, sizeof(head)) || !isHeadOf(head, id, file.size())) {
        return raiseInvalid();
    }
    const PageRow &row = kPages[id];
    COD_TRY(readTables(file, head.casefoldIndexSize, head.casefoldMapSize, row, cod::kCaseFoldPlanes, row.isCode, &page->caseFold));
    COD_TRY(readTables(file, head.toUnicodeIndexSize, head.toUnicodeMapSize, row, 1, isScalarValue, &page->toUnicode));
    return readTables(file, head.fromUnicodeIndexSize, head.fromUnicodeMapSize, row, 1, row.isCode, &page->fromUnicode);
}

CodResult loadPage(const char *directory, CodUint32 id) {
    char path[PATH_MAX];
    const int length = snprintf(path, sizeof(path), "%s/%s", directory, kPages[id].name);
    if (length >= static_cast<int>(sizeof(path))) {
        return codRaise(ERR_CMM_OPEN_FILE, kPages[id].name, codSysErrDesc(ENAMETOOLONG));
    }
    const PageFile file(path);
    if (!file.isOpen()) {
        return codRaise(ERR_CMM_OPEN_FILE, path, codSysErrDesc(static_cast<CodUint32>(errno)));
    }
    Codepage page = {};
    const CodResult result = readPage(file, id, &page);
    if (result != COD_SUCCESS) {
        freePage(&page);
        return result;
    }
    page.isLoaded = true;
    gCodepages[id] = page;
    return COD_SUCCESS;
}

}  // namespace

CodResult aniCodepageInit() {
    const char *home = getenv(kHomeVariable);
    if (home == nullptr) {
        return codRaise(ERR_CMM_ENV_ERROR, kHomeVariable, codSysErrDesc(ENOENT));
    }
    char directory[PATH_MAX];
    if (snprintf(directory, sizeof(directory), "%s/admin/codepage", home) >= static_cast<int>(sizeof(directory))) {
        return codRaise(ERR_CMM_OPEN_FILE, kPages[0].name, codSysErrDesc(ENAMETOOLONG));
    }
    return aniCodepageInitFrom(directory);
}

CodResult aniCodepageInitFrom(const char *directory) {
    if (directory == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    for (CodUint32 id = 0; id < __CODEPAGE_COUNT__; id++) {
        if (!gCodepages[id].isLoaded) {
            COD_TRY(loadPage(directory, id));
        }
        if (gCodepages[id].head.version != COD_CODEPAGE_VERSION) {
            return raiseInvalid();
        }
    }
    return COD_SUCCESS;
}

void aniCodepageClose() {
    for (Codepage &page : gCodepages) {
        freePage(&page);
    }
}

CodBool isCodepageInit(CodUint32 id) {
    return id < __CODEPAGE_COUNT__ && gCodepages[id].isLoaded;
}

// ---- Character sets ----

// By charset: ASCII, GBK, UTF8, ISO88591, UTF16, GB18030.
const CodUint32 gCharsetCodepageMap[256] = {CODEPAGE_ISO88591, CODEPAGE_GBK, CODEPAGE_UCS,
                                            CODEPAGE_ISO88591, CODEPAGE_UCS, CODEPAGE_GB18030};

CodUint32 aniGetCodepageIdByCharset(CodUint16 charset) {
    return charset < 256 ? gCharsetCodepageMap[charset] : static_cast<CodUint32>(CODEPAGE_ISO88591);
}

// ---- Elements ----

namespace {

// find.operator()<id>() of a character set's page; 0 for other ids.
template <class Find>
CodUint32 inCharset(CodUint32 id, Find find) {
    switch (id) {
        case CODEPAGE_ISO88591:
            return find.template operator()<CODEPAGE_ISO88591>();
        case CODEPAGE_GBK:
            return find.template operator()<CODEPAGE_GBK>();
        case CODEPAGE_UCS:
            return find.template operator()<CODEPAGE_UCS>();
        case CODEPAGE_GB18030:
            return find.template operator()<CODEPAGE_GB18030>();
        default:
            return 0;
    }
}

void tellNull(CodBool *isNull, bool value) {
    if (isNull != nullptr) {
        *isNull = value;
    }
}

bool hasNul(CodUint32 id) {
    return isCodepageInit(id) && kPages[id].type == CODEPAGE_TYPE_CHARSET;
}

CodUint32 mapped(CodUint32 id, CodUint32 key, CodUint32 element, CodBool *isNull) {
    tellNull(isNull, element == 0 && !(key == 0 && hasNul(id)));
    return element;
}

CodUint32 folded(CodUint32 code, CodUint32 element, CodBool *isNull) {
    tellNull(isNull, element == 0);
    return element == 0 ? code : element;
}

}  // namespace

CodUint32 aniCodepageGetElementFromUni(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull) {
    const auto find = [=]<CodUint32 id>() { return cod::unicodeToCode<id>(codePoint); };
    return mapped(codepageId, codePoint, inCharset(codepageId, find), isNull);
}

CodUint32 aniCodepageGetElementToUni(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull) {
    const auto find = [=]<CodUint32 id>() { return cod::codeToUnicode<id>(codePoint); };
    return mapped(codepageId, codePoint, inCharset(codepageId, find), isNull);
}

CodUint32 aniCodepageGetElementSort(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull) {
    const CodUint32 weight = codepageId == CODEPAGE_PINYIN_SORT ? cod::pinyinWeight(codePoint) : 0;
    tellNull(isNull, weight == 0);
    return weight;
}

CodUint32 aniCodepageGetElementToLower(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull) {
    const auto find = [=]<CodUint32 id>() { return cod::codeToLower<id>(codePoint); };
    return folded(codePoint, inCharset(codepageId, find), isNull);
}

CodUint32 aniCodepageGetElementToUpper(CodUint32 codepageId, CodUint32 codePoint, CodBool *isNull) {
    const auto find = [=]<CodUint32 id>() { return cod::codeToUpper<id>(codePoint); };
    return folded(codePoint, inCharset(codepageId, find), isNull);
}

CodUint32 gb18030GetCpElementFromUni(CodUint32 codePoint, CodBool *isNull) {
    return aniCodepageGetElementFromUni(CODEPAGE_GB18030, codePoint, isNull);
}

CodUint32 gb18030CpGetElementLower(CodUint32 codePoint, CodBool *isNull) {
    return aniCodepageGetElementToLower(CODEPAGE_GB18030, codePoint, isNull);
}

CodUint32 gb18030CpGetElementUpper(CodUint32 codePoint, CodBool *isNull) {
    return aniCodepageGetElementToUpper(CODEPAGE_GB18030, codePoint, isNull);
}
