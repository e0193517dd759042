#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

#include <memory>

namespace platform::macos {

/// Wraps a Foundation URL.
class URL : public NSURL {
public:
    /// Callers of the extension may pass nil: a URL without path and without file-path form.
    explicit URL(::NSURL* url) : url_(retain(url)) {}

    [[nodiscard]] std::shared_ptr<const NSURL> filePathURL() const override;
    [[nodiscard]] std::optional<std::string> path() const override;
    [[nodiscard]] std::string description() const override;

    /// The Foundation URL, or nil.
    [[nodiscard]] ::NSURL* object() const { return url_.get(); }

private:
    Reference<::NSURL*> url_;
};

/// The Foundation URL in `url`, which this back end has made.
[[nodiscard]] inline ::NSURL* urlObject(const NSURL& url) {
    return static_cast<const URL&>(url).object();
}

} // namespace platform::macos
