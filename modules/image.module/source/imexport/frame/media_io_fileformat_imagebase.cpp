#include "imexport/frame/media_io_fileformat_imagebase.h"

#include "imexport/frame/media_io_importer.h"

namespace orvik {

FileFormat FileFormatHandlerImpl::GetFileFormat() const {
    return Registry::Find<FileFormatInterface>(kFileFormatRegistry, _entry.format);
}

const DataType* FileFormatHandlerImpl::GetHandlerType() const { return &GetDataType<MediaInputRef>(); }

Result<ObjectRef> FileFormatHandlerImpl::CreateHandler(const Url& url) const {
    ObjectRef importer = TRY(ClassRef(_entry.importer).Create());
    auto* source = dynamic_cast<FileImporter*>(importer.GetPointer());
    if (!source)
        return UnexpectedError();
    source->SetSourceUrl(url);
    return importer;
}

}  // namespace orvik
