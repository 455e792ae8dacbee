#ifndef VEL_VELON_DUMP_H
#define VEL_VELON_DUMP_H

#include <stdio.h>

#include <vel_infra/velon/ani_velon_base.h>

namespace vel {

// Writes a document that velonCheckData accepts, one line for each of its pieces: offset, bytes, meaning. Every byte stands in one line
// at most, whatever offsets lead to it, so that the lines are never more than the bytes allow; those that nothing leads to are told too.
//
// Errors: the readers'; those of codSysAlloc; ERR_CMM_FILE_OPER when standard output, which out is, takes no more.
CodResult writeVelonDump(FILE *out, const Velon &document);

}  // namespace vel

#endif
