#ifndef VEL_INFRA_VEL_INFRA_H
#define VEL_INFRA_VEL_INFRA_H

/* libvel_infra: the common ground of a relational database server. This header includes all others.
 *
 * Conventions, for every module:
 * 1. Errors. A fallible function returns a CodResult. On failure it leaves one error on the calling thread's error stack and returns
 *    COD_ERROR; its comment names the errors that it raises itself. Callers pass the failure on as it is.
 * 2. Ownership. Texts and byte strings are borrowed for the call unless the comment says otherwise. Memory handed out belongs to
 *    the allocator, context or buffer that the caller named.
 * 3. Null. A null pointer where none is allowed is ERR_CMM_POINTER_NULL; a function that cannot fail does nothing with it, or
 *    returns null, zero or false. Ready callbacks (hashes, comparisons, bucket functions) expect what their caller promises.
 * 4. Threads. A function without a word about threads touches only its arguments and the calling thread's error stack.
 * 5. Sizes and lengths are bytes, counts are items, unless stated.
 * 6. Records whose size or offsets are asserted are the binary interface: they never change. */

#include <vel_infra/base/cod_export.h>
#include <vel_infra/base/cod_types.h>

#include <vel_infra/utils/ani_clock.h>

#include <vel_infra/adr/ani_log_base.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/error/ani_error_code.h>

#include <vel_infra/adr/ani_alert.h>
#include <vel_infra/adr/ani_blackbox.h>

#include <vel_infra/lock/ani_latch.h>
#include <vel_infra/lock/ani_lock.h>
#include <vel_infra/lock/ani_lock_order.h>

#include <vel_infra/memory/ani_allocator.h>
#include <vel_infra/memory/ani_mem_rsrc.h>
#include <vel_infra/memory/ani_memory.h>
#include <vel_infra/memory/ani_stack.h>

#include <vel_infra/collection/ani_darray.h>
#include <vel_infra/collection/ani_hashmap.h>

#include <vel_infra/algorithm/ani_hashfunc.h>
#include <vel_infra/algorithm/ani_hyperloglog.h>

#include <vel_infra/error/ani_error.h>
#include <vel_infra/error/ani_error_def.h>

#include <vel_infra/number/ani_int256.h>
#include <vel_infra/number/ani_number.h>
#include <vel_infra/number/ani_number_batch.h>
#include <vel_infra/number/ani_number_key.h>
#include <vel_infra/number/ani_number_sum.h>

#include <vel_infra/codepage/ani_codepage.h>

#include <vel_infra/string/ani_charset.h>
#include <vel_infra/string/ani_collation.h>
#include <vel_infra/string/ani_convert.h>
#include <vel_infra/string/ani_number_form.h>
#include <vel_infra/string/ani_string.h>

#include <vel_infra/utils/ani_timer.h>

#include <vel_infra/utils/ani_date_iso.h>
#include <vel_infra/utils/ani_datetime.h>
#include <vel_infra/utils/ani_interval.h>

#include <vel_infra/adr/ani_log.h>

#include <vel_infra/bits/ani_bits.h>

#include <vel_infra/bitops/ani_bitcolumn.h>
#include <vel_infra/bitops/ani_bitpack.h>
#include <vel_infra/bitops/ani_bitvec.h>

#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_array.h>
#include <vel_infra/velon/ani_velon_base.h>
#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_build_array.h>
#include <vel_infra/velon/ani_velon_build_object.h>
#include <vel_infra/velon/ani_velon_build_scalar.h>
#include <vel_infra/velon/ani_velon_data.h>
#include <vel_infra/velon/ani_velon_equal.h>
#include <vel_infra/velon/ani_velon_json.h>
#include <vel_infra/velon/ani_velon_lazy.h>
#include <vel_infra/velon/ani_velon_object.h>
#include <vel_infra/velon/ani_velon_order.h>
#include <vel_infra/velon/ani_velon_patch.h>
#include <vel_infra/velon/ani_velon_path.h>
#include <vel_infra/velon/ani_velon_util.h>

#include <vel_infra/infra/ani_infra.h>

#endif
