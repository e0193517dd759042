#pragma once

#include <cerrno>
#include <system_error>

namespace findersync::bench {

/// The result of a system call, or an exception when it failed.
template <typename Result> Result checked(Result result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

} // namespace findersync::bench
