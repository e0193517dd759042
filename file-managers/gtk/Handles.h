#pragma once

#include <glib-object.h>
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

} // namespace file_managers
