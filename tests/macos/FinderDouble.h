#pragma once

#import <FinderSync/FinderSync.h>

/// Stands in for the Finder's controller: records what it is told. Not a subclass of the real one,
/// which works in app extensions only.
@interface FinderDouble : NSObject {
    NSSet* directoryURLs_;
    NSArray* selectedItemURLs_;
    NSMutableArray* badges_;
    NSMutableArray* assignments_;
}

/// Makes a new double the default controller and returns it. Owned by this class.
+ (FinderDouble*)install;

@property (nonatomic, copy) NSSet* directoryURLs;
/// Nil for no selection.
@property (nonatomic, copy) NSArray* selectedItemURLs;
/// The registered badges in order: arrays of identifier, label and image.
@property (nonatomic, readonly) NSArray* badges;
/// The assigned badges in order: arrays of identifier and URL.
@property (nonatomic, readonly) NSArray* assignments;

@end
