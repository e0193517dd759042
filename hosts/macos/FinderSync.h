#pragma once

// The principal class of the app extension, which the Finder instantiates. It publishes the
// selectors and key-value properties of the C++ object, and forwards everything to it.
//
// Everything runs on the main thread, where the Finder creates the object. Requests and actions of
// the Finder that arrive on another thread are handed over to it.

#import <AppKit/AppKit.h>
#import <CoreFoundation/CoreFoundation.h>
#import <FinderSync/FinderSync.h>
#import <Foundation/Foundation.h>

namespace hosts::macos {
class HostedFinderSync;
}

@interface FinderSync : FIFinderSync <NSStreamDelegate> {
@private
    hosts::macos::HostedFinderSync* extension_;
}

/// The directory that the Finder was told to watch. Never nil; setting nil is fatal.
@property (nonatomic, strong) NSURL* myFolderURL;
/// Paths of the companion application's root folders. Setting nil sets an empty array; setting an
/// array with an element that is not a string is fatal.
@property (nonatomic, copy) NSArray* pathsOfRootFolders;
@property (nonatomic, readonly) CFStringRef serverAddress;
@property (nonatomic, assign) uint32_t serverPort;
@property (nonatomic, assign) BOOL isSocketConnected;
@property (nonatomic, assign) NSInteger displayUrlLink;
@property (nonatomic, assign) NSInteger displayBackup;
/// Titles of the menu entries. Setting nil sets the empty string.
@property (nonatomic, copy) NSString* shareContactTitle;
@property (nonatomic, copy) NSString* shareViaUrlTitle;
@property (nonatomic, copy) NSString* backupTitle;

- (void)connect;
- (NSString*)errnoDescription;
/// Numbers are 64-bit integers or doubles: integers from 2^63 on, and decimal numbers, are rounded
/// to a double.
- (NSString*)JSONStringify:(id)value prettyPrinted:(BOOL)prettyPrinted;
- (NSDictionary*)JSONParseDictionary:(NSString*)text;
- (void)sendClickedData:(NSString*)clickType;

- (void)createLinkClicked:(id)sender;
- (void)backupClicked:(id)sender;
- (void)shareContactsClicked:(id)sender;
- (void)inProgressClicked:(id)sender;
- (void)notSyncedClicked:(id)sender;
- (void)syncedClicked:(id)sender;

@end
