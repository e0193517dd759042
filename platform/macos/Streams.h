#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

namespace platform::macos {

/// A delegate that belongs to an Objective-C object. Streams make that object their delegate, and
/// it passes events on with `deliver`.
class ObjectDelegate {
public:
    virtual ~ObjectDelegate() = default;
    [[nodiscard]] virtual id<NSStreamDelegate> delegateObject() const = 0;
};

/// Passes an event of a Foundation stream to a delegate.
void deliver(NSStreamDelegate& delegate, ::NSStream* stream, ::NSStreamEvent event);

} // namespace platform::macos
