/*
 * The event loop of a daemon: one thread, descriptors with handlers, level-triggered. A handler does a
 * bounded amount of work and returns; what is left is reported again in the next round, after every other
 * ready descriptor, timers included, had its turn.
 */
#ifndef DAEMONS_COMMON_REACTOR_H
#define DAEMONS_COMMON_REACTOR_H

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

namespace mcastd
{

class Reactor
{
public:
    // Called with the ready events (EPOLLIN, EPOLLOUT, EPOLLERR, EPOLLHUP). May add, change and remove any
    // descriptor, its own included.
    using Handler = std::function<void(uint32_t events)>;

    Reactor();
    ~Reactor();
    Reactor(const Reactor &) = delete;
    Reactor &operator=(const Reactor &) = delete;

    // Whether the loop could be made; nothing else works when not.
    bool valid() const
    {
        return loop_ >= 0;
    }

    // The host's loop, for its timer service, link table and route watch, and for what registers descriptors
    // itself.
    int descriptor() const
    {
        return loop_;
    }

    // Watches fd, which stays the caller's. False when the kernel refuses or fd is watched already.
    bool add(int fd, uint32_t events, Handler handler);

    // For what registers a descriptor itself: the context with which it does so, and the handler for the
    // descriptor, to be attached right after.
    static uint64_t context();
    void attach(int fd, Handler handler);

    // Replaces the events waited for.
    bool modify(int fd, uint32_t events);

    // For a listener, watched for EPOLLIN, that could not accept: does not watch it until another descriptor was
    // removed, which is when one becomes free, or a second has passed.
    void pause(int fd);

    // Stops watching fd; call it before close. Its handler is not called any more.
    void remove(int fd);

    // Runs after each round. While it returns true it has more to do and the next round does not wait.
    void set_background(std::function<bool()> work);

    // Runs about once a second while run serves, from then on. It needs no memory to come again.
    void add_each_second(std::function<void()> work);

    // Serves until stop. False when waiting itself failed.
    bool run();

    // Serves one round; waits at most timeout_ms, for ever when -1. False when waiting itself failed.
    bool run_once(int timeout_ms);

    // Ends run after the current round.
    void stop()
    {
        stopping_ = true;
    }

private:
    struct Watch {
        std::shared_ptr<Handler> handler;
        bool paused = false;
    };

    static uint64_t dispatch(uint32_t events, int32_t fd);
    int before_waiting(int timeout_ms);
    int tend();

    int loop_;
    bool stopping_ = false;
    bool more_work_ = false;
    bool removed_one_ = false;  // since the last round
    uint64_t resume_at_ms_ = 0; // when paused descriptors are watched again at the latest; 0: there is none
    std::unordered_map<int, Watch> handlers_;
    std::function<bool()> background_;
    std::vector<std::function<void()>> each_second_;
    uint64_t next_second_ms_ = 0; // when it is due
};

} // namespace mcastd

#endif
