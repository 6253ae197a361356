#include "orvik/mediasession_base.h"

#include "orvik/mediasession_session.h"

namespace orvik {

MediaSessionRef MediaBaseInterface::GetSession() const { return Unbound(); }

}  // namespace orvik
