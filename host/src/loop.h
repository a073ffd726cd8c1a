/*
 * Event loops inside this library.
 */
#ifndef HOST_SRC_LOOP_H
#define HOST_SRC_LOOP_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <sys/epoll.h>
#include <unordered_map>

#include "descriptor.h"
#include "mcasthost/loop.h"
#include "timer_service.h"

namespace host
{

// A registered descriptor.
struct Watch {
    uint64_t context = 0;  // the handler
    uint32_t events = 0;   // what the caller waits for
    bool is_local = false; // a local socket, of which the loop also asks whether the peer has stopped sending
    uint64_t rest = 0;     // not 0 while the loop does not look at it (loop_rest.h)
};

struct Loop {
    Descriptor epoll;
    Descriptor wake;
    std::unique_ptr<TIMER_SERVICE_S> timers;
    std::atomic<bool> stopping = false;
    bool running = false;
    std::mutex mutex; // guards what follows, and the kernel's registrations so that both change together
    std::unordered_map<int, Watch> handlers;
    uint64_t rests = 0; // so far
};

// Tells the kernel what to wait for; 0 as events leaves errors and hang-up. The caller holds the loop's mutex.
int register_in_kernel(const Loop &loop, int operation, int fd, const Watch &watch, uint32_t events);

// Puts the open file of replacement in the place of fd, in every loop that watches fd too. False with errno
// set.
bool replace_descriptor(int fd, int replacement);

// The loop with this epoll descriptor, or nullptr. Usable in signal handlers.
Loop *find_loop(int epoll);

// epoll_ctl for a loop's descriptor: ADD and MOD take a HOST_LOOP_RECORD_S.
int loop_control(Loop *loop, int operation, int fd, const void *record);

} // namespace host

#endif
