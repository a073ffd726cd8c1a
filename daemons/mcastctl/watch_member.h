/*
 * One family's member channel to mribd: registered for classes of events, read, and given back.
 */
#ifndef DAEMONS_MCASTCTL_WATCH_MEMBER_H
#define DAEMONS_MCASTCTL_WATCH_MEMBER_H

#include <functional>
#include <vector>

#include "daemons/common/reactor.h"
#include "daemons/mcastctl/watch_records.h"

namespace mcastctl
{

// What is watched.
struct Watch {
    std::vector<const WatchedEvents *> events;
    bool changes_alone = false; // without what holds at the start
    uint32_t if_index = 0;      // 0: every interface
};

class WatchMember
{
public:
    // Takes a line without its newline.
    using Print = std::function<void(const std::string &line)>;

    // At most one for each family. reactor and watch must outlive it.
    WatchMember(mcastd::Reactor &reactor, uint8_t family, const Watch &watch, Print print);
    ~WatchMember();
    WatchMember(const WatchMember &) = delete;
    WatchMember &operator=(const WatchMember &) = delete;

    // Connects, registers and asks for what holds now. False, and closed, when mribd cannot be reached.
    bool open();

    // Takes the registration back and ends the connection.
    void close();

    bool is_open() const;

private:
    uint64_t mask() const;
    void ask();
    void send_waiting();
    void serve(uint32_t events);
    bool receive();
    void take(const uint8_t *message, size_t size);
    void drop();

    mcastd::Reactor &reactor_;
    uint8_t family_;
    const Watch &watch_;
    Print print_;
    int fd_ = -1;
};

} // namespace mcastctl

#endif
