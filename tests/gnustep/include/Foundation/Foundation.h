#pragma once

// GNUstep's Foundation, and what the extension uses of Apple's beyond it.

#include_next <Foundation/Foundation.h>

// As it is there: a null pointer that the compiler knows for one.
#undef nil
#define nil nullptr

@interface NSUserDefaults (Suite)
/// Nil for the global domain and for the main bundle's own identifier, as on the platform itself.
- (instancetype)initWithSuiteName:(NSString*)suiteName;
@end
