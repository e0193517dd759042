#pragma once

// The part of AppKit that the extension, the development app and the tests use.

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSImage : NSObject
+ (nullable NSImage*)imageNamed:(NSString*)name;
- (nullable NSString*)name;
@end

@interface NSMenuItem : NSObject
- (instancetype)initWithTitle:(NSString*)string
                       action:(nullable SEL)selector
                keyEquivalent:(NSString*)charCode;
@property (copy) NSString* title;
@property (copy) NSString* keyEquivalent;
@property (nullable, strong) NSImage* image;
@property (nullable, weak) id target;
@property (nullable) SEL action;
@property NSInteger tag;
@end

@interface NSMenu : NSObject
- (instancetype)initWithTitle:(NSString*)title;
- (void)addItem:(NSMenuItem*)newItem;
@property (copy) NSString* title;
@property (copy) NSArray<NSMenuItem*>* itemArray;
@end

@interface NSApplication : NSObject
@property (class, readonly, strong) __kindof NSApplication* sharedApplication;
- (void)run;
@end

NS_ASSUME_NONNULL_END
