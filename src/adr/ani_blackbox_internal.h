#pragma once

#include <vel_infra/base/cod_types.h>

namespace cod {

// Writes to the dump file, else to standard error; texts beyond 8 KiB are cut. Takes no lock and allocates nothing.
void dumpLine(const char *fmt, ...) COD_PRINTF(1, 2);

}  // namespace cod
