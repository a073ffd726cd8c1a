/*
 * gmpd: the router's side of IGMP or MLD, one process for each family. It learns which groups and sources the
 * hosts on each link want and tells the MRIB process.
 */
#include <cstdlib>

#include "daemons/common/program.h"
#include "daemons/gmpd/daemon.h"

int main(int argc, char **argv)
{
    return mcastd::run_program("gmpd", [&] {
        mcastd::Options options("gmpd",
                                "Group membership daemon: the router's side of IGMP (1, 2, 3) or MLD (1, 2)");
        gmpd::Config config;
        gmpd::add_options(options, config);
        if (const auto code = options.parse(argc, argv)) {
            return *code;
        }
        return gmpd::finish_config(options, config) ? gmpd::run_daemon(options, config) : EXIT_FAILURE;
    });
}
