#import <FinderSync/FinderSync.h>

@implementation FIFinderSync

- (NSMenu*)menuForMenuKind:(FIMenuKind)kind {
    return nil;
}

- (void)beginObservingDirectoryAtURL:(NSURL*)url {
}

- (void)endObservingDirectoryAtURL:(NSURL*)url {
}

- (void)requestBadgeIdentifierForURL:(NSURL*)url {
}

@end

@implementation FIFinderSyncController

+ (instancetype)defaultController {
    static FIFinderSyncController* const controller = [[self alloc] init];
    return controller;
}

- (NSSet*)directoryURLs {
    return [NSSet set];
}

- (void)setDirectoryURLs:(NSSet*)urls {
}

- (void)setBadgeImage:(NSImage*)image
                 label:(NSString*)label
    forBadgeIdentifier:(NSString*)badgeIdentifier {
}

- (void)setBadgeIdentifier:(NSString*)badgeIdentifier forURL:(NSURL*)url {
}

- (NSArray*)selectedItemURLs {
    return nil;
}

@end
