#include "file-managers/dolphin/Products.h"

#include <KAbstractFileItemActionPlugin>
#include <KFileItem>
#include <KFileItemListProperties>
#include <KPluginFactory>
#include <QAction>
#include <QIcon>
#include <QThread>

namespace file_managers {

namespace {

/// Whether a menu is that of a folder's background. Dolphin then gives the folder itself, under the
/// name that it has in its own listing.
bool isBackground(const KFileItemList& items) {
    return items.size() == 1 && items.first().name() == QLatin1String(".");
}

} // namespace

class MenuPlugin : public KAbstractFileItemActionPlugin {
    Q_OBJECT

public:
    MenuPlugin(QObject* parent, const QVariantList&) : KAbstractFileItemActionPlugin(parent) {}

    QList<QAction*> actions(const KFileItemListProperties& selection, QWidget*) override;

private:
    QAction* action(const Products::Menu& menu, const FinderSyncMenuItem& item,
                    const QStringList& urls);

    Products products_;
};

QList<QAction*> MenuPlugin::actions(const KFileItemListProperties& selection, QWidget*) {
    if (QThread::currentThread() != thread())
        return {}; // entries belong to windows, and these to the main thread
    // Nobody else deletes the actions of the previous menu.
    qDeleteAll(findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly));
    QStringList urls;
    for (const QUrl& url : selection.urlList())
        urls.push_back(requestURL(url));
    if (urls.isEmpty() || urls.contains(QString()) || isBackground(selection.items()))
        return {}; // none is selected, or one is no local file or its path is not UTF-8
    QList<QAction*> entries;
    for (const Products::Menu& menu : products_.menusForItems(urls)) {
        for (const FinderSyncMenuItem& item : menu.items)
            entries.push_back(action(menu, item, urls));
    }
    products_.start(); // for the next menu, those that do not run yet
    return entries;
}

/// Dolphin's items are copies that do not change any more, so their URLs can be read in advance.
QAction* MenuPlugin::action(const Products::Menu& menu, const FinderSyncMenuItem& item,
                            const QStringList& urls) {
    // In a label, an ampersand marks the access key.
    const QString label = QString(item.title).replace(QLatin1Char('&'), QLatin1String("&&"));
    const QIcon icon = QIcon::fromTheme(menu.iconPrefix + item.image);
    auto* const action = new QAction(icon, label, this);
    const auto picked = [this, busName = menu.busName, selector = item.selector, urls] {
        products_.performAction(busName, selector, urls);
    };
    connect(action, &QAction::triggered, this, picked);
    return action;
}

K_PLUGIN_CLASS_WITH_JSON(MenuPlugin, "MenuPlugin.json")

} // namespace file_managers

#include "MenuPlugin.moc"
