/*
 * Services of this node. The state of a service is kept where every process of the node can see it:
 *
 *     its port is bound ........................... running    (whoever started it)
 *     else its mark is locked ..................... starting
 *     else there is a mark ........................ stopped
 *     else ........................................ absent
 *
 * The mark is a file in the runtime directory. Whoever starts the service locks it first and hands the open
 * file to the new process, which holds the lock for as long as it lives: the kernel lets go of it, however
 * the process ends. So two daemons that start a third one at the same time start it once, and a daemon that
 * is itself started again finds what its predecessor has started. The lock is the kind that can be asked for
 * without being taken.
 */
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <system_error>

#include "config_store.h"
#include "descriptor.h"
#include "local_socket.h"
#include "mcasthost/loop.h"
#include "platform/device.h"
#include "runtime_dir.h"
#include "service_process.h"

namespace
{

using host::Descriptor;
using host::Missing;
using host::PortUse;
using host::RuntimeDir;
using host::Service;

uint32_t fail(int error)
{
    errno = error;
    return HOST_FAILED;
}

const Service *find_service(uint64_t id)
{
    const host::Config *config = host::current_config();
    const auto found = config == nullptr ? host::ServiceTable::const_iterator() : config->services.find(id);
    return config == nullptr || found == config->services.end() ? nullptr : &found->second;
}

Descriptor open_mark(const RuntimeDir &dir, uint64_t id, int flags)
{
    char name[32];
    snprintf(name, sizeof(name), "service-%" PRIu64, id);
    return Descriptor(openat(dir.fd.get(), name, O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, 0600));
}

struct flock whole_file()
{
    struct flock lock {
    };
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// The state of a service whose port is not bound; false with errno set when it cannot be had.
bool state_by_mark(const RuntimeDir &dir, uint64_t id, uint32_t *state)
{
    const Descriptor mark = open_mark(dir, id, 0);
    if (!mark.valid()) {
        *state = SERVICE_STATE_ABSENT;
        return errno == ENOENT;
    }
    struct flock lock = whole_file();
    if (fcntl(mark.get(), F_OFD_GETLK, &lock) != 0) {
        return false;
    }
    *state = lock.l_type == F_UNLCK ? SERVICE_STATE_STOPPED : SERVICE_STATE_STARTING;
    return true;
}

bool state_of(uint64_t id, const Service &service, uint32_t *state)
{
    RuntimeDir dir;
    if (!host::open_runtime_dir(Missing::Fail, &dir)) {
        *state = SERVICE_STATE_ABSENT; // nobody has listened or started anything yet
        return errno == ENOENT;
    }
    switch (host::local_port_use(dir, service.port)) {
    case PortUse::Bound:
        *state = SERVICE_STATE_RUNNING;
        return true;
    case PortUse::Unknown:
        return false;
    default:
        return state_by_mark(dir, id, state);
    }
}

uint32_t start(uint64_t id, const Service &service)
{
    RuntimeDir dir;
    if (!host::open_runtime_dir(Missing::Create, &dir)) {
        return HOST_FAILED;
    }
    const Descriptor mark = open_mark(dir, id, O_CREAT);
    struct flock lock = whole_file();
    if (!mark.valid()) {
        return HOST_FAILED;
    }
    if (fcntl(mark.get(), F_OFD_SETLK, &lock) != 0) {
        return errno == EAGAIN || errno == EACCES ? SERVICE_NOTHING_DONE : HOST_FAILED;
    }
    switch (host::local_port_use(dir, service.port)) {
    case PortUse::Bound:
        return SERVICE_NOTHING_DONE;
    case PortUse::Unknown:
        return HOST_FAILED;
    default:
        break;
    }
    const int error = host::start_process(service.command, mark.get());
    return error == 0 ? 0 : fail(error);
}

} // namespace

extern "C" {

HOST_API uint32_t SERVICE_GetStatus(uint16_t node, uint64_t service, uint32_t option, uint32_t *state)
{
    if (option != 0 || state == nullptr) {
        return fail(EINVAL);
    }
    if (node != DEV_GetSelf()) {
        return fail(EHOSTUNREACH);
    }
    uint32_t found = SERVICE_STATE_ABSENT;
    const Service *known = find_service(service);
    if (known != nullptr && !state_of(service, *known, &found)) {
        return HOST_FAILED;
    }
    *state = found;
    return 0;
}

HOST_API uint32_t SERVICE_Start(uint16_t node, uint64_t service, uint64_t parameter, uint32_t option)
{
    if (parameter != 0 || option != 0) {
        return fail(EINVAL);
    }
    if (node != DEV_GetSelf()) {
        return fail(EHOSTUNREACH);
    }
    const Service *known = find_service(service);
    if (known == nullptr) {
        return fail(ENOENT);
    }
    try {
        return start(service, *known);
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    } catch (const std::system_error &failure) {
        return fail(failure.code().value());
    }
}

} // extern "C"
