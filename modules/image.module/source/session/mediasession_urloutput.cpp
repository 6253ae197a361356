#include "session/mediasession_urloutput.h"

#include "base/registration.h"

namespace orvik {

Result<void> MediaOutputUrlBaseImpl::SetOutputUrl(const Url& url) {
    _url = url;
    return {};
}

Result<void> RegisterMediaSessionUrlOutput(Publisher& publisher) {
    return publisher.PublishClass<MediaOutputUrlBaseImpl>(mediaclasses::kOutputUrlBase);
}

}  // namespace orvik
