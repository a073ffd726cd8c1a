/*
 * Where local sockets live:
 *
 *     <base>/net-<inode of the network namespace>/<port>
 *
 * base is $MCAST_HOST_RUNTIME_DIR when set; otherwise /run/mcast if that is our user's, which somebody made for it as a
 * service manager does; otherwise the first of /run/mcast-<uid>, $XDG_RUNTIME_DIR/mcast and /tmp/mcast-<uid> that
 * exists or, for a listener, can be created. A directory per network namespace makes every namespace a router of
 * its own although they share the file system.
 *
 * Whoever may enter the directory may take a port or connect to it, so every level that is ours to make must
 * be ours alone: a directory, not a symbolic link, of our user, with no permission for anybody else. A
 * candidate that exists and breaks this rule is refused rather than skipped: otherwise another user could
 * push our daemons into a place of their choice.
 */
#include "runtime_dir.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

using host::Descriptor;
using host::Missing;
using host::RuntimeDir;

// Opens a directory that must be ours alone, making it when wanted.
Descriptor open_private(const char *path, Missing missing)
{
    if (missing == Missing::Create && mkdir(path, 0700) != 0 && errno != EEXIST) {
        return Descriptor();
    }
    Descriptor dir(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!dir.valid() || fstat(dir.get(), &status) != 0) {
        errno = errno == ENOENT ? ENOENT : EACCES;
        return Descriptor();
    }
    if (status.st_uid != geteuid() || (status.st_mode & 077) != 0) {
        errno = EACCES;
        return Descriptor();
    }
    return dir;
}

bool network_namespace(uintmax_t *inode)
{
    struct stat status;
    if (stat("/proc/thread-self/ns/net", &status) != 0) {
        return false;
    }
    *inode = status.st_ino;
    return true;
}

// False only when the text did not fit.
template <typename... Values> bool print(char (&text)[PATH_MAX], const char *format, Values... values)
{
    int length = snprintf(text, sizeof(text), format, values...);
    if (length < 0 || length >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

bool open_below(const char *base, Missing missing, RuntimeDir *dir)
{
    if (!open_private(base, missing).valid()) {
        return false;
    }
    uintmax_t inode = 0;
    if (!network_namespace(&inode) || !print(dir->path, "%s/net-%" PRIuMAX, base, inode)) {
        return false;
    }
    dir->fd = open_private(dir->path, missing);
    return dir->fd.valid();
}

// Only root can make anything in /run, so that a folder there that is another user's is no trap.
bool is_of_our_user(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0 && status.st_uid == geteuid();
}

// Whether the next candidate may be tried: only when this one is not there and cannot be made.
bool absent(int error)
{
    return error == ENOENT || error == EROFS || error == EPERM || error == EACCES;
}

} // namespace

bool host::open_runtime_dir(Missing missing, RuntimeDir *dir)
{
    const char *override_base = secure_getenv("MCAST_HOST_RUNTIME_DIR");
    if (override_base != nullptr && override_base[0] != '\0') {
        return open_below(override_base, missing, dir);
    }
    if (is_of_our_user(host::SERVICE_RUNTIME_DIR)) {
        return open_below(host::SERVICE_RUNTIME_DIR, missing, dir);
    }
    const char *session = secure_getenv("XDG_RUNTIME_DIR");
    char bases[3][PATH_MAX] = {};
    if (!print(bases[0], "/run/mcast-%u", geteuid()) || !print(bases[2], "/tmp/mcast-%u", geteuid()) ||
        (session != nullptr && session[0] == '/' && !print(bases[1], "%s/mcast", session))) {
        return false;
    }
    for (const char *base : bases) {
        if (base[0] == '\0') {
            continue;
        }
        if (open_below(base, missing, dir)) {
            return true;
        }
        int error = errno;
        struct stat status;
        if (lstat(base, &status) == 0 || !absent(error)) {
            errno = error;
            return false;
        }
        errno = error;
    }
    return false;
}
