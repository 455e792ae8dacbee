#ifndef VEL_INFRA_ERROR_ANI_ERROR_CODE_H
#define VEL_INFRA_ERROR_ANI_ERROR_CODE_H

/* Error codes and their templates. Both come from the rows of the two .def files: a row gives the enumerator (ERR_CMM_NO_DATA_FOUND)
 * and the text ERR_CMM_NO_DATA_FOUND_FMT that codRaise passes on, so that the compiler checks a raiser's arguments against it. */

#include <vel_infra/base/cod_types.h>

enum {
#define ERR(code, name, fmt) name = (code),
#include <vel_infra/error/ani_error_ans.def>
#include <vel_infra/error/ani_error_cmm.def>
#undef ERR
};

#ifdef __cplusplus
#define ERR(code, name, fmt) inline constexpr char name##_FMT[] = fmt;
#else
#define ERR(code, name, fmt) static const char name##_FMT[] = fmt;
#endif
#include <vel_infra/error/ani_error_ans.def>
#include <vel_infra/error/ani_error_cmm.def>
#undef ERR

#endif
