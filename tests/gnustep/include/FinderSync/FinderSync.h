#pragma once

// The part of the FinderSync framework that a Finder Sync extension sees, for systems without it.

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

typedef NS_ENUM(NSUInteger, FIMenuKind) {
    FIMenuKindContextualMenuForItems = 0,
    FIMenuKindContextualMenuForContainer = 1,
    FIMenuKindContextualMenuForSidebar = 2,
    FIMenuKindToolbarItemMenu = 3,
};

@interface FIFinderSync : NSObject
- (NSMenu*)menuForMenuKind:(FIMenuKind)kind;
- (void)beginObservingDirectoryAtURL:(NSURL*)url;
- (void)endObservingDirectoryAtURL:(NSURL*)url;
- (void)requestBadgeIdentifierForURL:(NSURL*)url;
@end

/// Does nothing by itself: tests put a controller of their own in its place.
@interface FIFinderSyncController : NSObject
+ (instancetype)defaultController;
@property (nonatomic, copy) NSSet* directoryURLs;
- (void)setBadgeImage:(NSImage*)image
                 label:(NSString*)label
    forBadgeIdentifier:(NSString*)badgeIdentifier;
- (void)setBadgeIdentifier:(NSString*)badgeIdentifier forURL:(NSURL*)url;
- (NSArray*)selectedItemURLs;
@end
