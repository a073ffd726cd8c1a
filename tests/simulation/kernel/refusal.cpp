#include "tests/simulation/kernel/refusal.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "tests/simulation/kernel/memory.h"

namespace sim
{
namespace
{

struct Row {
    const char *name;
    std::array<int, 4> errors; // those behind the last are 0
    // Whether it can fail for as long as anybody tries. What an interrupted or overrun receive reports is reported
    // once, and a queue that is full is emptied.
    bool lasting = true;
};

// The order is that of Call.
constexpr Row CALLS[] = {
    {"socket", {EMFILE, ENFILE, ENOBUFS, ENOMEM}},
    {"bind", {EADDRINUSE, ENOMEM}},
    {"listen", {EADDRINUSE}},
    {"connect", {ECONNREFUSED, EAGAIN, ENOMEM}},
    {"connect_stream", {EADDRNOTAVAIL, ENETUNREACH, ENOBUFS}},
    {"accept", {EMFILE, ENFILE, ENOMEM}},
    {"epoll_create", {EMFILE, ENFILE, ENOMEM}},
    {"epoll_add", {ENOMEM, ENOSPC}},
    {"timerfd_create", {EMFILE, ENFILE, ENOMEM}},
    {"eventfd", {EMFILE, ENFILE, ENOMEM}},
    {"signalfd", {EMFILE, ENFILE, ENOMEM}},
    {"open", {EMFILE, ENFILE, ENOMEM}},
    {"send", {EAGAIN, ENOBUFS, ENOMEM}, false},
    {"send_stream", {EAGAIN}, false},
    {"sendmsg", {ENOBUFS, ENETDOWN, EAGAIN, EADDRNOTAVAIL}, false},
    {"recv", {EINTR}, false},
    {"recvfrom", {EINTR, ENETDOWN}, false},
    {"netlink_open", {EMFILE, ENFILE, ENOBUFS}},
    {"netlink_bind", {ENOMEM}},
    {"netlink_join", {ENOMEM}},
    {"netlink_send", {ENOBUFS, EAGAIN}, false},
    {"netlink_recv", {ENOBUFS, EINTR}, false},
    {"attach_filter", {ENOMEM}},
    {"join_packets", {ENOBUFS}},
    {"mrt_init", {EADDRINUSE, ENOMEM}},
    {"mrt_add_vif", {EADDRNOTAVAIL, ENOBUFS, ENOMEM}},
    {"mrt_add_mfc", {ENOMEM}},
};
static_assert(std::size(CALLS) == static_cast<size_t>(Call::Count));

struct Named {
    int error;
    const char *name;
};

constexpr Named ERRORS[] = {
    {EMFILE, "EMFILE"},           {ENFILE, "ENFILE"},         {ENOBUFS, "ENOBUFS"},
    {ENOMEM, "ENOMEM"},           {EADDRINUSE, "EADDRINUSE"}, {ECONNREFUSED, "ECONNREFUSED"},
    {EAGAIN, "EAGAIN"},           {ENOSPC, "ENOSPC"},         {ENETDOWN, "ENETDOWN"},
    {ENETUNREACH, "ENETUNREACH"}, {EINTR, "EINTR"},           {EADDRNOTAVAIL, "EADDRNOTAVAIL"},
};

} // namespace

const char *call_name(Call call)
{
    return call == Call::Any ? "any" : CALLS[static_cast<size_t>(call)].name;
}

std::optional<Call> call_from(const std::string &name)
{
    for (size_t i = 0; i <= static_cast<size_t>(Call::Count); ++i) {
        if (name == call_name(static_cast<Call>(i))) {
            return static_cast<Call>(i);
        }
    }
    return std::nullopt;
}

std::span<const int> errors_of(Call call)
{
    const auto &errors = CALLS[static_cast<size_t>(call)].errors;
    const auto end = std::find(errors.begin(), errors.end(), 0);
    return {errors.data(), static_cast<size_t>(end - errors.begin())};
}

bool can_last(Call call)
{
    return CALLS[static_cast<size_t>(call)].lasting;
}

std::string error_name(int error)
{
    for (const Named &named : ERRORS) {
        if (named.error == error) {
            return named.name;
        }
    }
    return std::to_string(error);
}

int error_from(const std::string &name)
{
    for (const Named &named : ERRORS) {
        if (name == named.name) {
            return named.error;
        }
    }
    return 0;
}

int Refusals::next(Call which)
{
    if (observer) {
        const OwnMemory own;
        observer(which);
    }
    if (count == 0 || (call != Call::Any && call != which)) {
        return 0;
    }
    if (skip != 0) {
        --skip;
        return 0;
    }
    const auto errors = errors_of(which);
    if (error != 0 && std::find(errors.begin(), errors.end(), error) == errors.end()) {
        return 0;
    }
    --count;
    ++refused;
    return error != 0 ? error : errors.front();
}

} // namespace sim
