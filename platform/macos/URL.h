#pragma once

#include "platform/Foundation.h"
#include "platform/macos/Reference.h"

#include <memory>

namespace platform::macos {

/// A URL of the platform's.
class URL : public NSURL {
public:
    /// Nil, which a caller of the extension may pass, gives a URL without path or file-path form.
    explicit URL(::NSURL* url) : url_(retain(url)) {}

    [[nodiscard]] std::shared_ptr<const NSURL> filePathURL() const override;
    [[nodiscard]] std::optional<std::string> path() const override;
    [[nodiscard]] std::string description() const override;

    /// The platform's object.
    [[nodiscard]] ::NSURL* object() const { return url_.get(); }

private:
    Reference<::NSURL*> url_;
};

/// The platform's object behind a URL: every URL here comes from this back end.
[[nodiscard]] inline ::NSURL* urlObject(const NSURL& url) {
    return static_cast<const URL&>(url).object();
}

} // namespace platform::macos
