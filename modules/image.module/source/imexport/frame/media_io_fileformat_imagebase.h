#pragma once
/// @file
/// File formats and handlers as objects: both are made from a row of the format table.

#include "imexport/frame/media_io_formats.h"

#include "orvik/mediasession_output.h"

namespace orvik {

/// Base class of the image file formats. Its `Detect` returns the function-not-implemented error.
class FileFormatImageBase : public virtual FileFormatInterface {
public:
    static constexpr Id kClassId{"net.orvik.image.class.fileformatimagebase"};
};

/// The file format of a row.
class FileFormatImpl : public FileFormatImageBase {
public:
    explicit FileFormatImpl(const FileFormatEntry& entry) : _entry(entry) {}

    Result<Bool> Detect(const Url& url, const InputStreamRef& stream) const override {
        return _entry.detect(url, stream);
    }
    Id GetFormatId() const override { return _entry.format; }
    String GetName() const override { return _entry.name; }
    Block<const std::string_view> GetSuffixes() const override { return _entry.suffixes; }
    DETECTIONSTRENGTH GetDetectionStrength() const override { return _entry.strength; }

private:
    const FileFormatEntry& _entry;
};

/// The handler of a row: makes its importer.
class FileFormatHandlerImpl : public virtual MediaSessionFileFormatHandlerInterface {
public:
    explicit FileFormatHandlerImpl(const FileFormatEntry& entry) : _entry(entry) {}

    /// From the registry, at each use.
    FileFormat GetFileFormat() const override;
    const DataType* GetHandlerType() const override;
    /// Makes an importer for the URL.
    Result<ObjectRef> CreateHandler(const Url& url) const override;
    FILEFORMAT_PRIORITY GetDependends() const override { return FILEFORMAT_PRIORITY::NATIVEFORMAT; }
    Id GetImporterClass() const override { return _entry.importer; }
    Id GetExporterClass() const override { return _entry.exporter; }

private:
    const FileFormatEntry& _entry;
};

/// @{ The creation functions of a row's classes. Their objects are equivalent to the registered ones.
template <const FileFormatEntry& Entry>
Result<ObjectRef> CreateFileFormat() {
    return ObjectRef(TRY(NewObj<FileFormatImpl>(Entry)));
}
template <const FileFormatEntry& Entry>
Result<ObjectRef> CreateFileFormatHandler() {
    return ObjectRef(TRY(NewObj<FileFormatHandlerImpl>(Entry)));
}
/// @}

}  // namespace orvik
