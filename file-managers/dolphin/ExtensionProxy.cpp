#include "file-managers/dolphin/ExtensionProxy.h"

#include "FinderSyncExtension1.h"
#include "Names.h"
#include "file-managers/Limits.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QThread>
#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace file_managers {

namespace {

const QLatin1String busName(findersync::busName);
const QLatin1String objectPath(findersync::objectPath);
const QLatin1String propertiesInterface("org.freedesktop.DBus.Properties");
const QLatin1String rootFolders("pathsOfRootFolders");

constexpr unsigned long pollInterval = 100; // microseconds
constexpr int noTimeout = std::numeric_limits<int>::max();
constexpr uint itemsKind = 0;

QDBusMessage callOfBus(const char* method, const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QLatin1String(method));
    call.setArguments(arguments);
    return call;
}

/// Blocks until a call is answered or times out. QtDBus has a timeout too, but it is off by up to
/// five percent, and is not checked while QtDBus reads another large message.
bool waitForAnswer(const QDBusPendingCall& call, const QDeadlineTimer& timeout) {
    while (!call.isFinished() && !timeout.hasExpired())
        QThread::usleep(pollInterval);
    return call.isFinished();
}

bool isWithinLimit(const FinderSyncMenuItem& item) {
    return item.title.size() <= maxTextLength && item.selector.size() <= maxTextLength &&
           item.image.size() <= maxTextLength;
}

FinderSyncMenuItems itemsWithinLimits(const FinderSyncMenuItems& items) {
    FinderSyncMenuItems kept;
    if (items.size() <= maxMenuItems)
        std::copy_if(items.begin(), items.end(), std::back_inserter(kept), &isWithinLimit);
    return kept;
}

} // namespace

QString requestURL(const QUrl& url) {
    const QByteArray path =
        QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
    const bool isText = QString::fromUtf8(path).toUtf8() == path && !path.contains('\0');
    if (!url.isLocalFile() || !url.host().isEmpty() || url.hasQuery() || url.hasFragment() ||
        !path.startsWith('/') || !isText)
        return {};
    // QUrl leaves square brackets unencoded, which the path of a URL may not contain.
    return QStringLiteral("file://") +
           QString::fromLatin1(path.toPercentEncoding(QByteArrayLiteral("/!$&'()*+,;=:@")));
}

ExtensionProxy::ExtensionProxy() {
    qDBusRegisterMetaType<FinderSyncMenuItem>();
    qDBusRegisterMetaType<FinderSyncMenuItems>();
    startLater_.setSingleShot(true);
    connect(&startLater_, &QTimer::timeout, this, &ExtensionProxy::start);

    auto* const service =
        new QDBusServiceWatcher(busName, bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(service, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) { ownerChanged(owner); });
    // The watcher reports changes only. They come after the answer to this query.
    const QDBusMessage call = callOfBus("GetNameOwner", {QString(busName)});
    firstOwner_ = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(firstOwner_, &QDBusPendingCallWatcher::finished, this, [this] {
        firstOwner_->deleteLater();
        const QDBusPendingReply<QString> reply = *firstOwner_;
        if (!reply.isError())
            ownerChanged(reply.value());
    });
}

ExtensionProxy::~ExtensionProxy() = default;

void ExtensionProxy::ownerChanged(const QString& owner) {
    menuBackoff_ = {};
    if (proxy_)
        subscribeToProperties(false);
    proxy_.reset(); // and with it, the pending calls
    if (std::exchange(isRunning_, false))
        Q_EMIT gone();
    if (owner.isEmpty())
        return;
    // For the unique name: the proxy of a well-known name blocks until it learns its owner.
    proxy_ = std::make_unique<FindersyncExtension1Interface>(owner, objectPath, bus_);
    subscribeToProperties(true);
    fetchProperties();
}

void ExtensionProxy::subscribeToProperties(bool isSubscribed) {
    const auto change =
        isSubscribed ? qOverload<const QString&, const QString&, const QString&, const QString&,
                                 QObject*, const char*>(&QDBusConnection::connect)
                     : qOverload<const QString&, const QString&, const QString&, const QString&,
                                 QObject*, const char*>(&QDBusConnection::disconnect);
    (bus_.*change)(proxy_->service(), objectPath, propertiesInterface,
                   QStringLiteral("PropertiesChanged"), this,
                   SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
}

void ExtensionProxy::fetchProperties() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        proxy_->service(), objectPath, propertiesInterface, QStringLiteral("GetAll"));
    call << proxy_->interface();
    auto* const watcher =
        new QDBusPendingCallWatcher(bus_.asyncCall(call, noTimeout), proxy_.get());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *watcher;
        if (reply.isError())
            return;
        const auto urls = reply.value().value(QStringLiteral("directoryURLs")).toStringList();
        watchedDirectories_ = QUrl::fromStringList(urls.mid(0, maxDirectories));
        isRunning_ = true;
        Q_EMIT appeared();
    });
}

void ExtensionProxy::propertiesChanged(const QString&, const QVariantMap& changed,
                                       const QStringList& invalidated) {
    if (isRunning_ && (changed.contains(rootFolders) || invalidated.contains(rootFolders)))
        Q_EMIT rootFoldersChanged();
}

void ExtensionProxy::start() {
    if (proxy_ || startLater_.isActive())
        return;
    if (!startBackoff_.hasExpired()) {
        startLater_.start(static_cast<int>(startBackoff_.remainingTime()) + 1);
        return;
    }
    startBackoff_.setRemainingTime(startBackoff);
    // The reply does not matter: the name gets an owner, or it does not.
    bus_.asyncCall(callOfBus("StartServiceByName", {QString(busName), 0U}));
}

bool ExtensionProxy::watches(const QUrl& url) const {
    const auto isAround = [&url](const QUrl& directory) {
        return directory.matches(url, QUrl::StripTrailingSlash) || directory.isParentOf(url);
    };
    return std::any_of(watchedDirectories_.begin(), watchedDirectories_.end(), isAround);
}

void ExtensionProxy::requestBadges(const QStringList& urls, const BadgesAnswer& answer) {
    // Without a timeout: an extension that hangs may still answer, and when it ends, the watcher is
    // deleted with the proxy.
    proxy_->setTimeout(noTimeout);
    auto* const watcher =
        new QDBusPendingCallWatcher(proxy_->RequestBadgeIdentifiersForURLs(urls), proxy_.get());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, answer] {
        watcher->deleteLater();
        const QDBusPendingReply<QStringList> reply = *watcher;
        QStringList badges = reply.isError() ? QStringList() : reply.value();
        const auto isTooLong = [](const QString& badge) { return badge.size() > maxTextLength; };
        std::replace_if(badges.begin(), badges.end(), isTooLong, QString());
        answer(badges);
    });
}

FinderSyncMenuItems ExtensionProxy::menuForItems(const QStringList& urls) {
    if (!menuBackoff_.hasExpired())
        return {};
    const QDeadlineTimer timeout(menuTimeout);
    // Dolphin loads the plug-in when it opens the first menu, so the first query may be pending.
    if (!firstOwner_.isNull()) {
        if (!waitForAnswer(*firstOwner_, timeout)) {
            menuBackoff_.setRemainingTime(menuBackoff);
            return {};
        }
        firstOwner_->waitForFinished(); // emits finished()
    }
    if (!proxy_)
        return {};
    // Later than the wait below, for QtDBus to drop the call that nobody waits for any more.
    proxy_->setTimeout(2 * static_cast<int>(menuTimeout.count()));
    QDBusPendingReply<bool, FinderSyncMenuItems> reply = proxy_->MenuForMenuKind(itemsKind, urls);
    const bool isFinished = waitForAnswer(reply, timeout);
    // NoReply also means that the extension has ended, which the bus reports next.
    if (!isFinished || reply.error().type() == QDBusError::NoReply)
        menuBackoff_.setRemainingTime(menuBackoff);
    if (!isFinished || reply.isError())
        return {};
    return reply.argumentAt<0>() ? itemsWithinLimits(reply.argumentAt<1>()) : FinderSyncMenuItems();
}

void ExtensionProxy::performAction(const QString& selector, const QStringList& urls) {
    if (!proxy_)
        return;
    proxy_->setTimeout(noTimeout);
    proxy_->PerformAction(selector, urls);
}

} // namespace file_managers
