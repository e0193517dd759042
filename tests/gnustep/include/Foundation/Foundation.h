#pragma once

// GNUstep's Foundation, and what the extension uses of Apple's beyond it.

#include_next <Foundation/Foundation.h>

// As in Apple's headers, so that the compiler knows it as a null pointer.
#undef nil
#define nil nullptr

@interface NSUserDefaults (Suite)
/// Nil for the global domain and for the main bundle's own identifier, as on macOS.
- (instancetype)initWithSuiteName:(NSString*)suiteName;
@end
