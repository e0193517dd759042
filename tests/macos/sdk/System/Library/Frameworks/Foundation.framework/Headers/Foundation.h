#pragma once

// The part of Foundation that the extension and its tests use.

#import <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>
#include <stdint.h>

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_ENUM(type, name)                                                                        \
    enum __attribute__((enum_extensibility(open))) name : type name;                               \
    enum name : type
// In C++, options are combined as integers.
#define NS_OPTIONS(type, name)                                                                     \
    type name;                                                                                     \
    enum __attribute__((flag_enum, enum_extensibility(open))) : name

using unichar = unsigned short;
using NSTimeInterval = double;

@class NSArray<ObjectType>, NSData, NSDate, NSDictionary<KeyType, ObjectType>, NSError, NSString,
    NSURL;

struct NSFastEnumerationState;

NS_ASSUME_NONNULL_BEGIN

extern "C" {

void NSLog(NSString* format, ...) __attribute__((format(__NSString__, 1, 2)));
SEL NSSelectorFromString(NSString* aSelectorName);
NSString* NSStringFromSelector(SEL aSelector);
Class _Nullable NSClassFromString(NSString* aClassName);

} // extern "C"

@protocol NSCopying
@end

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(struct NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

@interface NSObject (Foundation)
- (nullable id)valueForKey:(NSString*)key;
- (void)setValue:(nullable id)value forKey:(NSString*)key;
- (void)performSelectorOnMainThread:(SEL)aSelector
                         withObject:(nullable id)arg
                      waitUntilDone:(BOOL)wait;
@end

@interface NSThread : NSObject
@property (class, readonly) BOOL isMainThread;
@end

@interface NSAutoreleasePool : NSObject
- (void)drain;
@end

@interface NSNull : NSObject
+ (NSNull*)null;
@end

@interface NSCharacterSet : NSObject
@property (class, readonly, copy) NSCharacterSet* controlCharacterSet;
@end

struct NSRange {
    NSUInteger location;
    NSUInteger length;
};

using NSStringEncoding = NSUInteger;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject <NSCopying>
@property (readonly) NSUInteger length;
@property (nullable, readonly) const char* UTF8String;
@property (readonly, copy) NSString* precomposedStringWithCanonicalMapping;
+ (instancetype)stringWithString:(NSString*)string;
+ (instancetype)stringWithCharacters:(const unichar*)characters length:(NSUInteger)length;
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
+ (instancetype)stringWithFormat:(NSString*)format, ... __attribute__((format(__NSString__, 1, 2)));
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)len
                              encoding:(NSStringEncoding)encoding;
- (BOOL)isEqualToString:(NSString*)aString;
- (NSRange)rangeOfString:(NSString*)searchString;
- (NSString*)stringByAppendingString:(NSString*)aString;
- (NSArray<NSString*>*)componentsSeparatedByCharactersInSet:(NSCharacterSet*)separator;
- (nullable NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy;
- (BOOL)canBeConvertedToEncoding:(NSStringEncoding)encoding;
@end

@interface NSMutableString : NSString
- (void)appendString:(NSString*)aString;
@end

@interface NSData : NSObject <NSCopying>
@property (readonly) NSUInteger length;
@property (readonly) const void* bytes;
+ (instancetype)data;
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
- (instancetype)initWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@end

@interface NSNumber : NSObject <NSCopying>
@property (readonly) const char* objCType;
@property (readonly) BOOL boolValue;
@property (readonly) double doubleValue;
@property (readonly) long long longLongValue;
@property (readonly) unsigned long long unsignedLongLongValue;
+ (NSNumber*)numberWithChar:(char)value;
+ (NSNumber*)numberWithUnsignedChar:(unsigned char)value;
+ (NSNumber*)numberWithUnsignedShort:(unsigned short)value;
+ (NSNumber*)numberWithInt:(int)value;
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value;
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithUnsignedLongLong:(unsigned long long)value;
+ (NSNumber*)numberWithFloat:(float)value;
+ (NSNumber*)numberWithDouble:(double)value;
+ (NSNumber*)numberWithBool:(BOOL)value;
- (NSNumber*)initWithLongLong:(long long)value;
- (NSNumber*)initWithDouble:(double)value;
@end

@interface NSDecimalNumber : NSNumber
+ (NSDecimalNumber*)decimalNumberWithString:(nullable NSString*)numberValue;
@end

@interface NSDate : NSObject <NSCopying>
+ (instancetype)date;
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)secs;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
@property (readonly) NSUInteger count;
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects count:(NSUInteger)cnt;
@property (nullable, nonatomic, readonly) ObjectType lastObject;
- (ObjectType)objectAtIndex:(NSUInteger)index;
- (NSString*)componentsJoinedByString:(NSString*)separator;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (instancetype)initWithCapacity:(NSUInteger)numItems;
- (void)addObject:(ObjectType)anObject;
- (void)addObjectsFromArray:(NSArray<ObjectType>*)otherArray;
- (void)removeAllObjects;
- (void)replaceObjectAtIndex:(NSUInteger)index withObject:(ObjectType)anObject;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType>
    : NSObject <NSCopying, NSFastEnumeration>
@property (readonly) NSUInteger count;
+ (instancetype)dictionary;
+ (instancetype)dictionaryWithObject:(ObjectType)object forKey:(KeyType<NSCopying>)key;
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nonnull])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nonnull])keys
                                count:(NSUInteger)cnt;
- (nullable ObjectType)objectForKey:(KeyType)aKey;
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
- (instancetype)initWithCapacity:(NSUInteger)numItems;
- (void)addEntriesFromDictionary:(NSDictionary<KeyType, ObjectType>*)otherDictionary;
- (void)setObject:(ObjectType)anObject forKey:(KeyType<NSCopying>)aKey;
@end

@interface NSError : NSObject <NSCopying>
@property (readonly, copy) NSDictionary<NSString*, id>* userInfo;
@property (readonly, copy) NSString* localizedDescription;
@property (nullable, readonly, copy) NSString* localizedFailureReason;
@end

@interface NSSet<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)setWithObject:(ObjectType)object;
@end

@interface NSMutableSet<ObjectType> : NSSet <ObjectType>
- (instancetype)initWithCapacity:(NSUInteger)numItems;
- (void)addObject:(ObjectType)object;
@end

@interface NSURL : NSObject <NSCopying>
@property (nullable, readonly, copy) NSString* absoluteString;
@property (nullable, readonly, copy) NSString* path;
@property (nullable, readonly, copy) NSURL* filePathURL;
+ (NSURL*)fileURLWithPath:(NSString*)path;
- (instancetype)initFileURLWithPath:(NSString*)path;
+ (nullable instancetype)URLWithString:(NSString*)URLString;
+ (nullable instancetype)URLWithString:(NSString*)URLString relativeToURL:(nullable NSURL*)baseURL;
@end

@interface NSFileManager : NSObject
@property (class, readonly, strong) NSFileManager* defaultManager;
@property (readonly, copy) NSString* currentDirectoryPath;
@end

@interface NSBundle : NSObject
@property (class, readonly, strong) NSBundle* mainBundle;
@property (readonly, copy) NSString* bundlePath;
+ (nullable instancetype)bundleWithPath:(NSString*)path;
- (BOOL)load;
- (nullable id)objectForInfoDictionaryKey:(NSString*)key;
@end

@interface NSUserDefaults : NSObject
@property (class, readonly, strong) NSUserDefaults* standardUserDefaults;
- (nullable instancetype)initWithSuiteName:(nullable NSString*)suitename
    __attribute__((availability(macos, introduced = 10.9)));
- (nullable id)objectForKey:(NSString*)defaultName;
- (NSInteger)integerForKey:(NSString*)defaultName;
- (void)setPersistentDomain:(NSDictionary<NSString*, id>*)domain forName:(NSString*)domainName;
- (void)removePersistentDomainForName:(NSString*)domainName;
- (BOOL)synchronize;
@end

typedef NS_OPTIONS(NSUInteger, NSJSONReadingOptions) { NSJSONReadingMutableContainers = 1UL << 0 };
typedef NS_OPTIONS(NSUInteger, NSJSONWritingOptions) { NSJSONWritingPrettyPrinted = 1UL << 0 };

__attribute__((availability(macos, introduced = 10.7)))
@interface NSJSONSerialization : NSObject
+ (BOOL)isValidJSONObject:(id)obj;
+ (nullable NSData*)dataWithJSONObject:(id)obj
                               options:(NSJSONWritingOptions)opt
                                 error:(NSError* _Nullable* _Nullable)error;
+ (nullable id)JSONObjectWithData:(NSData*)data
                          options:(NSJSONReadingOptions)opt
                            error:(NSError* _Nullable* _Nullable)error;
@end

using NSRunLoopMode = NSString*;
extern "C" NSRunLoopMode const NSDefaultRunLoopMode;

@interface NSRunLoop : NSObject
@property (class, readonly, strong) NSRunLoop* currentRunLoop;
- (BOOL)runMode:(NSRunLoopMode)mode beforeDate:(NSDate*)limitDate;
@end

typedef NS_OPTIONS(NSUInteger, NSStreamEvent) {
    NSStreamEventNone = 0,
    NSStreamEventOpenCompleted = 1UL << 0,
    NSStreamEventHasBytesAvailable = 1UL << 1,
    NSStreamEventHasSpaceAvailable = 1UL << 2,
    NSStreamEventErrorOccurred = 1UL << 3,
    NSStreamEventEndEncountered = 1UL << 4,
};

@class NSStream;

@protocol NSStreamDelegate <NSObject>
@optional
- (void)stream:(NSStream*)aStream handleEvent:(NSStreamEvent)eventCode;
@end

@interface NSStream : NSObject
@property (nullable, assign) id<NSStreamDelegate> delegate;
- (void)open;
- (void)close;
- (void)scheduleInRunLoop:(NSRunLoop*)aRunLoop forMode:(NSRunLoopMode)mode;
@end

@interface NSInputStream : NSStream
@property (readonly) BOOL hasBytesAvailable;
- (instancetype)initWithData:(NSData*)data;
- (NSInteger)read:(uint8_t*)buffer maxLength:(NSUInteger)len;
@end

@interface NSOutputStream : NSStream
@property (readonly) BOOL hasSpaceAvailable;
- (NSInteger)write:(const uint8_t*)buffer maxLength:(NSUInteger)len;
@end

NS_ASSUME_NONNULL_END
