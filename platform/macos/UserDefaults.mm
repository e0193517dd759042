// A settings suite is the property list that `defaults` shows for the application group.

#include "platform/Foundation.h"
#include "platform/macos/Strings.h"
#include "platform/macos/Values.h"

#include <memory>
#include <utility>

namespace platform {

namespace {

class SettingsSuite : public NSUserDefaults {
public:
    explicit SettingsSuite(macos::Reference<::NSUserDefaults*> suite) : suite_(std::move(suite)) {}

    [[nodiscard]] std::optional<Object> objectForKey(std::string_view key) const override {
        @autoreleasepool {
            const auto name = macos::stringObject(key);
            id const object = [suite_.get() objectForKey:name.get()];
            if (object == nil)
                return std::nullopt;
            return macos::valueOfObject(object);
        }
    }

    [[nodiscard]] std::int64_t integerForKey(std::string_view key) const override {
        @autoreleasepool {
            const auto name = macos::stringObject(key);
            return [suite_.get() integerForKey:name.get()];
        }
    }

private:
    macos::Reference<::NSUserDefaults*> suite_;
};

} // namespace

std::shared_ptr<const NSUserDefaults> userDefaultsWithSuiteName(std::string_view suiteName,
                                                                std::string& failure) {
    const auto name = macos::stringObject(suiteName);
    auto suite = macos::adopt([[::NSUserDefaults alloc] initWithSuiteName:name.get()]);
    if (!suite) {
        // Foundation reports no reason. Its documentation names these two.
        failure = "\"" + std::string(suiteName) +
                  "\" is no application group: it names the global domain or this very bundle";
        return nullptr;
    }
    return std::make_shared<SettingsSuite>(std::move(suite));
}

} // namespace platform
