#pragma once

// The extension interfaces of the three file managers differ in their prefixes only.

#include <glib-object.h>

#if defined(FM_CAJA)
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-info-provider.h>
#include <libcaja-extension/caja-menu-item.h>
#include <libcaja-extension/caja-menu-provider.h>
#define FM_NAME(name) Caja##name
#define FM_CALL(name) caja_##name
#define FM_TYPE(name) CAJA_TYPE_##name
#define FM_CONSTANT(name) CAJA_##name
#define FM_INTERFACE(name) Caja##name##Iface
#elif defined(FM_NEMO)
#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-info-provider.h>
#include <libnemo-extension/nemo-menu-item.h>
#include <libnemo-extension/nemo-menu-provider.h>
#define FM_NAME(name) Nemo##name
#define FM_CALL(name) nemo_##name
#define FM_TYPE(name) NEMO_TYPE_##name
#define FM_CONSTANT(name) NEMO_##name
#define FM_INTERFACE(name) Nemo##name##Interface
#elif defined(FM_NAUTILUS)
extern "C" {
#include <nautilus-extension.h>
}
#define FM_NAME(name) Nautilus##name
#define FM_CALL(name) nautilus_##name
#define FM_TYPE(name) NAUTILUS_TYPE_##name
#define FM_CONSTANT(name) NAUTILUS_##name
#define FM_INTERFACE(name) Nautilus##name##Interface
#else
#error "Which file manager? Define FM_CAJA, FM_NEMO or FM_NAUTILUS."
#endif

namespace file_managers {

using FileInfo = FM_NAME(FileInfo);
using InfoProvider = FM_NAME(InfoProvider);
using InfoProviderInterface = FM_INTERFACE(InfoProvider);
using MenuItem = FM_NAME(MenuItem);
using MenuProvider = FM_NAME(MenuProvider);
using MenuProviderInterface = FM_INTERFACE(MenuProvider);
using OperationHandle = FM_NAME(OperationHandle);
using OperationResult = FM_NAME(OperationResult);

} // namespace file_managers
