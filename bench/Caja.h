#pragma once

#include "bench/ChildProcess.h"
#include "bench/Screen.h"
#include "bench/Session.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace findersync::bench {

/// The colour that the emblem of the badge has here, and nothing else, and the edge of its square.
inline constexpr Screen::Color emblemColor = 0xff00ff;
inline constexpr std::size_t emblemEdge = 24;

/// The plug-ins that Caja may have, as directories to look for them in.
struct CajaPlugins {
    std::string ours;
    std::string empty;
    std::string none;
};
[[nodiscard]] CajaPlugins cajaPlugins(const Session& session);

/// Caja with a window that shows a folder. It runs for as long as this object lives.
class Caja {
public:
    /// `environment` is for the plug-in.
    Caja(const Session& session, const Screen& screen, const std::string& plugins,
         const std::filesystem::path& folder, std::vector<std::string> environment = {});

    [[nodiscard]] pid_t id() const { return process_.id(); }

    /// Waits until Caja uses no processor time any more; gives what it has used since its start.
    [[nodiscard]] std::chrono::nanoseconds processorTimeAtRest() const;

private:
    ChildProcess process_;
};

} // namespace findersync::bench
