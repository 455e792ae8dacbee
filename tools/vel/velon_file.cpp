#include "velon_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon_json.h>

namespace vel {

namespace {

constexpr CodUint64 kFirstCapacity = 1048576;
constexpr CodUint64 kTextLimit = UINT32_MAX;

// In its template. The others of JSON text have the position beside it.
bool tellsPosition(CodError code) {
    return code == ERR_CMM_VELON_JSON_SYNTAX_ERROR || code == ERR_CMM_VELON_INVALID_UNICODE_ESCAPE;
}

}  // namespace

CodResult WholeInput::feed(const char *bytes, CodUint64 size) {
    if (size_ + size > limit_) {
        char limit[kUnitsSize];
        char reason[kUnitsSize + 32];
        snprintf(reason, sizeof(reason), "it is larger than %s", formatUnits(limit_, "byte", limit));
        return codRaise(ERR_CMM_INVALID_FILE, name_, reason);
    }
    if (size_ + size > capacity_) {
        const CodUint64 capacity = std::min(std::max({kFirstCapacity, 2 * capacity_, size_ + size}), limit_);
        COD_TRY(codSysExtend(&bytes_, size_, capacity, true));
        capacity_ = capacity;
    }
    memcpy(static_cast<char *>(bytes_) + size_, bytes, size);
    size_ += size;
    return COD_SUCCESS;
}

CodResult VelonFile::raiseAgain() const {
    char text[2 * PrintableName::kNameLimit + 64];
    const CodError code = codGetErrorCode();
    const CodTextPos pos = codGetErrorPos();
    const int length = snprintf(text, sizeof(text), "%s: %s", name(), PrintableName(codGetLastErrorMsg()).str());
    if (pos.line > 0 && !tellsPosition(code)) {
        snprintf(text + length, sizeof(text) - static_cast<size_t>(length), " at line %u column %u", pos.line, pos.column);
    }
    codCleanCurError();
    codSetError(__FILE__, __LINE__, __func__, code, "%s", text);
    return COD_ERROR;
}

CodResult VelonFile::readContent(CodUint64 limit) {
    COD_TRY(input_.openForReading());
    content_.setLimit(limit);
    return input_.readAll(&content_, nullptr);
}

CodResult VelonFile::readDocument() {
    COD_TRY(readContent(VELON_MAX_SIZE));
    const VelonData data = {content_.bytes(), static_cast<CodUint32>(content_.size()), 0};
    document_ = velonNew(nullptr, &data);
    return velonCheckData(&document_) == COD_SUCCESS ? COD_SUCCESS : raiseAgain();
}

CodResult VelonFile::readJson() {
    COD_TRY(readContent(kTextLimit));
    const CodText text = {static_cast<char *>(static_cast<void *>(const_cast<CodUint8 *>(content_.bytes()))),
                          static_cast<CodUint32>(content_.size()), 0};
    return velonFromJson(codMemGetSystemAlloc(), &text, &document_) == COD_SUCCESS ? COD_SUCCESS : raiseAgain();
}

}  // namespace vel
