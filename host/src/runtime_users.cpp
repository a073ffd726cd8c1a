/*
 * Whose daemons run here: every user has runtime directories of its own (runtime_dir.cpp), named after it or
 * made for it, and whoever is root can look into all of them. A directory counts for a user when it would count for
 * the user's own processes, and when a socket is bound in it.
 */
#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>

#include "local_socket.h"
#include "mcasthost/local_socket.h"
#include "runtime_dir.h"

namespace
{

struct CloseDir {
    void operator()(DIR *dir) const
    {
        closedir(dir);
    }
};

using Dir = std::unique_ptr<DIR, CloseDir>;

// The number that is all of the text, or nothing for any other text.
bool read_number(const char *text, unsigned long *number)
{
    char *end = nullptr;
    *number = strtoul(text, &end, 10);
    return text[0] >= '0' && text[0] <= '9' && *end == '\0' && *number < UINT32_MAX;
}

class Users
{
public:
    Users(uint32_t *uids, size_t size) : uids_(uids), size_(size)
    {
        struct stat status;
        valid_ = stat("/proc/thread-self/ns/net", &status) == 0;
        namespace_ = status.st_ino;
    }

    // The directory of a base, if it is its owner's alone and a port of it is in use.
    void look_at(const char *base)
    {
        struct stat status;
        if (valid_ && lstat(base, &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & 077) == 0 &&
            count_ < size_ && std::find(uids_, uids_ + count_, status.st_uid) == uids_ + count_ &&
            port_in_use(base)) {
            uids_[count_++] = status.st_uid;
        }
    }

    // Each entry of a folder that is a prefix and a user's number; inside is what follows it.
    void look_into(const char *folder, const char *prefix, const char *inside)
    {
        const Dir dir(opendir(folder));
        const size_t length = strlen(prefix);
        while (const dirent *entry = dir != nullptr ? readdir(dir.get()) : nullptr) {
            unsigned long uid;
            char base[PATH_MAX];
            struct stat status;
            if (strncmp(entry->d_name, prefix, length) == 0 && read_number(entry->d_name + length, &uid) &&
                snprintf(base, sizeof(base), "%s/%s%s", folder, entry->d_name, inside) < PATH_MAX &&
                lstat(base, &status) == 0 && status.st_uid == uid) {
                look_at(base);
            }
        }
    }

    size_t finish()
    {
        std::sort(uids_, uids_ + count_);
        return count_;
    }

private:
    bool port_in_use(const char *base) const
    {
        host::RuntimeDir ports;
        const int length =
            snprintf(ports.path, sizeof(ports.path), "%s/net-%" PRIuMAX, base, uintmax_t{namespace_});
        const Dir dir(length < PATH_MAX ? opendir(ports.path) : nullptr);
        while (const dirent *entry = dir != nullptr ? readdir(dir.get()) : nullptr) {
            unsigned long port;
            if (read_number(entry->d_name, &port) &&
                host::local_port_use(ports, static_cast<unsigned>(port)) == host::PortUse::Bound) {
                return true;
            }
        }
        return false;
    }

    uint32_t *uids_;
    size_t size_;
    size_t count_ = 0;
    bool valid_ = false;
    ino_t namespace_ = 0;
};

} // namespace

extern "C" size_t HOST_LocalSocketUsers(uint32_t *uids, size_t size)
{
    Users users(uids, size);
    const char *override_base = secure_getenv("MCAST_HOST_RUNTIME_DIR");
    if (override_base != nullptr && override_base[0] != '\0') {
        users.look_at(override_base);
        return users.finish();
    }
    users.look_at(host::SERVICE_RUNTIME_DIR);
    users.look_into("/run", "mcast-", "");
    users.look_into("/run/user", "", "/mcast");
    users.look_into("/tmp", "mcast-", "");
    return users.finish();
}
