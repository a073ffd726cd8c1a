#include <gtest/gtest.h>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

#include "daemons/common/descriptor_reserve.h"
#include "daemons/mribd/channel_server.h"
#include "daemons/mribd_messages.h"

using namespace mribd;
using namespace mribd_test;

namespace
{

constexpr uint8_t FAMILY = MCAST_FAMILY_IPV4;

// The client's end of a connection that the server serves.
class Peer
{
public:
    explicit Peer(ChannelServer &server)
    {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, fds) != 0) {
            std::abort();
        }
        fd_ = fds[0];
        server.adopt(fds[1]);
    }
    ~Peer()
    {
        hang_up();
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    void hang_up()
    {
        if (fd_ >= 0) {
            close(fd_);
            fd_ = -1;
        }
    }

    bool send(const Message &message)
    {
        const auto bytes = message.bytes();
        return send(bytes);
    }

    bool send(const std::vector<uint8_t> &bytes)
    {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    std::vector<Record> receive()
    {
        std::vector<Record> result;
        std::vector<uint8_t> bytes(MRIB_MSG_RECV_MAX);
        ssize_t size;
        while ((size = recv(fd_, bytes.data(), bytes.size(), 0)) > 0) {
            const auto records = records_of({bytes.begin(), bytes.begin() + size});
            result.insert(result.end(), records.begin(), records.end());
        }
        return result;
    }

private:
    int fd_ = -1;
};

class ChannelServerTest : public testing::Test
{
protected:
    // More rounds than any test here makes descriptors ready.
    void serve()
    {
        for (int i = 0; i < 200; ++i) {
            ASSERT_TRUE(reactor.run_once(0));
            server.flush();
        }
    }

    unsigned clients() const
    {
        unsigned count = 0;
        server.visit([&count](const Session &) { ++count; });
        return count;
    }

    Bench bench{FAMILY, 50000};
    mcastd::Reactor reactor;
    ClientBench clients_of{bench.router};
    ChannelServer server{reactor, clients_of.backend};
};

TEST_F(ChannelServerTest, AnswersAndKeepsClientsApart)
{
    Peer one(server);
    Peer two(server);
    one.send(Message().add_register(FAMILY).add_request(MRIB_TLV_REQ_VRF_STATE, FAMILY));
    two.send(Message().add_register(FAMILY));
    serve();
    EXPECT_EQ(types_of(one.receive()), (std::vector<uint16_t>{MRIB_TLV_VRF_STATE, MRIB_TLV_VRF_STATE_END}));
    EXPECT_TRUE(two.receive().empty());
    EXPECT_EQ(clients(), 2u);
}

TEST_F(ChannelServerTest, HangUpTakesTheClientsJoinsEvenWithUnreadMessages)
{
    Peer one(server);
    Peer two(server);
    one.send(Message().add_register(FAMILY).add_join(FAMILY, 2, "239.1.1.1"));
    two.send(Message().add_register(FAMILY).add_join(FAMILY, 3, "239.1.1.1"));
    serve();
    EXPECT_EQ(bench.router.members().wish_count(), 2u);
    one.send(Message().add_join(FAMILY, 2, "239.1.1.2"));
    one.hang_up();
    serve();
    EXPECT_EQ(clients(), 1u);
    EXPECT_EQ(interfaces_of(bench.router.members()), std::vector<uint32_t>{3});
}

TEST_F(ChannelServerTest, ChangeByOneClientIsToldToTheOthers)
{
    Peer one(server);
    Peer two(server);
    one.send(Message().add_register(FAMILY));
    two.send(Message().add_register(FAMILY));
    serve();
    one.send(Message().add_alert(MRIB_TLV_GMP_ENABLE, FAMILY, 2, 1));
    serve();
    EXPECT_EQ(types_of(two.receive()), std::vector<uint16_t>{MRIB_TLV_PIM_DR});
    one.hang_up();
    serve();
    const auto records = two.receive();
    ASSERT_EQ(types_of(records), std::vector<uint16_t>{MRIB_TLV_PIM_DR});
    EXPECT_EQ(records[0].value[2], 0);
}

TEST_F(ChannelServerTest, ClientThatDoesNotReadIsBoundedKeepsItsJoinsAndGetsAFreshStart)
{
    Peer slow(server);
    Peer quick(server);
    slow.send(Message().add_register(FAMILY).add_join(FAMILY, 2, "239.1.1.1"));
    quick.send(Message().add_register(FAMILY));
    serve();
    size_t most = 0;
    for (int i = 0; i < 2000; ++i) {
        Message requests;
        for (int j = 0; j < 900; ++j) {
            requests.add_request(MRIB_TLV_REQ_VRF_STATE, FAMILY);
        }
        if (!slow.send(requests)) {
            break;
        }
        ASSERT_TRUE(reactor.run_once(0));
        server.flush();
        server.visit(
            [&most](const Session &session) { most = std::max(most, session.queue().message_count()); });
        ASSERT_LE(most, ClientQueue::MESSAGE_LIMIT);
    }
    EXPECT_EQ(most, ClientQueue::MESSAGE_LIMIT);
    quick.send(Message().add_request(MRIB_TLV_REQ_BOUNDARY, FAMILY));
    serve();
    EXPECT_EQ(types_of(quick.receive()), std::vector<uint16_t>{MRIB_TLV_BOUNDARY_END});
    EXPECT_TRUE(bench.router.members().uses_interface(2));
    slow.receive();
    serve();
    const auto records = slow.receive();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().type, MRIB_TLV_SMOOTH_START);
    EXPECT_EQ(server.counters().overflows, 1u);
    slow.send(Message().add_request(MRIB_TLV_REQ_BOUNDARY, FAMILY));
    serve();
    EXPECT_EQ(types_of(slow.receive()), std::vector<uint16_t>{MRIB_TLV_BOUNDARY_END});
}

TEST_F(ChannelServerTest, NewConfigurationIsToldAsDifferences)
{
    Peer peer(server);
    peer.send(Message().add_register(FAMILY, MRIB_CAP_BASE | MRIB_CAP_BOUNDARY));
    serve();
    clients_of.configure("[[mribd.interface]]\nname = 'if2'\nboundaries = ['239.1.0.0/16']\n");
    serve();
    EXPECT_EQ(types_of(peer.receive()), std::vector<uint16_t>{MRIB_TLV_BOUNDARY});
    clients_of.configure("[[mribd.interface]]\nname = 'if2'\nboundaries = ['239.1.0.0/16']\n");
    serve();
    EXPECT_TRUE(peer.receive().empty());
    clients_of.configure("");
    serve();
    const auto records = peer.receive();
    ASSERT_EQ(types_of(records), std::vector<uint16_t>{MRIB_TLV_BOUNDARY});
    EXPECT_EQ(records[0].value[6], 0); // remove
    EXPECT_EQ(records[0].value[7], 1); // all
}

TEST_F(ChannelServerTest, ResynchronisationAsksRegisteredClientsToAskAgain)
{
    Peer registered(server);
    Peer silent(server);
    registered.send(Message().add_register(FAMILY));
    serve();
    server.resynchronise();
    serve();
    const auto records = registered.receive();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().type, MRIB_TLV_SMOOTH_START);
    EXPECT_TRUE(silent.receive().empty());
}

TEST_F(ChannelServerTest, ReplayTooLongForTheQueueArrivesWholeAsTheClientReads)
{
    constexpr unsigned PAIRS = 40000; // three times what an queue holds
    clients_of.configure("[[mribd.instance]]\nrp = '10.0.0.1'\n");
    for (unsigned i = 0; i < PAIRS; ++i) {
        bench.show_local_source(i);
    }
    Peer peer(server);
    peer.send(Message().add_register(FAMILY, MRIB_CAP_BASE | MRIB_CAP_MSDP_LOCAL_SRC));
    peer.send(Message().add_request(MRIB_TLV_REQ_LOCAL_SRC, FAMILY));
    std::vector<Record> records;
    for (int i = 0; i < 1000 && (records.empty() || records.back().type != MRIB_TLV_MSDP_LOCAL_SRC_END);
         i++) {
        ASSERT_TRUE(reactor.run_once(0));
        server.flush();
        const auto more = peer.receive();
        records.insert(records.end(), more.begin(), more.end());
    }
    ASSERT_EQ(records.size(), PAIRS + 1u);
    EXPECT_EQ(records.back().type, MRIB_TLV_MSDP_LOCAL_SRC_END);
    std::set<std::vector<uint8_t>> distinct;
    for (const Record &record : records) {
        distinct.insert(record.value);
    }
    EXPECT_EQ(distinct.size(), PAIRS + 1u);
    EXPECT_EQ(server.counters().overflows, 0u);
}

TEST_F(ChannelServerTest, OneWakeUpReadsABoundedNumberOfMessages)
{
    Peer peer(server);
    peer.send(Message().add_register(FAMILY));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(peer.send(Message().add_join(FAMILY, 2, "239.1.1.1")));
    }
    ASSERT_TRUE(reactor.run_once(0));
    EXPECT_GT(server.counters().messages, 0u);
    EXPECT_LT(server.counters().messages, 101u);
    serve();
    EXPECT_EQ(server.counters().messages, 101u);
}

TEST_F(ChannelServerTest, DatagramBeyondTheLongestMessageIsCountedAsMalformed)
{
    Peer peer(server);
    peer.send(Message().add_register(FAMILY));
    peer.send(std::vector<uint8_t>(MRIB_MSG_RECV_MAX + 1));
    peer.send(std::vector<uint8_t>(3));
    peer.send(Message().add_join(FAMILY, 2, "239.1.1.1"));
    serve();
    EXPECT_EQ(server.counters().malformed_messages, 2u);
    EXPECT_EQ(bench.router.members().wish_count(), 1u);
    EXPECT_EQ(clients(), 1u);
}

// A sanitizer sees a call of the one that has ended.
TEST_F(ChannelServerTest, NothingIsToldToOneThatHasEnded)
{
    clients_of.configure("[[mribd.instance]]\nrp = '10.0.0.1'\n");
    clients_of.msdp.set_enable(Bracket::RequestEnables, 0, true);
    std::make_unique<ChannelServer>(reactor, clients_of.backend).reset();
    bench.show_local_source(1);
    EXPECT_EQ(clients_of.msdp.local_sources().size(), 1u);
    clients_of.msdp.group_wanted(address("239.1.1.1"));
    bench.router.drop_client(1); // perhaps who made this the designated router
}

TEST_F(ChannelServerTest, ClientsComeAndGoWithoutLeavingDescriptors)
{
    mcastd::fill_descriptor_reserve(); // or the first descriptor that the loop gives up fills it
    const int before = dup(0);
    close(before);
    for (int i = 0; i < 200; ++i) {
        Peer peer(server);
        peer.send(Message().add_register(FAMILY).add_join(FAMILY, 2, "239.1.1.1"));
        ASSERT_TRUE(reactor.run_once(0));
        peer.hang_up();
        serve();
    }
    EXPECT_EQ(clients(), 0u);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
    EXPECT_EQ(bench.router.members().wish_count(), 0u);
}

} // namespace
