/*
 * pimsmd: PIM sparse mode, one process for each family. It agrees with the PIM routers around on trees from sources to
 * receivers and tells the MRIB process which links want what, and where packets come from.
 */
#include "daemons/common/program.h"
#include "daemons/pimsmd/daemon.h"

int main(int argc, char **argv)
{
    return mcastd::run_program("pimsmd", [&] {
        mcastd::Options options("pimsmd",
                                "PIM sparse mode daemon (RFC 7761), with the election of RPs (RFC 5059)");
        options.add_family("Address family to route");
        options.add_config("Configuration file (TOML), read again on SIGHUP",
                           mcastd::Options::Config::Required);
        if (const auto code = options.parse(argc, argv)) {
            return *code;
        }
        return pimsmd::run_daemon(options);
    });
}
