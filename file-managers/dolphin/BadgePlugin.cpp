// Dolphin uses the one root object of this plug-in for the badges of all its windows.

#include "file-managers/dolphin/Products.h"
#include "file-managers/dolphin/ShownItems.h"

#include <KOverlayIconPlugin>

namespace file_managers {

class BadgePlugin : public KOverlayIconPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.kde.KOverlayIconPlugin" FILE "BadgePlugin.json")

public:
    BadgePlugin() {
        connect(&shown_, &ShownItems::badgesChanged, this, &KOverlayIconPlugin::overlaysChanged);
    }

    QStringList getOverlays(const QUrl& item) override { return shown_.show(item); }

private:
    Products products_;
    ShownItems shown_{products_};
};

} // namespace file_managers

#include "BadgePlugin.moc"
