#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>

// The input as the file of the page that its head names, beside files without tables. What loads is looked up all over: no lookup may leave
// the tables.

namespace {

constexpr const char *kNames[] = {"iso88591", "gbk", "ucs", "pinyin.sort", "gb18030"};

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

struct Folder {
    Folder() : path(std::filesystem::temp_directory_path() / ("codepage_fuzz." + std::to_string(getpid()))) {
        std::filesystem::create_directory(path);
        for (CodUint32 id = 0; id < __CODEPAGE_COUNT__; id++) {
            writeEmpty(id);
        }
    }
    ~Folder() {
        std::filesystem::remove_all(path);
    }
    void write(CodUint32 id, const void *bytes, std::size_t size) const {
        std::ofstream(path / kNames[id], std::ios::binary).write(static_cast<const char *>(bytes), static_cast<std::streamsize>(size));
    }
    void writeEmpty(CodUint32 id) const {
        CodepageHead head = {};
        head.type = id == CODEPAGE_PINYIN_SORT ? CODEPAGE_TYPE_SORT : CODEPAGE_TYPE_CHARSET;
        head.version = COD_CODEPAGE_VERSION;
        head.id = static_cast<CodUint16>(id);
        write(id, &head, sizeof(head));
    }

    const std::filesystem::path path;
};

void lookUp(CodUint32 id, CodUint32 key) {
    constexpr std::array kLookups = {aniCodepageGetElementFromUni, aniCodepageGetElementToUni, aniCodepageGetElementSort,
                                     aniCodepageGetElementToLower, aniCodepageGetElementToUpper};
    for (const auto call : kLookups) {
        CodBool isNull = false;
        const CodUint32 element = call(id, key, &isNull);
        require(!isNull || element == 0 || element == key);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const Folder folder;
    const CodUint32 page = size > 64 ? data[64] % __CODEPAGE_COUNT__ : 0;
    folder.write(page, data, size);
    const bool isGood = aniCodepageInitFrom(folder.path.c_str()) == COD_SUCCESS;
    require(isGood || codGetErrorCode() == ERR_CMM_INVALID_CODEPAGE);
    for (CodUint32 key = 0; key < 0x20000 && isCodepageInit(page); key += key % 64 == 63 ? 1 : 63) {
        lookUp(page, key);
        lookUp(page, 0x81308130 + key);
        lookUp(page, 0u - key);
    }
    folder.writeEmpty(page);
    aniCodepageClose();
    codCleanError();
    return 0;
}
