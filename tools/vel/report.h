#ifndef VEL_REPORT_H
#define VEL_REPORT_H

#include <stdio.h>

#include "log_profile.h"
#include "table_profile.h"

namespace vel {

// Each writes one labelled line per figure, and as the last line the totals: a report without it is not whole.
// Faults of the stream are left for the caller to find.
void writeReport(FILE *out, const TableProfile &table, const char *name);
// The same as one JSON text; name as it is, of any bytes. Errors: those of the builders, of velonToJson and of the system allocator;
// nothing has been written then.
CodResult writeJsonReport(FILE *out, const TableProfile &table, const char *name);
// Names of codes come from the registry of error definitions.
void writeLogReport(FILE *out, const LogProfile &log, const char *name);

}  // namespace vel

#endif
