#include "file-managers/gtk/ExtensionProxy.h"

#include "Names.h"
#include "file-managers/Limits.h"
#include "finder-sync-extension1.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>

namespace file_managers {

namespace {

using findersync::busName;
using findersync::objectPath;

constexpr guint itemsKind = 0;

/// On the monotonic clock, in microseconds.
gint64 endOf(std::chrono::microseconds backoff) {
    return g_get_monotonic_time() + backoff.count();
}

/// A null-terminated array, as GLib takes it. It points into the texts.
std::vector<const char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<const char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());
    pointers.push_back(nullptr);
    return pointers;
}

/// A folder's URL as GLib spells it, without a "/" at the end, which only the root has.
std::string folderPrefix(const char* url) {
    const Object<GFile> file(g_file_new_for_uri(url));
    const Text spelt(g_file_get_uri(file.get()));
    std::string prefix = spelt ? spelt.get() : url;
    if (prefix.ends_with('/'))
        prefix.pop_back();
    return prefix;
}

bool isWithin(std::string_view url, std::string_view prefix) {
    return url.starts_with(prefix) && (url.size() == prefix.size() || url[prefix.size()] == '/');
}

/// Whether a URL's path is UTF-8. A single URL that is not makes the extension refuse the whole
/// request.
bool hasTextPath(const char* url) {
    if (std::string_view(url).find('%') == std::string_view::npos)
        return true;
    const Text text(g_uri_unescape_string(url, nullptr));
    return text != nullptr && g_utf8_validate(text.get(), -1, nullptr) != FALSE;
}

bool areWithinLimit(std::initializer_list<std::string_view> texts) {
    return std::ranges::all_of(texts, [](auto text) { return text.size() <= maxTextLength; });
}

/// The badges in a list; none when it has not one for each requested item.
std::vector<std::string> badgesIn(GVariant* list, std::size_t requested) {
    std::vector<std::string> badges;
    GVariantIter each;
    if (g_variant_iter_init(&each, list) != requested)
        return badges;
    const char* badge = nullptr;
    while (g_variant_iter_next(&each, "&s", &badge) != FALSE)
        badges.emplace_back(areWithinLimit({badge}) ? badge : "");
    return badges;
}

std::vector<MenuEntry> entriesIn(GVariant* list) {
    std::vector<MenuEntry> entries;
    GVariantIter each;
    if (g_variant_iter_init(&each, list) > maxMenuItems)
        return entries;
    const char* title = nullptr;
    const char* selector = nullptr;
    const char* image = nullptr;
    while (g_variant_iter_next(&each, "(&s&s&s)", &title, &selector, &image) != FALSE) {
        if (areWithinLimit({title, selector, image}))
            entries.push_back({.title = title, .selector = selector, .image = image});
    }
    return entries;
}

} // namespace

ExtensionProxy::ExtensionProxy(std::function<void(Change)> changed) : changed_(std::move(changed)) {
    const auto done = [](GObject*, GAsyncResult* result, void* self) {
        Error error;
        auto* const proxy = finder_sync_extension1_proxy_new_for_bus_finish(result, Out(error));
        if (proxy != nullptr)
            static_cast<ExtensionProxy*>(self)->connected(proxy);
        else if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) == FALSE)
            g_message("Finder Sync: no session bus: %s", error ? error->message : "");
    };
    finder_sync_extension1_proxy_new_for_bus(G_BUS_TYPE_SESSION,
                                             G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START, busName,
                                             objectPath, cancellable_.get(), done, this);
}

ExtensionProxy::~ExtensionProxy() {
    g_cancellable_cancel(cancellable_.get());
    if (proxy_)
        g_signal_handlers_disconnect_by_data(proxy_.get(), this);
}

void ExtensionProxy::connected(FinderSyncExtension1* proxy) {
    proxy_.reset(proxy);
    const auto ownerNotified = [](GObject*, GParamSpec*, void* self) {
        static_cast<ExtensionProxy*>(self)->ownerChanged();
    };
    const auto propertiesNotified = [](GDBusProxy*, GVariant* changed, char**, void* self) {
        static_cast<ExtensionProxy*>(self)->propertiesChanged(changed);
    };
    g_signal_connect(proxy, "notify::g-name-owner", G_CALLBACK(+ownerNotified), this);
    g_signal_connect(proxy, "g-properties-changed", G_CALLBACK(+propertiesNotified), this);
    ownerChanged();
    if (isWanted_)
        start();
}

void ExtensionProxy::ownerChanged() {
    const Text owner(g_dbus_proxy_get_name_owner(G_DBUS_PROXY(proxy_.get())));
    menuBackoffEnd_ = 0;
    if (std::exchange(isRunning_, owner != nullptr))
        changed_(Change::Gone);
    if (!isRunning_)
        return;
    watchedDirectories_.clear();
    const auto* url = finder_sync_extension1_get_directory_urls(proxy_.get());
    for (; url != nullptr && *url != nullptr && watchedDirectories_.size() < maxDirectories; ++url)
        watchedDirectories_.push_back(folderPrefix(*url));
    changed_(Change::Appeared);
}

void ExtensionProxy::propertiesChanged(GVariant* changed) {
    if (!isRunning_)
        return;
    const Variant paths(g_variant_lookup_value(changed, "pathsOfRootFolders", nullptr));
    changed_(paths ? Change::RootFolders : Change::Menus);
}

void ExtensionProxy::start() {
    isWanted_ = true;
    if (!proxy_ || isRunning_ || startLater_.isActive())
        return;
    const gint64 now = g_get_monotonic_time();
    if (now < startBackoffEnd_) {
        startLater_.start(guint(1 + (startBackoffEnd_ - now) / 1000));
        return;
    }
    startBackoffEnd_ = endOf(startBackoff);
    // The reply does not matter: the name gets an owner, or it does not.
    g_dbus_connection_call(g_dbus_proxy_get_connection(G_DBUS_PROXY(proxy_.get())),
                           "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "StartServiceByName", g_variant_new("(su)", busName, 0U), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
}

bool ExtensionProxy::watches(const char* url) const {
    const auto isAround = [url](const std::string& prefix) { return isWithin(url, prefix); };
    return std::ranges::any_of(watchedDirectories_, isAround) && hasTextPath(url);
}

void ExtensionProxy::requestBadges(const std::vector<std::string>& urls, BadgesAnswer answer) {
    struct Request {
        std::size_t items;
        BadgesAnswer answer;
    };
    const auto done = [](GObject* proxy, GAsyncResult* result, void* data) {
        const std::unique_ptr<Request> request(static_cast<Request*>(data));
        Error error;
        const Variant reply(g_dbus_proxy_call_finish(G_DBUS_PROXY(proxy), result, Out(error)));
        std::vector<std::string> badges;
        if (reply) { // GDBus has checked its type
            const Variant list(g_variant_get_child_value(reply.get(), 0));
            badges = badgesIn(list.get(), request->items);
        }
        if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) == FALSE)
            request->answer(std::move(badges));
    };
    // Without a timeout: an extension that hangs may still answer, and when it ends, GDBus fails
    // the call.
    finder_sync_extension1_call_request_badge_identifiers_for_urls(
        proxy_.get(), pointersTo(urls).data(), G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT,
        cancellable_.get(), done, new Request{urls.size(), std::move(answer)});
}

std::vector<MenuEntry> ExtensionProxy::menuForItems(const std::vector<std::string>& urls) {
    if (!isRunning_ || g_get_monotonic_time() < menuBackoffEnd_)
        return {};
    gboolean isOffered = FALSE;
    Variant items;
    Error error;
    (void)finder_sync_extension1_call_menu_for_menu_kind_sync(
        proxy_.get(), itemsKind, pointersTo(urls).data(), G_DBUS_CALL_FLAGS_NO_AUTO_START,
        int(menuTimeout.count()), &isOffered, Out(items), nullptr, Out(error));
    if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE)
        menuBackoffEnd_ = endOf(menuBackoff);
    if (!items || isOffered == FALSE)
        return {};
    return entriesIn(items.get());
}

void ExtensionProxy::performAction(const std::string& selector,
                                   const std::vector<std::string>& urls) {
    if (!proxy_)
        return;
    finder_sync_extension1_call_perform_action(proxy_.get(), selector.c_str(),
                                               pointersTo(urls).data(), G_DBUS_CALL_FLAGS_NONE, -1,
                                               nullptr, nullptr, nullptr);
}

} // namespace file_managers
