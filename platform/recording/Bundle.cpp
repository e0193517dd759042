#include "platform/recording/Recording.h"

namespace platform {

std::string mainBundlePath() {
    recording::record("bundlePath");
    return "/Extensions/FinderSync.appex";
}

} // namespace platform
