#include "platform/recording/Recording.h"
#include "platform/text/IntegerValue.h"

#include <utility>

namespace platform {

namespace {

class RecordedSuite : public NSUserDefaults {
public:
    explicit RecordedSuite(NSDictionary settings) : settings_(std::move(settings)) {}
    ~RecordedSuite() override { recording::record("NSUserDefaults released"); }
    RecordedSuite(const RecordedSuite&) = delete;
    RecordedSuite& operator=(const RecordedSuite&) = delete;

    [[nodiscard]] std::optional<Object> objectForKey(std::string_view key) const override {
        recording::record("objectForKey: " + std::string(key));
        const auto found = settings_.find(key);
        return found == settings_.end() ? std::nullopt : std::optional<Object>(found->second);
    }
    [[nodiscard]] std::int64_t integerForKey(std::string_view key) const override {
        recording::record("integerForKey: " + std::string(key));
        const auto found = settings_.find(key);
        return found == settings_.end() ? 0 : text::integerValue(found->second);
    }

private:
    NSDictionary settings_;
};

} // namespace

std::shared_ptr<const NSUserDefaults> userDefaultsWithSuiteName(std::string_view suiteName,
                                                                std::string& failure) {
    recording::record("initWithSuiteName: " + std::string(suiteName));
    if (recording::script().suiteOpens)
        return std::make_shared<RecordedSuite>(recording::script().settings);
    failure = recording::script().suiteFailure;
    return nullptr;
}

} // namespace platform
