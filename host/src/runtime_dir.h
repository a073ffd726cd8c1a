/*
 * The private directory in which listeners of local sockets have their names.
 */
#ifndef HOST_SRC_RUNTIME_DIR_H
#define HOST_SRC_RUNTIME_DIR_H

#include <climits>

#include "descriptor.h"

namespace host
{

struct RuntimeDir {
    Descriptor fd;
    char path[PATH_MAX];
};

// The base that a service manager makes for the user of its daemons.
inline constexpr const char *SERVICE_RUNTIME_DIR = "/run/mcast";

enum class Missing { Create, Fail };

/*
 * Opens the directory of the calling thread's user and network namespace. False with errno set: EACCES when
 * a directory on the way belongs to somebody else, is open to others or is a symbolic link; ENOENT when it
 * does not exist and is not to be created.
 */
bool open_runtime_dir(Missing missing, RuntimeDir *dir);

} // namespace host

#endif
