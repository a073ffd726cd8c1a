/*
 * Calls that fail on demand, with what Linux can answer and nothing else. The table of calls.cpp's calls says
 * which error each may give; a call that is not in it never fails by itself, as timerfd_settime or epoll_ctl for
 * a descriptor that is watched already.
 */
#ifndef TESTS_SIMULATION_KERNEL_REFUSAL_H
#define TESTS_SIMULATION_KERNEL_REFUSAL_H

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>

namespace sim
{

// What can be refused. The options of multicast routing and the operations of epoll count as calls of their own.
enum class Call : uint8_t {
    Socket,
    Bind,
    Listen,
    Connect,
    ConnectStream,
    Accept,
    EpollCreate,
    EpollAdd,
    TimerCreate,
    EventCreate,
    SignalCreate,
    Open,
    Send,
    SendStream,
    SendMessage,
    Receive,
    ReceivePacket,
    NetlinkOpen,
    NetlinkBind,
    NetlinkJoin,
    NetlinkSend,
    NetlinkReceive,
    AttachFilter,
    JoinPackets,
    MulticastInit,
    MulticastAddVif,
    MulticastAddEntry,
    Count,
    Any = Count,
};

const char *call_name(Call call);
std::optional<Call> call_from(const std::string &name);
// The errors that Linux can give for it.
std::span<const int> errors_of(Call call);

// Whether it can go on failing, or fails once only.
bool can_last(Call call);

std::string error_name(int error);
int error_from(const std::string &name);

// Which calls of a process fail.
struct Refusals {
    Call call = Call::Any;
    uint64_t skip = 0;  // calls that pass first
    uint64_t count = 0; // calls that then fail
    int error = 0;      // 0: the first that the call can give; a call that cannot give it passes
    uint64_t refused = 0;
    std::function<void(Call call)> observer; // told of each call; for the sweeps

    // The error with which this call fails, 0 when it does not.
    int next(Call which);
};

} // namespace sim

#endif
