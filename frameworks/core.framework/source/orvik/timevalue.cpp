#include "orvik/timevalue.h"

#include <chrono>

namespace orvik {

TimeValue TimeValue::GetTime() {
    const std::chrono::duration<Float> now = std::chrono::steady_clock::now().time_since_epoch();
    return FromSeconds(now.count());
}

}  // namespace orvik
