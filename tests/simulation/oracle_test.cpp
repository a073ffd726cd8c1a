/*
 * The oracle itself: each of its rules is broken on purpose, behind the daemons' back, and has to fire. A script that
 * breaks nothing shows that it does not fire by itself.
 */
#include <csignal>
#include <functional>
#include <gtest/gtest.h>

#include "tests/simulation/kernel/file.h"
#include "tests/simulation/run/run.h"

namespace
{

using namespace sim;

// h1 on lan2 listens to f1, which sends on lan1; all is at rest.
constexpr const char *QUIET = R"(
link lan1 10.0.1.0/24 2001:db8:1::/64
link lan2 10.0.2.0/24 2001:db8:2::/64
link lan3 10.0.3.0/24 2001:db8:3::/64
router r1 lan1 lan2 lan3
daemon r1.mribd mribd
daemon r1.gmpd4 gmpd -4
host h1 lan2 3
flow f1 lan1 10.0.1.50 239.1.1.1 1
0 flow-on f1
0 start r1.mribd
0 start r1.gmpd4
5 join h1 239.1.1.1
10 rest
10.2 check
)";

class OracleTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        set_image_folder(SIMULATION_IMAGES);
    }
    // What the run ends with when the break is made behind the script.
    Result with(const std::function<void(sim::Run &)> &make_break)
    {
        sim::Run run(script_);
        run.before_end = [&] { make_break(run); };
        return run.execute();
    }
    static MulticastTable &table(sim::Run &run)
    {
        return run.world().machine("r1").multicast_table(AF_INET, 0);
    }
    static Process &process(sim::Run &run, const char *name)
    {
        return *run.world().daemon(name).process;
    }
    // Nobody mends what was broken.
    static void stop_daemons(sim::Run &run)
    {
        for (auto &[name, plan] : run.world().daemons()) {
            plan.process->stop_until(run.world().kernel.clock.now() + 60 * SECOND);
        }
    }

    const Script script_ = read_script(QUIET);
    const MulticastTable::Key key_ = {address_from("10.0.1.50"), address_from("239.1.1.1")};
};

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
                  run.oracle().check_rest();
              }).rule,
              Rule::Roles);
    EXPECT_EQ(with([](sim::Run &run) {
                  stop_daemons(run);
                  run.world().kernel.suspend(200 * SECOND);
                  run.oracle().check_rest();
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
