#include <vel_infra/velon/ani_velon_base.h>

#include "velon/ani_velon_base_internal.h"

namespace {

constexpr char kNames[][10] = {"object",  "array",  "string", "number", "bool",   "null",      "tinyint", "smallint",
                               "integer", "bigint", "float",  "double", "binary", "timestamp", "date",    "time"};
static_assert(sizeof(kNames) / sizeof(kNames[0]) == _VELON_TYPE_COUNT_ - 1);

struct NameTexts {
    CodText texts[_VELON_TYPE_COUNT_ - 1];
};
constexpr NameTexts makeNameTexts() {
    NameTexts made = {};
    for (CodUint32 i = 0; i < _VELON_TYPE_COUNT_ - 1; i++) {
        CodUint32 length = 0;
        while (kNames[i][length] != 0) {
            length++;
        }
        made.texts[i] = {const_cast<CodChar *>(kNames[i]), length, 0};
    }
    return made;
}
constexpr NameTexts kNameTexts = makeNameTexts();

}  // namespace

CodBool velonTypeIsValid(CodUint32 type) {
    return cod::velon::isTypeCode(type);
}

const char *velonTypeName(VelonType type) {
    return cod::velon::isTypeCode(type) ? kNames[static_cast<CodUint32>(type) - 1] : nullptr;
}

const CodText *velonTypeNameText(VelonType type) {
    return cod::velon::isTypeCode(type) ? &kNameTexts.texts[static_cast<CodUint32>(type) - 1] : nullptr;
}

namespace cod::velon {

void setOutOfBounds(CodUint64 len, CodInt64 index) {
    (void)codRaise(ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS, static_cast<int>(len), static_cast<int>(index));
}

void setInvalidType(CodUint32 code) {
    (void)codRaise(ERR_CMM_VELON_INVALID_TYPE, static_cast<int>(code));
}

void setUnexpectedType(VelonType expected, CodUint32 actual) {
    if (!isTypeCode(actual)) {
        setInvalidType(actual);
        return;
    }
    const char *expectedName = velonTypeName(expected);
    (void)codRaise(ERR_CMM_VELON_UNEXPECTED_TYPE, expectedName != nullptr ? expectedName : "",
                   velonTypeName(static_cast<VelonType>(actual)));
}

void setNestedTooDeeply() {
    (void)codRaise(ERR_CMM_VELON_NESTING_TOO_DEEPLY);
}

}  // namespace cod::velon
