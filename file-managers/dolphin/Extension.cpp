#include "file-managers/dolphin/Extension.h"

#include "FinderSyncExtension1.h"

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

const QLatin1String busName(FINDER_SYNC_GROUP ".FinderSync");
const QLatin1String objectPath("/FinderSync");
const QLatin1String propertiesInterface("org.freedesktop.DBus.Properties");
const QLatin1String rootFolders("pathsOfRootFolders");

/// How long a menu may be kept waiting.
constexpr int menuPatience = 100;               // milliseconds
constexpr unsigned long restBetweenLooks = 100; // microseconds
constexpr int noLimit = std::numeric_limits<int>::max();
/// How long an extension is left alone that has kept one waiting.
constexpr int restAfterDelay = 5000; // milliseconds
/// How long after a start the next one waits, should the extension have ended meanwhile.
constexpr int restAfterStart = 1000; // milliseconds
constexpr uint itemsKind = 0;

// More than the extension ever says, as with its entries.
constexpr int mostDirectories = 16;
constexpr int longestText = 1024; // in UTF-16

QDBusMessage callOfBus(const char* method, const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QLatin1String(method));
    call.setArguments(arguments);
    return call;
}

/// Waits while a menu is kept waiting. QtDBus could end the wait, too, but keeps time to five
/// percent or so, and looks at no clock while it reads a large message of somebody else's.
bool waitForAnswer(const QDBusPendingCall& call, const QDeadlineTimer& patience) {
    while (!call.isFinished() && !patience.hasExpired())
        QThread::usleep(restBetweenLooks);
    return call.isFinished();
}

bool isSensible(const FinderSyncMenuItem& item) {
    return item.title.size() <= longestText && item.selector.size() <= longestText &&
           item.image.size() <= longestText;
}

/// What is left of a menu without that which cannot be the extension's.
FinderSyncMenuItems sensibleItems(const FinderSyncMenuItems& items) {
    FinderSyncMenuItems sensible;
    if (items.size() <= mostMenuItems)
        std::copy_if(items.begin(), items.end(), std::back_inserter(sensible), &isSensible);
    return sensible;
}

} // namespace

QString requestURL(const QUrl& url) {
    const QByteArray path =
        QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
    const bool isText = QString::fromUtf8(path).toUtf8() == path && !path.contains('\0');
    if (!url.isLocalFile() || !url.host().isEmpty() || url.hasQuery() || url.hasFragment() ||
        !path.startsWith('/') || !isText)
        return {};
    // QUrl leaves square brackets as they are, which may not stand in the path of a URL.
    return QStringLiteral("file://") +
           QString::fromLatin1(path.toPercentEncoding(QByteArrayLiteral("/!$&'()*+,;=:@")));
}

Extension::Extension() {
    qDBusRegisterMetaType<FinderSyncMenuItem>();
    qDBusRegisterMetaType<FinderSyncMenuItems>();
    startLater_.setSingleShot(true);
    connect(&startLater_, &QTimer::timeout, this, &Extension::start);

    auto* const service =
        new QDBusServiceWatcher(busName, bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(service, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) { ownerChanged(owner); });
    // The watcher tells of changes only. Whatever it tells comes after this answer.
    const QDBusMessage call = callOfBus("GetNameOwner", {QString(busName)});
    firstOwner_ = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(firstOwner_, &QDBusPendingCallWatcher::finished, this, [this] {
        firstOwner_->deleteLater();
        const QDBusPendingReply<QString> reply = *firstOwner_;
        if (!reply.isError())
            ownerChanged(reply.value());
    });
}

Extension::~Extension() = default;

void Extension::ownerChanged(const QString& owner) {
    noMenuBefore_ = {};
    if (proxy_)
        followProperties(false);
    proxy_.reset(); // and with it, whatever is waited for
    if (std::exchange(isRunning_, false))
        Q_EMIT gone();
    if (owner.isEmpty())
        return;
    // For the process rather than for the name: the proxy of a name waits to learn who owns it.
    proxy_ = std::make_unique<FindersyncExtension1Interface>(owner, objectPath, bus_);
    followProperties(true);
    fetchProperties();
}

void Extension::followProperties(bool isFollowed) {
    const auto change =
        isFollowed ? qOverload<const QString&, const QString&, const QString&, const QString&,
                               QObject*, const char*>(&QDBusConnection::connect)
                   : qOverload<const QString&, const QString&, const QString&, const QString&,
                               QObject*, const char*>(&QDBusConnection::disconnect);
    (bus_.*change)(proxy_->service(), objectPath, propertiesInterface,
                   QStringLiteral("PropertiesChanged"), this,
                   SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
}

void Extension::fetchProperties() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        proxy_->service(), objectPath, propertiesInterface, QStringLiteral("GetAll"));
    call << proxy_->interface();
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, noLimit), proxy_.get());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *watcher;
        if (reply.isError())
            return;
        const auto urls = reply.value().value(QStringLiteral("directoryURLs")).toStringList();
        watchedDirectories_ = QUrl::fromStringList(urls.mid(0, mostDirectories));
        isRunning_ = true;
        Q_EMIT appeared();
    });
}

void Extension::propertiesChanged(const QString&, const QVariantMap& changed,
                                  const QStringList& invalidated) {
    if (isRunning_ && (changed.contains(rootFolders) || invalidated.contains(rootFolders)))
        Q_EMIT rootFoldersChanged();
}

void Extension::start() {
    if (proxy_ || startLater_.isActive())
        return;
    if (!noStartBefore_.hasExpired()) {
        startLater_.start(static_cast<int>(noStartBefore_.remainingTime()) + 1);
        return;
    }
    noStartBefore_.setRemainingTime(restAfterStart);
    // The answer does not matter: the name gets an owner, or it does not.
    bus_.asyncCall(callOfBus("StartServiceByName", {QString(busName), 0U}));
}

bool Extension::watches(const QUrl& url) const {
    const auto isAround = [&url](const QUrl& directory) {
        return directory.matches(url, QUrl::StripTrailingSlash) || directory.isParentOf(url);
    };
    return std::any_of(watchedDirectories_.begin(), watchedDirectories_.end(), isAround);
}

void Extension::requestBadges(const QStringList& urls, const BadgesAnswer& answer) {
    // Without a limit: an extension that hangs answers when it goes on, and one that ends is told
    // of.
    proxy_->setTimeout(noLimit);
    auto* const watcher =
        new QDBusPendingCallWatcher(proxy_->RequestBadgeIdentifiersForURLs(urls), proxy_.get());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, answer] {
        watcher->deleteLater();
        const QDBusPendingReply<QStringList> reply = *watcher;
        QStringList badges = reply.isError() ? QStringList() : reply.value();
        const auto isTooLong = [](const QString& badge) { return badge.size() > longestText; };
        std::replace_if(badges.begin(), badges.end(), isTooLong, QString());
        answer(badges);
    });
}

FinderSyncMenuItems Extension::menuForItems(const QStringList& urls) {
    if (!noMenuBefore_.hasExpired())
        return {};
    const QDeadlineTimer patience(menuPatience);
    // File managers load a plug-in for the first menu that they open. A bus answers at once.
    if (!firstOwner_.isNull()) {
        if (!waitForAnswer(*firstOwner_, patience)) {
            noMenuBefore_.setRemainingTime(restAfterDelay);
            return {};
        }
        firstOwner_->waitForFinished(); // hands the answer over
    }
    if (!proxy_)
        return {};
    proxy_->setTimeout(2 * menuPatience); // for QtDBus to forget what nobody waits for any more
    QDBusPendingReply<bool, FinderSyncMenuItems> reply = proxy_->MenuForMenuKind(itemsKind, urls);
    const bool isFinished = waitForAnswer(reply, patience);
    // Also when it has ended, which the bus tells next.
    if (!isFinished || reply.error().type() == QDBusError::NoReply)
        noMenuBefore_.setRemainingTime(restAfterDelay);
    if (!isFinished || reply.isError())
        return {};
    return reply.argumentAt<0>() ? sensibleItems(reply.argumentAt<1>()) : FinderSyncMenuItems();
}

void Extension::performAction(const QString& selector, const QStringList& urls) {
    if (!proxy_)
        return;
    proxy_->setTimeout(noLimit);
    proxy_->PerformAction(selector, urls);
}

} // namespace file_managers
