#pragma once

// Owning handles for what GLib allocates. Each holds one reference, and null for none.

#include <gio/gio.h>
#include <memory>

namespace file_managers {

struct Release {
    void operator()(char* text) const { g_free(text); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GClosure* closure) const { g_closure_unref(closure); }
    template <typename T> void operator()(T* object) const { g_object_unref(object); }
};

using Text = std::unique_ptr<char, Release>;
using Error = std::unique_ptr<GError, Release>;
using Variant = std::unique_ptr<GVariant, Release>;
using Closure = std::unique_ptr<GClosure, Release>;
template <typename T> using Object = std::unique_ptr<T, Release>;

/// A further reference to an object.
template <typename T> [[nodiscard]] Object<T> reference(T* object) {
    return Object<T>(static_cast<T*>(g_object_ref(object)));
}

/// Where a function of GLib is to put what it allocates: `g_file_load(…, Out(error))`. C++23 has
/// std::out_ptr for this.
template <typename T> class Out {
public:
    explicit Out(std::unique_ptr<T, Release>& handle) : handle_(handle) {}
    ~Out() { handle_.reset(value_); }
    Out(const Out&) = delete;
    Out& operator=(const Out&) = delete;

    operator T**() { return &value_; } // NOLINT(google-explicit-constructor)

private:
    std::unique_ptr<T, Release>& handle_;
    T* value_ = nullptr;
};

} // namespace file_managers
