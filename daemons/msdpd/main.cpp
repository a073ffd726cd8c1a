/*
 * msdpd: the MSDP daemon of the router. It tells its peers, over TCP, which sources are active here, and the
 * MRIB process which are active elsewhere.
 */
#include "daemons/common/program.h"
#include "daemons/msdpd/daemon.h"

int main(int argc, char **argv)
{
    return mcastd::run_program("msdpd", [&] {
        mcastd::Options options("msdpd", "Multicast Source Discovery Protocol daemon (RFC 3618)");
        options.add_config("Configuration file (TOML) with the peers, read again on SIGHUP",
                           mcastd::Options::Config::Required);
        if (const auto code = options.parse(argc, argv)) {
            return *code;
        }
        return msdpd::run_daemon(options);
    });
}
