#include "platform/Foundation.h"
#include "platform/macos/Strings.h"
#include "platform/macos/Values.h"

namespace platform {

namespace {

/// The reason that names the place, which is not the one for users.
std::string reasonOf(::NSError* error) {
    ::NSString* reason = [[error userInfo] objectForKey:@"NSDebugDescription"];
    if (reason == nil)
        reason = [error localizedFailureReason];
    if (reason == nil)
        reason = [error localizedDescription];
    return "not JSON: " + macos::utf8Text(reason);
}

} // namespace

/// Options 0: the top level is an array or a dictionary, and nothing is mutable.
std::optional<Object> JSONObjectWithData(const NSData& data, std::string* failure) {
    @autoreleasepool {
        const auto text = macos::objectOfValue({data});
        ::NSError* error = nil;
        id const object = [::NSJSONSerialization JSONObjectWithData:text.get()
                                                            options:0
                                                              error:&error];
        if (object == nil && failure != nullptr)
            *failure = reasonOf(error);
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
