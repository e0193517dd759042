#include "hosts/linux/ExtensionService.h"

#include "Names.h"
#include "extension/PublishedInterface.h"
#include "platform/linux/BufferedOutput.h"
#include "platform/text/FileURL.h"
#include "platform/text/Paths.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace hosts::linux_host {

using process::Out;

namespace {

/// Sets the Finder's selection for the lifetime of this object.
class Selection {
public:
    Selection(platform::linux_backend::FinderSyncController& controller, std::vector<URL> urls)
        : controller_(controller) {
        controller_.setSelectedItemURLs(std::move(urls));
    }
    ~Selection() { controller_.setSelectedItemURLs(std::nullopt); }
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;

private:
    platform::linux_backend::FinderSyncController& controller_;
};

} // namespace

struct ExtensionService::Callbacks {
    // Exceptions must not unwind through sd-bus: in a noexcept function they abort the process.

    template <int (ExtensionService::*method)(sd_bus_message*, sd_bus_error*)>
    static int call(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
        return (service(self).*method)(call, error);
    }
    static int getProperty(sd_bus*, const char*, const char*, const char* name,
                           sd_bus_message* reply, void* self, sd_bus_error*) noexcept {
        return service(self).appendProperty(reply, name);
    }
    static int setProperty(sd_bus*, const char*, const char*, const char* name,
                           sd_bus_message* value, void* self, sd_bus_error* error) noexcept {
        return service(self).setProperty(value, name, error);
    }
    static int getDirectoryURLs(sd_bus*, const char*, const char*, const char*,
                                sd_bus_message* reply, void* self, sd_bus_error*) noexcept {
        return service(self).appendValue(reply, service(self).watchedDirectories());
    }
    static int getBadges(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                         void* self, sd_bus_error*) noexcept {
        return service(self).appendValue(reply, service(self).controller_.badges());
    }
    static int beginMessage(sd_bus_message* message, void* self, sd_bus_error*) noexcept {
        std::uint64_t queued = 0;
        (void)sd_bus_get_n_queued_write(sd_bus_message_get_bus(message), &queued);
        service(self).replies_.beginMessage(queued, sd_bus_message_get_expect_reply(message) > 0);
        return 0;
    }

    static ExtensionService& service(void* self) { return *static_cast<ExtensionService*>(self); }

    static const sd_bus_vtable vtable[];
};

/// How the change of a property is signalled. A list of any length travels when it is asked for,
/// and not beside other properties.
constexpr std::uint64_t withValue = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
constexpr std::uint64_t withoutValue =
    SD_BUS_VTABLE_PROPERTY_EMITS_INVALIDATION | SD_BUS_VTABLE_PROPERTY_EXPLICIT;

#define WRITABLE(name, signature, change)                                                          \
    SD_BUS_WRITABLE_PROPERTY(name, signature, getProperty, setProperty, 0,                         \
                             SD_BUS_VTABLE_UNPRIVILEGED | (change))
#define CONSTANT(name, signature, get)                                                             \
    SD_BUS_PROPERTY(name, signature, get, 0, SD_BUS_VTABLE_PROPERTY_CONST)

const sd_bus_vtable ExtensionService::Callbacks::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("BeginObservingDirectoryAtURL", SD_BUS_ARGS("s", url), SD_BUS_NO_RESULT,
                            call<&ExtensionService::beginObserving>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("EndObservingDirectoryAtURL", SD_BUS_ARGS("s", url), SD_BUS_NO_RESULT,
                            call<&ExtensionService::endObserving>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RequestBadgeIdentifierForURL", SD_BUS_ARGS("s", url),
                            SD_BUS_RESULT("s", badgeIdentifier),
                            call<&ExtensionService::requestBadge>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RequestBadgeIdentifiersForURLs", SD_BUS_ARGS("as", urls),
                            SD_BUS_RESULT("as", badgeIdentifiers),
                            call<&ExtensionService::requestBadges>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("MenuForMenuKind", SD_BUS_ARGS("u", kind, "as", selectedItemURLs),
                            SD_BUS_RESULT("b", isOffered, "a(sss)", items),
                            call<&ExtensionService::provideMenu>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("PerformAction", SD_BUS_ARGS("s", selector, "as", selectedItemURLs),
                            SD_BUS_NO_RESULT, call<&ExtensionService::performAction>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    WRITABLE("myFolderURL", "s", withValue),
    WRITABLE("pathsOfRootFolders", "as", withoutValue),
    CONSTANT("serverAddress", "s", getProperty),
    WRITABLE("serverPort", "u", withValue),
    WRITABLE("isSocketConnected", "b", withValue),
    WRITABLE("displayUrlLink", "x", withValue),
    WRITABLE("displayBackup", "x", withValue),
    WRITABLE("shareContactTitle", "s", withValue),
    WRITABLE("shareViaUrlTitle", "s", withValue),
    WRITABLE("backupTitle", "s", withValue),
    CONSTANT("directoryURLs", "as", getDirectoryURLs),
    CONSTANT("badges", "a{s(ss)}", getBadges),
    SD_BUS_SIGNAL_WITH_ARGS("RootFoldersChanged", SD_BUS_ARGS("as", names), 0),
    SD_BUS_VTABLE_END,
};

ExtensionService::ExtensionService(sd_bus* bus, ObservedFinderSync& extension,
                                   platform::linux_backend::FinderSyncController& controller)
    : bus_(bus), extension_(extension), controller_(controller), changes_(bus) {}

ExtensionService::~ExtensionService() {
    extension_.setObserver(nullptr);
    extension_.setRootFoldersObserver(nullptr);
}

int ExtensionService::publish() {
    int result = changes_.start();
    if (result >= 0)
        result = sd_bus_add_filter(bus_, Out(filterSlot_), Callbacks::beginMessage, this);
    if (result >= 0)
        result = sd_bus_add_object_vtable(bus_, Out(objectSlot_), findersync::objectPath,
                                          findersync::interfaceName, Callbacks::vtable, this);
    if (result < 0)
        return result;
    extension_.setObserver([this](std::string_view property) { changes_.note(property); });
    extension_.setRootFoldersObserver(
        [this](const auto& current, const auto& next) { changes_.noteRootFolders(current, next); });
    return result;
}

int ExtensionService::beginObserving(sd_bus_message* call, sd_bus_error* error) {
    URL url;
    if (const int result = read(call, url, error); result < 0)
        return result;
    if (isWatched(*url))
        extension_.beginObservingDirectoryAtURL(*url);
    return reply(call);
}

int ExtensionService::endObserving(sd_bus_message* call, sd_bus_error* error) {
    URL url;
    if (const int result = read(call, url, error); result < 0)
        return result;
    if (isWatched(*url))
        extension_.endObservingDirectoryAtURL(*url);
    return reply(call);
}

int ExtensionService::requestBadge(sd_bus_message* call, sd_bus_error* error) {
    URL url;
    if (const int result = read(call, url, error); result < 0)
        return result;
    return reply(call, badgeFor(*url));
}

int ExtensionService::requestBadges(sd_bus_message* call, sd_bus_error* error) {
    std::vector<URL> urls;
    if (const int result = read(call, urls, error); result < 0)
        return result;
    std::vector<std::string> badges;
    badges.reserve(urls.size());
    for (const URL& url : urls)
        badges.push_back(badgeFor(*url));
    return reply(call, badges);
}

int ExtensionService::provideMenu(sd_bus_message* call, sd_bus_error* error) {
    std::uint32_t kind = 0;
    std::vector<URL> urls;
    int result = read(call, kind);
    if (result >= 0)
        result = read(call, urls, error);
    if (result < 0)
        return result;
    std::shared_ptr<const platform::NSMenu> menu;
    if (std::ranges::all_of(urls, [this](const auto& url) { return isWatched(*url); })) {
        const Selection selection(controller_, std::move(urls));
        menu = extension_.menuForMenuKind(platform::FIMenuKind{kind});
    }
    return reply(call, menu.get());
}

int ExtensionService::performAction(sd_bus_message* call, sd_bus_error* error) {
    std::string selector;
    std::vector<URL> urls;
    int result = read(call, selector);
    if (result >= 0)
        result = read(call, urls, error);
    if (result < 0)
        return result;
    const auto* const method = findersync::publishedMethod(selector);
    const auto* const action =
        method != nullptr ? std::get_if<findersync::Action>(&method->method) : nullptr;
    if (action == nullptr)
        return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS,
                                 "%s is no action of the extension", quoted(selector).c_str());
    const Selection selection(controller_, std::move(urls));
    (extension_.**action)(nullptr);
    return reply(call);
}

/// Returns an item's badge identifier, "" for none. The extension is not asked about items outside
/// the watched directories.
std::string ExtensionService::badgeFor(const platform::NSURL& url) {
    if (!isWatched(url))
        return {};
    extension_.requestBadgeIdentifierForURL(url);
    return controller_.takeAssignedBadge();
}

/// The URLs of the watched directories, each spelled in the one way that file managers spell URLs.
std::vector<std::string> ExtensionService::watchedDirectories() const {
    std::vector<std::string> urls;
    for (const URL& url : controller_.directoryURLs())
        urls.push_back(platform::text::fileURLFromPath(
            platform::text::resolvedPath(url->path().value_or(""))));
    return urls;
}

/// Whether an item is a watched directory or inside one.
bool ExtensionService::isWatched(const platform::NSURL& url) const {
    const std::string path = url.path().value_or("");
    return std::ranges::any_of(controller_.directoryURLs(), [&path](const auto& directory) {
        return platform::text::isInFolder(path, directory->path().value_or(""));
    });
}

/// Sends the reply to a call, after writing the trace and log lines of the call.
template <typename... Values>
int ExtensionService::reply(sd_bus_message* call, const Values&... values) {
    platform::linux_backend::flushStandardStreams();
    process::Message message;
    // NOLINTNEXTLINE(misc-const-correctness): assigned in the fold
    int result = sd_bus_message_new_method_return(call, Out(message));
    if (result >= 0)
        (void)((result = appendValue(message.get(), values), result >= 0) && ...);
    return result < 0 ? result : sd_bus_send(nullptr, message.get(), nullptr);
}

template <typename Value>
int ExtensionService::appendValue(sd_bus_message* reply, const Value& value) {
    MessageWriter writer(reply);
    const int result = writer.append(value);
    if (result >= 0)
        replies_.add(writer.size());
    return result;
}

int ExtensionService::appendProperty(sd_bus_message* reply, std::string_view name) {
    return std::visit(
        [&](const auto& property) { return appendValue(reply, (extension_.*property.get)()); },
        findersync::publishedProperty(name)->accessors);
}

int ExtensionService::setProperty(sd_bus_message* value, std::string_view name,
                                  sd_bus_error* error) {
    const auto set = [&](const auto& property) {
        std::remove_cvref_t<decltype((extension_.*property.get)())> written{};
        int result = 0;
        if constexpr (std::is_same_v<decltype(written), URL>)
            result = read(value, written, error);
        else
            result = read(value, written);
        if (result < 0)
            return result;
        (extension_.*property.set)(std::move(written));
        return 0;
    };
    return std::visit(set, findersync::publishedProperty(name)->accessors);
}

} // namespace hosts::linux_host
