#pragma once

// The members that the platform can use by name: selectors and key-value properties.
//
// The Linux host reads and writes properties and performs actions through this table. The macOS
// host declares its selectors in Objective-C and does not read it; tests compare the members that
// each host publishes with the table. Calls through the table use the object's virtual methods.

#include "extension/FinderSync.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace findersync {

/// How one key-value property is read and written. `set` is null for a read-only property.
template <typename Read, typename Written> struct PropertyAccessors {
    Read (FinderSync::*get)() const;
    void (FinderSync::*set)(Written);
};

using URLProperty = PropertyAccessors<const FinderSync::URL&, FinderSync::URL>;
using StringListProperty =
    PropertyAccessors<const std::vector<std::string>&, std::vector<std::string>>;
using StringProperty = PropertyAccessors<const std::string&, std::string>;
using PortProperty = PropertyAccessors<std::uint32_t, std::uint32_t>;
using BooleanProperty = PropertyAccessors<bool, bool>;
using IntegerProperty = PropertyAccessors<std::int64_t, std::int64_t>;

struct PublishedProperty {
    std::string_view name;
    std::variant<URLProperty, StringListProperty, StringProperty, PortProperty, BooleanProperty,
                 IntegerProperty>
        accessors;

    /// Whether the property can be written.
    [[nodiscard]] bool isWritable() const;
    /// Selector of the setter, empty for a read-only property. The getter's is the name.
    [[nodiscard]] std::string setterSelector() const;
};

using Initializer = FinderSync* (FinderSync::*)();
using PlainOperation = void (FinderSync::*)();
using StreamEventHandler = void (FinderSync::*)(platform::NSStream&, platform::NSStreamEvent);
using URLCallback = void (FinderSync::*)(const platform::NSURL&);
using Description = std::string (FinderSync::*)();
using MenuProvider = std::shared_ptr<platform::NSMenu> (FinderSync::*)(platform::FIMenuKind);
using JSONWriter = std::string (FinderSync::*)(const platform::Object&, bool);
using DictionaryParser = platform::NSDictionary (FinderSync::*)(std::string_view);
using ReportSender = void (FinderSync::*)(const std::string&);
using Action = void (FinderSync::*)(const platform::NSMenuItem*);

/// A published method other than a property accessor.
struct PublishedMethod {
    std::string_view selector;
    std::variant<Initializer, PlainOperation, StreamEventHandler, Description, URLCallback,
                 MenuProvider, JSONWriter, DictionaryParser, ReportSender, Action>
        method;
};

/// All published properties, in the order of the object's fields.
[[nodiscard]] std::span<const PublishedProperty> publishedProperties();

/// All published methods, in vtable order.
[[nodiscard]] std::span<const PublishedMethod> publishedMethods();

/// The published property with a name, or null.
[[nodiscard]] const PublishedProperty* publishedProperty(std::string_view name);

/// The published method with a selector, or null.
[[nodiscard]] const PublishedMethod* publishedMethod(std::string_view selector);

} // namespace findersync
