#ifndef VEL_CODEPAGE_FOLDER_H
#define VEL_CODEPAGE_FOLDER_H

#include <vel_infra/base/cod_types.h>

namespace vel {

// Loads the code pages from a folder; null: as VELDB_HOME tells, and without it from the install that the command belongs to.
// Errors: those of aniCodepageInit.
CodResult loadCodepages(const char *folder);

}  // namespace vel

#endif
