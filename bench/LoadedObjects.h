#pragma once

#include "bench/Loopback.h"

#include <string>
#include <vector>

namespace findersync::bench {

/// Runs both programs until they have connected to the listener, and throws when they have not
/// loaded the same shared objects: then neither their start-up nor their memory can be compared.
void requireSameObjects(const std::vector<std::string>& one, const std::vector<std::string>& other,
                        const LoopbackListener& listener);

} // namespace findersync::bench
