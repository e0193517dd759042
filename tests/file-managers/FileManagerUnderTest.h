#pragma once

// The file manager that a program is built for, without windows and without a display. Each of the
// headers below defines a class FileManager, which has loaded the plug-in as the real one does:
//
//     hasBadges, badge, label       whether it shows badges; the badge of a root folder, and the
//                                   entry of ScriptedExtension, in its notation
//     plugins                       how many plug-ins it loads
//     services                      names of those that the bus has to be able to start
//     leastTimeout, mostTimeout     bounds of what a menu takes when the extension does not answer
//     notFiles                      URLs of items that the extension is not to be asked about
//     show(url), forget(url)        shows an item; shows it no longer
//     badges(url), changes(url)     what is shown now; how often the plug-in has changed that
//     menuNotices()                 how often the plug-in has said that the entries have changed
//     keepsNoFile()                 whether the plug-in holds no reference to an item
//     rename(url, new URL)          if its files are objects: gives one another URL
//     deleteFile(url)               the file manager knows that a file is gone
//     menu(urls)                    opens a menu: the labels of the plug-in's entries
//     menuTook(), icons()           of the menu that was opened last
//     pickFirst()                   picks its first entry
//     processEvents()               runs what the main loop has to do
//     run(input), quit()            runs the main loop, which calls `input` when standard input can
//                                   be read
//
// and a class Application, which has to exist as long as the process uses the toolkit.

#include <chrono>
#include <functional>
#include <sched.h>
#include <string>
#include <unistd.h>
#include <vector>

using Texts = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

#if defined(FM_DOLPHIN)
#include "tests/file-managers/DolphinUnderTest.h"
#elif defined(FM_THUNAR)
#include "tests/file-managers/ThunarUnderTest.h"
#else
#include "tests/file-managers/CajaUnderTest.h"
#endif

/// Runs this process, and those that it starts, ahead of all others if it may, so that what else
/// runs on the machine is not measured.
inline void runAheadOfOthers() {
    const sched_param lowest{.sched_priority = 1};
    (void)sched_setscheduler(0, SCHED_RR, &lowest);
}

/// Runs the main loop until the condition holds. False when it does not within ten seconds.
inline bool runUntil(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        FileManager::processEvents();
        (void)::usleep(500);
    }
    return true;
}

inline void runFor(milliseconds duration) {
    const auto end = Clock::now() + duration;
    (void)runUntil([end] { return Clock::now() > end; });
}
