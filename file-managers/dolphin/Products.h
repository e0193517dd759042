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

/// A bus name, and the process that owns it, if any.
class Product : public QObject {
    Q_OBJECT

public:
    explicit Product(QString busName);

    [[nodiscard]] bool isRunning() const { return extension_ != nullptr; }

    /// Null if it does not run.
    [[nodiscard]] ExtensionProxy* extension() const { return extension_.get(); }

    /// `owner` is a unique name, or "".
    void setOwner(const QString& owner);

    /// Has the bus start the extension unless it runs, once StartBackoff allows it. Returns at
    /// once.
    void start();

    /// The user has asked for something: the next start is made at once.
    void resetStartBackoff();

Q_SIGNALS:
    /// Those of Products.
    void appeared(file_managers::ExtensionProxy* extension);
    void gone(file_managers::ExtensionProxy* extension);

private:
    const QString busName_;
    std::unique_ptr<ExtensionProxy> extension_;
    StartBackoff startBackoff_;
    QTimer startLater_;
};

/// Every product whose extension runs or that the bus can start. Belongs to the main thread.
class Products : public QObject {
    Q_OBJECT

public:
    Products();

    /// Has the bus start what does not run and can be started. Returns at once.
    void start();

    /// A product's entries in a menu.
    struct Menu {
        QString busName;
        QString iconPrefix;
        FinderSyncMenuItems items;
    };

    /// The entries that products offer for selected items, by their request URLs, in the order of
    /// the products' bus names. Asks all of them at once and waits for `menuTimeout` at most.
    [[nodiscard]] std::vector<Menu> menusForItems(const QStringList& urls);

    /// Tells a product which entry was picked. Returns at once.
    void performAction(const QString& busName, const QString& selector, const QStringList& urls);

Q_SIGNALS:
    /// An extension has appeared; one that had appeared is about to be deleted.
    void appeared(file_managers::ExtensionProxy* extension);
    void gone(file_managers::ExtensionProxy* extension);

private:
    Q_SLOT void list();
    Q_SLOT void ownerChanged(const QString& busName, const QString& before, const QString& owner);
    using Answer = std::function<void(const QDBusPendingCall&)>;
    void query(const QDBusMessage& call, const Answer& answer);
    void listed(const QStringList& running);
    void requestOwner(const QString& busName);
    [[nodiscard]] Product* add(const QString& busName);
    void remove(const QString& busName);
    [[nodiscard]] bool isStartable(const QString& busName) const;
    [[nodiscard]] bool areKnown(const QDeadlineTimer& timeout);

    QDBusConnection bus_ = QDBusConnection::sessionBus();
    QList<QDBusPendingCallWatcher*> queries_; ///< that the bus has not answered
    QDeadlineTimer busBackoff_;               ///< menus do not wait for these queries until then
    QStringList startable_;
    std::map<QString, Product> products_; ///< by bus name
    bool isWanted_ = false;               ///< start() was called before the products were listed
};

} // namespace file_managers
