#import "tests/macos/SuiteDouble.h"

#include <objc/runtime.h>

namespace tests {

namespace {

using Initializer = id (*)(id, SEL, id);
Initializer original = nullptr;

id refuse(id suite, SEL, id) {
    [suite release];
    return nil;
}

} // namespace

void storeSuite(NSString* suiteName, NSDictionary* settings) {
    NSUserDefaults* const defaults = [NSUserDefaults standardUserDefaults];
    if (settings == nil)
        [defaults removePersistentDomainForName:suiteName];
    else
        [defaults setPersistentDomain:settings forName:suiteName];
    [defaults synchronize];
}

void letSuitesOpen(bool isAllowed) {
    Method const initializer =
        class_getInstanceMethod([NSUserDefaults class], @selector(initWithSuiteName:));
    if (original == nullptr)
        original = reinterpret_cast<Initializer>(method_getImplementation(initializer));
    method_setImplementation(initializer, reinterpret_cast<IMP>(isAllowed ? original : &refuse));
}

} // namespace tests
