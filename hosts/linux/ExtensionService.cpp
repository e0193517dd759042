#include "hosts/linux/ExtensionService.h"

#include "extension/PublishedInterface.h"
#include "hosts/linux/UnsentAnswers.h"
#include "platform/linux/BufferedOutput.h"
#include "platform/linux/Image.h"
#include "platform/linux/Menu.h"
#include "platform/linux/URL.h"
#include "platform/text/Paths.h"
#include "platform/text/Unicode.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace findersync {

namespace {

constexpr const char* objectPath = "/FinderSync";
constexpr const char* interfaceName = "findersync.Extension1";

// The bus cuts off whoever sends an array of more than 64 MiB, and all properties travel in one.
constexpr std::size_t longestArgument = std::size_t{4} * 1024 * 1024; // of a call: a text, a list
constexpr std::size_t longestList = std::size_t{32} * 1024 * 1024;    // of an answer
constexpr std::size_t textOverhead = 8;

constexpr std::uint64_t restOfSignals = 10000; // microseconds

UnsentAnswers& unsent() {
    static UnsentAnswers answers;
    return answers;
}

std::uint64_t waitingAnswers(sd_bus* bus) {
    std::uint64_t waiting = 0;
    (void)sd_bus_get_n_queued_write(bus, &waiting);
    return waiting;
}

/// A string on the bus ends at its first NUL, what follows stays in the extension; and sd-bus
/// refuses whole messages for a noncharacter.
int append(sd_bus_message* message, const std::string& text) {
    unsent().add(text.size());
    return sd_bus_message_append_basic(message, 's',
                                       platform::text::withoutNoncharacters(text).c_str());
}

int append(sd_bus_message* message, const FinderSync::URL& url) {
    return append(message, url->description());
}

int append(sd_bus_message* message, std::uint32_t number) {
    return sd_bus_message_append_basic(message, 'u', &number);
}

int append(sd_bus_message* message, std::int64_t number) {
    return sd_bus_message_append_basic(message, 'x', &number);
}

int append(sd_bus_message* message, bool value) {
    const int number = value ? 1 : 0;
    return sd_bus_message_append_basic(message, 'b', &number);
}

std::size_t lengthOf(const std::string& text) {
    return text.size();
}

std::size_t lengthOf(const FinderSync::URL& url) {
    return url->description().size();
}

template <typename Element> int append(sd_bus_message* message, const std::vector<Element>& list) {
    std::size_t length = 0;
    int result = sd_bus_message_open_container(message, 'a', "s");
    for (auto element = list.begin(); result >= 0 && element != list.end(); ++element) {
        length += lengthOf(*element) + textOverhead;
        result = length > longestList ? -ENOBUFS : append(message, *element);
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
}

int read(sd_bus_message* message, std::string& text) {
    const char* value = nullptr;
    const int result = sd_bus_message_read_basic(message, 's', &value);
    if (result <= 0)
        return result;
    text = value;
    unsent().add(text.size()); // an error may repeat it
    return text.size() > longestArgument ? -ENOBUFS : result;
}

int read(sd_bus_message* message, std::uint32_t& number) {
    return sd_bus_message_read_basic(message, 'u', &number);
}

int read(sd_bus_message* message, std::int64_t& number) {
    return sd_bus_message_read_basic(message, 'x', &number);
}

int read(sd_bus_message* message, bool& value) {
    int number = 0;
    const int result = sd_bus_message_read_basic(message, 'b', &number);
    value = number != 0;
    return result;
}

int read(sd_bus_message* message, std::vector<std::string>& list) {
    int result = sd_bus_message_enter_container(message, 'a', "s");
    std::string element;
    std::size_t length = 0;
    while (result >= 0 && (result = read(message, element)) > 0) {
        length += element.size() + textOverhead;
        if (length > longestArgument)
            return -ENOBUFS;
        list.push_back(element);
    }
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

/// Checks a URL as the Finder would have. Gives a negative errno on failure, with the error set for
/// the caller of the bus.
int checkURL(const std::string& text, FinderSync::URL& url, sd_bus_error* error) {
    std::string failure;
    url = platform::linux_backend::fileURLWithString(text, failure);
    if (url)
        return 0;
    return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS,
                             "\"%s\" is not the URL of a local file: %s", text.c_str(),
                             failure.c_str());
}

int readURL(sd_bus_message* message, FinderSync::URL& url, sd_bus_error* error) {
    std::string text;
    const int result = read(message, text);
    return result < 0 ? result : checkURL(text, url, error);
}

int readURLs(sd_bus_message* message, std::vector<FinderSync::URL>& urls, sd_bus_error* error) {
    std::vector<std::string> texts;
    int result = read(message, texts);
    for (auto text = texts.begin(); result >= 0 && text != texts.end(); ++text)
        result = checkURL(*text, urls.emplace_back(), error);
    return result;
}

int appendMenu(sd_bus_message* message, const platform::NSMenu* menu) {
    int result = append(message, menu != nullptr);
    if (result >= 0)
        result = sd_bus_message_open_container(message, 'a', "(sss)");
    if (menu != nullptr) {
        for (const auto& entry : static_cast<const platform::linux_backend::Menu&>(*menu).items()) {
            const auto& item = static_cast<const platform::linux_backend::MenuItem&>(*entry);
            if (result >= 0)
                result = sd_bus_message_open_container(message, 'r', "sss");
            for (const std::string& text : {item.title(), item.action(), item.imageName()}) {
                if (result >= 0)
                    result = append(message, text);
            }
            if (result >= 0)
                result = sd_bus_message_close_container(message);
        }
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
}

/// Sends a reply whose body a function appends. Whoever gets it finds the lines about it written.
template <typename AppendBody> int reply(sd_bus_message* call, AppendBody appendBody) {
    platform::linux_backend::flushStandardStreams();
    sd_bus_message* message = nullptr;
    int result = sd_bus_message_new_method_return(call, &message);
    if (result >= 0)
        result = appendBody(message);
    if (result >= 0)
        result = sd_bus_send(nullptr, message, nullptr);
    sd_bus_message_unref(message);
    return result;
}

/// Makes a selection the Finder's for as long as it lives.
class Selection {
public:
    Selection(platform::linux_backend::FinderSyncController& controller,
              std::vector<FinderSync::URL> urls)
        : controller_(controller) {
        controller_.setSelectedItemURLs(std::move(urls));
    }
    ~Selection() { controller_.setSelectedItemURLs(std::nullopt); }
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;

private:
    platform::linux_backend::FinderSyncController& controller_;
};

/// "BeginObservingDirectoryAtURL" on the bus is "beginObservingDirectoryAtURL:" of the extension.
std::string selectorOfMember(std::string_view member) {
    std::string selector = std::string(member) + ":";
    selector[0] = static_cast<char>(selector[0] - 'A' + 'a');
    return selector;
}

} // namespace

struct ExtensionService::Callbacks {
    // Nothing may be thrown through sd-bus; an exception here ends the process.

    static int callWithURL(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
        return service(self).callWithURL(call, selectorOfMember(sd_bus_message_get_member(call)),
                                         error);
    }
    static int requestBadge(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
        return service(self).requestBadge(call, error);
    }
    static int requestBadges(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
        return service(self).requestBadges(call, error);
    }
    static int provideMenu(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
        return service(self).provideMenu(call, error);
    }
    static int performAction(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
        return service(self).performAction(call, error);
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
        return service(self).appendDirectoryURLs(reply);
    }
    static int getBadges(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                         void* self, sd_bus_error*) noexcept {
        return service(self).appendBadges(reply);
    }
    static int signalChanges(sd_event_source*, void* self) noexcept {
        return service(self).signalChanges();
    }
    static int signalChangesLater(sd_event_source*, std::uint64_t, void* self) noexcept {
        return service(self).signalChanges();
    }
    static int beginAnswer(sd_bus_message* message, void*, sd_bus_error*) noexcept {
        unsent().beginAnswer(waitingAnswers(sd_bus_message_get_bus(message)));
        return 0;
    }

    static ExtensionService& service(void* self) { return *static_cast<ExtensionService*>(self); }

    static const sd_bus_vtable vtable[];
};

#define METHOD_WITH_URL(member)                                                                    \
    SD_BUS_METHOD_WITH_ARGS(member, SD_BUS_ARGS("s", url), SD_BUS_NO_RESULT, callWithURL,          \
                            SD_BUS_VTABLE_UNPRIVILEGED)
#define WRITABLE(name, signature)                                                                  \
    SD_BUS_WRITABLE_PROPERTY(name, signature, getProperty, setProperty, 0,                         \
                             SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE)
#define CONSTANT(name, signature, get)                                                             \
    SD_BUS_PROPERTY(name, signature, get, 0, SD_BUS_VTABLE_PROPERTY_CONST)

const sd_bus_vtable ExtensionService::Callbacks::vtable[] = {
    SD_BUS_VTABLE_START(0),
    METHOD_WITH_URL("BeginObservingDirectoryAtURL"),
    METHOD_WITH_URL("EndObservingDirectoryAtURL"),
    SD_BUS_METHOD_WITH_ARGS("RequestBadgeIdentifierForURL", SD_BUS_ARGS("s", url),
                            SD_BUS_RESULT("s", badgeIdentifier), requestBadge,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RequestBadgeIdentifiersForURLs", SD_BUS_ARGS("as", urls),
                            SD_BUS_RESULT("as", badgeIdentifiers), requestBadges,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("MenuForMenuKind", SD_BUS_ARGS("u", kind, "as", selectedItemURLs),
                            SD_BUS_RESULT("b", isOffered, "a(sss)", items), provideMenu,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("PerformAction", SD_BUS_ARGS("s", selector, "as", selectedItemURLs),
                            SD_BUS_NO_RESULT, performAction, SD_BUS_VTABLE_UNPRIVILEGED),
    WRITABLE("myFolderURL", "s"),
    WRITABLE("pathsOfRootFolders", "as"),
    CONSTANT("serverAddress", "s", getProperty),
    WRITABLE("serverPort", "u"),
    WRITABLE("isSocketConnected", "b"),
    WRITABLE("displayUrlLink", "x"),
    WRITABLE("displayBackup", "x"),
    WRITABLE("shareContactTitle", "s"),
    WRITABLE("shareViaUrlTitle", "s"),
    WRITABLE("backupTitle", "s"),
    CONSTANT("directoryURLs", "as", getDirectoryURLs),
    CONSTANT("badges", "a{s(ss)}", getBadges),
    SD_BUS_VTABLE_END,
};

ExtensionService::ExtensionService(sd_bus* bus, ObservedFinderSync& extension,
                                   platform::linux_backend::FinderSyncController& controller)
    : bus_(bus), extension_(extension), controller_(controller) {}

ExtensionService::~ExtensionService() {
    extension_.setObserver(nullptr);
    sd_event_source_disable_unref(laterSignalSource_);
    sd_event_source_disable_unref(signalSource_);
    sd_bus_slot_unref(filterSlot_);
    sd_bus_slot_unref(slot_);
}

int ExtensionService::publish() {
    int result =
        sd_event_add_defer(sd_bus_get_event(bus_), &signalSource_, Callbacks::signalChanges, this);
    if (result >= 0)
        result = sd_event_source_set_enabled(signalSource_, SD_EVENT_OFF);
    if (result >= 0)
        result = sd_bus_add_filter(bus_, &filterSlot_, Callbacks::beginAnswer, nullptr);
    if (result >= 0)
        result = sd_bus_add_object_vtable(bus_, &slot_, objectPath, interfaceName,
                                          Callbacks::vtable, this);
    if (result >= 0)
        extension_.setObserver([this](std::string_view property) { noteChange(property); });
    return result;
}

int ExtensionService::callWithURL(sd_bus_message* call, std::string_view selector,
                                  sd_bus_error* error) {
    FinderSync::URL url;
    if (const int result = readURL(call, url, error); result < 0)
        return result;
    (extension_.*std::get<URLCallback>(publishedMethod(selector)->method))(*url);
    return reply(call, [](sd_bus_message*) { return 0; });
}

int ExtensionService::requestBadge(sd_bus_message* call, sd_bus_error* error) {
    FinderSync::URL url;
    if (const int result = readURL(call, url, error); result < 0)
        return result;
    const std::string badge = badgeFor(*url);
    return reply(call, [&](sd_bus_message* message) { return append(message, badge); });
}

int ExtensionService::requestBadges(sd_bus_message* call, sd_bus_error* error) {
    std::vector<FinderSync::URL> urls;
    if (const int result = readURLs(call, urls, error); result < 0)
        return result;
    std::vector<std::string> badges;
    badges.reserve(urls.size());
    for (const FinderSync::URL& url : urls)
        badges.push_back(badgeFor(*url));
    return reply(call, [&](sd_bus_message* message) { return append(message, badges); });
}

int ExtensionService::provideMenu(sd_bus_message* call, sd_bus_error* error) {
    std::uint32_t kind = 0;
    std::vector<FinderSync::URL> urls;
    int result = read(call, kind);
    if (result >= 0)
        result = readURLs(call, urls, error);
    if (result < 0)
        return result;
    std::shared_ptr<platform::NSMenu> menu;
    if (std::ranges::all_of(urls, [this](const auto& url) { return isWatched(*url); })) {
        const Selection selection(controller_, std::move(urls));
        menu = extension_.menuForMenuKind(platform::FIMenuKind{kind});
    }
    return reply(call, [&](sd_bus_message* message) { return appendMenu(message, menu.get()); });
}

int ExtensionService::performAction(sd_bus_message* call, sd_bus_error* error) {
    std::string selector;
    std::vector<FinderSync::URL> urls;
    int result = read(call, selector);
    if (result >= 0)
        result = readURLs(call, urls, error);
    if (result < 0)
        return result;
    const PublishedMethod* const method = publishedMethod(selector);
    const Action* const action = method != nullptr ? std::get_if<Action>(&method->method) : nullptr;
    if (action == nullptr)
        return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS,
                                 "\"%s\" is no action of the extension", selector.c_str());
    const Selection selection(controller_, std::move(urls));
    (extension_.**action)(nullptr);
    return reply(call, [](sd_bus_message*) { return 0; });
}

/// The extension is not asked about what lies outside the watched directories.
std::string ExtensionService::badgeFor(const platform::NSURL& url) {
    if (!isWatched(url))
        return {};
    extension_.requestBadgeIdentifierForURL(url);
    return controller_.takeAssignedBadge();
}

/// Whether an item is a watched directory or lies in one.
bool ExtensionService::isWatched(const platform::NSURL& url) const {
    const std::string path = url.path().value_or("");
    return std::ranges::any_of(controller_.directoryURLs(), [&path](const auto& directory) {
        return platform::text::isInFolder(path, directory->path().value_or(""));
    });
}

int ExtensionService::appendProperty(sd_bus_message* reply, std::string_view name) const {
    return std::visit(
        [&](const auto& property) { return append(reply, (extension_.*property.get)()); },
        publishedProperty(name)->accessors);
}

int ExtensionService::setProperty(sd_bus_message* value, std::string_view name,
                                  sd_bus_error* error) {
    const auto set = [&](const auto& property) {
        std::remove_cvref_t<decltype((extension_.*property.get)())> written{};
        int result = 0;
        if constexpr (std::is_same_v<decltype(written), FinderSync::URL>)
            result = readURL(value, written, error);
        else
            result = read(value, written);
        if (result < 0)
            return result;
        (extension_.*property.set)(std::move(written));
        return 0;
    };
    return std::visit(set, publishedProperty(name)->accessors);
}

int ExtensionService::appendDirectoryURLs(sd_bus_message* reply) const {
    return append(reply, controller_.directoryURLs());
}

int ExtensionService::appendBadges(sd_bus_message* reply) const {
    int result = sd_bus_message_open_container(reply, 'a', "{s(ss)}");
    for (const auto& [identifier, badge] : controller_.badges()) {
        if (result < 0)
            break;
        const auto& image = static_cast<const platform::linux_backend::ImageFile&>(*badge.image);
        result = sd_bus_message_append(reply, "{s(ss)}", identifier.c_str(), image.path().c_str(),
                                       badge.label.c_str());
    }
    return result < 0 ? result : sd_bus_message_close_container(reply);
}

void ExtensionService::noteChange(std::string_view property) {
    if (std::ranges::find(changed_, property) == changed_.end())
        changed_.emplace_back(property);
    (void)sd_event_source_set_enabled(signalSource_, SD_EVENT_ONESHOT);
}

int ExtensionService::signalChanges() {
    laterSignalSource_ = sd_event_source_disable_unref(laterSignalSource_);
    if (waitingAnswers(bus_) > 0) // what changes meanwhile goes into the same signal
        return sd_event_add_time_relative(sd_bus_get_event(bus_), &laterSignalSource_,
                                          CLOCK_MONOTONIC, restOfSignals, 0,
                                          Callbacks::signalChangesLater, this);
    std::vector<char*> names;
    names.reserve(changed_.size() + 1);
    for (std::string& name : changed_)
        names.push_back(name.data());
    names.push_back(nullptr);
    // A signal that cannot be sent is no reason to end: whoever asks is still told the truth.
    (void)sd_bus_emit_properties_changed_strv(bus_, objectPath, interfaceName, names.data());
    changed_.clear();
    return 0;
}

} // namespace findersync
