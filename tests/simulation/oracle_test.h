/*
 * What the tests of the oracle share: scripts after which all is at rest, and a run that something is broken in, behind the
 * daemons' back.
 */
#ifndef TESTS_SIMULATION_ORACLE_TEST_H
#define TESTS_SIMULATION_ORACLE_TEST_H

#include <functional>
#include <gtest/gtest.h>

#include "tests/simulation/kernel/local_socket.h"
#include "tests/simulation/run/run.h"

namespace sim
{

// h1 on lan2 listens to f1, which sends on lan1; all is at rest.
inline constexpr const char *QUIET = R"(
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

// The same with users on lan2, a standby, and another router that announces its sources; h1 may join what it wants.
inline constexpr const char *FULL = R"(
router r1 lan1 lan2
router r2 lan1 lan3
rendezvous r1 10.0.1.5
rendezvous r2 10.0.1.6
peer r1 10.0.1.6 10.0.1.5
peer r2 10.0.1.5 10.0.1.6
daemon r1.mribd mribd --config /etc/router.toml --hold-time 125
daemon r1.gmpd4 gmpd -4 --config /etc/router.toml --user-auth lan2 --standby
daemon r1.gmpd4b gmpd -4 --config /etc/router.toml --user-auth lan2 --standby
daemon r1.msdpd msdpd --config /etc/router.toml
daemon r2.mribd mribd --config /etc/router.toml
daemon r2.msdpd msdpd --config /etc/router.toml
host h1 lan2 3
flow f1 lan1 10.0.1.50 239.1.1.1 1
flow f2 lan3 10.0.3.50 239.1.1.2 1
0 flow-on f1
0 flow-on f2
0 start r1.mribd
0 start r1.gmpd4
1 start r1.gmpd4b
0 start r1.msdpd
0 start r2.mribd
0 start r2.msdpd
2 allow r1 h1 239.1.1.1
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
        return with(script_, make_break);
    }
    Result with_all(const std::function<void(sim::Run &)> &make_break)
    {
        return with(read_script(THREE_LINKS + FULL), make_break);
    }
    static Result with(const Script &script, const std::function<void(sim::Run &)> &make_break)
    {
        sim::Run run(script);
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

    // What gmpd says because of the act does not come to mribd.
    static void lose_what_mribd_is_told(sim::Run &run, const std::function<void()> &act)
    {
        lose_what_is_told(run, "r1.mribd", act);
    }
    // What others say to the daemon because of the act does not come there.
    static void lose_what_is_told(sim::Run &run, const char *daemon, const std::function<void()> &act)
    {
        Process &listener = process(run, daemon);
        listener.stop_until(run.world().kernel.clock.now() + SECOND);
        act();
        run.world().kernel.run_for(SECOND / 2);
        char message[10240];
        for (const auto &file : listener.files()) {
            if (auto *socket = dynamic_cast<LocalSocket *>(file.get())) {
                while (socket->receive(message, sizeof(message), 0, nullptr) > 0) {
                }
            }
        }
        run.world().kernel.run_for(SECOND);
    }

    const Script script_ = read_script(THREE_LINKS + QUIET);
    const MulticastTable::Key key_ = {address_from("10.0.1.50"), address_from("239.1.1.1")};
};

} // namespace sim

#endif
