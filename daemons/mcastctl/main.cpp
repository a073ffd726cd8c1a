/*
 * mcastctl: shows what the multicast daemons of this router know, and sets what can be set while they run.
 */
#include <cstdio>

#include "daemons/mcastctl/command.h"
#include "mcast/argument_check.h"

int main(int argc, char **argv)
{
    if (MC_CommonRcInit() != MCAST_OK) {
        std::fputs("mcastctl: the help texts cannot be registered\n", stderr);
        return mcastctl::EXIT_FAILED;
    }
    const int code = mcastctl::run_command_line(argc, argv);
    MC_CommonRcExit();
    return code;
}
