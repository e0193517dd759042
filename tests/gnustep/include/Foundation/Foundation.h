#pragma once

// GNUstep's Foundation, and what the extension uses of Apple's beyond it.

#include_next <Foundation/Foundation.h>

@interface NSUserDefaults (Suite)
/// Nil for the global domain and for the main bundle's own identifier, as on the platform itself.
- (instancetype)initWithSuiteName:(NSString*)suiteName;
@end
