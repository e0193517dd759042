#pragma once

#include "bench/FileDescriptor.h"
#include "bench/Loopback.h"
#include "bench/Pipe.h"
#include "bench/Session.h"

#include <string>
#include <string_view>

namespace findersync::bench {

/// The extension, connected to a companion application that announces and withdraws root folders.
class AnnouncingCompanion {
public:
    /// The extension writes its log to the descriptor.
    AnnouncingCompanion(const Session& session, int log);

    /// Sends a message; returns at once.
    void addFolder(const std::string& path) const { send("add_folder", path); }
    void deleteFolder(const std::string& path) const { send("del_folder", path); }

    /// Waits until the trace shows that many more messages as handled.
    void waitForMessages(std::size_t count) const;

private:
    void send(std::string_view type, const std::string& path) const;

    LoopbackListener listener_;
    Pipe trace_;
    ChildProcess extension_;
    FileDescriptor connection_;
};

} // namespace findersync::bench
