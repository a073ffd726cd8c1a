#include "daemons/common/port_watch.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "mcasthost/local_socket.h"

namespace mcastd
{

static uint64_t g_rebound = 0;

uint64_t local_ports_rebound()
{
    return g_rebound;
}

bool PortWatch::look()
{
    HOST_LOCAL_SOCKET_TEND_S found;
    HOST_LocalSocketTend(&found);
    if (found.lost != 0 && is_shortage(found.error)) {
        const uint32_t before = found.rebound;
        const DescriptorLoan loan;
        HOST_LocalSocketTend(&found);
        found.rebound += before;
    }
    if (found.rebound != 0) {
        g_rebound += found.rebound;
        log_warning(
            "the names of %u local ports were gone, as when their folder is deleted; they are there again",
            found.rebound);
    }
    if (found.lost == 0) {
        taken_ = 0;
        said_error_ = 0;
        return true;
    }
    if (found.error != EADDRINUSE) {
        taken_ = 0;
        if (std::exchange(said_error_, found.error) != found.error) {
            log_error(
                "the names of %u local ports are gone and cannot be made again: %s, trying every second",
                found.lost, std::strerror(found.error));
        }
        return true;
    }
    if (++taken_ < LOOKS_AT_A_TAKEN_PORT) {
        return true;
    }
    log_error("local port %u lost its name and is another process's now, which goes on in place of this one; "
              "ending",
              found.lost_port);
    return false;
}

} // namespace mcastd
