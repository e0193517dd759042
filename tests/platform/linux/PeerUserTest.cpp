#include "platform/linux/PeerUser.h"

#include "process/Descriptor.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using platform::linux_backend::peerUser;
using process::Descriptor;

constexpr uid_t otherUser = 65534;
constexpr int isOn = 1;

template <typename Address> sockaddr* asAddress(Address& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

/// What `make` returns, made as another user.
template <typename Make> Descriptor asOther(const Make& make) {
    EXPECT_EQ(::seteuid(otherUser), 0);
    Descriptor descriptor(make());
    EXPECT_EQ(::seteuid(0), 0);
    return descriptor;
}

/// A connection to a listener on the loopback.
class PeerUser : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0)
            GTEST_SKIP() << "only root can make sockets of another user";
    }

    int makeListener() {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn), 0);
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        any.sin_port = address.sin_port;
        EXPECT_EQ(::bind(socket, asAddress(any), sizeof any), 0);
        EXPECT_EQ(::listen(socket, 1), 0);
        EXPECT_EQ(::getsockname(socket, asAddress(address), &size), 0);
        return socket;
    }

    void connect() {
        client.reset(::socket(AF_INET, SOCK_STREAM, 0));
        ASSERT_EQ(::connect(client.get(), asAddress(address), size), 0);
    }

    [[nodiscard]] int accept() const { return ::accept(listener.get(), nullptr, nullptr); }

    sockaddr_in address{};
    socklen_t size = sizeof address;
    Descriptor listener;
    Descriptor client;
};

TEST_F(PeerUser, WhoeverListensOrHasAcceptedDecides) {
    listener.reset(makeListener());
    connect();
    EXPECT_EQ(peerUser(client.get()), 0U); // not accepted yet
    Descriptor accepted = asOther([this] { return accept(); });
    EXPECT_EQ(peerUser(client.get()), otherUser);
    listener.reset();
    EXPECT_EQ(peerUser(client.get()), otherUser);
    accepted.reset();
    EXPECT_EQ(peerUser(client.get()), std::nullopt);
}

TEST_F(PeerUser, AnAcceptedConnectionOutlivesItsListener) {
    listener.reset(makeListener());
    connect();
    const Descriptor accepted(accept());
    listener.reset();
    EXPECT_EQ(peerUser(client.get()), 0U);
}

TEST_F(PeerUser, AnotherUserHasAcceptedAndThePortHasANewListener) {
    listener.reset(makeListener());
    connect();
    const Descriptor accepted = asOther([this] { return accept(); });
    listener.reset();
    listener.reset(makeListener());
    EXPECT_EQ(peerUser(client.get()), otherUser);
}

TEST_F(PeerUser, AnotherUserListensOnTheSamePortOfIPv6Only) {
    listener.reset(makeListener());
    const Descriptor other = asOther([this] {
        const int socket = ::socket(AF_INET6, SOCK_STREAM, 0);
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        any.sin6_port = address.sin_port;
        EXPECT_EQ(::setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &isOn, sizeof isOn), 0);
        EXPECT_EQ(::bind(socket, asAddress(any), sizeof any), 0);
        EXPECT_EQ(::listen(socket, 1), 0);
        return socket;
    });
    connect();
    EXPECT_EQ(peerUser(client.get()), 0U);
}

} // namespace
