#pragma once

// Linux's calls with the parameters that macOS adds.

#include_next <sys/xattr.h>

/// Without options, which is all that is used here, macOS's calls do what Linux's do.
inline ssize_t listxattr(const char* path, char* names, size_t size, int options) {
    return options == 0 ? listxattr(path, names, size) : -1;
}

inline int setxattr(const char* path, const char* name, const void* value, size_t size,
                    unsigned position, int options) {
    return position == 0 && options == 0 ? setxattr(path, name, value, size, 0) : -1;
}
