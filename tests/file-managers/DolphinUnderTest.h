#pragma once

// Dolphin, as far as its two plug-ins can tell.

#include "Names.h"

#include <KAbstractFileItemActionPlugin>
#include <KFileItem>
#include <KFileItemListProperties>
#include <KOverlayIconPlugin>
#include <KPluginFactory>
#include <KPluginMetaData>
#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QIcon>
#include <QPluginLoader>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>

class Application {
public:
    Application(int& argc, char** argv) {
        qputenv("QT_QPA_PLATFORM", "minimal");
        qputenv("QT_PLUGIN_PATH", FINDER_SYNC_PLUGINS);
        application_ = std::make_unique<QApplication>(argc, argv);
        addIconsOfOtherProducts();
        QIcon::setThemeSearchPaths({QStringLiteral(FINDER_SYNC_ICONS), otherIcons_.path(),
                                    QStringLiteral(FINDER_SYNC_SYSTEM_ICONS)});
        QIcon::setThemeName(QStringLiteral("hicolor"));
    }

private:
    /// An icon has a name only if the theme has the icon.
    void addIconsOfOtherProducts() const {
        const QString folder = QStringLiteral("/hicolor/scalable/actions/");
        (void)QDir(otherIcons_.path()).mkpath(otherIcons_.path() + folder);
        for (const char* prefix : {"a.first.", "z.last."})
            (void)QFile::copy(QLatin1String(FINDER_SYNC_ICONS) + folder +
                                  QLatin1String(findersync::iconPrefix) + "icon_URLlink.svg",
                              otherIcons_.path() + folder + prefix + "icon_URLlink.svg");
    }

    const QTemporaryDir otherIcons_;
    std::unique_ptr<QApplication> application_;
};

class FileManager {
public:
    static constexpr bool hasBadges = true;
    static inline const Texts services;
    static constexpr int plugins = 2;
    static inline const std::string badge =
        std::string("emblem-") + findersync::iconPrefix + "FolderIco";
    static inline const std::string label = "Copy _link && go";
    static constexpr milliseconds leastTimeout{100};
    static constexpr milliseconds mostTimeout{250};
    static inline const Texts notFiles = {"trash:///sync",          "file:///sync/%ff",
                                          "file:///sync/%ED%A0%80", "file:///sync/%00",
                                          "file://elsewhere/sync",  "file:///sync?query",
                                          "file:///sync#fragment",  "file:///sync/%EF%BF%BD"};

    FileManager() {
        newMenuPlugin();
        QPluginLoader loader(pluginOfKind("overlayicon").fileName());
        badgePlugin_.reset(qobject_cast<KOverlayIconPlugin*>(loader.instance()));
        if (!menuPlugin_ || !badgePlugin_)
            throw std::runtime_error("a plug-in is not of its kind");
        // As Dolphin does, asks again on the signal.
        QObject::connect(badgePlugin_.get(), &KOverlayIconPlugin::overlaysChanged,
                         [this](const QUrl& url, const QStringList& overlays) {
                             overlays_[url] = badgePlugin_->getOverlays(url);
                             EXPECT_EQ(overlays_[url], overlays);
                             ++changes_[url];
                         });
    }

    static KPluginMetaData pluginOfKind(const char* kind) {
        const auto found = KPluginMetaData::findPlugins(
            QStringLiteral(FINDER_SYNC_PLUGIN_FOLDER "/") + QLatin1String(kind),
            [](const KPluginMetaData& plugin) {
                return plugin.fileName().startsWith(QStringLiteral(FINDER_SYNC_PLUGINS));
            });
        if (found.size() != 1)
            throw std::runtime_error(std::string("there is not one plug-in in ") + kind);
        return found.front();
    }

    /// Loads the plug-in for menus as Dolphin does when it opens its first.
    void newMenuPlugin() {
        menuPlugin_.reset(KPluginFactory::instantiatePlugin<KAbstractFileItemActionPlugin>(
                              pluginOfKind("kfileitemaction"))
                              .plugin);
    }

    void show(const std::string& url) { overlays_[at(url)] = badgePlugin_->getOverlays(at(url)); }
    void forget(const std::string& url) { overlays_.remove(at(url)); }

    [[nodiscard]] Texts badges(const std::string& url) const {
        Texts badges;
        for (const QString& overlay : overlays_.value(at(url)))
            badges.push_back(overlay.toStdString());
        return badges;
    }
    [[nodiscard]] int changes(const std::string& url) const { return changes_.value(at(url)); }

    /// Dolphin asks for the entries of every menu.
    [[nodiscard]] int menuNotices() const { return 0; }

    /// Plug-ins get URLs and no objects.
    [[nodiscard]] bool keepsNoFile() const { return true; }

    Texts menu(const Texts& urls) {
        KFileItemList items;
        for (const std::string& url : urls)
            items.append(KFileItem(at(url), QStringLiteral("text/plain"), S_IFREG));
        const KFileItemListProperties selection(items);
        const auto begin = Clock::now();
        actions_ = menuPlugin_->actions(selection, nullptr);
        menuTook_ = std::chrono::duration_cast<microseconds>(Clock::now() - begin);
        EXPECT_EQ(menuPlugin_->findChildren<QAction*>().size(), actions_.size())
            << "the actions of the previous menu are deleted";
        Texts labels;
        for (const QAction* action : actions_)
            labels.push_back(action->text().toStdString());
        return labels;
    }
    [[nodiscard]] microseconds menuTook() const { return menuTook_; }
    [[nodiscard]] Texts icons() const {
        Texts names;
        for (const QAction* action : actions_)
            names.push_back(action->icon().name().toStdString());
        return names;
    }
    void pickFirst() { actions_.front()->trigger(); }

    static void processEvents() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }

    static void run(const std::function<void()>& input) {
        const QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, input);
        QCoreApplication::exec();
    }
    static void quit() { QCoreApplication::quit(); }

private:
    static QUrl at(const std::string& url) { return QUrl(QString::fromStdString(url)); }

    std::unique_ptr<KAbstractFileItemActionPlugin> menuPlugin_;
    std::unique_ptr<KOverlayIconPlugin> badgePlugin_;
    QHash<QUrl, QStringList> overlays_;
    QHash<QUrl, int> changes_;
    QList<QAction*> actions_;
    microseconds menuTook_{0};
};
