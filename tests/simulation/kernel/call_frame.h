/*
 * What every call of a daemon passes through: it is counted, may be the one at which the daemon crashes or that is
 * refused, its memory is the simulation's own, and a descriptor that is not open is a broken rule.
 */
#ifndef TESTS_SIMULATION_KERNEL_CALL_FRAME_H
#define TESTS_SIMULATION_KERNEL_CALL_FRAME_H

#include <cerrno>
#include <string>

#include "tests/simulation/kernel/kernel.h"

namespace sim
{

// -1 with errno for a negative error.
inline long answer(long result)
{
    if (result < 0) {
        errno = static_cast<int>(-result);
        return -1;
    }
    return result;
}

// A call that makes a file and gives it the lowest descriptor.
template <typename Make> int make_file(Call call, Make make)
{
    Process &process = *g_process;
    process.enter();
    if (const int error = process.refused(call)) {
        return static_cast<int>(answer(-error));
    }
    const OwnMemory own;
    return static_cast<int>(answer(process.install(make(process))));
}

void bad_descriptor(const char *call, int fd);

// A call for a descriptor, of a file of that kind.
template <typename Kind = File, typename Act>
long on_file(const char *name, std::optional<Call> call, int fd, Act act)
{
    Process &process = *g_process;
    process.enter();
    if (const int error = call ? process.refused(*call) : 0) {
        return answer(-error);
    }
    const OwnMemory own;
    const std::shared_ptr<File> file = process.file(fd);
    if (file == nullptr) {
        bad_descriptor(name, fd);
        return answer(-EBADF);
    }
    auto kind = std::dynamic_pointer_cast<Kind>(file);
    return answer(kind == nullptr ? -ENOTSOCK : act(*kind));
}

} // namespace sim

#endif
