#pragma once

// The part of Core Foundation that the extension uses. Its objects are Foundation's, as on macOS.

#include <cstdint>

using UInt32 = std::uint32_t;
using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFReadStreamRef = struct __CFReadStream*;
using CFWriteStreamRef = struct __CFWriteStream*;

extern "C" {

extern const CFAllocatorRef kCFAllocatorDefault;

void CFStreamCreatePairWithSocketToHost(CFAllocatorRef allocator, CFStringRef host, UInt32 port,
                                        CFReadStreamRef* readStream, CFWriteStreamRef* writeStream);

} // extern "C"
