#include "vxw_shim.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

// The library calls these through the dynamic linker, so the ones here come first: a test can play the kernel.
namespace
{
std::function<ssize_t(int, msghdr *, int)> receiving;
std::function<ssize_t(int, const msghdr *, int)> sending;
} // namespace

extern "C" {
ssize_t recvmsg(int socket, msghdr *message, int flags)
{
    return receiving ? receiving(socket, message, flags) : syscall(SYS_recvmsg, socket, message, flags);
}

ssize_t sendmsg(int socket, const msghdr *message, int flags)
{
    return sending ? sending(socket, message, flags) : syscall(SYS_sendmsg, socket, message, flags);
}
}

namespace
{
using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const void *from, size_t bytes)
{
    const auto *first = static_cast<const unsigned char *>(from);
    return Bytes(first, first + bytes);
}

Bytes operator+(Bytes left, const Bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

template <class Integer>
Bytes native(Integer value)
{
    return bytesOf(&value, sizeof value);
}

// A control message's header and data, without padding.
Bytes controlMessage(uint64_t length, int level, int type, const Bytes &data)
{
    return native(length) + native(int32_t{level}) + native(int32_t{type}) + data;
}

const Bytes Ipv4Address{10, 1, 2, 3};
const Bytes Ipv6Address{0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD};
const Bytes OtherAddress{192, 0, 2, 77};

// As the kernel builds them: interface 0x01020304.
Bytes ipv4Info(uint64_t length = 28)
{
    return controlMessage(length, 0, 8, native(uint32_t{0x01020304}) + OtherAddress + Ipv4Address);
}

Bytes ipv6Info(uint64_t length = 36)
{
    return controlMessage(length, 41, 50, Ipv6Address + native(uint32_t{0x01020304}));
}

const Bytes Ipv4Record = native(uint32_t{0x01020304}) + Bytes(4) + Ipv4Address + Bytes(8);
const Bytes Ipv6Record = Ipv6Address + native(uint32_t{0x01020304});
const Bytes Untouched(20, 0xEE);
const Bytes Cleared(20, 0);

sockaddr_in ipv4(const char *text, uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    EXPECT_EQ(1, inet_pton(AF_INET, text, &address.sin_addr)) << text;
    return address;
}

sockaddr_in6 ipv6(const char *text, uint16_t port)
{
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    EXPECT_EQ(1, inet_pton(AF_INET6, text, &address.sin6_addr)) << text;
    return address;
}

template <class Address>
sockaddr *generic(Address &address)
{
    return reinterpret_cast<sockaddr *>(&address);
}

// One call of recvfrom_wdst whose kernel the test plays.
struct Receive {
    ssize_t result = 5;
    int error = 0;
    sa_family_t family = AF_INET;
    Bytes control;           // what the kernel writes
    size_t controlBytes = 0; // what it says it wrote; as `control` is when 0
    int messageFlags = 0;
    bool giveSource = true, giveSourceBytes = true, giveInfo = true;
    unsigned char leftOver = 0xEE; // the rest of the control buffer

    // Afterwards:
    Bytes record = Untouched;
    socklen_t sourceBytes = sizeof(sockaddr_in6);

    ssize_t run()
    {
        receiving = [this](int, msghdr *message, int) {
            EXPECT_LE(control.size(), message->msg_controllen);
            memset(message->msg_control, leftOver, message->msg_controllen);
            std::copy(control.begin(), control.end(), static_cast<unsigned char *>(message->msg_control));
            message->msg_controllen = controlBytes != 0 ? controlBytes : control.size();
            message->msg_flags = messageFlags;
            if (message->msg_name != nullptr)
                memcpy(message->msg_name, &family, sizeof family);
            message->msg_namelen = 16;
            errno = error;
            return result;
        };
        // Of the exact sizes and odd in memory: the address sanitizer watches what is read and written.
        auto source = std::make_unique<unsigned char[]>(sizeof(sockaddr_in6) + 1);
        auto info = std::make_unique<unsigned char[]>(21);
        memcpy(info.get() + 1, record.data(), 20);
        char buffer[8];
        const ssize_t returned = recvfrom_wdst(3, buffer, sizeof buffer, 0,
                                               giveSource ? reinterpret_cast<sockaddr *>(source.get() + 1) : nullptr,
                                               giveSourceBytes ? &sourceBytes : nullptr,
                                               giveInfo ? reinterpret_cast<packet_info *>(info.get() + 1) : nullptr);
        record = bytesOf(info.get() + 1, 20);
        receiving = nullptr;
        return returned;
    }
};

// What a call of sendto_wsrc hands to the kernel.
struct Sent {
    const void *name;
    socklen_t nameBytes;
    const void *data;
    size_t dataBytes;
    bool hasControl;
    Bytes control;
    int socket, flags, messageFlags;
};

Sent sentBy(const std::function<ssize_t()> &call)
{
    Sent sent = {};
    sending = [&](int socket, const msghdr *message, int flags) {
        EXPECT_EQ(1U, message->msg_iovlen);
        sent = {message->msg_name,
                message->msg_namelen,
                message->msg_iov[0].iov_base,
                message->msg_iov[0].iov_len,
                message->msg_control != nullptr,
                message->msg_controllen != 0 ? bytesOf(message->msg_control, message->msg_controllen) : Bytes(),
                socket,
                flags,
                message->msg_flags};
        errno = ENOBUFS;
        return ssize_t{-1};
    };
    EXPECT_EQ(-1, call());
    EXPECT_EQ(ENOBUFS, errno);
    sending = nullptr;
    return sent;
}

// The control data sent for a destination with a record of the bytes 1 to 20.
template <class Address>
Bytes controlFor(Address destination, socklen_t bytes = sizeof(Address))
{
    packet_info info;
    for (unsigned i = 0; i < 20; ++i)
        info.bytes[i] = static_cast<uint8_t>(i + 1);
    const Sent sent = sentBy([&] { return sendto_wsrc(3, "x", 1, 0, generic(destination), bytes, &info); });
    EXPECT_TRUE(sent.hasControl);
    return sent.control;
}

// A UDP socket on a loopback port of its own.
class Udp
{
public:
    template <class Address>
    explicit Udp(Address local) : socket_(socket(generic(local)->sa_family, SOCK_DGRAM, 0))
    {
        const int off = 0;
        setsockopt(socket_, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
        if (bind(socket_, generic(local), sizeof local) != 0)
            return;
        socklen_t bytes = sizeof local;
        getsockname(socket_, generic(local), &bytes);
        port = ntohs(generic(local)->sa_family == AF_INET ? reinterpret_cast<sockaddr_in &>(local).sin_port
                                                          : reinterpret_cast<sockaddr_in6 &>(local).sin6_port);
    }
    ~Udp()
    {
        close(socket_);
    }
    Udp(const Udp &) = delete;
    Udp &operator=(const Udp &) = delete;
    operator int() const
    {
        return socket_;
    }
    void enable(int level, int option) const
    {
        const int on = 1;
        EXPECT_EQ(0, setsockopt(socket_, level, option, &on, sizeof on)) << strerror(errno);
    }

    uint16_t port = 0; // 0: there is no such address here

private:
    int socket_;
};

#define NEEDS_IPV6(socket)                                                                                             \
    if ((socket).port == 0)                                                                                            \
    GTEST_SKIP() << "this machine has no IPv6"

std::string textOf(const void *address, int family = AF_INET)
{
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(family, address, text, sizeof text);
}
} // namespace

TEST(RecvfromWdst, AsksForTheDatagramTheSourceAndFortyBytesOfControlData)
{
    char buffer[100];
    sockaddr_in6 source = {};
    socklen_t sourceBytes = 28;
    int calls = 0;
    receiving = [&](int socket, msghdr *message, int flags) {
        ++calls;
        EXPECT_EQ(12, socket);
        EXPECT_EQ(MSG_PEEK | MSG_DONTWAIT, flags);
        EXPECT_EQ(&source, message->msg_name);
        EXPECT_EQ(28U, message->msg_namelen);
        EXPECT_EQ(1U, message->msg_iovlen);
        EXPECT_EQ(buffer, message->msg_iov[0].iov_base);
        EXPECT_EQ(100U, message->msg_iov[0].iov_len);
        EXPECT_NE(nullptr, message->msg_control);
        EXPECT_EQ(40U, message->msg_controllen);
        EXPECT_EQ(0, message->msg_flags);
        message->msg_controllen = 0;
        message->msg_namelen = 16;
        return ssize_t{77};
    };
    EXPECT_EQ(77, recvfrom_wdst(12, buffer, 100, MSG_PEEK | MSG_DONTWAIT, generic(source), &sourceBytes, nullptr));
    EXPECT_EQ(1, calls);
    EXPECT_EQ(16U, sourceBytes);
    receiving = nullptr;
}

TEST(RecvfromWdst, WithoutASourceLengthTheNameLengthIsZero)
{
    sockaddr_in6 source = {};
    for (sockaddr *name : {generic(source), static_cast<sockaddr *>(nullptr)}) {
        receiving = [&](int, msghdr *message, int) {
            EXPECT_EQ(name, message->msg_name);
            EXPECT_EQ(0U, message->msg_namelen);
            message->msg_controllen = 0;
            return ssize_t{1};
        };
        char byte;
        EXPECT_EQ(1, recvfrom_wdst(3, &byte, 1, 0, name, nullptr, nullptr));
    }
    receiving = nullptr;
}

TEST(RecvfromWdst, AFailureWritesNothing)
{
    Receive call;
    call.result = -1;
    call.error = EAGAIN;
    call.control = ipv4Info();
    EXPECT_EQ(-1, call.run());
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(Untouched, call.record);
    EXPECT_EQ(sizeof(sockaddr_in6), call.sourceBytes);
}

TEST(RecvfromWdst, FillsTheRecordFromIpv4PacketInformation)
{
    Receive call;
    call.control = ipv4Info() + Bytes(4);
    EXPECT_EQ(5, call.run());
    EXPECT_EQ(Ipv4Record, call.record);
    EXPECT_EQ(16U, call.sourceBytes);
}

TEST(RecvfromWdst, FillsTheRecordFromIpv6PacketInformation)
{
    Receive call;
    call.family = AF_INET6;
    call.control = ipv6Info() + Bytes(4);
    EXPECT_EQ(5, call.run());
    EXPECT_EQ(Ipv6Record, call.record);
}

TEST(RecvfromWdst, FillsTheRecordForAnEmptyDatagramAndWithoutASourceLength)
{
    Receive call;
    call.result = 0;
    call.giveSourceBytes = false;
    call.control = ipv4Info() + Bytes(4);
    EXPECT_EQ(0, call.run());
    EXPECT_EQ(Ipv4Record, call.record);
}

TEST(RecvfromWdst, WithoutASourceAddressTheRecordIsNeverFilled)
{
    Receive call;
    call.giveSource = false;
    call.control = ipv4Info() + Bytes(4);
    EXPECT_EQ(5, call.run());
    EXPECT_EQ(Untouched, call.record);
    EXPECT_EQ(16U, call.sourceBytes) << "the length is stored all the same";
}

TEST(RecvfromWdst, WithoutARecordTheDatagramIsReceivedAllTheSame)
{
    Receive call;
    call.giveInfo = false;
    call.control = ipv4Info() + Bytes(4);
    EXPECT_EQ(5, call.run());
    EXPECT_EQ(16U, call.sourceBytes);
}

TEST(RecvfromWdst, TruncatedControlDataLeavesTheRecordUntouched)
{
    Receive call;
    call.control = ipv4Info() + Bytes(4);
    call.messageFlags = MSG_CTRUNC | MSG_TRUNC;
    EXPECT_EQ(5, call.run());
    EXPECT_EQ(Untouched, call.record);
}

TEST(RecvfromWdst, ATruncatedDatagramStillFillsTheRecord)
{
    Receive call;
    call.control = ipv4Info() + Bytes(4);
    call.messageFlags = MSG_TRUNC;
    EXPECT_EQ(5, call.run());
    EXPECT_EQ(Ipv4Record, call.record);
}

TEST(RecvfromWdst, ControlDataShorterThanAHeaderLeavesTheRecordUntouched)
{
    for (size_t bytes : {1U, 15U}) {
        Receive call;
        call.control = ipv4Info();
        call.controlBytes = bytes;
        call.run();
        EXPECT_EQ(Untouched, call.record) << bytes;
    }
    Receive none;
    none.run();
    EXPECT_EQ(Untouched, none.record);
}

TEST(RecvfromWdst, ControlDataWithoutPacketInformationClearsTheRecord)
{
    const Bytes data(12, 0x55);
    const Bytes others[] = {controlMessage(16, 0, 8, {}), controlMessage(28, 0, 2, data),
                            controlMessage(28, 1, 8, data), controlMessage(28, 41, 8, data),
                            controlMessage(28, 0, 50, data)};
    for (const Bytes &other : others) {
        Receive call;
        call.control = other;
        call.run();
        EXPECT_EQ(Cleared, call.record);
    }
}

TEST(RecvfromWdst, TheFamilyOfTheSourceDecidesWhichMessageCounts)
{
    struct {
        sa_family_t family;
        Bytes control, record;
    } const cases[] = {{AF_INET, ipv6Info(), Cleared},     {AF_INET6, ipv4Info(), Cleared},
                       {AF_UNIX, ipv4Info(), Cleared},     {AF_UNIX, ipv6Info(), Cleared},
                       {0, ipv4Info(), Cleared},           {0xFFFF, ipv6Info(), Cleared},
                       {AF_INET6, ipv6Info(), Ipv6Record}, {AF_INET, ipv4Info(), Ipv4Record}};
    for (const auto &each : cases) {
        Receive call;
        call.family = each.family;
        call.control = each.control;
        call.run();
        EXPECT_EQ(each.record, call.record) << each.family;
    }
}

TEST(RecvfromWdst, ALengthBelowAHeaderEndsTheWalk)
{
    for (uint64_t length : {0U, 1U, 15U}) {
        Receive call;
        call.control = ipv4Info(length);
        call.run();
        EXPECT_EQ(Cleared, call.record) << length;
    }
}

// A length that says too much: the data is there, so it counts, and the walk ends behind it. Rounded up, the last of
// these is 0, and a walk that went on would never end.
TEST(RecvfromWdst, ALengthBeyondTheControlDataEndsTheWalkBehindItsMessage)
{
    for (uint64_t length : {29U, 32U, 41U, 1000U, 0x7FFFFFFFU}) {
        Receive call;
        call.control = ipv4Info(length);
        call.run();
        EXPECT_EQ(Ipv4Record, call.record) << length;
    }
    for (uint64_t length : {uint64_t{1} << 63, ~uint64_t{0}, ~uint64_t{0} - 6}) {
        Receive call;
        call.control = ipv4Info(length);
        call.run();
        EXPECT_EQ(Ipv4Record, call.record) << length;
        call.control = controlMessage(length, 1, 1, Bytes(24));
        call.run();
        EXPECT_EQ(Cleared, call.record) << length;
    }
}

TEST(RecvfromWdst, AMessageWithoutAllItsDataDoesNotCount)
{
    for (uint64_t length : {16U, 20U, 27U}) {
        Receive call;
        call.control = ipv4Info(length);
        call.run();
        EXPECT_EQ(Cleared, call.record) << length;
    }
    for (uint64_t length : {16U, 28U, 35U}) {
        Receive call;
        call.family = AF_INET6;
        call.control = ipv6Info(length);
        call.run();
        EXPECT_EQ(Cleared, call.record) << length;
    }
}

TEST(RecvfromWdst, DataBehindTheControlDataDoesNotCount)
{
    for (size_t bytes = 16; bytes < 28; ++bytes) {
        Receive call;
        call.control = ipv4Info();
        call.controlBytes = bytes;
        call.run();
        EXPECT_EQ(Cleared, call.record) << bytes;
    }
    for (size_t bytes = 16; bytes < 36; ++bytes) {
        Receive call;
        call.family = AF_INET6;
        call.control = ipv6Info();
        call.controlBytes = bytes;
        call.run();
        EXPECT_EQ(Cleared, call.record) << bytes;
    }
}

TEST(RecvfromWdst, TheFirstMessageNeedsNoPaddingBehindIt)
{
    Receive call;
    call.control = ipv4Info();
    call.controlBytes = 28;
    call.run();
    EXPECT_EQ(Ipv4Record, call.record);
}

TEST(RecvfromWdst, ALaterMessageMustFitWithItsPadding)
{
    Receive call;
    call.control = controlMessage(16, 1, 1, {}) + controlMessage(28, 0, 8, Bytes(8, 0x55));
    call.run();
    EXPECT_EQ(Cleared, call.record);
}

// The kernel is trusted to write into the buffer only, not to say how much.
TEST(RecvfromWdst, NeverReadsPastTheFortyBytes)
{
    for (size_t bytes : {size_t{41}, size_t{4096}, ~size_t{0}}) {
        Receive call;
        call.control = controlMessage(16, 1, 1, {}) + controlMessage(24, 1, 1, Bytes(8));
        call.controlBytes = bytes;
        call.run();
        EXPECT_EQ(Cleared, call.record);
        call.control = controlMessage(40, 1, 1, Bytes(24));
        call.run();
        EXPECT_EQ(Cleared, call.record);
        call.control = ipv4Info() + Bytes(12);
        call.run();
        EXPECT_EQ(Ipv4Record, call.record);
    }
}

// What stands behind the control data must not matter, whatever the lengths say.
TEST(RecvfromWdst, NothingBehindTheControlDataMatters)
{
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    const uint64_t lengths[] = {0, 15, 16, 17, 20, 24, 27, 28, 29, 32, 35, 36, 37, 40, 41, 1 << 20, ~uint64_t{0}};
    const auto anyMessage = [&] {
        const bool ipv4 = random() % 2 == 0;
        Bytes data(20);
        for (auto &byte : data)
            byte = static_cast<unsigned char>(random());
        const bool known = random() % 4 != 0;
        return controlMessage(lengths[random() % std::size(lengths)], ipv4 ? 0 : 41, known ? (ipv4 ? 8 : 50) : 1, data);
    };
    int filled = 0;
    for (int i = 0; i < 20000; ++i) {
        Bytes control = anyMessage();
        control.resize(random() % 2 == 0 ? 16 : 24);
        control = control + anyMessage() + anyMessage();
        control.resize(16 + random() % 25);
        Receive call;
        call.family = random() % 2 == 0 ? AF_INET : AF_INET6;
        call.control = control;
        call.leftOver = 0;
        Receive same = call;
        same.leftOver = 0xFF;
        call.run();
        same.run();
        ASSERT_EQ(call.record, same.record) << "seed " << seed << ", step " << i;
        ASSERT_NE(Untouched, call.record);
        filled += call.record != Cleared;
    }
    EXPECT_GT(filled, 100);
}

TEST(SendtoWsrc, HandsOverTheDatagramItsDestinationAndTheFlags)
{
    sockaddr_in destination = ipv4("10.0.0.1", 9);
    const Sent sent =
        sentBy([&] { return sendto_wsrc(12, "abc", 3, MSG_DONTWAIT, generic(destination), 16, nullptr); });
    EXPECT_EQ(12, sent.socket);
    EXPECT_EQ(MSG_DONTWAIT, sent.flags);
    EXPECT_EQ(0, sent.messageFlags);
    EXPECT_EQ(&destination, sent.name);
    EXPECT_EQ(16U, sent.nameBytes);
    EXPECT_EQ(0, memcmp("abc", sent.data, 3));
    EXPECT_EQ(3U, sent.dataBytes);
}

TEST(SendtoWsrc, ExtendsTheSignOfTheLength)
{
    sockaddr_in destination = ipv4("10.0.0.1", 9);
    EXPECT_EQ(~size_t{0},
              sentBy([&] { return sendto_wsrc(3, "", -1, 0, generic(destination), 16, nullptr); }).dataBytes);
}

TEST(SendtoWsrc, WithoutARecordThereIsNoControlData)
{
    sockaddr_in destination = ipv4("10.0.0.1", 9);
    const Sent sent = sentBy([&] { return sendto_wsrc(3, "x", 1, 0, generic(destination), 16, nullptr); });
    EXPECT_FALSE(sent.hasControl);
    EXPECT_EQ(Bytes(), sent.control);
}

TEST(SendtoWsrc, WithoutADestinationThereIsNoControlData)
{
    packet_info info = {};
    const Sent sent = sentBy([&] { return sendto_wsrc(3, "x", 1, 0, nullptr, 0, &info); });
    EXPECT_EQ(nullptr, sent.name);
    EXPECT_FALSE(sent.hasControl);
    EXPECT_EQ(Bytes(), sent.control);
}

// 32 bytes: the length 28, level 0, type 8, interface, no specific destination, address, padding.
TEST(SendtoWsrc, AnIpv4DestinationGetsIpv4PacketInformation)
{
    EXPECT_EQ(native(uint64_t{28}) + native(int32_t{0}) + native(int32_t{8}) +
                  Bytes({1, 2, 3, 4, 0, 0, 0, 0, 9, 10, 11, 12, 0, 0, 0, 0}),
              controlFor(ipv4("10.0.0.1", 9)));
}

TEST(SendtoWsrc, AMappedDestinationHasItsSourceInTheOtherField)
{
    EXPECT_EQ(native(uint64_t{28}) + native(int32_t{0}) + native(int32_t{8}) +
                  Bytes({17, 18, 19, 20, 13, 14, 15, 16, 0, 0, 0, 0, 0, 0, 0, 0}),
              controlFor(ipv6("::ffff:10.0.0.1", 9)));
}

// The kernel also takes the older address record, which has no scope behind the address.
TEST(SendtoWsrc, AMappedDestinationMayEndRightBehindItsAddress)
{
    sockaddr_in6 destination = ipv6("::ffff:10.0.0.1", 9);
    packet_info info = {};
    const Sent sent = sentBy([&] { return sendto_wsrc(3, "x", 1, 0, generic(destination), 24, &info); });
    EXPECT_EQ(24U, sent.nameBytes);
    EXPECT_EQ(32U, sent.control.size()); // as for IPv4
}

// 40 bytes: the length 36, level 41, type 50, address, interface, padding.
TEST(SendtoWsrc, AnIpv6DestinationGetsIpv6PacketInformation)
{
    Bytes expected = native(uint64_t{36}) + native(int32_t{41}) + native(int32_t{50});
    for (unsigned char i = 1; i <= 20; ++i)
        expected.push_back(i);
    expected = expected + Bytes(4);
    for (const char *text : {"2001:db8::1", "::1", "::", "::10.0.0.1", "::fffe:10.0.0.1", "::1:ffff:10.0.0.1",
                             "1::ffff:10.0.0.1", "::ff:10.0.0.1", "0:0:1::ffff:10.0.0.1"})
        EXPECT_EQ(expected, controlFor(ipv6(text, 9))) << text;
}

TEST(SendtoWsrc, AnotherFamilyGetsAControlPointerAndNoData)
{
    sockaddr_in destination = ipv4("10.0.0.1", 9);
    for (int family : {0, AF_UNIX, AF_NETLINK, 0xFFFF}) {
        destination.sin_family = static_cast<sa_family_t>(family);
        EXPECT_EQ(Bytes(), controlFor(destination));
    }
}

// The kernel refuses it; until then nothing behind it may be read.
TEST(SendtoWsrc, AnIpv6DestinationTooShortForItsAddressIsNotReadPastItsEnd)
{
    for (socklen_t bytes : {2U, 16U, 23U}) {
        auto destination = std::make_unique<unsigned char[]>(bytes);
        const sa_family_t family = AF_INET6;
        memcpy(destination.get(), &family, sizeof family);
        packet_info info = {};
        const Sent sent = sentBy(
            [&] { return sendto_wsrc(3, "x", 1, 0, reinterpret_cast<sockaddr *>(destination.get()), bytes, &info); });
        EXPECT_EQ(40U, sent.control.size());
        EXPECT_EQ(bytes, sent.nameBytes);
    }
}

TEST(DatagramSockets, AnIpv4PacketTellsItsDestinationAndInterface)
{
    Udp receiver(ipv4("0.0.0.0", 0)), sender(ipv4("127.0.0.1", 0));
    receiver.enable(IPPROTO_IP, IP_PKTINFO);
    sockaddr_in destination = ipv4("127.0.0.2", receiver.port);
    ASSERT_EQ(5, sendto_wsrc(sender, "hello", 5, 0, generic(destination), sizeof destination, nullptr));

    char buffer[16] = "";
    sockaddr_in source = {};
    socklen_t sourceBytes = sizeof source;
    packet_info info;
    memset(&info, 0xEE, sizeof info);
    ASSERT_EQ(5, recvfrom_wdst(receiver, buffer, sizeof buffer, 0, generic(source), &sourceBytes, &info));
    EXPECT_STREQ("hello", buffer);
    EXPECT_EQ(sizeof source, sourceBytes);
    EXPECT_EQ(sender.port, ntohs(source.sin_port));
    EXPECT_EQ(native(uint32_t{if_nametoindex("lo")}) + Bytes({0, 0, 0, 0, 127, 0, 0, 2}) + Bytes(8),
              bytesOf(info.bytes, 20));
    EXPECT_EQ(if_nametoindex("lo"), info.ipv4.ifindex);
    EXPECT_EQ("127.0.0.2", textOf(info.ipv4.address));
}

TEST(DatagramSockets, WithoutPacketInformationOnTheSocketTheRecordIsUntouched)
{
    Udp receiver(ipv4("127.0.0.1", 0));
    sockaddr_in destination = ipv4("127.0.0.1", receiver.port), source = {};
    ASSERT_EQ(1, sendto_wsrc(receiver, "x", 1, 0, generic(destination), sizeof destination, nullptr));
    char buffer[16];
    socklen_t sourceBytes = sizeof source;
    packet_info info;
    memset(&info, 0xEE, sizeof info);
    ASSERT_EQ(1, recvfrom_wdst(receiver, buffer, sizeof buffer, 0, generic(source), &sourceBytes, &info));
    EXPECT_EQ(Untouched, bytesOf(info.bytes, 20));
}

TEST(DatagramSockets, ControlDataThatDoesNotFitLeavesTheRecordUntouched)
{
    Udp receiver(ipv4("127.0.0.1", 0));
    receiver.enable(IPPROTO_IP, IP_PKTINFO);
    receiver.enable(IPPROTO_IP, IP_RECVTTL);
    sockaddr_in destination = ipv4("127.0.0.1", receiver.port), source = {};
    ASSERT_EQ(1, sendto_wsrc(receiver, "x", 1, 0, generic(destination), sizeof destination, nullptr));
    char buffer[16];
    socklen_t sourceBytes = sizeof source;
    packet_info info;
    memset(&info, 0xEE, sizeof info);
    int messageFlags = 0;
    receiving = [&](int socket, msghdr *message, int flags) {
        const ssize_t result = syscall(SYS_recvmsg, socket, message, flags);
        messageFlags = message->msg_flags;
        return result;
    };
    ASSERT_EQ(1, recvfrom_wdst(receiver, buffer, sizeof buffer, 0, generic(source), &sourceBytes, &info));
    receiving = nullptr;
    if ((messageFlags & MSG_CTRUNC) == 0)
        GTEST_SKIP() << "this kernel, or its emulation, does not tell that it cut the control data";
    EXPECT_EQ(Untouched, bytesOf(info.bytes, 20));
}

TEST(DatagramSockets, AnIpv4PacketLeavesThroughTheInterfaceOfItsRecord)
{
    Udp receiver(ipv4("127.0.0.1", 0)), sender(ipv4("0.0.0.0", 0));
    sockaddr_in destination = ipv4("127.0.0.1", receiver.port), source = {};
    packet_info info = {};
    info.ipv4.ifindex = if_nametoindex("lo");
    ASSERT_EQ(2, sendto_wsrc(sender, "ok", 2, 0, generic(destination), sizeof destination, &info));
    char buffer[16] = "";
    socklen_t sourceBytes = sizeof source;
    ASSERT_EQ(2, recvfrom_wdst(receiver, buffer, sizeof buffer, 0, generic(source), &sourceBytes, nullptr));
    EXPECT_EQ(sender.port, ntohs(source.sin_port));

    info.ipv4.ifindex = 0x7FFFFFF0;
    errno = 0;
    EXPECT_EQ(-1, sendto_wsrc(sender, "no", 2, 0, generic(destination), sizeof destination, &info));
    EXPECT_NE(0, errno);
}

TEST(DatagramSockets, AnIpv6ReplyLeavesFromTheAddressThatWasAsked)
{
    Udp receiver(ipv6("::", 0)), sender(ipv6("::1", 0));
    NEEDS_IPV6(sender);
    receiver.enable(IPPROTO_IPV6, IPV6_RECVPKTINFO);
    sockaddr_in6 destination = ipv6("::1", receiver.port), source = {};
    ASSERT_EQ(3, sendto_wsrc(sender, "ask", 3, 0, generic(destination), sizeof destination, nullptr));
    char buffer[16] = "";
    socklen_t sourceBytes = sizeof source;
    packet_info info;
    memset(&info, 0xEE, sizeof info);
    ASSERT_EQ(3, recvfrom_wdst(receiver, buffer, sizeof buffer, 0, generic(source), &sourceBytes, &info));
    EXPECT_EQ("::1", textOf(info.ipv6.address, AF_INET6));
    EXPECT_EQ(if_nametoindex("lo"), info.ipv6.ifindex);

    ASSERT_EQ(5, sendto_wsrc(receiver, "reply", 5, 0, generic(source), sourceBytes, &info));
    sockaddr_in6 from = {};
    sourceBytes = sizeof from;
    ASSERT_EQ(5, recvfrom_wdst(sender, buffer, sizeof buffer, 0, generic(from), &sourceBytes, nullptr));
    EXPECT_EQ("::1", textOf(&from.sin6_addr, AF_INET6));
    EXPECT_EQ(receiver.port, ntohs(from.sin6_port));

    ASSERT_EQ(1, inet_pton(AF_INET6, "2001:db8::77", info.ipv6.address)); // none of this machine's
    errno = 0;
    EXPECT_EQ(-1, sendto_wsrc(receiver, "reply", 5, 0, generic(source), sizeof source, &info));
    EXPECT_NE(0, errno);
}

// The daemon's own way: one IPv6 socket for both families, and several local addresses.
TEST(DatagramSockets, AMappedReplyLeavesFromTheAddressThatWasAsked)
{
    Udp receiver(ipv6("::", 0)), sender(ipv4("127.0.0.1", 0));
    NEEDS_IPV6(receiver);
    receiver.enable(IPPROTO_IPV6, IPV6_RECVPKTINFO);
    for (const char *asked : {"127.0.0.1", "127.0.0.2", "127.1.2.3"}) {
        sockaddr_in destination = ipv4(asked, receiver.port);
        ASSERT_EQ(3, sendto_wsrc(sender, "ask", 3, 0, generic(destination), sizeof destination, nullptr));
        char buffer[16] = "";
        sockaddr_in6 source = {};
        socklen_t sourceBytes = sizeof source;
        packet_info info;
        ASSERT_EQ(3, recvfrom_wdst(receiver, buffer, sizeof buffer, 0, generic(source), &sourceBytes, &info));
        EXPECT_EQ("::ffff:127.0.0.1", textOf(&source.sin6_addr, AF_INET6));
        EXPECT_EQ(std::string("::ffff:") + asked, textOf(info.ipv6.address, AF_INET6));

        ASSERT_EQ(5, sendto_wsrc(receiver, "reply", 5, 0, generic(source), sourceBytes, &info));
        sockaddr_in from = {};
        sourceBytes = sizeof from;
        ASSERT_EQ(5, recvfrom_wdst(sender, buffer, sizeof buffer, 0, generic(from), &sourceBytes, nullptr));
        EXPECT_EQ(asked, textOf(&from.sin_addr));
    }
}
