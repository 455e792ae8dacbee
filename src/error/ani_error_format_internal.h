#pragma once

#include <stdarg.h>

#include <vel_infra/base/cod_types.h>

namespace cod {

// vsnprintf, byte for byte, and faster for the conversions that message templates are made of: %s %d %u %ld %lu and %%. A template
// with any other goes to vsnprintf as a whole.
int formatText(CodChar *buffer, CodUint32 room, const char *fmt, va_list args) COD_PRINTF(3, 0);

}  // namespace cod
