#pragma once
/// @file
/// Properties that a crash report shows: what the program was doing.

#include "orvik/string.h"

namespace orvik {

/// One name and value, shown from construction to destruction. Properties of a thread must be freed in reverse order;
/// scopes do that by themselves. Long values are cut at 255 bytes.
class ORVIK_API CrashReportProperty {
public:
    CrashReportProperty(std::string_view name, const String& value) noexcept;
    ~CrashReportProperty();
    CrashReportProperty(const CrashReportProperty&) = delete;
    CrashReportProperty& operator=(const CrashReportProperty&) = delete;

private:
    int _slot;
};

/// Writes "name: value" lines of all properties to a file descriptor. Safe in a signal handler: no lock, no allocation.
ORVIK_API void WriteCrashReportProperties(int fileDescriptor) noexcept;
ORVIK_API Int GetCrashReportPropertyCount() noexcept;

}  // namespace orvik
