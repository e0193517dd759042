#include "bench/LoadedObjects.h"

#include "bench/ChildProcess.h"
#include "bench/Pipe.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <stdexcept>

namespace findersync::bench {

namespace {

using Objects = std::set<std::string>;

/// Paths of the shared objects that a process has mapped.
Objects objectsOf(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    Objects objects;
    for (std::string line; std::getline(maps, line);) {
        const auto path = line.find('/');
        if (path != std::string::npos && line.find(".so", path) != std::string::npos)
            objects.insert(line.substr(path));
    }
    return objects;
}

Objects objectsOf(const std::vector<std::string>& command, const LoopbackListener& listener) {
    const Pipe pipe; // large enough for all that is printed here
    ChildProcess program(command, {.output = pipe.writeEnd.get()});
    const FileDescriptor connection = listener.accept();
    Objects objects = objectsOf(program.id());
    program.end();
    return objects;
}

} // namespace

void requireSameObjects(const std::vector<std::string>& one, const std::vector<std::string>& other,
                        const LoopbackListener& listener) {
    const Objects objectsOfOne = objectsOf(one, listener);
    const Objects objectsOfOther = objectsOf(other, listener);
    Objects difference;
    std::ranges::set_symmetric_difference(objectsOfOne, objectsOfOther,
                                          std::inserter(difference, difference.end()));
    if (difference.empty() && !objectsOfOne.empty())
        return;
    std::string complaint = "the programs have not loaded the same shared objects:";
    for (const std::string& object : difference)
        complaint += " " + object;
    throw std::runtime_error(complaint);
}

} // namespace findersync::bench
