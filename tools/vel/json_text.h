#ifndef VEL_JSON_TEXT_H
#define VEL_JSON_TEXT_H

#include <stdio.h>
#include <string.h>

#include <vel_infra/velon/ani_velon_json.h>

namespace vel {

inline CodText textOf(const char *text) {
    return {const_cast<char *>(text), static_cast<CodUint32>(strlen(text)), 0};
}

// A document as JSON text.
class JsonText {
public:
    JsonText() = default;
    ~JsonText() {
        codSysFree(text_.str);
    }
    JsonText(const JsonText &) = delete;
    JsonText &operator=(const JsonText &) = delete;

    // Once. Errors: those of velonToJson.
    CodResult init(const Velon &document, CodUint32 flags) {
        return velonToJson(codMemGetSystemAlloc(), &document, flags, &text_);
    }
    const CodText &text() const {
        return text_;
    }
    // With a line end behind. Faults of the stream are left for the caller to find.
    void print(FILE *out) const {
        fwrite(text_.str, 1, text_.len, out);
        fputc('\n', out);
    }

private:
    CodText text_ = {};
};

}  // namespace vel

#endif
