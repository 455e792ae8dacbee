#pragma once

// Checks that operations on dates share.

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_datetime.h>

namespace cod {

COD_COLD inline CodResult raiseNullDate() {
    return codRaise(ERR_CMM_POINTER_NULL);
}

COD_COLD inline CodResult raiseDateOverflow() {
    return codRaise(ERR_CMM_DATE_OVERFLOW);
}

// The value is in low to high, both included, or it is an error.
inline CodResult checkDateIn(CodDate date, CodDate low, CodDate high) {
    const bool isIn =
        static_cast<CodUint64>(date) - static_cast<CodUint64>(low) <= static_cast<CodUint64>(high) - static_cast<CodUint64>(low);
    return COD_LIKELY(isIn) ? COD_SUCCESS : raiseDateOverflow();
}

}  // namespace cod
