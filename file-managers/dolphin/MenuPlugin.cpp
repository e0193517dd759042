#include "file-managers/dolphin/Products.h"

#include <KAbstractFileItemActionPlugin>
#include <KFileItem>
#include <KFileItemListProperties>
#include <KPluginFactory>
#include <QAction>
#include <QIcon>

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
    QAction* action(const FinderSyncMenuItem& item, ExtensionProxy* extension,
                    const QStringList& urls);

    Products products_;
};

QList<QAction*> MenuPlugin::actions(const KFileItemListProperties& selection, QWidget*) {
    // Nobody else deletes the actions of the previous menu.
    qDeleteAll(findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly));
    QStringList urls;
    for (const QUrl& url : selection.urlList())
        urls.push_back(requestURL(url));
    if (urls.isEmpty() || urls.contains(QString()) || isBackground(selection.items()))
        return {}; // none is selected, or one is no local file or its path is not UTF-8
    QList<QAction*> entries;
    for (const auto& [extension, items] : products_.menusForItems(urls)) {
        for (const FinderSyncMenuItem& item : items)
            entries.push_back(action(item, extension, urls));
    }
    products_.start(); // for the next menu, those that do not run yet
    return entries;
}

/// Dolphin's items are copies that do not change any more, so their URLs can be read in advance.
QAction* MenuPlugin::action(const FinderSyncMenuItem& item, ExtensionProxy* extension,
                            const QStringList& urls) {
    // In a label, an ampersand marks the access key.
    const QString label = QString(item.title).replace(QLatin1Char('&'), QLatin1String("&&"));
    const QIcon icon = QIcon::fromTheme(extension->iconPrefix() + item.image);
    auto* const action = new QAction(icon, label, this);
    connect(action, &QAction::triggered, extension, [extension, selector = item.selector, urls] {
        extension->performAction(selector, urls);
    });
    return action;
}

K_PLUGIN_CLASS_WITH_JSON(MenuPlugin, "MenuPlugin.json")

} // namespace file_managers

#include "MenuPlugin.moc"
