#include "file-managers/gtk/Extension.h"

#include "finder-sync-extension1.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>

namespace file_managers {

namespace {

constexpr const char* busName = FINDER_SYNC_GROUP ".FinderSync";
constexpr const char* objectPath = "/FinderSync";

/// How long a menu may be kept waiting.
constexpr int menuPatience = 100; // milliseconds
/// How long an extension is left alone that has kept one waiting.
constexpr gint64 restAfterDelay = gint64{5} * G_USEC_PER_SEC;
/// How long after a start the next one waits, should the extension have ended meanwhile.
constexpr gint64 restAfterStart = G_USEC_PER_SEC;
constexpr guint itemsKind = 0;

// More than the extension ever says. Any program can own its name and say more; the file manager
// has better things to do than to work on that.
constexpr gsize mostEntries = 16;
constexpr std::size_t mostDirectories = 16;
constexpr std::size_t longestText = 1024; // bytes

/// An array of texts that ends with null, as GLib takes it. It refers to the texts.
std::vector<const char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<const char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());
    pointers.push_back(nullptr);
    return pointers;
}

/// A folder's URL in GLib's spelling, without a "/" at the end, which only the root has there.
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

/// Whether a URL's path is UTF-8. The extension refuses a request, with all that is in it, for one
/// that is not.
bool hasTextPath(const char* url) {
    if (std::string_view(url).find('%') == std::string_view::npos)
        return true;
    const Text text(g_uri_unescape_string(url, nullptr));
    return text != nullptr && g_utf8_validate(text.get(), -1, nullptr) != FALSE;
}

bool areSensible(std::initializer_list<std::string_view> texts) {
    return std::ranges::all_of(texts, [](auto text) { return text.size() <= longestText; });
}

/// What an answer says of as many items as were asked about; empty when it does not.
std::vector<std::string> badgesIn(GVariant* answer, std::size_t asked) {
    std::vector<std::string> badges;
    GVariantIter each;
    if (g_variant_iter_init(&each, answer) != asked)
        return badges;
    const char* badge = nullptr;
    while (g_variant_iter_next(&each, "&s", &badge) != FALSE)
        badges.emplace_back(areSensible({badge}) ? badge : "");
    return badges;
}

} // namespace

Extension::Extension(std::function<void(Change)> changed) : changed_(std::move(changed)) {
    const auto done = [](GObject*, GAsyncResult* result, void* self) {
        Failure failure;
        auto* const proxy =
            finder_sync_extension1_proxy_new_for_bus_finish(result, failure.place());
        if (proxy != nullptr)
            static_cast<Extension*>(self)->connected(proxy);
        else if (!failure.is(G_IO_ERROR_CANCELLED))
            g_message("Finder Sync: no session bus: %s", failure.message());
    };
    finder_sync_extension1_proxy_new_for_bus(G_BUS_TYPE_SESSION,
                                             G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START, busName,
                                             objectPath, cancellable_.get(), done, this);
}

Extension::~Extension() {
    g_cancellable_cancel(cancellable_.get());
    if (startSource_ != 0)
        g_source_remove(startSource_);
    if (proxy_)
        g_signal_handlers_disconnect_by_data(proxy_.get(), this);
}

void Extension::connected(FinderSyncExtension1* proxy) {
    proxy_.reset(proxy);
    const auto ownerNotified = [](GObject*, GParamSpec*, void* self) {
        static_cast<Extension*>(self)->ownerChanged();
    };
    const auto propertiesNotified = [](GDBusProxy*, GVariant* changed, char**, void* self) {
        static_cast<Extension*>(self)->propertiesChanged(changed);
    };
    g_signal_connect(proxy, "notify::g-name-owner", G_CALLBACK(+ownerNotified), this);
    g_signal_connect(proxy, "g-properties-changed", G_CALLBACK(+propertiesNotified), this);
    ownerChanged();
    if (isWanted_)
        start();
}

void Extension::ownerChanged() {
    const Text owner(g_dbus_proxy_get_name_owner(G_DBUS_PROXY(proxy_.get())));
    noMenuBefore_ = 0;
    if (std::exchange(isRunning_, owner != nullptr))
        changed_(Change::Gone);
    if (!isRunning_)
        return;
    watchedDirectories_.clear();
    const auto* url = finder_sync_extension1_get_directory_urls(proxy_.get());
    for (; url != nullptr && *url != nullptr && watchedDirectories_.size() < mostDirectories; ++url)
        watchedDirectories_.push_back(folderPrefix(*url));
    changed_(Change::Appeared);
}

void Extension::propertiesChanged(GVariant* changed) {
    if (!isRunning_)
        return;
    GVariant* const paths = g_variant_lookup_value(changed, "pathsOfRootFolders", nullptr);
    changed_(paths != nullptr ? Change::RootFolders : Change::Menus);
    if (paths != nullptr)
        g_variant_unref(paths);
}

void Extension::start() {
    isWanted_ = true;
    if (!proxy_ || isRunning_ || startSource_ != 0)
        return;
    const gint64 now = g_get_monotonic_time();
    if (now < noStartBefore_) {
        const auto startNow = [](void* self) -> gboolean {
            static_cast<Extension*>(self)->startSource_ = 0;
            static_cast<Extension*>(self)->start();
            return G_SOURCE_REMOVE;
        };
        startSource_ = g_timeout_add(guint(1 + (noStartBefore_ - now) / 1000), startNow, this);
        return;
    }
    noStartBefore_ = now + restAfterStart;
    // The answer does not matter: the name gets an owner, or it does not.
    g_dbus_connection_call(g_dbus_proxy_get_connection(G_DBUS_PROXY(proxy_.get())),
                           "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "StartServiceByName", g_variant_new("(su)", busName, 0U), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
}

bool Extension::watches(const char* url) const {
    const auto isAround = [url](const std::string& prefix) { return isWithin(url, prefix); };
    return std::ranges::any_of(watchedDirectories_, isAround) && hasTextPath(url);
}

void Extension::requestBadges(const std::vector<std::string>& urls, BadgesAnswer answer) {
    struct Request {
        std::size_t items;
        BadgesAnswer answer;
    };
    const auto done = [](GObject* proxy, GAsyncResult* result, void* data) {
        const std::unique_ptr<Request> request(static_cast<Request*>(data));
        Failure failure;
        GVariant* const reply =
            g_dbus_proxy_call_finish(G_DBUS_PROXY(proxy), result, failure.place());
        std::vector<std::string> badges;
        if (reply != nullptr) { // of the type that the interface says
            GVariant* const list = g_variant_get_child_value(reply, 0);
            badges = badgesIn(list, request->items);
            g_variant_unref(list);
            g_variant_unref(reply);
        }
        if (!failure.is(G_IO_ERROR_CANCELLED))
            request->answer(std::move(badges));
    };
    // Without a limit: an extension that hangs answers when it goes on, and one that ends is told
    // of.
    finder_sync_extension1_call_request_badge_identifiers_for_urls(
        proxy_.get(), pointersTo(urls).data(), G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT,
        cancellable_.get(), done, new Request{urls.size(), std::move(answer)});
}

std::vector<MenuEntry> Extension::menuForItems(const std::vector<std::string>& urls) {
    std::vector<MenuEntry> entries;
    if (!isRunning_ || g_get_monotonic_time() < noMenuBefore_)
        return entries;
    gboolean isOffered = FALSE;
    GVariant* items = nullptr;
    Failure failure;
    (void)finder_sync_extension1_call_menu_for_menu_kind_sync(
        proxy_.get(), itemsKind, pointersTo(urls).data(), G_DBUS_CALL_FLAGS_NO_AUTO_START,
        menuPatience, &isOffered, &items, nullptr, failure.place());
    if (failure.is(G_IO_ERROR_TIMED_OUT))
        noMenuBefore_ = g_get_monotonic_time() + restAfterDelay;
    if (items == nullptr)
        return entries;
    GVariantIter each;
    const bool isMenu = g_variant_iter_init(&each, items) <= mostEntries && isOffered != FALSE;
    const char* title = nullptr;
    const char* selector = nullptr;
    const char* image = nullptr;
    while (isMenu && g_variant_iter_next(&each, "(&s&s&s)", &title, &selector, &image) != FALSE) {
        if (areSensible({title, selector, image}))
            entries.push_back({.title = title, .selector = selector, .image = image});
    }
    g_variant_unref(items);
    return entries;
}

void Extension::performAction(const std::string& selector, const std::vector<std::string>& urls) {
    if (!proxy_)
        return;
    finder_sync_extension1_call_perform_action(proxy_.get(), selector.c_str(),
                                               pointersTo(urls).data(), G_DBUS_CALL_FLAGS_NONE, -1,
                                               nullptr, nullptr, nullptr);
}

} // namespace file_managers
