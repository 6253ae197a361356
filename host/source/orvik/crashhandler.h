#pragma once
/// @file
/// What a program says when a fatal signal ends it.

#include "orvik/apibase.h"

namespace orvik {

/// From now on SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV and SIGSYS write the signal and the crash report properties
/// that are alive to standard error; then the signal ends the program as it would have done without this. A signal that
/// has a handler already, or is ignored, is left alone. An overflow of the calling thread's stack is reported too; on
/// other threads it ends the program in silence.
///
/// A `std::bad_alloc` that nothing catches says "Out of memory." and ends the program with status 1.
ORVIK_API void InstallCrashHandler() noexcept;

}  // namespace orvik
