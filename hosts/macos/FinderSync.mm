#import "hosts/macos/FinderSync.h"

#include "extension/FinderSync.h"
#include "platform/System.h"
#include "platform/macos/Menu.h"
#include "platform/macos/Streams.h"
#include "platform/macos/Strings.h"
#include "platform/macos/URL.h"
#include "platform/macos/Values.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using platform::macos::objectOfValue;
using platform::macos::stringObject;
using platform::macos::URL;
using platform::macos::utf8Text;

namespace hosts::macos {

/// The C++ object. Its streams send their events to the principal object, which forwards them.
class HostedFinderSync : public findersync::FinderSync, public platform::macos::ObjectDelegate {
public:
    /// The principal object is not owned; it owns this one.
    explicit HostedFinderSync(::FinderSync* principal) : principal_(principal) {}

    [[nodiscard]] id<NSStreamDelegate> delegateObject() const override { return principal_; }

private:
    ::FinderSync* principal_;
};

namespace {

NSArray* arrayOfStrings(const std::vector<std::string>& strings) {
    platform::NSArray array;
    for (const std::string& string : strings)
        array.push_back({string});
    return objectOfValue({array}).autoreleased();
}

std::vector<std::string> stringsOf(NSArray* array) {
    std::vector<std::string> strings;
    for (id element in array) {
        if (![element isKindOfClass:[NSString class]])
            platform::fatalError("pathsOfRootFolders is given something that is not a string");
        strings.push_back(utf8Text(element));
    }
    return strings;
}

} // namespace

} // namespace hosts::macos

/// Calls a function, which it does not own.
@interface FSCall : NSObject {
@public
    const std::function<void()>* function_;
}
- (void)perform;
@end

@implementation FSCall

- (void)perform {
    (*function_)();
}

@end

namespace hosts::macos {

namespace {

/// Does what the Finder asks for with that selector on the main thread, and waits until it is done.
/// The Finder is not known to use another thread, but nothing promises that it does not.
void onMainThread(SEL selector, const std::function<void()>& function) {
    if ([NSThread isMainThread]) {
        function();
        return;
    }
    static std::atomic_flag isLogged;
    if (!isLogged.test_and_set())
        ::NSLog(@"%@ did not come on the main thread: handed over", NSStringFromSelector(selector));
    const auto call = platform::macos::adopt([[FSCall alloc] init]);
    call.get()->function_ = &function;
    [call.get() performSelectorOnMainThread:@selector(perform) withObject:nil waitUntilDone:YES];
}

} // namespace

} // namespace hosts::macos

using hosts::macos::onMainThread;

@implementation FinderSync

- (instancetype)init {
    // First, so that the fields are initialized when the base class's initializer runs.
    extension_ = new hosts::macos::HostedFinderSync(self);
    self = [super init];
    if (self == nil)
        return nil;
    // Writing to a closed socket or pipe must not end the process.
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)extension_->init(); // null only if the base class's initializer returns nil
    return self;
}

- (void)dealloc {
    delete extension_;
    [super dealloc];
}

// Key-value properties.

- (NSURL*)myFolderURL {
    return platform::macos::urlObject(*extension_->myFolderURL());
}

- (void)setMyFolderURL:(NSURL*)url {
    if (url == nil)
        platform::fatalError("myFolderURL is given no URL");
    extension_->setMyFolderURL(std::make_shared<URL>(url));
}

- (NSArray*)pathsOfRootFolders {
    return hosts::macos::arrayOfStrings(extension_->pathsOfRootFolders());
}

- (void)setPathsOfRootFolders:(NSArray*)paths {
    extension_->setPathsOfRootFolders(hosts::macos::stringsOf(paths));
}

- (CFStringRef)serverAddress {
    return reinterpret_cast<CFStringRef>(stringObject(extension_->serverAddress()).autoreleased());
}

- (uint32_t)serverPort {
    return extension_->serverPort();
}

- (void)setServerPort:(uint32_t)port {
    extension_->setServerPort(port);
}

- (BOOL)isSocketConnected {
    return extension_->isSocketConnected() ? YES : NO;
}

- (void)setIsSocketConnected:(BOOL)isConnected {
    extension_->setIsSocketConnected(isConnected != NO);
}

- (NSInteger)displayUrlLink {
    return extension_->displayUrlLink();
}

- (void)setDisplayUrlLink:(NSInteger)value {
    extension_->setDisplayUrlLink(value);
}

- (NSInteger)displayBackup {
    return extension_->displayBackup();
}

- (void)setDisplayBackup:(NSInteger)value {
    extension_->setDisplayBackup(value);
}

- (NSString*)shareContactTitle {
    return stringObject(extension_->shareContactTitle()).autoreleased();
}

- (void)setShareContactTitle:(NSString*)title {
    extension_->setShareContactTitle(utf8Text(title));
}

- (NSString*)shareViaUrlTitle {
    return stringObject(extension_->shareViaUrlTitle()).autoreleased();
}

- (void)setShareViaUrlTitle:(NSString*)title {
    extension_->setShareViaUrlTitle(utf8Text(title));
}

- (NSString*)backupTitle {
    return stringObject(extension_->backupTitle()).autoreleased();
}

- (void)setBackupTitle:(NSString*)title {
    extension_->setBackupTitle(utf8Text(title));
}

/// Key-value coding cannot box a Core Foundation string; it is bridged to an NSString here.
- (id)valueForKey:(NSString*)key {
    if ([key isEqualToString:@"serverAddress"])
        return stringObject(extension_->serverAddress()).autoreleased();
    return [super valueForKey:key];
}

// The link to the companion application.

- (void)connect {
    extension_->connect();
}

- (void)stream:(NSStream*)stream handleEvent:(NSStreamEvent)event {
    platform::macos::deliver(*extension_, stream, event);
}

- (NSString*)JSONStringify:(id)value prettyPrinted:(BOOL)prettyPrinted {
    return stringObject(extension_->JSONStringify(platform::macos::valueOfObject(value),
                                                  prettyPrinted != NO))
        .autoreleased();
}

- (NSDictionary*)JSONParseDictionary:(NSString*)text {
    return objectOfValue({extension_->JSONParseDictionary(utf8Text(text))}).autoreleased();
}

- (void)sendClickedData:(NSString*)clickType {
    extension_->sendClickedData(utf8Text(clickType));
}

// Requests of the Finder.

- (void)beginObservingDirectoryAtURL:(NSURL*)url {
    onMainThread(_cmd, [&] { extension_->beginObservingDirectoryAtURL(URL(url)); });
}

- (void)endObservingDirectoryAtURL:(NSURL*)url {
    onMainThread(_cmd, [&] { extension_->endObservingDirectoryAtURL(URL(url)); });
}

- (void)requestBadgeIdentifierForURL:(NSURL*)url {
    onMainThread(_cmd, [&] { extension_->requestBadgeIdentifierForURL(URL(url)); });
}

- (NSMenu*)menuForMenuKind:(FIMenuKind)kind {
    platform::macos::Reference<NSMenu*> object;
    onMainThread(_cmd, [&] {
        @autoreleasepool {
            const auto menu = extension_->menuForMenuKind(static_cast<platform::FIMenuKind>(kind));
            if (menu)
                object = platform::macos::retain(platform::macos::menuObject(*menu));
        }
    });
    return std::move(object).autoreleased();
}

- (NSString*)errnoDescription {
    return stringObject(extension_->errnoDescription()).autoreleased();
}

// Actions of menu entries. Entries have no target: the Finder sends their actions to this object.
// The sender is ignored.

- (void)createLinkClicked:(id)sender {
    onMainThread(_cmd, [&] { extension_->createLinkClicked(nullptr); });
}

- (void)backupClicked:(id)sender {
    onMainThread(_cmd, [&] { extension_->backupClicked(nullptr); });
}

- (void)shareContactsClicked:(id)sender {
    onMainThread(_cmd, [&] { extension_->shareContactsClicked(nullptr); });
}

- (void)inProgressClicked:(id)sender {
    onMainThread(_cmd, [&] { extension_->inProgressClicked(nullptr); });
}

- (void)notSyncedClicked:(id)sender {
    onMainThread(_cmd, [&] { extension_->notSyncedClicked(nullptr); });
}

- (void)syncedClicked:(id)sender {
    onMainThread(_cmd, [&] { extension_->syncedClicked(nullptr); });
}

@end
