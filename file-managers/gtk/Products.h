#pragma once

// The products that have an extension, as the session bus knows them.

#include "file-managers/Backoff.h"
#include "file-managers/gtk/ExtensionProxy.h"
#include "file-managers/gtk/PacedCall.h"
#include "file-managers/gtk/PrivateContext.h"
#include "file-managers/gtk/SingleShotTimer.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace file_managers {

/// A bus name, and the process that owns it, if any.
class Product {
public:
    Product(GDBusConnection* bus, std::string busName, ExtensionProxy::Changed changed);

    [[nodiscard]] bool isRunning() const { return extension_ != nullptr; }

    /// The extension, null unless it is ready.
    [[nodiscard]] ExtensionProxy* extension() const;

    /// `owner` is a unique name, or "".
    void setOwner(const std::string& owner);

    /// Has the bus start the extension unless it runs; soon, if it was started before. Returns at
    /// once.
    void start();

    /// The same, but at once.
    void startForUser();

private:
    GDBusConnection* bus_;
    std::string busName_;
    ExtensionProxy::Changed changed_;
    std::unique_ptr<ExtensionProxy> extension_;
    StartBackoff startBackoff_;
    SingleShotTimer startLater_{[this] { start(); }};
};

/// A product's entries in a menu.
struct ProductMenu {
    std::string busName;
    std::string iconPrefix;
    std::vector<MenuEntry> entries;
};

/// Every product whose extension runs or that the bus can start. Belongs to the main thread.
class Products {
public:
    /// `changed` is called from the main loop, never from within a call of this class.
    explicit Products(ExtensionProxy::Changed changed);
    ~Products();
    Products(const Products&) = delete;
    Products& operator=(const Products&) = delete;

    /// Has the bus start what does not run and can be started: soon, if it was started before.
    /// Returns at once.
    void start();

    /// The same, but at once, since the user has asked for something.
    void startForUser();

    /// The entries that products offer for selected items, in the order of their bus names. Asks
    /// all of them at once, and waits for `menuTimeout` at most.
    [[nodiscard]] std::vector<ProductMenu> menusForItems(const std::vector<std::string>& urls);

    /// Tells a product which entry was picked, and has the bus start it for this if it does not
    /// run. Returns at once.
    void performAction(const std::string& busName, const std::string& selector,
                       const std::vector<std::string>& urls);

private:
    using Names = std::set<std::string>;
    using ByName = std::map<std::string, Product>;

    void connected(GDBusConnection* bus);
    void subscribe(const char* signal, GDBusSignalCallback received);
    void requestLists();
    void listed(const Names& running);
    [[nodiscard]] Product* add(const std::string& busName);
    void requestOwner(const std::string& busName);
    void ownerChanged(const char* busName, const char* owner);
    [[nodiscard]] bool isStartable(const std::string& busName) const;

    ExtensionProxy::Changed changed_;
    Object<GCancellable> cancellable_{g_cancellable_new()};
    Object<GDBusConnection> bus_;
    std::vector<guint> subscriptions_;
    Names startable_;
    ByName products_;
    PrivateContext menus_;  ///< runs the answers about menus, the late ones with the next menu
    bool isWanted_ = false; ///< start() was called before the products were listed
    bool isListed_ = false;
    PacedCall list_{[this] { requestLists(); }};
};

} // namespace file_managers
