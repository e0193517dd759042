#pragma once

#include <glib-object.h>

namespace file_managers {

/// Registers the provider's type. The file manager creates one provider of it, which lives as long
/// as the file manager.
GType registerProvider(GTypeModule* module);

} // namespace file_managers
