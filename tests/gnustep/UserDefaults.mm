#import <Foundation/Foundation.h>

@implementation NSUserDefaults (Suite)

- (instancetype)initWithSuiteName:(NSString*)suiteName {
    self = [self init];
    const BOOL isRefused = [suiteName isEqualToString:NSGlobalDomain] ||
                           [suiteName isEqualToString:[[NSBundle mainBundle] bundleIdentifier]];
    if (isRefused) {
        [self release];
        return nil;
    }
    [self addSuiteNamed:suiteName];
    [self synchronize];
    return self;
}

@end
