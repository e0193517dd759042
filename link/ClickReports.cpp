// Click reports to the companion application: one compact JSON object for each click, without
// separators.

#include "extension/FinderSync.h"
#include "extension/URLParts.h"
#include "platform/System.h"

#include <utility>

namespace findersync {

namespace {

/// The paths of the items that are selected in the Finder, in its order.
platform::NSArray selectedPaths() {
    const auto selection = platform::defaultController().selectedItemURLs();
    if (!selection)
        platform::fatalError("there is no selection to report");
    platform::NSArray paths;
    for (const auto& url : *selection)
        paths.push_back({requiredPath(*url)});
    return paths;
}

} // namespace

void FinderSync::sendClickedData(const std::string& clickType) {
    platform::NSArray items = selectedPaths();
    const std::string text = JSONStringify(
        {platform::NSDictionary{{"type", {clickType}}, {"items", {std::move(items)}}}}, false);
    const std::optional<platform::NSData> data = platform::dataUsingUTF8Encoding(text);
    if (!data)
        platform::fatalError("a click report cannot be encoded");
    if (!outputStream_)
        platform::fatalError("there is no output stream to report to");
    // There is no retry: bytes that the stream does not accept are lost.
    (void)outputStream_->write(data->bytes.data(), data->bytes.size());
}

} // namespace findersync
