/*
 * The oracle's rules about users, standbys, MSDP peers, virtual interfaces and the library's calls, broken on purpose.
 */
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>

#include "tests/simulation/kernel/netlink_socket.h"
#include "tests/simulation/oracle_test.h"

namespace
{

using namespace sim;

TEST_F(OracleTest, NothingIsWrongWithUsersAStandbyAndAPeer)
{
    const Result result = with_all([](sim::Run &run) { run.oracle().check_rest(); });
    EXPECT_TRUE(result.is_good()) << result.what;
}

TEST_F(OracleTest, UserWithOtherRightsThanItsAgentGaveItBreaksTables)
{
    const Result more = with_all([](sim::Run &run) {
        stop_daemons(run);
        run.world()
            .agent(run.world().machine("r1"))
            .allow(run.world().host("h1"),
                   {{{}, address_from("239.1.1.1")}, {{}, address_from("239.1.1.3")}});
        for (auto &[name, plan] : run.world().daemons()) {
            plan.process->stop_until(0);
        }
        run.world().host("h1").vanish(); // so that nothing else is wrong
        run.oracle().check_users();
    });
    EXPECT_EQ(more.rule, Rule::Tables);
    EXPECT_NE(more.what.find("may join"), std::string::npos) << more.what;
}

TEST_F(OracleTest, MribdThatDoesNotKnowWhatUsersWantBreaksTables)
{
    const Result result = with_all([](sim::Run &run) {
        run.world().host("h1").listen(address_from("239.1.1.1"), {});
        run.world().kernel.run_for(1800 * MILLISECOND); // for two seconds it is asked
        lose_what_mribd_is_told(run, [] {});
        run.oracle().check_tables();
    });
    EXPECT_EQ(result.rule, Rule::Tables);
    EXPECT_NE(result.what.find("wanted by the users on lan2"), std::string::npos) << result.what;
}

TEST_F(OracleTest, StandbyThatCouldNotTakeOverBreaksRoles)
{
    const Result result = with_all([](sim::Run &run) {
        process(run, "r1.gmpd4b").kill();
        run.world().start(run.world().daemon("r1.gmpd4b"));
        process(run, "r1.gmpd4").stop_until(run.world().kernel.clock.now() + SECOND); // it answers nobody
        run.world().kernel.run_for(SECOND / 2);
        run.oracle().check_standbys();
    });
    EXPECT_EQ(result.rule, Rule::Roles);
    EXPECT_NE(result.what.find("neither active nor"), std::string::npos) << result.what;
}

TEST_F(OracleTest, StandbyThatDoesNotKnowAllUsersBreaksRoles)
{
    const Result result = with_all([](sim::Run &run) {
        const Host &host = run.world().add_host("h2", "lan2", 3);
        lose_what_is_told(run, "r1.gmpd4b", [&] {
            run.world().agent(run.world().machine("r1")).allow(host, {{{}, address_from("239.1.1.1")}});
        });
        run.world().kernel.run_for(3 * SECOND);
        run.oracle().check_standbys();
    });
    EXPECT_EQ(result.rule, Rule::Roles);
    EXPECT_NE(result.what.find("knows the indexes of 1 users of 2"), std::string::npos) << result.what;
}

TEST_F(OracleTest, MribdThatWasNotToldOfARemoteSourceBreaksTables)
{
    const Result result = with_all([](sim::Run &run) {
        Flow &flow = run.world().add_flow("f3", "lan3", "10.0.3.51", "239.1.1.3", SECOND);
        lose_what_mribd_is_told(run, [&] { run.world().switch_flow(flow, true); });
        run.world().kernel.run_for(3 * SECOND);
        run.oracle().check_msdp();
    });
    EXPECT_EQ(result.rule, Rule::Tables);
    EXPECT_NE(result.what.find("was not told of the remote source"), std::string::npos) << result.what;
}

TEST_F(OracleTest, PeerThatIsNotConnectedBreaksRoles)
{
    const Result result = with_all([](sim::Run &run) {
        process(run, "r2.msdpd").kill();
        run.world().kernel.run_for(SECOND);
        run.oracle().check_msdp();
    });
    EXPECT_EQ(result.rule, Rule::Roles);
    EXPECT_NE(result.what.find("not connected"), std::string::npos) << result.what;
}

TEST_F(OracleTest, SourcesThatAPeerDoesNotKnowOrKnowsForTooLongBreakTables)
{
    const Result unknown = with_all([](sim::Run &run) {
        run.world().add_flow("f3", "lan3", "10.0.3.51", "239.1.1.3", SECOND).on = true; // sends nothing
        run.oracle().check_msdp();
    });
    EXPECT_EQ(unknown.rule, Rule::Tables);
    EXPECT_NE(unknown.what.find("does not know"), std::string::npos) << unknown.what;
    const Result stale = with_all([](sim::Run &run) {
        Flow &flow = run.world().flow("f2");
        flow.on = false;
        flow.last = 0;
        run.oracle().check_msdp();
    });
    EXPECT_EQ(stale.rule, Rule::Tables);
    EXPECT_NE(stale.what.find("which nobody announces"), std::string::npos) << stale.what;
}

TEST_F(OracleTest, VirtualInterfaceThatIsMissingBreaksTables)
{
    const Result result = with([](sim::Run &run) {
        sim::Machine &r1 = run.world().machine("r1");
        run.world().add_link("lan4", "10.0.4.0/24", "2001:db8:4::/64");
        stop_daemons(run); // they do not hear of the interface
        run.world().connect(r1, "lan4");
        for (auto &[name, plan] : run.world().daemons()) {
            for (const auto &file : plan.process->files()) {
                if (auto *socket = dynamic_cast<NetlinkSocket *>(file.get())) {
                    char message[65536];
                    while (socket->receive(message, sizeof(message), 0, nullptr) > 0) {
                    }
                }
            }
            plan.process->stop_until(0);
        }
        run.oracle().check_vifs();
    });
    EXPECT_EQ(result.rule, Rule::Tables);
    EXPECT_NE(result.what.find("no virtual interface"), std::string::npos) << result.what;
}

// Of 35 interfaces 31 run the protocol, and one of the others has the last virtual one. A further one begins to run it,
// of which mribd does not hear.
TEST_F(OracleTest, VirtualInterfaceOfOneThatNeedsItLessBreaksTables)
{
    constexpr unsigned LINKS = 35;
    std::string links;
    std::string router = "router r1";
    for (unsigned number = 1; number <= LINKS; ++number) {
        const std::string text = std::to_string(number);
        links += "link lan" + text + " 10.0." + text + ".0/24 2001:db8:" + text + "::/64\n";
        router += " lan" + text;
    }
    std::string text =
        links + router + "\n" + "daemon r1.mribd mribd\ndaemon r1.gmpd4 gmpd -4\nhost h1 lan2 3\n";
    for (const char *number : {"32", "33", "34", "35"}) {
        text += std::string("0 address-remove r1 lan") + number + " 10.0." + number + ".5\n";
    }
    text += "0 start r1.mribd\n0 start r1.gmpd4\n5 join h1 239.1.1.1\n10 rest\n";
    const Result result = with(read_script(text), [](sim::Run &run) {
        sim::Machine &r1 = run.world().machine("r1");
        const MulticastTable &vifs = table(run);
        const Interface *without = nullptr;
        for (const char *name : {"lan32", "lan33", "lan34", "lan35"}) {
            const Interface *interface = r1.find(name);
            without = vifs.vif_of(interface->index) < 0 ? interface : without;
        }
        ASSERT_NE(without, nullptr);
        lose_what_mribd_is_told(run, [&] {
            const std::string number = without->name.substr(3);
            r1.add_address(without->index, {address_from("10.0." + number + ".5"), 24});
        });
        run.oracle().check_vifs();
    });
    EXPECT_EQ(result.rule, Rule::Tables);
    EXPECT_NE(result.what.find("before others that need them more"), std::string::npos) << result.what;
}

TEST_F(OracleTest, PacketsThatAreLedWhereNobodyForwardsBreakTables)
{
    const Result result = with([](sim::Run &run) {
        run.world().machine("r1").rules.push_back({AF_INET, FRA_IIFNAME, "lan3", 5, 2000, RTPROT_MROUTED});
        run.oracle().check_vifs();
    });
    EXPECT_EQ(result.rule, Rule::Tables);
    EXPECT_NE(result.what.find("where nobody forwards them"), std::string::npos) << result.what;
    const Result missing = with([](sim::Run &run) {
        const uint32_t lan3 = run.world().machine("r1").find("lan3")->index;
        run.world().machine("r1").multicast_table(AF_INET, 5).add_vif(0, lan3);
        run.oracle().check_vifs();
    });
    EXPECT_EQ(missing.rule, Rule::Tables);
    EXPECT_NE(missing.what.find("are not led to table 5"), std::string::npos) << missing.what;
}

TEST_F(OracleTest, CallsOfTheLibraryInAnotherOrderBreakTheKernelsContract)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.gmpd4").calls_made = "IGAU";
                  run.oracle().check_call_order(process(run, "r1.gmpd4"));
              }).rule,
              Rule::KernelContract);
    EXPECT_EQ(with([](sim::Run &run) {
                  Process &gmpd = process(run, "r1.gmpd4");
                  gmpd.calls_made += "G"; // and Y at its end
              }).rule,
              Rule::KernelContract);
}

TEST_F(OracleTest, MessageThatIsTooLongBreaksTheKernelsContract)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  const Bytes message(10241);
                  g_process = &process(run, "r1.gmpd4");
                  for (const auto &file : g_process->files()) {
                      if (auto *socket = dynamic_cast<LocalSocket *>(file.get())) {
                          socket->send(message.data(), message.size());
                      }
                  }
                  g_process = nullptr;
              }).rule,
              Rule::KernelContract);
}

TEST_F(OracleTest, InvariantOfTheLibraryThatIsBrokenBreaksCleanEnd)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.gmpd4").image()->break_invariant();
                  run.oracle().check_rest();
              }).rule,
              Rule::CleanEnd);
}

} // namespace
