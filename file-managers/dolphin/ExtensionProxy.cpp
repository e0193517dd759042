#include "file-managers/dolphin/ExtensionProxy.h"

#include "FinderSyncExtension1.h"
#include "file-managers/Interface.h"
#include "file-managers/Limits.h"
#include "file-managers/dolphin/BusCall.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDir>
#include <QTextBoundaryFinder>
#include <algorithm>
#include <utility>

namespace file_managers {

namespace {

const QLatin1String object(objectPath);
const QLatin1String propertiesInterface("org.freedesktop.DBus.Properties");
const QLatin1String rootFolders("pathsOfRootFolders");
const QChar ellipsis(0x2026);

constexpr uint itemsKind = 0;

/// The path of a URL in the form in which paths are compared: resolved as text, composed, and
/// without a "/" at the end.
QString comparedPath(const QUrl& url) {
    QString path = QDir::cleanPath(url.path(QUrl::FullyDecoded));
    if (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path.normalized(QString::NormalizationForm_C);
}

/// The start of a title that is too long, up to the end of a character.
QString shownTitle(const QString& title) {
    if (title.size() <= maxTextLength)
        return title;
    // A character of two units may follow the last one that fits.
    const QString start = title.left(maxTextLength + 2);
    QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, start);
    characters.setPosition(maxTextLength);
    return start.left(int(characters.toPreviousBoundary())) + ellipsis;
}

FinderSyncMenuItems itemsWithinLimits(const FinderSyncMenuItems& items) {
    FinderSyncMenuItems kept;
    for (const FinderSyncMenuItem& item : items) {
        if (item.selector.size() <= maxTextLength && item.image.size() <= maxTextLength)
            kept.push_back({shownTitle(item.title), item.selector, item.image});
    }
    return kept;
}

bool isOfAnotherType(const QDBusError& error) {
    return error.type() == QDBusError::InvalidSignature;
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

ExtensionProxy::ExtensionProxy(QString busName) : busName_(std::move(busName)) {
    qDBusRegisterMetaType<FinderSyncMenuItem>();
    qDBusRegisterMetaType<FinderSyncMenuItems>();
    startLater_.setSingleShot(true);
    connect(&startLater_, &QTimer::timeout, this, &ExtensionProxy::start);
    bus_.connect(QString(), object, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                 SLOT(propertiesChanged(QString, QVariantMap, QStringList, QDBusMessage)));
}

ExtensionProxy::~ExtensionProxy() = default;

QString ExtensionProxy::iconPrefix() const {
    return busName_.chopped(int(sizeof busNameEnd) - 2); // all but the "."
}

void ExtensionProxy::setOwner(const QString& owner) {
    if (proxy_ ? proxy_->service() == owner : owner.isEmpty())
        return;
    menuBackoff_ = {};
    lastMenu_ = MenuReply();
    isNonsense_ = false;
    proxy_.reset(); // and with it, the pending calls
    const bool hadAppeared = hasAppeared();
    hasInterface_.reset();
    if (hadAppeared)
        Q_EMIT gone();
    if (owner.isEmpty())
        return;
    // For the unique name: the proxy of a well-known name blocks until it learns its owner.
    proxy_ = std::make_unique<FindersyncExtension1Interface>(owner, object, bus_);
    proxy_->setTimeout(noTimeout);
    fetchProperties();
}

/// A process that has not the property has not the interface either, and is left alone.
void ExtensionProxy::fetchProperties() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        proxy_->service(), object, propertiesInterface, QStringLiteral("GetAll"));
    call << proxy_->interface();
    auto* const watcher =
        new QDBusPendingCallWatcher(bus_.asyncCall(call, noTimeout), proxy_.get());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *watcher;
        const QVariant directories =
            reply.isError() ? QVariant() : reply.value().value(QStringLiteral("directoryURLs"));
        hasInterface_ = directories.userType() == QMetaType::QStringList;
        if (!hasAppeared())
            return;
        watchedPaths_.clear();
        for (const QUrl& url :
             QUrl::fromStringList(directories.toStringList().mid(0, maxDirectories))) {
            if (!requestURL(url).isEmpty())
                watchedPaths_.push_back(comparedPath(url));
        }
        Q_EMIT badgesOutdated();
    });
}

/// Receives the signals of all processes that have such an object.
void ExtensionProxy::propertiesChanged(const QString& interface, const QVariantMap& changed,
                                       const QStringList& invalidated, const QDBusMessage& signal) {
    if (hasAppeared() && signal.service() == proxy_->service() &&
        interface == proxy_->interface() &&
        (changed.contains(rootFolders) || invalidated.contains(rootFolders)))
        Q_EMIT badgesOutdated();
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
    bus_.asyncCall(callOfBus("StartServiceByName", {busName_, 0U}));
}

bool ExtensionProxy::watches(const QUrl& url) const {
    const QString path = comparedPath(url);
    return !isNonsense_ &&
           std::any_of(watchedPaths_.begin(), watchedPaths_.end(), [&path](const QString& watched) {
               return path.startsWith(watched) &&
                      (path.size() == watched.size() || path[watched.size()] == QLatin1Char('/'));
           });
}

void ExtensionProxy::requestBadges(const QStringList& urls, const BadgesAnswer& answer) {
    // When the extension ends, the watcher is deleted with the proxy.
    auto* const watcher =
        new QDBusPendingCallWatcher(proxy_->RequestBadgeIdentifiersForURLs(urls), proxy_.get());
    const int count = int(urls.size());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, count, answer] {
        watcher->deleteLater();
        const QDBusPendingReply<QStringList> reply = *watcher;
        QStringList badges = reply.isError() ? QStringList() : reply.value();
        if (isOfAnotherType(reply.error()) || (!reply.isError() && badges.size() != count)) {
            isNonsense_ = true;
            badges.clear();
        }
        const auto isTooLong = [](const QString& badge) { return badge.size() > maxTextLength; };
        std::replace_if(badges.begin(), badges.end(), isTooLong, QString());
        answer(badges);
    });
}

bool ExtensionProxy::answersMenus() const {
    return proxy_ && hasInterface_.value_or(true) && !isNonsense_ && menuBackoff_.hasExpired() &&
           lastMenu_.isFinished();
}

ExtensionProxy::MenuReply ExtensionProxy::requestMenu(const QStringList& urls) {
    return lastMenu_ = proxy_->MenuForMenuKind(itemsKind, urls);
}

FinderSyncMenuItems ExtensionProxy::menuItems(const MenuReply& reply) {
    const bool isFinished = reply.isFinished();
    // NoReply also means that the extension has ended, which the bus reports next.
    if (!isFinished || reply.error().type() == QDBusError::NoReply)
        menuBackoff_.setRemainingTime(menuBackoff);
    if (!isFinished || reply.isError()) {
        isNonsense_ = isFinished && isOfAnotherType(reply.error());
        return {};
    }
    const FinderSyncMenuItems items = reply.argumentAt<1>();
    isNonsense_ = items.size() > maxMenuItems;
    return isNonsense_ || !reply.argumentAt<0>() ? FinderSyncMenuItems() : itemsWithinLimits(items);
}

void ExtensionProxy::performAction(const QString& selector, const QStringList& urls) {
    if (!proxy_)
        return;
    proxy_->PerformAction(selector, urls);
}

} // namespace file_managers
