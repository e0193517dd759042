#include "file-managers/dolphin/Products.h"

#include "file-managers/Interface.h"
#include "file-managers/Limits.h"
#include "file-managers/dolphin/BusCall.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QThread>
#include <algorithm>
#include <utility>

namespace file_managers {

namespace {

constexpr unsigned long pollInterval = 100; // microseconds

bool isProduct(const QString& busName) {
    return busName.endsWith(QLatin1String(busNameEnd)) && !busName.startsWith(QLatin1Char(':'));
}

/// The products among the names in a reply; at most as many as are served.
QStringList productsIn(const QDBusPendingReply<QStringList>& reply) {
    QStringList products;
    if (reply.isError())
        return products;
    for (const QString& name : reply.value()) {
        if (products.size() < maxProducts && isProduct(name))
            products.push_back(name);
    }
    return products;
}

/// Blocks until a call is answered or times out. QtDBus has a timeout too, but it is off by up to
/// five percent, and is not checked while QtDBus reads another large message.
bool waitForAnswer(const QDBusPendingCall& call, const QDeadlineTimer& timeout) {
    while (!call.isFinished() && !timeout.hasExpired())
        QThread::usleep(pollInterval);
    return call.isFinished();
}

} // namespace

Products::Products() {
    bus_.connect(busService, busPath, busService, QStringLiteral("NameOwnerChanged"), this,
                 SLOT(ownerChanged(QString, QString, QString)));
    bus_.connect(busService, busPath, busService, QStringLiteral("ActivatableServicesChanged"),
                 this, SLOT(list()));
    list();
}

void Products::list() {
    query(callOfBus("ListActivatableNames"),
          [this](const QDBusPendingCall& call) { startable_ = productsIn(call); });
    query(callOfBus("ListNames"),
          [this](const QDBusPendingCall& call) { listed(productsIn(call)); });
}

/// Asks the bus. `answer` is called from the event loop, or by a menu that waits for it.
void Products::query(const QDBusMessage& call, const Answer& answer) {
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, noTimeout), this);
    queries_.push_back(watcher);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, answer] {
        queries_.removeOne(watcher);
        watcher->deleteLater();
        answer(*watcher);
    });
}

void Products::listed(const QStringList& running) {
    QStringList uninstalled;
    for (const auto& [busName, extension] : products_) {
        if (!extension->hasOwner() && !isStartable(busName))
            uninstalled.push_back(busName);
    }
    for (const QString& busName : std::as_const(uninstalled))
        remove(busName);
    for (const QString& busName : std::as_const(startable_))
        (void)add(busName);
    for (const QString& busName : running)
        requestOwner(busName);
    if (std::exchange(isWanted_, false))
        start();
}

void Products::requestOwner(const QString& busName) {
    query(callOfBus("GetNameOwner", {busName}), [this, busName](const QDBusPendingCall& call) {
        const QDBusPendingReply<QString> owner = call;
        if (!owner.isError())
            ownerChanged(busName, {}, owner.value());
    });
}

void Products::ownerChanged(const QString& busName, const QString&, const QString& owner) {
    if (!isProduct(busName))
        return;
    if (owner.isEmpty() && !isStartable(busName))
        remove(busName);
    else if (ExtensionProxy* const extension = add(busName))
        extension->setOwner(owner);
}

/// The product, new or not; null when there are too many. Those that can be started are installed,
/// and go before others: any program can own names.
ExtensionProxy* Products::add(const QString& busName) {
    const auto known = products_.find(busName);
    if (known != products_.end())
        return known->second.get();
    if (products_.size() == maxProducts) {
        const auto other =
            std::find_if(products_.begin(), products_.end(),
                         [this](const auto& each) { return !isStartable(each.first); });
        if (!isStartable(busName) || other == products_.end())
            return nullptr;
        remove(QString(other->first));
    }
    auto* const extension =
        products_.emplace(busName, std::make_unique<ExtensionProxy>(busName)).first->second.get();
    connect(extension, &ExtensionProxy::badgesOutdated, this,
            [this, extension] { Q_EMIT badgesOutdated(extension); });
    connect(extension, &ExtensionProxy::gone, this, [this, extension] { Q_EMIT gone(extension); });
    return extension;
}

void Products::remove(const QString& busName) {
    const auto known = products_.find(busName);
    if (known == products_.end())
        return;
    known->second->setOwner({});
    products_.erase(known);
}

bool Products::isStartable(const QString& busName) const {
    return startable_.contains(busName);
}

void Products::start() {
    isWanted_ = !queries_.isEmpty();
    for (const auto& [busName, extension] : products_) {
        if (isStartable(busName))
            extension->start();
    }
}

/// Waits until the bus has answered. Dolphin loads the plug-in when it opens the first menu.
bool Products::areKnown(const QDeadlineTimer& timeout) {
    while (!queries_.isEmpty()) {
        if (!busBackoff_.hasExpired())
            return false;
        if (!waitForAnswer(*queries_.first(), timeout)) {
            busBackoff_.setRemainingTime(menuBackoff);
            return false;
        }
        queries_.first()->waitForFinished(); // emits finished()
    }
    return true;
}

std::vector<Products::Menu> Products::menusForItems(const QStringList& urls) {
    const QDeadlineTimer timeout(menuTimeout);
    if (!areKnown(timeout))
        return {};
    std::vector<std::pair<ExtensionProxy*, ExtensionProxy::MenuReply>> replies;
    for (const auto& [busName, extension] : products_) {
        if (extension->answersMenus())
            replies.emplace_back(extension.get(), extension->requestMenu(urls));
    }
    for (const auto& [extension, reply] : replies)
        (void)waitForAnswer(reply, timeout);
    std::vector<Menu> menus;
    menus.reserve(replies.size());
    for (const auto& [extension, reply] : replies)
        menus.push_back({extension, extension->menuItems(reply)});
    return menus;
}

} // namespace file_managers
