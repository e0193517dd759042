#pragma once

#include <glib-object.h>

namespace file_managers {

/// Registers the type that the file manager creates its provider of. The provider lives as long as
/// the file manager.
GType registerProvider(GTypeModule* module);

} // namespace file_managers
