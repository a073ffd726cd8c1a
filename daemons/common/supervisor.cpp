#include "daemons/common/supervisor.h"

#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "daemons/common/log.h"

namespace mcastd
{
namespace
{

constexpr uint64_t SECOND_USEC = 1000000;

// A name that begins with @ is one without a file. False when it is no name of a socket.
bool make_address(const char *name, sockaddr_un *address, socklen_t *length)
{
    const size_t size = std::strlen(name);
    if ((name[0] != '/' && name[0] != '@') || size < 2 || size >= sizeof(address->sun_path)) {
        return false;
    }
    *address = {};
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path, name, size);
    if (name[0] == '@') {
        address->sun_path[0] = '\0';
    }
    *length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
    return true;
}

uint64_t number(const char *text)
{
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 0;
}

// The longest silence that the supervisor allows this process, in microseconds; 0 for any.
uint64_t longest_silence()
{
    const char *const process = secure_getenv("WATCHDOG_PID");
    const bool other = process != nullptr && number(process) != static_cast<uint64_t>(getpid());
    return other ? 0 : number(secure_getenv("WATCHDOG_USEC"));
}

} // namespace

void Supervisor::open()
{
    const char *const name = secure_getenv("NOTIFY_SOCKET");
    if (name == nullptr || name[0] == '\0') {
        return;
    }
    sockaddr_un address;
    socklen_t length = 0;
    if (!make_address(name, &address, &length)) {
        log_warning("NOTIFY_SOCKET is no name of a local socket: %s", name);
        return;
    }
    socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_.valid() ||
        connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0) {
        log_warning("cannot reach the supervisor at %s: %s", name, std::strerror(errno));
        socket_ = Descriptor();
        return;
    }
    const uint64_t silence = longest_silence();
    watched_ = silence > 0;
    if (watched_ && silence < 2 * SECOND_USEC) {
        log_warning("the supervisor wants a sign of life every %" PRIu64 " us and gets one a second",
                    silence);
    }
}

void Supervisor::ready()
{
    say("READY=1\nSTATUS=serving");
}

void Supervisor::reloading()
{
    say("RELOADING=1");
}

void Supervisor::stopping()
{
    say("STOPPING=1");
}

void Supervisor::alive()
{
    if (unsaid_ != nullptr) {
        say(unsaid_);
    }
    if (watched_) {
        (void)send_now("WATCHDOG=1");
    }
}

void Supervisor::say(const char *lines)
{
    unsaid_ = send_now(lines) ? nullptr : lines;
}

// False when there is no room for it now.
bool Supervisor::send_now(const char *lines) const
{
    return !socket_.valid() ||
           send(socket_.get(), lines, std::strlen(lines), MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 ||
           (errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM);
}

} // namespace mcastd
