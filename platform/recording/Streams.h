#pragma once

namespace platform::recording {

/// Takes every event and every peer away from the streams that exist.
void forgetLinks();

} // namespace platform::recording
