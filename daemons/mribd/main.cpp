/*
 * mribd: the multicast routing information base process of the reference router. It serves the MRIB channel,
 * keeps what its clients report, and programs the kernel's multicast forwarding, IPv4 and IPv6.
 */
#include "daemons/common/program.h"
#include "daemons/mribd/daemon.h"

int main(int argc, char **argv)
{
    return mcastd::run_program("mribd", [&] {
        mcastd::Options options("mribd",
                                "Multicast routing information base: takes memberships from the GMP daemons "
                                "and programs the kernel's multicast forwarding, IPv4 and IPv6");
        mribd::PlaneSettings settings;
        mribd::add_options(options, settings);
        if (const auto code = options.parse(argc, argv)) {
            return *code;
        }
        return mribd::run_daemon(options, settings);
    });
}
