#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

namespace platform::macos {

/// Wraps a Foundation run loop.
class RunLoop : public NSRunLoop {
public:
    explicit RunLoop(::NSRunLoop* runLoop) : runLoop_(retain(runLoop)) {}

    [[nodiscard]] ::NSRunLoop* object() const { return runLoop_.get(); }

private:
    Reference<::NSRunLoop*> runLoop_;
};

} // namespace platform::macos
