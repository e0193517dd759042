#include "file-managers/gtk/ExtensionProxy.h"

#include "file-managers/Interface.h"
#include "file-managers/Limits.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace file_managers {

namespace {

constexpr char propertiesInterface[] = "org.freedesktop.DBus.Properties";
constexpr guint itemsKind = 0;
constexpr std::string_view ellipsis = "…";

/// A text as it is compared, so that canonically equivalent ones are equal. What is not UTF-8 is
/// equal to no root folder's.
std::string composed(const char* text) {
    if (g_str_is_ascii(text) != FALSE)
        return text;
    const Text normalized(g_utf8_normalize(text, -1, G_NORMALIZE_NFC));
    return normalized ? normalized.get() : text;
}

/// `directory` has no "/" at the end.
bool isWithin(std::string_view path, std::string_view directory) {
    return path.starts_with(directory) &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}

/// The paths of watched directories.
std::vector<std::string> directoriesIn(GVariant* list) {
    std::vector<std::string> directories;
    GVariantIter each;
    (void)g_variant_iter_init(&each, list);
    const char* url = nullptr;
    while (directories.size() < maxDirectories && g_variant_iter_next(&each, "&s", &url) != FALSE) {
        if (auto path = composedPath(url))
            directories.push_back(*std::move(path));
    }
    return directories;
}

FolderNames namesIn(GVariant* list) {
    FolderNames names;
    GVariantIter each;
    if (g_variant_iter_init(&each, list) == 0 || g_variant_get_size(list) > maxChangedNamesSize)
        names.addAny();
    const char* name = nullptr;
    while (!names.areAny() && g_variant_iter_next(&each, "&s", &name) != FALSE)
        names.add(nameOf(name));
    return names;
}

bool areWithinLimit(std::initializer_list<std::string_view> texts) {
    return std::ranges::all_of(texts, [](auto text) { return text.size() <= maxTextLength; });
}

/// Cuts a title that is too long, and not between a letter and its marks. GDBus lets only UTF-8
/// pass.
std::string shownTitle(const char* title) {
    if (areWithinLimit({title}))
        return title;
    const char* end = g_utf8_find_prev_char(title, title + maxTextLength - ellipsis.size() + 1);
    while (end > title && g_unichar_ismark(g_utf8_get_char(end)) != FALSE)
        end = g_utf8_prev_char(end);
    return std::string(title, end).append(ellipsis);
}

/// Nothing when there is not one for each requested item.
std::optional<std::vector<std::string>> badgesIn(GVariant* reply, std::size_t requested) {
    const Variant list(g_variant_get_child_value(reply, 0));
    std::vector<std::string> badges;
    GVariantIter each;
    if (g_variant_iter_init(&each, list.get()) != requested)
        return {};
    const char* badge = nullptr;
    while (g_variant_iter_next(&each, "&s", &badge) != FALSE)
        badges.emplace_back(areWithinLimit({badge}) ? badge : "");
    return badges;
}

/// Nothing when there are too many, or they are too large.
std::optional<std::vector<MenuEntry>> entriesIn(GVariant* reply) {
    gboolean isOffered = FALSE;
    Variant list;
    g_variant_get(reply, "(b@a(sss))", &isOffered, static_cast<GVariant**>(Out(list)));
    std::vector<MenuEntry> entries;
    GVariantIter each;
    if (g_variant_iter_init(&each, list.get()) > maxMenuItems ||
        g_variant_get_size(list.get()) > maxMenuSize)
        return {};
    const char* title = nullptr;
    const char* selector = nullptr;
    const char* image = nullptr;
    while (isOffered != FALSE &&
           g_variant_iter_next(&each, "(&s&s&s)", &title, &selector, &image) != FALSE) {
        if (areWithinLimit({selector, image}))
            entries.push_back({.title = shownTitle(title), .selector = selector, .image = image});
    }
    return entries;
}

bool isOfAnotherType(const GError* error) {
    return g_error_matches(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT) != FALSE;
}

} // namespace

std::optional<std::string> composedPath(const char* url) {
    Text host;
    const Text path(g_filename_from_uri(url, Out(host), nullptr));
    if (!path || host || g_utf8_validate(path.get(), -1, nullptr) == FALSE)
        return {};
    std::string text = composed(path.get());
    if (text.ends_with('/'))
        text.pop_back();
    return text;
}

NameHash nameOf(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return nameHash(composed(slash != nullptr ? slash + 1 : path));
}

GVariant* newTexts(const std::vector<std::string>& texts) {
    std::vector<const char*> pointers;
    pointers.reserve(texts.size());
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());
    return g_variant_new_strv(pointers.data(), gssize(pointers.size()));
}

ExtensionProxy::ExtensionProxy(GDBusConnection* bus, std::string busName, std::string owner,
                               Changed changed)
    : bus_(bus),
      busName_(std::move(busName)),
      iconPrefix_(busName_, 0, busName_.size() + 1 - std::string_view(busNameEnd).size()),
      owner_(std::move(owner)),
      changed_(std::move(changed)) {
    // The signal is of one interface, and its first argument names another.
    // NOLINTNEXTLINE(readability-suspicious-call-argument)
    subscribe<&ExtensionProxy::propertiesChanged>(propertiesInterface, "PropertiesChanged",
                                                  interfaceName);
    requestDirectories();
}

ExtensionProxy::~ExtensionProxy() {
    g_cancellable_cancel(cancellable_.get());
    for (const guint subscription : subscriptions_)
        g_dbus_connection_signal_unsubscribe(bus_, subscription);
}

template <ExtensionProxy::SignalHandler handler> void
ExtensionProxy::subscribe(const char* interface, const char* signal, const char* firstArgument) {
    const auto received = [](GDBusConnection*, const char*, const char*, const char*, const char*,
                             GVariant* arguments, void* self) {
        (static_cast<ExtensionProxy*>(self)->*handler)(arguments);
    };
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        bus_, owner_.c_str(), interface, signal, objectPath, firstArgument,
        G_DBUS_SIGNAL_FLAGS_NONE, received, this, nullptr));
}

Method ExtensionProxy::method(const char* name) const {
    return {owner_.c_str(), objectPath, interfaceName, name};
}

/// Asks for one property: one may be too large for others beside it. `got` gets its value, or null
/// when it cannot be had.
void ExtensionProxy::requestTexts(const char* property,
                                  const std::function<void(GVariant* texts)>& got) {
    const auto replied = [got](GVariant* reply, const GError*) {
        Variant value;
        if (reply != nullptr)
            g_variant_get(reply, "(v)", static_cast<GVariant**>(Out(value)));
        const bool isOfType =
            value && g_variant_is_of_type(value.get(), G_VARIANT_TYPE_STRING_ARRAY) != FALSE;
        got(isOfType ? value.get() : nullptr);
    };
    callMethod(bus_, {owner_.c_str(), objectPath, propertiesInterface, "Get"},
               g_variant_new("(ss)", interfaceName, property), "(v)", cancellable_.get(), replied);
}

/// A process that does not have the property yet, or never will, is asked again less and less.
void ExtensionProxy::requestDirectories() {
    requestTexts("directoryURLs", [this](GVariant* urls) {
        if (urls == nullptr) {
            retry_.start(retryBackoff_.next());
            return;
        }
        watchedDirectories_ = directoriesIn(urls);
        isReady_ = true;
        changed_(*this, Change::Appeared);
    });
}

void ExtensionProxy::propertiesChanged(GVariant*) {
    if (isReady_)
        changed_(*this, Change::Properties);
}

void ExtensionProxy::observeRootFolders(RootFoldersChanged changed) {
    rootFoldersChanged_ = std::move(changed);
    subscribe<&ExtensionProxy::rootFoldersChanged>(interfaceName, "RootFoldersChanged", nullptr);
}

void ExtensionProxy::rootFoldersChanged(GVariant* arguments) {
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(as)")) == FALSE)
        return;
    const Variant names(g_variant_get_child_value(arguments, 0));
    rootFoldersChanged_(namesIn(names.get()));
}

bool ExtensionProxy::watches(const char* url) const {
    const auto path = composedPath(url);
    const auto holds = [&path](const std::string& directory) { return isWithin(*path, directory); };
    return path && std::ranges::any_of(watchedDirectories_, holds);
}

void ExtensionProxy::requestPathsOfRootFolders(const PathsAnswer& answer) {
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): GIO calls back, which deletes it
    requestTexts("pathsOfRootFolders", [answer](GVariant* paths) {
        std::optional<std::vector<std::string_view>> texts;
        std::unique_ptr<const char*[], decltype(&g_free)> list(nullptr, &g_free);
        if (paths != nullptr && g_variant_get_size(paths) <= maxRootFoldersSize) {
            std::size_t count = 0;
            list.reset(g_variant_get_strv(paths, &count));
            texts.emplace(list.get(), list.get() + count);
        }
        answer(std::move(texts));
    });
}

void ExtensionProxy::requestNamesOfRootFolders(const std::function<void(FolderNames)>& answer) {
    requestPathsOfRootFolders([answer](const auto& paths) {
        FolderNames names;
        if (!paths)
            names.addAny();
        for (std::size_t index = 0; !names.areAny() && index < paths->size(); ++index)
            names.add(nameOf((*paths)[index].data()));
        answer(std::move(names));
    });
}

void ExtensionProxy::requestBadges(const std::vector<std::string>& urls, BadgesAnswer answer) {
    const auto got = [count = urls.size(), answer = std::move(answer)](GVariant* reply,
                                                                       const GError*) {
        const auto badges = reply != nullptr ? badgesIn(reply, count) : std::nullopt;
        answer(badges.value_or(std::vector<std::string>()));
    };
    callMethod(bus_, method("RequestBadgeIdentifiersForURLs"),
               g_variant_new("(@as)", newTexts(urls)), "(as)", cancellable_.get(), got);
}

bool ExtensionProxy::takesMenuRequests() const {
    return !isMenuPending_ && Clock::now() >= menuBackoffEnd_;
}

void ExtensionProxy::requestMenu(const std::vector<std::string>& urls, MenuAnswer answer) {
    const Clock::time_point begin = Clock::now();
    const auto got = [this, begin, answer = std::move(answer)](GVariant* reply,
                                                               const GError* error) {
        isMenuPending_ = false;
        const Clock::time_point now = Clock::now();
        if (now < begin + menuTimeout)
            menuBackoffEnd_ = {};
        const auto entries = reply != nullptr ? entriesIn(reply) : std::nullopt;
        if (entries)
            nonsenseBackoff_.reset();
        else if (reply != nullptr || isOfAnotherType(error))
            menuBackoffEnd_ = std::max(menuBackoffEnd_, now + nonsenseBackoff_.next());
        answer(entries.value_or(std::vector<MenuEntry>()));
    };
    isMenuPending_ = true;
    menuBackoffEnd_ = begin + menuBackoff; // unless it answers in time
    callMethod(bus_, method("MenuForMenuKind"), g_variant_new("(u@as)", itemsKind, newTexts(urls)),
               "(ba(sss))", cancellable_.get(), got);
}

} // namespace file_managers
