#include <vel_infra/velon/ani_velon_lazy.h>

#include "velon/ani_velon_base_internal.h"

using namespace cod::velon;

namespace {

template <VelonType kType>
inline CodResult getLazy(const VelonLazyValue *lazy, ValueOf<kType> *value) {
    if (anyNull(lazy, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (COD_UNLIKELY(lazy->type != kType)) {
        return raiseUnexpectedType(kType, static_cast<CodUint32>(lazy->type));
    }
    return lazy->isArrayMember ? readElement<kType>(lazy->data, lazy->valuePos, value) : readPayload<kType>(lazy->data, 1, value);
}

}  // namespace

#define VELON_LAZY_GETTER(Name, ValueType, TYPE, member)                         \
    CodResult velonLazyGet##Name(const VelonLazyValue *lazy, ValueType *value) { \
        return getLazy<VELON_TYPE_##TYPE>(lazy, value);                          \
    }
VELON_FOR_EACH_TYPE(VELON_LAZY_GETTER)
