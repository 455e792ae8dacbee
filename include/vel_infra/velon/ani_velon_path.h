#ifndef VEL_INFRA_VELON_ANI_VELON_PATH_H
#define VEL_INFRA_VELON_ANI_VELON_PATH_H

/* Lookup by path: $.order.lines[3]."unit price"
 *
 *   $                 the root, first in every path
 *   .name             a member; letters, digits, "_", "$" and bytes above 127, no digit first
 *   ."any" .'any'     a member whose key is what stands between the quotes, as it stands: there are no escapes
 *   [3]               an element, from 0
 *   [last] [last-1]   an element, from the end
 *   .* [*]            every member, every element
 *   .name()           a function, in last place: count, size, type
 *
 * Blanks may stand between the pieces. A step that does not fit a value, such as [0] on an object, leads nowhere and is no error. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* The one value that the path leads to.
 * Errors: the readers'; ERR_CMM_VELON_PATH_EXPR_SYNTAX_ERROR with the column (bytes, from 1), also for an unknown function;
 * ERR_CMM_VELON_PATH_EXPR_NO_RESULT; ERR_CMM_VELON_PATH_EXPR_MANY_RESULTS; ERR_CMM_VELON_PATH_EXPR_FUNC_NEEDS_WRAP for a path that ends in
 * a function, whose result stands nowhere in the document; ERR_CMM_VELON_NESTING_TOO_DEEPLY where "*" leads to more than VELON_MAX_DEPTH
 * levels or too much work. */
COD_NODISCARD COD_API CodResult velonGetPath(const Velon *velon, const CodText *path, VelonLazyValue *value);

COD_END_DECLS

#endif
