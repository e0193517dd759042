#include "platform/macos/Values.h"

#include "platform/macos/Strings.h"

#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace platform::macos {

namespace {

/// The class distinguishes Booleans from numbers: the type code of a Boolean is that of a small
/// integer.
bool isBoolean(::NSNumber* number) {
    return [number isKindOfClass:[[::NSNumber numberWithBool:YES] class]] != NO;
}

Object valueOfNumber(::NSNumber* number) {
    if (isBoolean(number))
        return {[number boolValue] != NO};
    const char* const type = [number objCType];
    const bool isFraction =
        std::strcmp(type, @encode(float)) == 0 || std::strcmp(type, @encode(double)) == 0;
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    const bool isTooLarge = std::strcmp(type, @encode(unsigned long long)) == 0 &&
                            [number unsignedLongLongValue] > static_cast<std::uint64_t>(largest);
    if (isFraction || isTooLarge)
        return {[number doubleValue]};
    return {static_cast<std::int64_t>([number longLongValue])};
}

NSData bytesOf(::NSData* data) {
    const auto* const bytes = static_cast<const std::uint8_t*>([data bytes]);
    return {.bytes = {bytes, bytes + [data length]}};
}

NSArray elementsOf(::NSArray* array) {
    NSArray elements;
    elements.reserve([array count]);
    for (id element in array)
        elements.push_back(valueOfObject(element));
    return elements;
}

bool hasStringKeys(::NSDictionary* dictionary) {
    for (id key in dictionary) {
        if (![key isKindOfClass:[::NSString class]] || !isUTF8Encodable(key))
            return false;
    }
    return true;
}

/// Makes the object for each alternative of a value.
struct ObjectMaker {
    Reference<id> operator()(NSNull) const { return retain<id>([::NSNull null]); }
    Reference<id> operator()(bool value) const {
        return retain<id>([::NSNumber numberWithBool:value ? YES : NO]);
    }
    Reference<id> operator()(std::int64_t value) const {
        return adopt<id>([[::NSNumber alloc] initWithLongLong:value]);
    }
    Reference<id> operator()(double value) const {
        return adopt<id>([[::NSNumber alloc] initWithDouble:value]);
    }
    Reference<id> operator()(const std::string& value) const {
        const auto string = stringObject(value);
        return retain<id>(string.get());
    }
    Reference<id> operator()(const NSData& value) const {
        return adopt<id>([[::NSData alloc] initWithBytes:value.bytes.data()
                                                  length:value.bytes.size()]);
    }
    Reference<id> operator()(const NSArray& value) const {
        ::NSMutableArray* const array = [[::NSMutableArray alloc] initWithCapacity:value.size()];
        for (const Object& element : value) {
            const auto object = objectOfValue(element);
            [array addObject:object.get()];
        }
        return adopt<id>(array);
    }
    Reference<id> operator()(const NSDictionary& value) const {
        ::NSMutableDictionary* const dictionary =
            [[::NSMutableDictionary alloc] initWithCapacity:value.size()];
        for (const auto& [key, element] : value) {
            const auto object = objectOfValue(element);
            const auto name = stringObject(key);
            [dictionary setObject:object.get() forKey:name.get()];
        }
        return adopt<id>(dictionary);
    }
};

} // namespace

Object valueOfObject(id object) {
    if (object == nil || object == [::NSNull null])
        return {NSNull()};
    if ([object isKindOfClass:[::NSString class]] && isUTF8Encodable(object))
        return {utf8Text(object)};
    if ([object isKindOfClass:[::NSNumber class]])
        return valueOfNumber(object);
    if ([object isKindOfClass:[::NSArray class]])
        return {elementsOf(object)};
    if ([object isKindOfClass:[::NSDictionary class]] && hasStringKeys(object))
        return {entriesOf(object)};
    if ([object isKindOfClass:[::NSData class]])
        return {bytesOf(object)};
    return {NSData()};
}

NSDictionary entriesOf(id dictionary) {
    NSDictionary entries;
    if (![dictionary isKindOfClass:[::NSDictionary class]] || !hasStringKeys(dictionary))
        return entries;
    for (::NSString* key in dictionary)
        entries.emplace(utf8Text(key), valueOfObject([dictionary objectForKey:key]));
    return entries;
}

Reference<id> objectOfValue(const Object& value) {
    return std::visit(ObjectMaker(), value.value);
}

} // namespace platform::macos
