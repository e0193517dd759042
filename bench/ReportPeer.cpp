#include "bench/ReportPeer.h"

#include "bench/SystemCall.h"

#include <cstdlib>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace findersync::bench {

namespace {

using Moment = std::chrono::steady_clock::time_point;

/// Receives until the report is there; false when the connection has ended before.
bool receiveWhole(int connection, std::string& received) {
    std::size_t size = 0;
    while (size < received.size()) {
        const auto count =
            checked(::recv(connection, received.data() + size, received.size() - size, 0), "recv");
        if (count == 0)
            return false;
        size += static_cast<std::size_t>(count);
    }
    return true;
}

int receive(int connection, const std::string& report, int arrivals) {
    std::string received(report.size(), '\0');
    while (receiveWhole(connection, received)) {
        const Moment now = std::chrono::steady_clock::now();
        if (received != report)
            throw std::runtime_error("another click report has arrived than expected");
        checked(::write(arrivals, &now, sizeof now), "write");
    }
    return EXIT_SUCCESS;
}

} // namespace

ReportPeer::ReportPeer(FileDescriptor connection, std::string report)
    : connection_(std::move(connection)), report_(std::move(report)), process_([this] {
          arrivals_.readEnd.reset();
          return receive(connection_.get(), report_, arrivals_.writeEnd.get());
      }) {
    arrivals_.writeEnd.reset();
}

Moment ReportPeer::arrival() const {
    Moment moment;
    if (::read(arrivals_.readEnd.get(), &moment, sizeof moment) != sizeof moment)
        throw std::runtime_error("no click report has arrived");
    return moment;
}

} // namespace findersync::bench
