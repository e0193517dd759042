#pragma once

// The products that have an extension, as the session bus knows them.

#include "file-managers/dolphin/ExtensionProxy.h"

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QDeadlineTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <map>
#include <memory>
#include <vector>

class QDBusPendingCallWatcher;

namespace file_managers {

/// Every product whose extension runs or that the bus can start. Belongs to the main thread.
class Products : public QObject {
    Q_OBJECT

public:
    Products();

    /// Has the bus start what does not run and can be started. Returns at once.
    void start();

    /// A product's entries in a menu. The extension may be deleted later.
    struct Menu {
        ExtensionProxy* extension;
        FinderSyncMenuItems items;
    };

    /// The entries that products offer for selected items, by their request URLs, in the order of
    /// the products' bus names. Asks all of them at once and waits for `menuTimeout` at most.
    [[nodiscard]] std::vector<Menu> menusForItems(const QStringList& urls);

Q_SIGNALS:
    /// The signals of ExtensionProxy. It is not deleted between the two.
    void badgesOutdated(file_managers::ExtensionProxy* extension);
    void gone(file_managers::ExtensionProxy* extension);

private:
    Q_SLOT void list();
    Q_SLOT void ownerChanged(const QString& busName, const QString& before, const QString& owner);
    using Answer = std::function<void(const QDBusPendingCall&)>;
    void query(const QDBusMessage& call, const Answer& answer);
    void listed(const QStringList& running);
    void requestOwner(const QString& busName);
    [[nodiscard]] ExtensionProxy* add(const QString& busName);
    void remove(const QString& busName);
    [[nodiscard]] bool isStartable(const QString& busName) const;
    [[nodiscard]] bool areKnown(const QDeadlineTimer& timeout);

    QDBusConnection bus_ = QDBusConnection::sessionBus();
    QList<QDBusPendingCallWatcher*> queries_; ///< that the bus has not answered
    QDeadlineTimer busBackoff_;               ///< menus do not wait for these queries until then
    QStringList startable_;
    std::map<QString, std::unique_ptr<ExtensionProxy>> products_; ///< by bus name
    bool isWanted_ = false; ///< start() was called before the products were listed
};

} // namespace file_managers
