#include "file-managers/dolphin/ExtensionProxy.h"

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
const QChar ellipsis(0x2026);

constexpr uint itemsKind = 0;

std::string composed(const QString& text) {
    return text.normalized(QString::NormalizationForm_C).toStdString();
}

/// A path in the form in which paths are compared: resolved as text, composed, and without a "/" at
/// the end.
std::string comparedPath(const QUrl& url) {
    QString path = QDir::cleanPath(url.path(QUrl::FullyDecoded));
    if (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return composed(path);
}

FolderNames namesIn(const QStringList& list) {
    FolderNames names;
    qsizetype size = 0;
    if (list.isEmpty())
        names.addAny();
    for (const QString& name : list) {
        size += name.size();
        if (size > maxChangedNamesSize)
            names.addAny();
        if (names.areAny())
            break;
        names.add(nameHash(composed(name)));
    }
    return names;
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
            kept.push_back(
                {.title = shownTitle(item.title), .selector = item.selector, .image = item.image});
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
    // For a byte of a file's name that is not UTF-8, Dolphin gives U+FFFD.
    const bool isText = QString::fromUtf8(path).toUtf8() == path && !path.contains('\0') &&
                        !path.contains("\uFFFD");
    if (!url.isLocalFile() || !url.host().isEmpty() || url.hasQuery() || url.hasFragment() ||
        !path.startsWith('/') || !isText)
        return {};
    // QUrl leaves square brackets unencoded, which the path of a URL may not contain.
    return QStringLiteral("file://") +
           QString::fromLatin1(path.toPercentEncoding(QByteArrayLiteral("/!$&'()*+,;=:@")));
}

NameHash nameOf(const QUrl& url) {
    return nameHash(comparedPath(url));
}

// For the unique name: the proxy of a well-known name blocks until it learns its owner.
ExtensionProxy::ExtensionProxy(const QString& busName, const QString& owner)
    : iconPrefix_(busName.chopped(int(sizeof busNameEnd) - 2)), // all but the "."
      proxy_(owner, object, bus_) {
    qDBusRegisterMetaType<FinderSyncMenuItem>();
    qDBusRegisterMetaType<FinderSyncMenuItems>();
    proxy_.setTimeout(noTimeout);
    retryTimer_.setSingleShot(true);
    retryTimer_.callOnTimeout([this] { requestDirectories(); });
    requestDirectories();
}

/// Asks for one property: one may be too large for others beside it. `got` gets nothing when it
/// cannot be had.
void ExtensionProxy::requestTexts(
    const QString& property, const std::function<void(const std::optional<QStringList>&)>& got) {
    QDBusMessage call = QDBusMessage::createMethodCall(proxy_.service(), object,
                                                       propertiesInterface, QStringLiteral("Get"));
    call << proxy_.interface() << property;
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, noTimeout), this);
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its parent owns it
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, got] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        const QVariant texts = reply.isError() ? QVariant() : reply.value().variant();
        got(texts.userType() == QMetaType::QStringList ? std::optional(texts.toStringList())
                                                       : std::nullopt);
    });
}

/// A process that does not have the property yet, or never will, is asked again less and less.
void ExtensionProxy::requestDirectories() {
    requestTexts(QStringLiteral("directoryURLs"), [this](const auto& urls) {
        hasInterface_ = urls.has_value();
        if (!urls) {
            retryTimer_.start(backoff_.next());
            return;
        }
        for (const QUrl& url : QUrl::fromStringList(urls->mid(0, maxDirectories))) {
            if (!requestURL(url).isEmpty())
                watchedDirectories_.push_back(comparedPath(url));
        }
        Q_EMIT appeared();
    });
}

void ExtensionProxy::requestNamesOfRootFolders(const std::function<void(FolderNames)>& answer) {
    requestTexts(QStringLiteral("pathsOfRootFolders"), [answer](const auto& paths) {
        FolderNames names;
        if (!paths)
            names.addAny();
        for (qsizetype index = 0; !names.areAny() && index < paths->size(); ++index)
            names.add(nameHash(composed((*paths)[int(index)].section(QLatin1Char('/'), -1))));
        answer(std::move(names));
    });
}

void ExtensionProxy::observeRootFolders() {
    // Of any process: QtDBus blocks until it learns the owner of a name, even if that is unique.
    bus_.connect(QString(), object, proxy_.interface(), QStringLiteral("RootFoldersChanged"), this,
                 SLOT(rootFoldersChangedBy(QDBusMessage)));
}

/// Takes the whole message: QtDBus aborts on an array of another type than the slot's.
void ExtensionProxy::rootFoldersChangedBy(const QDBusMessage& signal) {
    if (signal.service() == owner() && signal.signature() == QLatin1String("as"))
        Q_EMIT rootFoldersChanged(namesIn(signal.arguments().constFirst().toStringList()));
}

bool ExtensionProxy::watches(const QUrl& url) const {
    const std::string path = comparedPath(url);
    return std::ranges::any_of(watchedDirectories_, [&path](const std::string& watched) {
        return path.starts_with(watched) &&
               (path.size() == watched.size() || path[watched.size()] == '/');
    });
}

void ExtensionProxy::requestBadges(const QStringList& urls, const BadgesAnswer& answer) {
    // When the extension ends, the watcher is deleted with the proxy.
    auto* const watcher =
        new QDBusPendingCallWatcher(proxy_.RequestBadgeIdentifiersForURLs(urls), this);
    const int count = int(urls.size());
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, count, answer] {
        watcher->deleteLater();
        const QDBusPendingReply<QStringList> reply = *watcher;
        QStringList badges = reply.isError() ? QStringList() : reply.value();
        if (badges.size() != count)
            badges.clear();
        const auto isTooLong = [](const QString& badge) { return badge.size() > maxTextLength; };
        std::ranges::replace_if(badges, isTooLong, QString());
        answer(badges);
    });
}

bool ExtensionProxy::takesMenuRequests() const {
    return hasInterface_.value_or(true) && menuBackoff_.hasExpired() && lastMenu_.isFinished();
}

ExtensionProxy::MenuReply ExtensionProxy::requestMenu(const QStringList& urls) {
    return lastMenu_ = proxy_.MenuForMenuKind(itemsKind, urls);
}

FinderSyncMenuItems ExtensionProxy::menuItems(const MenuReply& reply) {
    // NoReply also means that the extension has ended, which the bus reports next.
    if (!reply.isFinished() || reply.error().type() == QDBusError::NoReply) {
        menuBackoff_.setRemainingTime(menuBackoff);
        return {};
    }
    const FinderSyncMenuItems items =
        reply.isError() ? FinderSyncMenuItems() : reply.argumentAt<1>();
    if (isOfAnotherType(reply.error()) || items.size() > maxMenuItems) {
        menuBackoff_.setRemainingTime(nonsenseBackoff_.next());
        return {};
    }
    nonsenseBackoff_.reset();
    return !reply.isError() && reply.argumentAt<0>() ? itemsWithinLimits(items)
                                                     : FinderSyncMenuItems();
}

} // namespace file_managers
