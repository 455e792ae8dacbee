#include <cstdlib>

#include <vel_infra/velon/ani_velon_path.h>

#include "../tests/velon/velon_walk.h"

// A path against a document that the first byte chooses. What is found is a sound value of the document, and the error is a path's.

using namespace velon_model;

static const Bytes &document(CodUint8 choice) {
    const Value null, one = {VELON_TYPE_TINYINT, "\1"}, word = {VELON_TYPE_STRING, "word"};
    static const Bytes all[] = {
        encode(objectOf({"order", "unit price", ""},
                        {objectOf({"lines"}, {arrayOf({one, word, null, objectOf({"unit price"}, {word})})}), one, null})),
        encode(arrayOf({arrayOf({one}), arrayOf({}), objectOf({"a", "b", "\xc3\xa9"}, {one, arrayOf({word}), null}), one})),
        encode(objectOf({}, {})),
        encode(objectOf({"a"}, {objectOf({"a"}, {arrayOf({objectOf({"a"}, {one})})})})),
        encode(word),
    };
    return all[choice % std::size(all)];
}

extern "C" int LLVMFuzzerTestOneInput(const CodUint8 *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const Bytes &bytes = document(data[0]);
    std::vector<char> exact(data + 1, data + size);
    const CodText path = {exact.data(), static_cast<CodUint32>(exact.size()), 0};
    const VelonData view = velonDataNew(reinterpret_cast<const CodUint8 *>(bytes.data()), static_cast<CodUint32>(bytes.size()), 0);
    const Velon velon = velonNew(nullptr, &view);
    VelonLazyValue lazy;
    VelonValue value;
    codCleanError();
    const bool found = velonGetPath(&velon, &path, &lazy) == COD_SUCCESS;
    const CodError code = codGetErrorCode();
    const bool isSound = found ? code == 0 && lazyGetter(&lazy)(lazy.type, &value) == COD_SUCCESS &&
                                     velonLazyValueCheck(&lazy, 0) == COD_SUCCESS && lazy.data.ptr >= view.ptr &&
                                     lazy.data.ptr + lazy.data.len <= view.ptr + view.len
                               : code >= ERR_CMM_VELON_PATH_EXPR_SYNTAX_ERROR && code <= ERR_CMM_VELON_PATH_EXPR_FUNC_NEEDS_WRAP &&
                                     codGetErrorStackDepth() == 1;
    return isSound ? 0 : (std::abort(), 1);
}
