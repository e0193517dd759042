#pragma once

// Dolphin's plug-ins without Dolphin and without a display: found and loaded as it does it, and
// asked about items of the program's own.

#include <KAbstractFileItemActionPlugin>
#include <KFileItem>
#include <KFileItemListProperties>
#include <KOverlayIconPlugin>
#include <KPluginFactory>
#include <KPluginMetaData>
#include <QAction>
#include <QElapsedTimer>
#include <QHash>
#include <QPluginLoader>
#include <QUrl>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

inline KPluginMetaData pluginOfKind(const char* kind) {
    const auto found = KPluginMetaData::findPlugins(QStringLiteral("kf5/") + QLatin1String(kind));
    if (found.size() != 1)
        throw std::runtime_error(std::string("there is not one plug-in in ") + kind);
    return found.front();
}

inline std::unique_ptr<KAbstractFileItemActionPlugin> newMenuPlugin() {
    const KPluginMetaData plugin = pluginOfKind("kfileitemaction");
    return std::unique_ptr<KAbstractFileItemActionPlugin>(
        KPluginFactory::instantiatePlugin<KAbstractFileItemActionPlugin>(plugin).plugin);
}

class LoadedDolphinPlugins {
public:
    LoadedDolphinPlugins() {
        QPluginLoader loader(pluginOfKind("overlayicon").fileName());
        badgePlugin_.reset(qobject_cast<KOverlayIconPlugin*>(loader.instance()));
        if (!menuPlugin_ || !badgePlugin_)
            throw std::runtime_error("a plug-in is not of its kind");
        // As Dolphin does it: it asks again when it is told.
        QObject::connect(badgePlugin_.get(), &KOverlayIconPlugin::overlaysChanged,
                         [this](const QUrl& url, const QStringList& overlays) {
                             overlays_[url] = badgePlugin_->getOverlays(url);
                             EXPECT_EQ(overlays_[url], overlays);
                             ++changes_[url];
                         });
    }

    void show(const QUrl& url) { overlays_[url] = badgePlugin_->getOverlays(url); }

    [[nodiscard]] QStringList overlays(const QUrl& url) const { return overlays_.value(url); }
    [[nodiscard]] int changes(const QUrl& url) const { return changes_.value(url); }

    /// The labels of the menu for items, and how long it took.
    QStringList menu(const QList<QUrl>& urls) {
        KFileItemList items;
        for (const QUrl& url : urls)
            items.append(KFileItem(url, QStringLiteral("text/plain"), S_IFREG));
        const KFileItemListProperties selection(items);
        QElapsedTimer clock;
        clock.start();
        actions_ = menuPlugin_->actions(selection, nullptr);
        menuTook_ = clock.nsecsElapsed();
        QStringList labels;
        for (const QAction* action : actions_)
            labels.push_back(action->text());
        return labels;
    }

    [[nodiscard]] const QList<QAction*>& actions() const { return actions_; }
    [[nodiscard]] qint64 menuTook() const { return menuTook_ / 1000000; } // milliseconds
    [[nodiscard]] qint64 menuTookMicroseconds() const { return menuTook_ / 1000; }

private:
    std::unique_ptr<KAbstractFileItemActionPlugin> menuPlugin_ = newMenuPlugin();
    std::unique_ptr<KOverlayIconPlugin> badgePlugin_;
    QHash<QUrl, QStringList> overlays_;
    QHash<QUrl, int> changes_;
    QList<QAction*> actions_;
    qint64 menuTook_ = 0; ///< nanoseconds
};
