#include <cstdio>
#include <cstdlib>

#include "../tests/velon/velon_walk.h"

// The input as a document, for validation and all readers.

extern "C" int LLVMFuzzerTestOneInput(const CodUint8 *data, std::size_t size) {
    velon_model::Walker walker(1000);
    walker.walk(velon_model::Bytes(data, data + size));
    for (const auto &fault : walker.faults) {
        std::puts(fault.c_str());
    }
    return walker.faults.empty() ? 0 : (std::abort(), 1);
}
