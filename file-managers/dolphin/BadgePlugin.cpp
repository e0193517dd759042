// Dolphin uses the one root object of this plug-in for the badges of all its windows.

#include "Names.h"
#include "file-managers/dolphin/ExtensionProxy.h"
#include "file-managers/dolphin/ShownItems.h"

#include <KOverlayIconPlugin>

namespace file_managers {

namespace {

QStringList overlays(const QString& badge) {
    if (badge.isEmpty())
        return {};
    return {QLatin1String("emblem-") + QLatin1String(findersync::iconPrefix) + badge};
}

} // namespace

class BadgePlugin : public KOverlayIconPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.kde.KOverlayIconPlugin" FILE "BadgePlugin.json")

public:
    BadgePlugin() {
        connect(&shown_, &ShownItems::badgeChanged, this,
                [this](const QUrl& url, const QString& badge) {
                    Q_EMIT overlaysChanged(url, overlays(badge));
                });
    }

    QStringList getOverlays(const QUrl& item) override { return overlays(shown_.show(item)); }

private:
    ExtensionProxy extension_;
    ShownItems shown_{extension_};
};

} // namespace file_managers

#include "BadgePlugin.moc"
