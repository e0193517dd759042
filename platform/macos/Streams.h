#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

namespace platform::macos {

/// A delegate that is the C++ half of an Objective-C object. Streams make that object their
/// delegate; it passes events on with `deliver`.
class ObjectDelegate {
public:
    virtual ~ObjectDelegate() = default;
    [[nodiscard]] virtual id<NSStreamDelegate> delegateObject() const = 0;
};

/// Tells a delegate of an event of a stream of the platform's.
void deliver(NSStreamDelegate& delegate, ::NSStream* stream, ::NSStreamEvent event);

} // namespace platform::macos
