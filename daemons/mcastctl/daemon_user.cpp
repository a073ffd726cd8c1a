#include "daemons/mcastctl/daemon_user.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <optional>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "mcasthost/local_socket.h"

namespace mcastctl
{
namespace
{

// More users than anybody runs routers for in one network namespace.
constexpr size_t MOST_USERS = 16;

std::string user_name(uid_t uid)
{
    const passwd *entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

std::optional<uid_t> find_user(const std::string &text)
{
    if (const passwd *entry = getpwnam(text.c_str())) {
        return entry->pw_uid;
    }
    char *end = nullptr;
    const unsigned long number = std::strtoul(text.c_str(), &end, 10);
    const bool good =
        !text.empty() && text.find_first_not_of("0123456789") == text.npos && number < UINT32_MAX;
    return good ? std::optional<uid_t>(static_cast<uid_t>(number)) : std::nullopt;
}

bool become(uid_t uid, std::string *error)
{
    const passwd *entry = getpwuid(uid);
    const gid_t gid = entry != nullptr ? entry->pw_gid : uid;
    if (uid == geteuid()) {
        return true;
    }
    if (setgroups(0, nullptr) != 0 || setresgid(gid, gid, gid) != 0 || setresuid(uid, uid, uid) != 0) {
        *error = "cannot become user " + user_name(uid) + ": " + std::strerror(errno) +
                 (errno == EPERM ? " (root can)" : "");
        return false;
    }
    // Otherwise the kernel hides the process's own network namespace from it.
    prctl(PR_SET_DUMPABLE, 1);
    setenv("XDG_RUNTIME_DIR", ("/run/user/" + std::to_string(uid)).c_str(), 1);
    return true;
}

} // namespace

bool become_daemons_user(const std::string &user, std::string *error)
{
    if (!user.empty()) {
        const std::optional<uid_t> uid = find_user(user);
        *error = uid ? "" : "there is no user " + user;
        return uid && become(*uid, error);
    }
    if (geteuid() != 0) {
        return true;
    }
    std::array<uint32_t, MOST_USERS> uids;
    const size_t count = HOST_LocalSocketUsers(uids.data(), uids.size());
    if (count == 0 || uids[0] == 0) {
        return true;
    }
    if (count == 1) {
        return become(uids[0], error);
    }
    *error = "daemons of several users run here, choose one with --user:";
    for (size_t i = 0; i < count; ++i) {
        *error += " " + user_name(uids[i]);
    }
    return false;
}

} // namespace mcastctl
