// What the principal class publishes, held against the object's own table.

#import "tests/macos/PrincipalClassTest.h"

#include "extension/PublishedInterface.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <objc/runtime.h>
#include <set>
#include <type_traits>

// Each property once more, as it has to be: the compiler refuses a type or an attribute that is not
// the same in the class.
@interface RedeclaredProperties : FinderSync
@property (nonatomic, strong) NSURL* myFolderURL;
@property (nonatomic, copy) NSArray* pathsOfRootFolders;
@property (nonatomic, readonly) CFStringRef serverAddress;
@property (nonatomic, assign) uint32_t serverPort;
@property (nonatomic, assign) BOOL isSocketConnected;
@property (nonatomic, assign) NSInteger displayUrlLink;
@property (nonatomic, assign) NSInteger displayBackup;
@property (nonatomic, copy) NSString* shareContactTitle;
@property (nonatomic, copy) NSString* shareViaUrlTitle;
@property (nonatomic, copy) NSString* backupTitle;
@end

template <typename T>
concept HasFields = requires(T* object) { object->extension_; };
static_assert(!HasFields<FinderSync>, "its fields are its own");
static_assert(std::is_same_v<decltype([static_cast<FinderSync*>(nil) backupTitle]), NSString*>);
static_assert(std::is_same_v<decltype([static_cast<FinderSync*>(nil) JSONParseDictionary:nil]),
                             NSDictionary*>);

using namespace findersync;

namespace {

/// Type codes: of the result, then of each argument.
using Signature = std::string;

/// How values cross the border to Objective-C.
const Signature object = @encode(id);
const Signature nothing = @encode(void);

struct GetterSignature {
    Signature operator()(const URLProperty&) const { return object; }
    Signature operator()(const StringListProperty&) const { return object; }
    Signature operator()(const PortProperty&) const { return @encode(std::uint32_t); }
    Signature operator()(const BooleanProperty&) const { return @encode(BOOL); }
    Signature operator()(const IntegerProperty&) const { return @encode(NSInteger); }
    /// The one text that is a constant of the object is one of Core Foundation's.
    Signature operator()(const StringProperty& property) const {
        return property.set == nullptr ? @encode(CFStringRef) : object;
    }
};

struct MethodSignature {
    Signature operator()(Initializer) const { return object; }
    Signature operator()(PlainOperation) const { return nothing; }
    Signature operator()(StreamEventHandler) const {
        return nothing + object + @encode(NSStreamEvent);
    }
    Signature operator()(Description) const { return object; }
    Signature operator()(URLCallback) const { return nothing + object; }
    Signature operator()(MenuProvider) const { return object + @encode(FIMenuKind); }
    Signature operator()(JSONWriter) const { return object + object + @encode(BOOL); }
    Signature operator()(DictionaryParser) const { return object + object; }
    Signature operator()(ReportSender) const { return nothing + object; }
    Signature operator()(Action) const { return nothing + object; }
};

using Selectors = std::map<std::string, Signature>;

Selectors expectedSelectors() {
    Selectors expected;
    for (const PublishedProperty& property : publishedProperties()) {
        const Signature type = std::visit(GetterSignature(), property.accessors);
        expected.emplace(property.name, type);
        if (property.isWritable())
            expected.emplace(property.setterSelector(), nothing + type);
    }
    for (const PublishedMethod& method : publishedMethods())
        expected.emplace(method.selector, std::visit(MethodSignature(), method.method));
    return expected;
}

Signature signatureOf(Method method) {
    using Text = std::unique_ptr<char, decltype(&std::free)>;
    Signature signature = Text(method_copyReturnType(method), &std::free).get();
    for (unsigned index = 2; index < method_getNumberOfArguments(method); ++index)
        signature += Text(method_copyArgumentType(method, index), &std::free).get();
    // Some runtimes tell the place of each argument too.
    std::erase_if(signature, [](char code) { return code >= '0' && code <= '9'; });
    return signature;
}

/// What the class itself implements, but for what it takes over from every object.
Selectors publishedSelectors() {
    const std::set<std::string> everyObjects = {"dealloc", "valueForKey:"};
    unsigned count = 0;
    const std::unique_ptr<Method, decltype(&std::free)> methods(
        class_copyMethodList(tests::principalClass(), &count), &std::free);
    Selectors published;
    for (unsigned index = 0; index < count; ++index) {
        const SEL selector = method_getName(methods.get()[index]);
        const std::string name = sel_getName(selector);
        if (!everyObjects.contains(name))
            published.emplace(name, signatureOf(methods.get()[index]));
    }
    return published;
}

using PublishedSelectors = tests::PrincipalClassTest;

TEST_F(PublishedSelectors, AreTheOnesOfTheObjectsTableTypeByType) {
    EXPECT_EQ(publishedSelectors(), expectedSelectors());
}

TEST_F(PublishedSelectors, AreAllOfInstances) {
    unsigned count = 0;
    std::free(class_copyMethodList(object_getClass(tests::principalClass()), &count));
    EXPECT_EQ(count, 0U);
}

TEST_F(PublishedSelectors, BelongToAFinderSyncClassThatTakesStreamEvents) {
    EXPECT_EQ([tests::principalClass() superclass], [FIFinderSync class]);
    unsigned count = 0;
    const std::unique_ptr<Protocol * __unsafe_unretained, decltype(&std::free)> protocols(
        class_copyProtocolList(tests::principalClass(), &count), &std::free);
    ASSERT_EQ(count, 1U);
    EXPECT_STREQ(protocol_getName(protocols.get()[0]), "NSStreamDelegate");
}

} // namespace
