#include "file-managers/gtk/Products.h"

#include "file-managers/Interface.h"
#include "file-managers/Limits.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

namespace file_managers {

namespace {

bool isProduct(std::string_view busName) {
    return busName.ends_with(busNameEnd) && !busName.starts_with(':');
}

/// The products among the names in a reply; at most as many as are served.
std::set<std::string> productsIn(GVariant* reply) {
    std::set<std::string> names;
    if (reply == nullptr)
        return names;
    const Variant list(g_variant_get_child_value(reply, 0));
    GVariantIter each;
    (void)g_variant_iter_init(&each, list.get());
    const char* name = nullptr;
    while (names.size() < maxProducts && g_variant_iter_next(&each, "&s", &name) != FALSE) {
        if (isProduct(name))
            names.emplace(name);
    }
    return names;
}

} // namespace

Product::Product(GDBusConnection* bus, std::string busName, ExtensionProxy::Changed changed)
    : bus_(bus), busName_(std::move(busName)), changed_(std::move(changed)) {}

ExtensionProxy* Product::extension() const {
    return extension_ && extension_->isReady() ? extension_.get() : nullptr;
}

void Product::setOwner(const std::string& owner) {
    if (isRunning())
        startBackoff_.ended(Clock::now());
    if (extension() != nullptr)
        changed_(*extension_, ExtensionProxy::Change::Gone);
    extension_.reset();
    if (owner.empty())
        return;
    startBackoff_.appeared(Clock::now());
    extension_ = std::make_unique<ExtensionProxy>(bus_, busName_, owner, changed_);
}

void Product::start() {
    if (isRunning() || startLater_.isActive())
        return;
    const Clock::time_point now = Clock::now();
    const Clock::duration remaining = startBackoff_.remaining(now);
    if (remaining > Clock::duration::zero()) {
        startLater_.start(std::chrono::ceil<std::chrono::milliseconds>(remaining));
        return;
    }
    startBackoff_.started(now);
    // The reply does not matter: the name gets an owner, or it does not.
    callMethod(bus_, methodOfBus("StartServiceByName"), g_variant_new("(su)", busName_.c_str(), 0U),
               "(u)", nullptr, [](GVariant*, const GError*) {});
}

void Product::startForUser() {
    startBackoff_.reset();
    startLater_.stop();
    start();
}

Products::Products(ExtensionProxy::Changed changed) : changed_(std::move(changed)) {
    const auto done = [](GObject*, GAsyncResult* result, void* self) {
        Error error;
        GDBusConnection* const bus = g_bus_get_finish(result, Out(error));
        if (bus != nullptr)
            static_cast<Products*>(self)->connected(bus);
        else if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) == FALSE)
            g_message("Finder Sync: no session bus: %s", error ? error->message : "");
    };
    g_bus_get(G_BUS_TYPE_SESSION, cancellable_.get(), done, this);
}

Products::~Products() {
    g_cancellable_cancel(cancellable_.get());
    for (const guint subscription : subscriptions_)
        g_dbus_connection_signal_unsubscribe(bus_.get(), subscription);
}

void Products::connected(GDBusConnection* bus) {
    bus_.reset(bus);
    const auto ownerHasChanged = [](GDBusConnection*, const char*, const char*, const char*,
                                    const char*, GVariant* arguments, void* self) {
        const char* name = nullptr;
        const char* owner = nullptr;
        g_variant_get(arguments, "(&s&s&s)", &name, nullptr, &owner);
        if (isProduct(name))
            static_cast<Products*>(self)->ownerChanged(name, owner);
    };
    const auto servicesHaveChanged = [](GDBusConnection*, const char*, const char*, const char*,
                                        const char*, GVariant*, void* self) {
        static_cast<Products*>(self)->list_.request();
    };
    subscribe("NameOwnerChanged", ownerHasChanged);
    subscribe("ActivatableServicesChanged", servicesHaveChanged);
    list_.request();
}

void Products::subscribe(const char* signal, GDBusSignalCallback received) {
    const auto [sender, path, interface, name] = methodOfBus(signal);
    subscriptions_.push_back(
        g_dbus_connection_signal_subscribe(bus_.get(), sender, interface, name, path, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, received, this, nullptr));
}

void Products::requestLists() {
    callMethod(bus_.get(), methodOfBus("ListActivatableNames"), nullptr, "(as)", cancellable_.get(),
               [this](GVariant* reply, const GError*) { startable_ = productsIn(reply); });
    callMethod(bus_.get(), methodOfBus("ListNames"), nullptr, "(as)", cancellable_.get(),
               [this](GVariant* reply, const GError*) { listed(productsIn(reply)); });
}

void Products::listed(const Names& running) {
    std::erase_if(products_, [this](const ByName::value_type& each) {
        return !each.second.isRunning() && !isStartable(each.first);
    });
    for (const std::string& name : startable_) {
        (void)add(name);
        requestOwner(name);
    }
    for (const std::string& name : running)
        requestOwner(name);
    isListed_ = true;
    if (std::exchange(isWanted_, false))
        start();
}

/// The product, new or not; null when there are too many. Those that can be started are installed,
/// and go before others: any program can own names.
Product* Products::add(const std::string& busName) {
    const auto known = products_.find(busName);
    if (known != products_.end())
        return &known->second;
    if (products_.size() >= maxProducts) {
        const auto other = std::ranges::find_if(
            products_, [this](const ByName::value_type& each) { return !isStartable(each.first); });
        if (!isStartable(busName) || other == products_.end())
            return nullptr;
        other->second.setOwner("");
        products_.erase(other);
    }
    return &products_.try_emplace(busName, bus_.get(), busName, changed_).first->second;
}

void Products::requestOwner(const std::string& busName) {
    const auto got = [this, busName](GVariant* reply, const GError*) {
        const auto known = products_.find(busName);
        if (reply == nullptr || (known != products_.end() && known->second.isRunning()))
            return;
        const char* owner = nullptr;
        g_variant_get(reply, "(&s)", &owner);
        ownerChanged(busName.c_str(), owner);
    };
    callMethod(bus_.get(), methodOfBus("GetNameOwner"), g_variant_new("(s)", busName.c_str()),
               "(s)", cancellable_.get(), got);
}

void Products::ownerChanged(const char* busName, const char* owner) {
    Product* const product = add(busName);
    if (product == nullptr)
        return;
    product->setOwner(owner);
    if (*owner != '\0' || isStartable(busName))
        return;
    products_.erase(busName);
    if (products_.size() == maxProducts - 1)
        list_.request(); // another may have been waiting for this place
}

bool Products::isStartable(const std::string& busName) const {
    return startable_.contains(busName);
}

void Products::start() {
    isWanted_ = !isListed_;
    for (auto& [name, product] : products_) {
        if (isStartable(name))
            product.start();
    }
}

void Products::startForUser() {
    isWanted_ = !isListed_;
    for (auto& [name, product] : products_) {
        if (isStartable(name))
            product.startForUser();
    }
}

std::vector<ProductMenu> Products::menusForItems(const std::vector<std::string>& urls) {
    struct Answers {
        std::vector<ProductMenu> menus;
        std::size_t pending = 0;
    };
    const auto answers = std::make_shared<Answers>(); // some may come when this menu is open
    menus_.runPending();
    menus_.run(
        menuTimeout,
        [&] {
            for (const auto& [name, product] : products_) {
                ExtensionProxy* const extension = product.extension();
                if (extension == nullptr || !extension->takesMenuRequests())
                    continue;
                answers->menus.push_back(
                    {.busName = name, .iconPrefix = extension->iconPrefix(), .entries = {}});
                ++answers->pending;
                const auto got = [answers, index = answers->menus.size() - 1](auto entries) {
                    answers->menus[index].entries = std::move(entries);
                    --answers->pending;
                };
                extension->requestMenu(urls, got);
            }
        },
        [&] { return answers->pending == 0; });
    return answers->menus;
}

void Products::performAction(const std::string& busName, const std::string& selector,
                             const std::vector<std::string>& urls) {
    // To whoever owns the name now; if nobody does, the bus starts the extension.
    const auto done = [busName, selector](GVariant*, const GError* error) {
        if (error != nullptr)
            g_message("Finder Sync: %s has not taken %s %s", busName.c_str(), selector.c_str(),
                      error->message);
    };
    callMethod(bus_.get(), {busName.c_str(), objectPath, interfaceName, "PerformAction"},
               g_variant_new("(s@as)", selector.c_str(), newTexts(urls)), "()", nullptr, done,
               G_DBUS_CALL_FLAGS_NONE);
}

} // namespace file_managers
