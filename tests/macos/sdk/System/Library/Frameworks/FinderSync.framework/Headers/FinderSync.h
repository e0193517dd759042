#pragma once

// The part of the FinderSync framework that the extension uses.

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

typedef NS_ENUM(NSUInteger, FIMenuKind) {
    FIMenuKindContextualMenuForItems = 0,
    FIMenuKindContextualMenuForContainer = 1,
    FIMenuKindContextualMenuForSidebar = 2,
    FIMenuKindToolbarItemMenu = 3,
};

__attribute__((availability(macos, introduced = 10.10)))
@interface FIFinderSync : NSObject
- (nullable NSMenu*)menuForMenuKind:(FIMenuKind)menu;
- (void)beginObservingDirectoryAtURL:(nonnull NSURL*)url;
- (void)endObservingDirectoryAtURL:(nonnull NSURL*)url;
- (void)requestBadgeIdentifierForURL:(nonnull NSURL*)url;
@end

__attribute__((availability(macos, introduced = 10.10)))
@interface FIFinderSyncController : NSObject
+ (nonnull instancetype)defaultController;
@property (copy, null_resettable) NSSet<NSURL*>* directoryURLs;
- (void)setBadgeImage:(nonnull NSImage*)image
                 label:(nullable NSString*)label
    forBadgeIdentifier:(nonnull NSString*)badgeID;
- (void)setBadgeIdentifier:(nonnull NSString*)badgeID forURL:(nonnull NSURL*)url;
- (nullable NSArray<NSURL*>*)selectedItemURLs;
@end
