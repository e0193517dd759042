#pragma once

#import <Foundation/Foundation.h>

namespace tests {

/// Writes a settings suite as a companion application would; nil removes it.
void storeSuite(NSString* suiteName, NSDictionary* settings);

/// Whether suites can be opened; they can by default.
void letSuitesOpen(bool isAllowed);

} // namespace tests
