#import "tests/macos/FinderDouble.h"

#include <objc/runtime.h>

static FinderDouble* installed = nil;

static id installedController(id, SEL) {
    return installed;
}

@implementation FinderDouble

@synthesize directoryURLs = directoryURLs_;
@synthesize selectedItemURLs = selectedItemURLs_;
@synthesize badges = badges_;
@synthesize assignments = assignments_;

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
    [selectedItemURLs_ release];
    [badges_ release];
    [assignments_ release];
    [super dealloc];
}

- (void)setBadgeImage:(NSImage*)image
                 label:(NSString*)label
    forBadgeIdentifier:(NSString*)badgeIdentifier {
    [badges_ addObject:@[ badgeIdentifier, label, image ]];
}

- (void)setBadgeIdentifier:(NSString*)badgeIdentifier forURL:(NSURL*)url {
    [assignments_ addObject:@[ badgeIdentifier, url ]];
}

@end
