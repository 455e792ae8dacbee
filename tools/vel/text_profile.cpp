#include "text_profile.h"

#include <vel_infra/error/ani_error_base.h>

namespace vel {

void TextProfile::init(MemoryContext *shared, const CodCollation *collation) {
    const CodCollation *const bytewise = codGetCollation(UTF8, BINARY, CASE_SENS);
    shared_ = shared;
    collation_ = collation != nullptr ? collation : bytewise;
    isByBytes_ = collation_ == bytewise;
}

void TextProfile::measure(const CodText &value, CodUint64 row) {
    CodUint32 characters = 0;
    if (collation_->length(&value, &characters) != COD_SUCCESS) {
        codCleanCurError();
        firstInvalidRow_ = row;
    } else {
        noteCharacters(value, characters);
    }
}

CodResult TextProfile::start() {
    void *place = nullptr;
    COD_TRY(mctxAlloc(shared_, 2 * kComparedBytes, &place));
    minimum_.compared.str = static_cast<char *>(place);
    maximum_.compared.str = minimum_.compared.str + kComparedBytes;
    return COD_SUCCESS;
}

CodResult TextProfile::order(const CodText &value, CodUint64 prefix) {
    CodText beginning = value;
    if (beginning.len > kComparedBytes) {
        beginning.len = collation_->charBoundary(&value, kComparedBytes);
    }
    const bool isFirst = minimum_.compared.str == nullptr;
    if (isFirst) {
        COD_TRY(start());
    }
    if (isFirst || collation_->compare(&beginning, &minimum_.compared) < 0) {
        minimum_.set(value, beginning, prefix);
    }
    if (isFirst || collation_->compare(&beginning, &maximum_.compared) > 0) {
        maximum_.set(value, beginning, prefix);
    }
    return COD_SUCCESS;
}

void TextProfile::End::set(const CodText &value, const CodText &beginning, CodUint64 valuePrefix) {
    prefix = valuePrefix;
    memcpy(compared.str, beginning.str, beginning.len);
    compared.len = beginning.len;
    shown.set(value);
}

}  // namespace vel
