#include "Names.h"
#include "file-managers/dolphin/ExtensionProxy.h"

#include <KAbstractFileItemActionPlugin>
#include <KFileItemListProperties>
#include <KPluginFactory>
#include <QAction>
#include <QIcon>

namespace file_managers {

class MenuPlugin : public KAbstractFileItemActionPlugin {
    Q_OBJECT

public:
    MenuPlugin(QObject* parent, const QVariantList&) : KAbstractFileItemActionPlugin(parent) {}

    QList<QAction*> actions(const KFileItemListProperties& selection, QWidget*) override;

private:
    QAction* action(const FinderSyncMenuItem& item, const QStringList& urls);

    ExtensionProxy extension_;
};

QList<QAction*> MenuPlugin::actions(const KFileItemListProperties& selection, QWidget*) {
    // Nobody else deletes the actions of the previous menu.
    qDeleteAll(findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly));
    QStringList urls;
    for (const QUrl& url : selection.urlList())
        urls.push_back(requestURL(url));
    if (urls.contains(QString()))
        return {}; // an item is no local file, or its path is not UTF-8
    QList<QAction*> entries;
    for (const FinderSyncMenuItem& item : extension_.menuForItems(urls))
        entries.push_back(action(item, urls));
    extension_.start(); // for the next menu, if it does not run yet
    return entries;
}

QAction* MenuPlugin::action(const FinderSyncMenuItem& item, const QStringList& urls) {
    // In a label, an ampersand marks the access key.
    const QString label = QString(item.title).replace(QLatin1Char('&'), QLatin1String("&&"));
    const QIcon icon = QIcon::fromTheme(QLatin1String(findersync::iconPrefix) + item.image);
    auto* const action = new QAction(icon, label, this);
    connect(action, &QAction::triggered, this,
            [this, selector = item.selector, urls] { extension_.performAction(selector, urls); });
    return action;
}

K_PLUGIN_CLASS_WITH_JSON(MenuPlugin, "MenuPlugin.json")

} // namespace file_managers

#include "MenuPlugin.moc"
