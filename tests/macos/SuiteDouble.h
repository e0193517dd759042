#pragma once

#import <Foundation/Foundation.h>

namespace tests {

/// Writes the settings of a suite as a companion application would. Nil leaves none.
void storeSuite(NSString* suiteName, NSDictionary* settings);

/// Whether suites can be opened, as they can unless this has said otherwise.
void letSuitesOpen(bool isAllowed);

} // namespace tests
