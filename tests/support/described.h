#pragma once
// Objects that describe themselves, to memory and back.

#include <gtest/gtest.h>

#include "orvik/dataserialize.h"
#include "orvik/iomemory.h"

namespace orvik {

template <class T>
MemoryFileRef Written(T&& object) {
    MemoryFileRef file = CreateMemoryFile().TakeValue();
    DataSerialize io(OpenMemoryOutput(file).TakeValue());
    EXPECT_TRUE(object.DescribeIO(io));
    return file;
}
inline Block<const std::byte> BytesOf(const MemoryFileRef& file) { return std::as_const(*file).GetBytes().ToBlock(); }

template <class T>
Result<void> ReadFrom(T&& object, Block<const std::byte> bytes) {
    DataSerialize io(OpenMemoryInput(bytes).TakeValue());
    return object.DescribeIO(io);
}

}  // namespace orvik
