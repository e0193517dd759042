#pragma once

#include <gio/gio.h>
#include <memory>

namespace file_managers {

struct Free {
    void operator()(void* memory) const { g_free(memory); }
};

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};

/// Text that GLib has allocated.
using Text = std::unique_ptr<char, Free>;

/// A reference to a GObject.
template <typename T> using Object = std::unique_ptr<T, Unref>;

template <typename T> [[nodiscard]] Object<T> reference(T* object) {
    return Object<T>(static_cast<T*>(g_object_ref(object)));
}

/// What GLib says of a call that has failed.
class Failure {
public:
    Failure() = default;
    ~Failure() { g_clear_error(&error_); }
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;

    /// Where the call is to put it.
    [[nodiscard]] GError** place() { return &error_; }

    [[nodiscard]] bool is(GIOErrorEnum code) const {
        return g_error_matches(error_, G_IO_ERROR, code) != FALSE;
    }
    [[nodiscard]] const char* message() const { return error_ == nullptr ? "" : error_->message; }

private:
    GError* error_ = nullptr;
};

} // namespace file_managers
