#ifndef VEL_VELON_FILE_H
#define VEL_VELON_FILE_H

#include <vel_infra/velon/ani_velon.h>

#include "input_file.h"

namespace vel {

// The offsets in a container's table count from here, its type byte being 0.
constexpr CodUint32 kVelonCountAt = 5;

// Whether an array's entry holds a value of this type itself.
inline bool isInlineInVelon(VelonType type) {
    return type == VELON_TYPE_FLOAT || (type >= VELON_TYPE_BOOL && type <= VELON_TYPE_INTEGER);
}

// All bytes of an input.
class WholeInput final : public PieceSink {
public:
    // name, for messages, must outlive the input.
    explicit WholeInput(const char *name) : name_(name) {}
    ~WholeInput() {
        codSysFree(bytes_);
    }
    WholeInput(const WholeInput &) = delete;
    WholeInput &operator=(const WholeInput &) = delete;

    // Once, before the first byte.
    void setLimit(CodUint64 limit) {
        limit_ = limit;
    }
    // Errors: ERR_CMM_INVALID_FILE for a byte beyond the limit; those of codSysExtend.
    CodResult feed(const char *bytes, CodUint64 size) override;
    CodResult finish() override {
        return COD_SUCCESS;
    }
    CodUint64 rows() const override {
        return 0;
    }

    const CodUint8 *bytes() const {
        return static_cast<const CodUint8 *>(bytes_);
    }
    CodUint64 size() const {
        return size_;
    }

private:
    const char *name_;
    CodUint64 limit_ = 0;
    CodUint64 size_ = 0;
    CodUint64 capacity_ = 0;
    void *bytes_ = nullptr;
};

// A document out of a file.
class VelonFile {
public:
    // "-" is standard input. path must outlive the file.
    explicit VelonFile(const char *path) : input_(path), content_(input_.name()) {
        velonInit(&document_);
    }
    ~VelonFile() {
        velonFree(&document_);
    }
    VelonFile(const VelonFile &) = delete;
    VelonFile &operator=(const VelonFile &) = delete;

    // One of both, once: the file is a document, which is validated, or JSON text.
    // Errors: those of InputFile; ERR_CMM_INVALID_FILE for a document above VELON_MAX_SIZE and a text of 4 GiB; with the file's name
    // those of velonCheckData and velonFromJson.
    CodResult readDocument();
    CodResult readJson();

    const Velon &document() const {
        return document_;
    }
    CodUint64 fileSize() const {
        return content_.size();
    }
    // For messages.
    const char *name() const {
        return input_.name();
    }
    // The newest error again, fit for one line, with the file's name in front.
    CodResult raiseAgain() const;

private:
    CodResult readContent(CodUint64 limit);

    InputFile input_;
    WholeInput content_;
    Velon document_;
};

}  // namespace vel

#endif
