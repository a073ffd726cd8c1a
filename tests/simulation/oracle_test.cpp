/*
 * The oracle itself: each of its rules is broken on purpose, behind the daemons' back, and has to fire. A script that
 * breaks nothing shows that it does not fire by itself.
 */
#include "tests/simulation/oracle_test.h"

#include <csignal>

#include "tests/simulation/kernel/file.h"
#include "tests/simulation/kernel/routing_socket.h"

namespace
{

using namespace sim;

TEST_F(OracleTest, NothingIsWrongWithAQuietRouter)
{
    const Result result = with([](sim::Run &run) { run.world().kernel.run_for(20 * SECOND); });
    EXPECT_TRUE(result.is_good()) << result.what;
    EXPECT_GT(result.counts.packets, 500u);
    EXPECT_EQ(result.counts.rests, 1u);
}

TEST_F(OracleTest, EntryThatIsMissingOrTooMuchBreaksForwarding)
{
    EXPECT_EQ(with([this](sim::Run &run) {
                  table(run).delete_entry(key_);
                  run.oracle().check_forwarding();
              }).rule,
              Rule::Forwarding);
    EXPECT_EQ(with([this](sim::Run &run) {
                  table(run).set_entry(key_, table(run).entries().at(key_).parent, 7);
                  run.oracle().check_forwarding();
              }).rule,
              Rule::Forwarding);
    EXPECT_EQ(with([](sim::Run &run) {
                  table(run).set_entry({address_from("10.0.1.66"), address_from("239.9.9.9")}, 0, 2);
                  run.oracle().check_rest();
              }).rule,
              Rule::Forwarding);
}

TEST_F(OracleTest, TwoQueriersOrNoneBreakRoles)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  const Querier &second = run.world().add_querier("q1", "lan2", 3, 200);
                  run.world().link("lan2").send(
                      second, general_query_packet(second.address(AF_INET), 3, 10 * SECOND));
                  run.oracle().check_roles();
              }).rule,
              Rule::Roles);
    EXPECT_EQ(with([](sim::Run &run) {
                  stop_daemons(run);
                  run.world().kernel.suspend(200 * SECOND);
                  run.oracle().check_roles();
              }).rule,
              Rule::Roles);
}

TEST_F(OracleTest, PacketsThatComeAgainstTheConfigurationBreakUnwanted)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  run.world().config(run.world().machine("r1")).denied = {"239.0.0.0/8"};
                  run.world().kernel.run_for(5 * SECOND);
              }).rule,
              Rule::Unwanted);
}

TEST_F(OracleTest, PacketsThatNobodyWantsAnyMoreBreakUnwanted)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  stop_daemons(run);
                  run.world().host("h1").listen(address_from("239.1.1.1"), {});
                  run.world().kernel.run_for(10 * SECOND);
              }).rule,
              Rule::Unwanted);
}

TEST_F(OracleTest, PacketThatDoesNotComeBreaksMissed)
{
    EXPECT_EQ(with([this](sim::Run &run) {
                  stop_daemons(run);
                  table(run).delete_entry(key_);
                  run.world().kernel.run_for(5 * SECOND);
              }).rule,
              Rule::Missed);
}

TEST_F(OracleTest, PacketThatComesTwiceOrBackBreaksMissed)
{
    EXPECT_EQ(with([this](sim::Run &run) {
                  const Datum datum{key_.first, key_.second, 1, run.world().flow("f1").sent, 8};
                  run.oracle().delivered(run.world().link("lan2"), run.world().machine("r1"), datum);
              }).rule,
              Rule::Missed);
    EXPECT_EQ(with([this](sim::Run &run) {
                  const Datum datum{key_.first, key_.second, 1, run.world().flow("f1").sent, 8};
                  run.oracle().delivered(run.world().link("lan1"), run.world().machine("r1"), datum);
              }).rule,
              Rule::Missed);
}

TEST_F(OracleTest, GapWhileAHostChangesItsMindBreaksMissed)
{
    EXPECT_EQ(with([this](sim::Run &run) {
                  stop_daemons(run);
                  table(run).delete_entry(key_);
                  run.world().host("h1").listen(key_.second, {false, {key_.first}}); // which it wanted before
                  run.world().kernel.run_for(2 * SECOND);
              }).rule,
              Rule::Missed);
}

TEST_F(OracleTest, TablesThatAreNotWhatHostsWantBreakTables)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  run.world().host("h1").vanish();
                  run.oracle().check_tables();
              }).rule,
              Rule::Tables);
    EXPECT_EQ(with([](sim::Run &run) {
                  run.world().host("h1").is_silent = true;
                  run.world().host("h1").listen(address_from("239.1.1.2"), {true, {}});
                  run.oracle().check_tables();
              }).rule,
              Rule::Tables);
}

TEST_F(OracleTest, MribdThatDoesNotKnowWhatGmpdKnowsBreaksTables)
{
    const Result result = with([](sim::Run &run) {
        lose_what_mribd_is_told(run, [&] {
            run.world().host("h1").listen(address_from("239.1.1.2"), {true, {}});
        });
        run.oracle().check_tables();
    });
    EXPECT_EQ(result.rule, Rule::Tables);
    EXPECT_NE(result.what.find("mribd takes"), std::string::npos) << result.what;
}

TEST_F(OracleTest, KernelThatHasSomethingElseThanMribdBreaksTables)
{
    EXPECT_EQ(with([this](sim::Run &run) {
                  table(run).delete_entry(key_);
                  run.oracle().check_tables();
              }).rule,
              Rule::Tables);
    EXPECT_EQ(with([](sim::Run &run) {
                  const uint32_t lan3 = run.world().machine("r1").find("lan3")->index;
                  table(run).delete_vif(static_cast<unsigned>(table(run).vif_of(lan3)));
                  run.oracle().check_tables();
              }).rule,
              Rule::Tables);
}

TEST_F(OracleTest, DaemonThatDoesNotAnswerBreaksTables)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  stop_daemons(run);
                  run.oracle().check_tables();
              }).rule,
              Rule::Tables);
}

TEST_F(OracleTest, QuerierThatIsNotTheLowestBreaksRoles)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  stop_daemons(run); // they do not hear it
                  run.world().add_querier("q1", "lan2", 3, 1).switch_on(true);
                  for (auto &[name, plan] : run.world().daemons()) {
                      plan.process->stop_until(0);
                  }
                  run.oracle().check_roles();
              }).rule,
              Rule::Roles);
}

TEST_F(OracleTest, MribdThatForwardsWhereAnotherIsTheQuerierBreaksRoles)
{
    const Result result = with([](sim::Run &run) {
        lose_what_mribd_is_told(run, [&] { run.world().add_querier("q1", "lan2", 3, 1).switch_on(true); });
        run.world().kernel.run_for(130 * SECOND); // the time that shows who asks
        run.oracle().check_roles();
    });
    EXPECT_EQ(result.rule, Rule::Roles);
    EXPECT_NE(result.what.find("mribd forwards"), std::string::npos) << result.what;
}

TEST_F(OracleTest, DaemonThatIsNotConnectedBreaksRoles)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.gmpd4").kill();
                  run.oracle().check_roles();
              }).rule,
              Rule::Roles);
}

TEST_F(OracleTest, MemoryAndDescriptorsBeyondWhatTheTablesHoldBreakLimits)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.mribd").account.take(500 << 10);
                  run.oracle().check_limits();
              }).rule,
              Rule::Limits);
    EXPECT_EQ(with([](sim::Run &run) {
                  for (int i = 0; i < 60; ++i) {
                      process(run, "r1.gmpd4").install(std::make_shared<File>());
                  }
                  run.oracle().check_limits();
              }).rule,
              Rule::Limits);
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.gmpd4").account.take(30 << 20);
                  run.world().kernel.run_for(2 * SECOND);
              }).rule,
              Rule::Limits);
}

TEST_F(OracleTest, PacketsThatAreNotCountedBreakCounters)
{
    const auto lan2 = [](sim::Run &run) { return run.world().machine("r1").find("lan2")->index; };
    EXPECT_EQ(with([&](sim::Run &run) {
                  ++process(run, "r1.gmpd4").traffic[lan2(run)].heard;
                  run.oracle().check_rest();
              }).rule,
              Rule::Counters);
    EXPECT_EQ(with([&](sim::Run &run) {
                  ++process(run, "r1.gmpd4").traffic[lan2(run)].sent;
                  run.oracle().check_rest();
              }).rule,
              Rule::Counters);
}

TEST_F(OracleTest, ReportThatMribdDoesNotCountBreaksCounters)
{
    EXPECT_EQ(with([this](sim::Run &run) {
                  char message[64];
                  table(run).owner()->upcall(1, 0, key_);
                  table(run).owner()->receive(message, sizeof(message), 0, nullptr); // it is gone
                  run.oracle().check_rest();
              }).rule,
              Rule::Counters);
}

TEST_F(OracleTest, CounterThatFallsIsFound)
{
    const NamedCounters before = {{{AF_INET, 0, "one"}, 3}, {{AF_INET, 0, "two"}, 4}};
    EXPECT_EQ(first_fall(before, {{{AF_INET, 0, "one"}, 3}, {{AF_INET, 0, "two"}, 5}}), std::nullopt);
    EXPECT_EQ(first_fall(before, {{{AF_INET, 0, "one"}, 3}, {{AF_INET, 0, "two"}, 3}}),
              "two fell from 4 to 3");
    EXPECT_EQ(first_fall(before, {{{AF_INET, 0, "two"}, 4}}), "one fell from 3 to nothing");
}

TEST_F(OracleTest, VirtualInterfaceDeletedWhileItIsUsedBreaksTheKernelsContract)
{
    EXPECT_EQ(
        with([this](sim::Run &run) { table(run).delete_vif(table(run).entries().at(key_).parent); }).rule,
        Rule::KernelContract);
}

TEST_F(OracleTest, DescriptorThatIsNotOpenBreaksTheKernelsContract)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  Process &mribd = process(run, "r1.mribd");
                  for (int fd = 3; fd < 20; ++fd) { // its event loop, which it goes on using
                      if (std::dynamic_pointer_cast<Epoll>(mribd.file(fd)) != nullptr) {
                          mribd.close(fd);
                      }
                  }
                  mribd.signal(SIGHUP);
                  run.world().kernel.run_for(SECOND);
              }).rule,
              Rule::KernelContract);
}

TEST_F(OracleTest, EndWithoutAnOrderBreaksCleanEnd)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.gmpd4").signal(SIGTERM);
                  run.world().kernel.run_for(SECOND);
              }).rule,
              Rule::CleanEnd);
}

TEST_F(OracleTest, DaemonThatIsNotThereAtRestBreaksCleanEnd)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  process(run, "r1.gmpd4").kill();
                  run.oracle().check_rest();
              }).rule,
              Rule::CleanEnd);
}

TEST_F(OracleTest, MemoryAndDescriptorsLeftBehindBreakCleanEnd)
{
    EXPECT_EQ(with([](sim::Run &run) {
                  for (int i = 0; i < 3; ++i) {
                      process(run, "r1.mribd").account.take(10);
                  }
              }).rule,
              Rule::CleanEnd);
    EXPECT_EQ(with([](sim::Run &run) { process(run, "r1.mribd").install(std::make_shared<File>()); }).rule,
              Rule::CleanEnd);
}

TEST_F(OracleTest, EndThatDoesNotComeBreaksCleanEnd)
{
    EXPECT_EQ(with([](sim::Run &run) { stop_daemons(run); }).rule, Rule::CleanEnd);
}

} // namespace
