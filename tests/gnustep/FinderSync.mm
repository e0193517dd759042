#import <FinderSync/FinderSync.h>

@implementation FIFinderSync

- (NSMenu*)menuForMenuKind:(FIMenuKind)kind {
    (void)kind;
    return nil;
}

- (void)beginObservingDirectoryAtURL:(NSURL*)url {
    (void)url;
}

- (void)endObservingDirectoryAtURL:(NSURL*)url {
    (void)url;
}

- (void)requestBadgeIdentifierForURL:(NSURL*)url {
    (void)url;
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
    (void)urls;
}

- (void)setBadgeImage:(NSImage*)image
                 label:(NSString*)label
    forBadgeIdentifier:(NSString*)badgeIdentifier {
    (void)image, (void)label, (void)badgeIdentifier;
}

- (void)setBadgeIdentifier:(NSString*)badgeIdentifier forURL:(NSURL*)url {
    (void)badgeIdentifier, (void)url;
}

- (NSArray*)selectedItemURLs {
    return nil;
}

@end
