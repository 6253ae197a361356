// Prints the size of a picture. With pkg-config:
//   g++ picture_size.cpp $(pkg-config --cflags --libs orvik-image) -o picture_size

#include <cstdio>

#include "orvik/gfx_image.h"
#include "orvik/host.h"
#include "orvik/mediasession_session.h"

namespace {

orvik::Result<void> PrintSize(const char* path) {
    const orvik::Host host = TRY(orvik::Host::Start());
    const orvik::ImageTextureRef picture = TRY(orvik::ImageTextureInterface::LoadTexture(
        orvik::Url(path), orvik::TimeValue(), orvik::MEDIASESSIONFLAGS::NONE, orvik::ClassRef(), orvik::LayerSet()));
    std::printf("%lld x %lld\n", static_cast<long long>(picture->GetWidth()),
                static_cast<long long>(picture->GetHeight()));
    return {};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: picture_size PICTURE\n", stderr);
        return 2;
    }
    if (const orvik::Result<void> printed = PrintSize(argv[1]); !printed) {
        std::fprintf(stderr, "%s: %s\n", argv[1], printed.GetError()->ToString().GetCString());
        return 1;
    }
    return 0;
}
