#pragma once

#import <FinderSync/FinderSync.h>

/// The Finder's controller of a test: takes down what it is told, and has the selection that it is
/// given. No subclass of the true one, which lives in extensions only.
@interface FinderDouble : NSObject {
    NSSet* directoryURLs_;
    NSMutableArray* badges_;
    NSMutableArray* assignments_;
    NSArray* selectedItemURLs_;
}

/// Puts a new double in the place of the default controller, and gives it. Owned by this class.
+ (FinderDouble*)install;

/// What was last set, nil for nothing.
- (NSSet*)directoryURLs;
/// What was registered, in order: arrays of identifier, label and image.
- (NSArray*)badges;
/// What was assigned, in order: arrays of identifier and URL.
- (NSArray*)assignments;
/// Nil for no selection.
- (void)setSelectedItemURLs:(NSArray*)urls;

@end
