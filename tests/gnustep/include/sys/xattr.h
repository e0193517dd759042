#pragma once

// Linux's calls, and the platform's own forms of them.

#include_next <sys/xattr.h>

/// Only without options, as they are used here: that is what Linux's calls do.
inline ssize_t listxattr(const char* path, char* names, size_t size, int options) {
    return options == 0 ? listxattr(path, names, size) : -1;
}

inline int setxattr(const char* path, const char* name, const void* value, size_t size,
                    unsigned position, int options) {
    return position == 0 && options == 0 ? setxattr(path, name, value, size, 0) : -1;
}
