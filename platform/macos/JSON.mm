#include "platform/Foundation.h"
#include "platform/macos/Values.h"

namespace platform {

/// Options 0: the top level is an array or a dictionary, and nothing is mutable.
std::optional<Object> JSONObjectWithData(const NSData& data) {
    @autoreleasepool {
        const auto text = macos::objectOfValue({data});
        id const object = [::NSJSONSerialization JSONObjectWithData:text.get()
                                                            options:0
                                                              error:nullptr];
        if (object == nil)
            return std::nullopt;
        return macos::valueOfObject(object);
    }
}

bool isValidJSONObject(const Object& value) {
    @autoreleasepool {
        const auto object = macos::objectOfValue(value);
        return [::NSJSONSerialization isValidJSONObject:object.get()] != NO;
    }
}

std::optional<NSData> dataWithJSONObject(const Object& value, bool prettyPrinted) {
    @autoreleasepool {
        const auto object = macos::objectOfValue(value);
        ::NSData* const data =
            [::NSJSONSerialization dataWithJSONObject:object.get()
                                              options:prettyPrinted ? NSJSONWritingPrettyPrinted : 0
                                                error:nullptr];
        if (data == nil)
            return std::nullopt;
        return std::get<NSData>(macos::valueOfObject(data).value);
    }
}

} // namespace platform
