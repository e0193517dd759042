#pragma once

#include <sys/types.h>

extern "C" {

ssize_t listxattr(const char* path, char* namebuf, size_t size, int options);
int setxattr(const char* path, const char* name, const void* value, size_t size, u_int32_t position,
             int options);

} // extern "C"
