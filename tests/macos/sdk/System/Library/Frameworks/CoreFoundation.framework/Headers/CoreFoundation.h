#pragma once

// The part of Core Foundation that the extension uses.

#if __has_include(<MacTypes.h>)
#include <MacTypes.h>
#else
#include <cstdint>
using UInt32 = std::uint32_t;
#endif

using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFReadStreamRef = struct __CFReadStream*;
using CFWriteStreamRef = struct __CFWriteStream*;

extern "C" {

extern const CFAllocatorRef kCFAllocatorDefault;

__attribute__((availability(macos, introduced = 10.1, deprecated = 12.0))) void
CFStreamCreatePairWithSocketToHost(CFAllocatorRef allocator, CFStringRef host, UInt32 port,
                                   CFReadStreamRef* readStream, CFWriteStreamRef* writeStream);

} // extern "C"
