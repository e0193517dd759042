#include "tools/finderctl/Arguments.h"

namespace finderctl {

void appendList(sd_bus_message* message, const std::vector<std::string>& list) {
    constexpr const char* whatFailed = "the call cannot be made";
    check(sd_bus_message_open_container(message, 'a', "s"), whatFailed);
    for (const std::string& element : list)
        check(sd_bus_message_append_basic(message, 's', element.c_str()), whatFailed);
    check(sd_bus_message_close_container(message), whatFailed);
}

std::vector<std::string> readList(sd_bus_message* message) {
    constexpr const char* whatFailed = "the answer cannot be read";
    std::vector<std::string> list;
    check(sd_bus_message_enter_container(message, 'a', "s"), whatFailed);
    const char* element = nullptr;
    for (int result = 1; result > 0;) {
        result = sd_bus_message_read_basic(message, 's', static_cast<void*>(&element));
        check(result, whatFailed);
        if (result > 0)
            list.emplace_back(element);
    }
    check(sd_bus_message_exit_container(message), whatFailed);
    return list;
}

} // namespace finderctl
