#include "platform/Foundation.h"
#include "platform/macos/Strings.h"

namespace platform {

std::string mainBundlePath() {
    @autoreleasepool {
        return macos::utf8Text([[::NSBundle mainBundle] bundlePath]);
    }
}

} // namespace platform
