#include "daemons/common/service_start.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <unistd.h>

#include "daemons/common/log.h"
#include "mcast/service.h"
#include "mcasthost/device.h"
#include "platform/device.h"

namespace mcastd
{
namespace
{

// What the service manager knows of a daemon that does not answer, and what helps.
const char *what_to_do(uint64_t service)
{
    uint32_t state = SERVICE_STATE_ABSENT;
    if (SERVICE_GetStatus(DEV_GetSelf(), service, 0, &state) != 0) {
        return "its state cannot be had; is the runtime directory this user's?";
    }
    switch (state) {
    case SERVICE_STATE_ABSENT:
        return "nobody could start it; does the configuration file name it as a [[service]]?";
    case SERVICE_STATE_STOPPED:
        return "it was started and has ended, or could not be run; see its own messages and its command in "
               "[[service]]";
    default:
        return "it is there, but not ready yet";
    }
}

} // namespace

bool start_service(const char *name, uint64_t service, uint16_t control_port)
{
    const MCAST_APP_ENDPOINT_S endpoint = {service, control_port, 1};
    const int fd = MCAST_Connect2APP(&endpoint);
    if (fd < 0) {
        log_warning("%s (service %" PRIu64 ", local port %u) does not answer: %s: %s", name, service,
                    unsigned{control_port}, std::strerror(errno), what_to_do(service));
        return false;
    }
    close(fd);
    log_info("%s answers on local port %u", name, unsigned{control_port});
    return true;
}

void start_forwarding()
{
    const MCAST_STATUS result = MCAST_StartKernelThread();
    if (result != MCAST_OK) {
        char text[HOST_FORWARDING_TEXT_SIZE];
        HOST_ForwardingText(result, text, sizeof(text));
        log_warning("multicast forwarding: %s", text);
    }
}

} // namespace mcastd
