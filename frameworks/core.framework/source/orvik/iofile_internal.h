#pragma once
/// @file
/// What `Url` opens; not part of the installed interface.

#include "orvik/iostreams.h"

namespace orvik {

/// @return the C library's text of an error number, in English whatever the locale
const char* ErrnoText(int number) noexcept;

Result<InputStreamRef> OpenFileInput(const Url& url);
Result<OutputStreamRef> OpenFileOutput(const Url& url);
Result<std::pair<InputStreamRef, OutputStreamRef>> OpenFileInOut(const Url& url);

class MemoryFile;
Result<std::pair<InputStreamRef, OutputStreamRef>> OpenMemoryInOut(const Ref<MemoryFile>& file, const Url& url);

}  // namespace orvik
