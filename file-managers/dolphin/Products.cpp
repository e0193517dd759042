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

Product::Product(QString busName) : busName_(std::move(busName)) {
    startLater_.setSingleShot(true);
    startLater_.callOnTimeout([this] { start(); });
}

void Product::setOwner(const QString& owner) {
    if (extension_ ? extension_->owner() == owner : owner.isEmpty())
        return;
    if (extension_ && extension_->hasAppeared())
        Q_EMIT gone(extension_.get());
    extension_.reset();
    const auto now = Clock::now();
    if (owner.isEmpty()) {
        startBackoff_.ended(now);
        return;
    }
    startBackoff_.appeared(now);
    extension_ = std::make_unique<ExtensionProxy>(busName_, owner);
    connect(extension_.get(), &ExtensionProxy::appeared, this,
            [this] { Q_EMIT appeared(extension_.get()); });
}

void Product::start() {
    if (isRunning() || startLater_.isActive())
        return;
    const auto now = Clock::now();
    const auto pause = startBackoff_.remaining(now);
    if (pause > Clock::duration::zero()) {
        startLater_.start(std::chrono::ceil<std::chrono::milliseconds>(pause));
        return;
    }
    startBackoff_.started(now);
    // The reply does not matter: the name gets an owner, or it does not.
    QDBusConnection::sessionBus().asyncCall(callOfBus("StartServiceByName", {busName_, 0U}));
}

void Product::resetStartBackoff() {
    startBackoff_.reset();
    startLater_.stop();
}

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
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its parent owns it
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, answer] {
        queries_.removeOne(watcher);
        watcher->deleteLater();
        answer(*watcher);
    });
}

void Products::listed(const QStringList& running) {
    QStringList uninstalled;
    for (const auto& [busName, product] : products_) {
        if (!product.isRunning() && !isStartable(busName))
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
    else if (Product* const product = add(busName))
        product->setOwner(owner);
}

/// The product, new or not; null when there are too many. Those that can be started are installed,
/// and go before others: any program can own names.
Product* Products::add(const QString& busName) {
    const auto known = products_.find(busName);
    if (known != products_.end())
        return &known->second;
    if (products_.size() == maxProducts) {
        const auto other = std::ranges::find_if(
            products_, [this](const auto& each) { return !isStartable(each.first); });
        if (!isStartable(busName) || other == products_.end())
            return nullptr;
        remove(QString(other->first));
    }
    Product& product = products_.try_emplace(busName, busName).first->second;
    connect(&product, &Product::appeared, this, &Products::appeared);
    connect(&product, &Product::gone, this, &Products::gone);
    return &product;
}

void Products::remove(const QString& busName) {
    const auto known = products_.find(busName);
    if (known == products_.end())
        return;
    const bool wereTooMany = products_.size() == maxProducts;
    known->second.setOwner({});
    products_.erase(known);
    if (wereTooMany)
        list(); // there is a place for another
}

bool Products::isStartable(const QString& busName) const {
    return startable_.contains(busName);
}

void Products::start() {
    isWanted_ = !queries_.isEmpty();
    for (auto& [busName, product] : products_) {
        if (isStartable(busName))
            product.start();
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
    std::vector<std::pair<QString, ExtensionProxy::MenuReply>> replies;
    for (auto& [busName, product] : products_) {
        product.resetStartBackoff();
        if (product.isRunning() && product.extension()->takesMenuRequests())
            replies.emplace_back(busName, product.extension()->requestMenu(urls));
    }
    std::vector<Menu> menus;
    for (const auto& [busName, reply] : replies)
        (void)waitForAnswer(reply, timeout);
    for (const auto& [busName, reply] : replies) {
        ExtensionProxy& extension = *products_.at(busName).extension();
        menus.push_back({busName, extension.iconPrefix(), extension.menuItems(reply)});
    }
    return menus;
}

void Products::performAction(const QString& busName, const QString& selector,
                             const QStringList& urls) {
    // To whoever owns the name now; if nobody does, the bus starts the extension.
    QDBusMessage call = QDBusMessage::createMethodCall(busName, QLatin1String(objectPath),
                                                       QLatin1String(interfaceName),
                                                       QStringLiteral("PerformAction"));
    call << selector << urls;
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, noTimeout), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, busName] {
        watcher->deleteLater();
        if (watcher->isError())
            qWarning("%s: %s", qPrintable(busName), qPrintable(watcher->error().message()));
    });
}

} // namespace file_managers
