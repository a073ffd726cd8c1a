/*
 * Objects behind descriptors that are registered with event loops: a loop's handler is told the descriptor
 * and finds its object here.
 */
#ifndef HOST_SRC_LOOP_OBJECTS_H
#define HOST_SRC_LOOP_OBJECTS_H

#include <mutex>
#include <unordered_map>

#include "mcasthost/loop.h"

namespace host
{

template <typename Object> class LoopObjects
{
public:
    // Registers the descriptor for reading. False with errno set; std::bad_alloc when memory is short.
    bool add(int32_t loop, int fd, HOST_LOOP_HANDLER handler, Object *object)
    {
        std::lock_guard guard(mutex_);
        objects_[fd] = object;
        if (HOST_LoopAdd(loop, fd, EVENT_IN, handler) != 0) {
            objects_.erase(fd);
            return false;
        }
        return true;
    }

    // Before the descriptor is closed.
    void remove(int32_t loop, int fd)
    {
        std::lock_guard guard(mutex_);
        if (objects_.erase(fd) != 0) {
            HOST_LoopRemove(loop, fd);
        }
    }

    Object *find(int fd)
    {
        std::lock_guard guard(mutex_);
        auto found = objects_.find(fd);
        return found == objects_.end() ? nullptr : found->second;
    }

private:
    static constexpr uint32_t EVENT_IN = 1; // EPOLLIN

    std::mutex mutex_;
    std::unordered_map<int, Object *> objects_;
};

} // namespace host

#endif
