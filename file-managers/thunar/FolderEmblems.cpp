#include "file-managers/thunar/FolderEmblems.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace file_managers {

namespace {

constexpr char attribute[] = "metadata::emblems";
constexpr std::size_t maxMissing = 100; ///< folders that are waited for

std::vector<std::string> emblemsIn(GFileInfo* info) {
    char** const names = g_file_info_get_attribute_stringv(info, attribute);
    return names == nullptr ? std::vector<std::string>()
                            : std::vector<std::string>(names, names + g_strv_length(names));
}

/// A change of the attribute, which is removed rather than left empty.
Object<GFileInfo> changeTo(std::vector<std::string> emblems) {
    Object<GFileInfo> change(g_file_info_new());
    if (emblems.empty())
        g_file_info_set_attribute(change.get(), attribute, G_FILE_ATTRIBUTE_TYPE_INVALID, nullptr);
    else
        setEmblems(change.get(), std::move(emblems));
    return change;
}

bool isCancelled(const Error& error) {
    return g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
}

} // namespace

void setEmblems(GFileInfo* info, std::vector<std::string> emblems) {
    std::vector<char*> names;
    names.reserve(emblems.size() + 1);
    for (std::string& emblem : emblems)
        names.push_back(emblem.data());
    names.push_back(nullptr);
    g_file_info_set_attribute_stringv(info, attribute, names.data());
}

FolderEmblems::FolderEmblems(Stored stored)
    : stored_(std::move(stored)),
      recordFile_(std::filesystem::path(g_get_user_state_dir()) / "finder-sync/thunar-emblems") {
    load();
    const auto done = [](GObject*, GAsyncResult* result, void* self) {
        Error error;
        GDBusConnection* const bus = g_bus_get_finish(result, Out(error));
        if (bus != nullptr)
            static_cast<FolderEmblems*>(self)->connected(bus);
    };
    g_bus_get(G_BUS_TYPE_SESSION, cancellable_.get(), done, this);
}

FolderEmblems::~FolderEmblems() {
    g_cancellable_cancel(cancellable_.get());
    for (const auto& [url, monitor] : missing_)
        g_signal_handlers_disconnect_by_data(monitor.get(), this);
    if (bus_)
        g_dbus_connection_signal_unsubscribe(bus_.get(), subscription_);
}

void FolderEmblems::load() {
    std::ifstream file(recordFile_);
    for (std::string url, emblem; file >> url >> emblem;)
        recorded_[url].insert(emblem);
    saved_ = recorded_;
}

/// Adds a folder to the file, before its emblems are stored.
bool FolderEmblems::record(const std::string& url, const Names& emblems) {
    const auto saved = saved_.find(url);
    if (emblems.empty() || (saved != saved_.end() && std::ranges::includes(saved->second, emblems)))
        return true;
    std::error_code error;
    std::filesystem::create_directories(recordFile_.parent_path(), error);
    std::ofstream file(recordFile_, std::ios::app);
    for (const std::string& emblem : emblems)
        file << url << ' ' << emblem << '\n';
    file.close();
    if (!file)
        return false;
    recorded_[url].insert(emblems.begin(), emblems.end());
    saved_[url].insert(emblems.begin(), emblems.end());
    return true;
}

/// Drops from the file what is stored no longer. If that fails, it is only checked once more.
void FolderEmblems::rewriteRecord() {
    std::error_code error;
    if (recorded_.empty()) {
        std::filesystem::remove(recordFile_, error);
    } else {
        const std::filesystem::path next = recordFile_.string() + ".new";
        std::ofstream file(next);
        for (const auto& [url, emblems] : recorded_) {
            for (const std::string& emblem : emblems)
                file << url << ' ' << emblem << '\n';
        }
        file.close();
        if (!file)
            return;
        std::filesystem::rename(next, recordFile_, error);
    }
    if (!error)
        saved_ = recorded_;
}

void FolderEmblems::add(const std::string& url, const std::string& busName,
                        const std::string& emblem) {
    wanted_[url][busName] = emblem;
    check(url);
}

void FolderEmblems::removeUnless(const std::string& busName,
                                 const std::function<bool(const std::string& url)>& keeps) {
    for (auto& [url, emblems] : wanted_) {
        if (emblems.contains(busName) && !keeps(url)) {
            emblems.erase(busName);
            queue_.insert(url);
        }
    }
    std::erase_if(wanted_, [](const auto& each) { return each.second.empty(); });
    std::erase_if(missing_, [this](const auto& each) { return !wanted_.contains(each.first); });
    checkNext();
}

bool FolderEmblems::has(const std::string& url, const std::string& busName) const {
    const auto found = wanted_.find(url);
    return found != wanted_.end() && found->second.contains(busName);
}

FolderEmblems::Names FolderEmblems::wanted(const std::string& url) const {
    Names names;
    if (const auto found = wanted_.find(url); found != wanted_.end()) {
        for (const auto& [busName, emblem] : found->second)
            names.insert(emblem);
    }
    return names;
}

void FolderEmblems::removeUnwanted() {
    for (const auto& [url, emblems] : recorded_)
        queue_.insert(url);
    checkNext();
}

/// GVfs takes the emblems along when a program renames or moves a folder, and whoever sets other
/// emblems may drop ours.
void FolderEmblems::connected(GDBusConnection* bus) {
    bus_.reset(bus);
    const auto changed = [](GDBusConnection*, const char*, const char*, const char*, const char*,
                            GVariant* arguments, void* self) {
        const char* tree = nullptr;
        const char* path = nullptr;
        if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(ss)")) == FALSE)
            return;
        g_variant_get(arguments, "(&s&s)", &tree, &path);
        static_cast<FolderEmblems*>(self)->metadataChanged(tree, path);
    };
    subscription_ = g_dbus_connection_signal_subscribe(
        bus_.get(), "org.gtk.vfs.Metadata", "org.gtk.vfs.Metadata", "AttributeChanged",
        "/org/gtk/vfs/metadata", nullptr, G_DBUS_SIGNAL_FLAGS_NONE, changed, this, nullptr);
}

/// GVfs names the file in which it stores metadata, and the path below what that is for. Of other
/// file systems than these two, the name does not tell where they are.
void FolderEmblems::metadataChanged(std::string_view tree, std::string_view path) {
    std::string changed(path);
    if (tree.ends_with("/home"))
        changed.insert(0, g_get_home_dir());
    else if (!tree.ends_with("/root"))
        return;
    const Object<GFile> file(g_file_new_for_path(changed.c_str()));
    check(Text(g_file_get_uri(file.get())).get());
}

void FolderEmblems::check(const std::string& url) {
    queue_.insert(url);
    checkNext();
}

/// One folder after the other, and redrawing goes before each.
void FolderEmblems::checkNext() {
    if (!url_.empty())
        return;
    if (queue_.empty()) {
        if (recorded_ != saved_)
            rewriteRecord();
        return;
    }
    url_ = queue_.extract(queue_.begin()).value();
    folder_.reset(g_file_new_for_uri(url_.c_str()));
    const auto done = [](GObject* file, GAsyncResult* result, void* self) {
        Error error;
        const Object<GFileInfo> info(g_file_query_info_finish(G_FILE(file), result, Out(error)));
        if (isCancelled(error))
            return;
        auto& checked = *static_cast<FolderEmblems*>(self);
        if (info)
            checked.queried(info.get());
        else
            checked.queryFailed(*error);
    };
    g_file_query_info_async(folder_.get(), attribute, G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS,
                            G_PRIORITY_LOW, cancellable_.get(), done, this);
}

void FolderEmblems::queried(GFileInfo* info) {
    const Names ours = wanted(url_);
    const std::vector<std::string> before = emblemsIn(info);
    std::vector<std::string> emblems;
    std::ranges::copy_if(before, std::back_inserter(emblems), [&](const std::string& emblem) {
        return !isOurs(emblem) && !ours.contains(emblem);
    });
    emblems.insert(emblems.end(), ours.begin(), ours.end());
    if (emblems == before) {
        finish(nullptr);
    } else if (record(url_, ours)) {
        store(std::move(emblems));
    } else {
        const Error error(
            g_error_new(G_IO_ERROR, G_IO_ERROR_FAILED, "cannot write %s", recordFile_.c_str()));
        finish(error.get());
    }
}

void FolderEmblems::store(std::vector<std::string> emblems) {
    emblems_ = std::move(emblems);
    const auto done = [](GObject* file, GAsyncResult* result, void* self) {
        Error error;
        (void)g_file_set_attributes_finish(G_FILE(file), result, nullptr, Out(error));
        if (isCancelled(error))
            return;
        auto& stored = *static_cast<FolderEmblems*>(self);
        if (!error)
            stored.stored_(stored.url_, stored.emblems_);
        stored.finish(error.get());
    };
    g_file_set_attributes_async(folder_.get(), changeTo(emblems_).get(),
                                G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, G_PRIORITY_LOW,
                                cancellable_.get(), done, this);
}

/// One that is not wanted any more stays in the record: it may be on a disk that is not mounted.
void FolderEmblems::queryFailed(const GError& error) {
    if (g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_NOT_FOUND) != FALSE &&
        wanted_.contains(url_) && missing_.size() < maxMissing)
        waitForFolder();
    url_.clear();
    checkNext();
}

void FolderEmblems::finish(const GError* error) {
    if (error == nullptr)
        settle();
    else
        failed(*error);
    url_.clear();
    checkNext();
}

void FolderEmblems::settle() {
    backoff_.reset();
    missing_.erase(url_);
    if (queue_.contains(url_))
        return;
    recorded_[url_] = wanted(url_);
    if (recorded_[url_].empty())
        recorded_.erase(url_);
}

void FolderEmblems::failed(const GError& error) {
    if (!std::exchange(hasWarned_, true))
        g_message("Finder Sync: no badges, since GVfs stores no emblems: %s", error.message);
    if (g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED) != FALSE)
        return; // without GVfs, nothing is stored
    failed_.insert(url_);
    if (!retry_.isActive())
        retry_.start(backoff_.next());
}

void FolderEmblems::waitForFolder() {
    if (missing_.contains(url_))
        return;
    Object<GFileMonitor> monitor(
        g_file_monitor_file(folder_.get(), G_FILE_MONITOR_NONE, nullptr, nullptr));
    if (!monitor)
        return;
    const auto changed = [](GFileMonitor*, GFile* file, GFile*, GFileMonitorEvent, void* self) {
        static_cast<FolderEmblems*>(self)->check(Text(g_file_get_uri(file)).get());
    };
    g_signal_connect(monitor.get(), "changed", G_CALLBACK(+changed), this);
    missing_.emplace(url_, std::move(monitor));
    queue_.insert(url_); // it may have appeared before it was monitored
}

/// Names of products' icons are told by the record alone: folders keep them when they are moved.
bool FolderEmblems::isOurs(const std::string& emblem) const {
    return std::ranges::any_of(recorded_,
                               [&](const auto& each) { return each.second.contains(emblem); });
}

} // namespace file_managers
