#import "tests/macos/FinderDouble.h"

#include <objc/runtime.h>

static FinderDouble* installed = nil;

static id installedController(id, SEL) {
    return installed;
}

@implementation FinderDouble

+ (FinderDouble*)install {
    Method const defaultController =
        class_getClassMethod([FIFinderSyncController class], @selector(defaultController));
    method_setImplementation(defaultController, reinterpret_cast<IMP>(&installedController));
    [installed release];
    installed = [[self alloc] init];
    return installed;
}

- (id)init {
    self = [super init];
    badges_ = [[NSMutableArray alloc] init];
    assignments_ = [[NSMutableArray alloc] init];
    return self;
}

- (void)dealloc {
    [directoryURLs_ release];
    [badges_ release];
    [assignments_ release];
    [selectedItemURLs_ release];
    [super dealloc];
}

- (NSSet*)directoryURLs {
    return directoryURLs_;
}

- (void)setDirectoryURLs:(NSSet*)urls {
    [directoryURLs_ release];
    directoryURLs_ = [urls copy];
}

- (void)setBadgeImage:(NSImage*)image
                 label:(NSString*)label
    forBadgeIdentifier:(NSString*)badgeIdentifier {
    [badges_ addObject:[NSArray arrayWithObjects:badgeIdentifier, label, image, nil]];
}

- (void)setBadgeIdentifier:(NSString*)badgeIdentifier forURL:(NSURL*)url {
    [assignments_ addObject:[NSArray arrayWithObjects:badgeIdentifier, url, nil]];
}

- (NSArray*)selectedItemURLs {
    return selectedItemURLs_;
}

- (void)setSelectedItemURLs:(NSArray*)urls {
    [selectedItemURLs_ release];
    selectedItemURLs_ = [urls copy];
}

- (NSArray*)badges {
    return badges_;
}

- (NSArray*)assignments {
    return assignments_;
}

@end
