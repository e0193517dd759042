#pragma once

// The part of the FinderSync framework that a Finder Sync extension uses.

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

typedef NS_ENUM(NSUInteger, FIMenuKind) {
    FIMenuKindContextualMenuForItems = 0,
    FIMenuKindContextualMenuForContainer = 1,
    FIMenuKindContextualMenuForSidebar = 2,
    FIMenuKindToolbarItemMenu = 3,
};

@interface FIFinderSync : NSObject
- (nullable NSMenu*)menuForMenuKind:(FIMenuKind)kind;
- (void)beginObservingDirectoryAtURL:(nonnull NSURL*)url;
- (void)endObservingDirectoryAtURL:(nonnull NSURL*)url;
- (void)requestBadgeIdentifierForURL:(nonnull NSURL*)url;
@end

/// Does nothing: tests replace the default controller.
@interface FIFinderSyncController : NSObject
+ (nonnull instancetype)defaultController;
@property (nonatomic, copy, nonnull) NSSet* directoryURLs;
- (void)setBadgeImage:(nonnull NSImage*)image
                 label:(nullable NSString*)label
    forBadgeIdentifier:(nonnull NSString*)badgeIdentifier;
- (void)setBadgeIdentifier:(nonnull NSString*)badgeIdentifier forURL:(nonnull NSURL*)url;
- (nullable NSArray*)selectedItemURLs;
@end
