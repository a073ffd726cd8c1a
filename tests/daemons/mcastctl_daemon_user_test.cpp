/*
 * Taking another user's place, in a child process, for there is no way back.
 */
#include <cstdlib>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "daemons/mcastctl/daemon_user.h"

namespace
{

constexpr uid_t NAMELESS = 54321;

// Whether this process may become any user: root, and not that of a namespace that knows root alone.
bool may_be_anybody()
{
    std::ifstream map("/proc/self/uid_map");
    unsigned long inside = 0, outside = 0, count = 0;
    map >> inside >> outside >> count;
    return geteuid() == 0 && count > NAMELESS;
}

std::string place_for_ports()
{
    const char *const place = std::getenv("XDG_RUNTIME_DIR");
    return place != nullptr ? place : "";
}

// 0 when a process that becomes the user has that user's number, group and place for ports, and no other group.
int become(const std::string &user, uid_t uid, gid_t gid)
{
    const pid_t child = fork();
    if (child == 0) {
        std::string error;
        const std::string place = "/run/user/" + std::to_string(uid);
        unsetenv("XDG_RUNTIME_DIR");
        const int wrong = !mcastctl::become_daemons_user(user, &error) ? 1
                          : getuid() != uid || geteuid() != uid        ? 2
                          : getgid() != gid || getegid() != gid        ? 3
                          : getgroups(0, nullptr) != 0                 ? 4
                          : place_for_ports() != place                 ? 5
                          : prctl(PR_GET_DUMPABLE) != 1                ? 6
                                                                       : 0;
        _exit(wrong);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DaemonUser, ThatThereIsNotIsRefused)
{
    for (const char *wrong : {"no-such-user", "12x", "-1", "4294967295", "99999999999999999999"}) {
        std::string error;
        EXPECT_FALSE(mcastctl::become_daemons_user(wrong, &error));
        EXPECT_EQ(error, std::string("there is no user ") + wrong);
    }
}

TEST(DaemonUser, OneIsAlreadyNeedsNothing)
{
    std::string error;
    EXPECT_TRUE(mcastctl::become_daemons_user(std::to_string(geteuid()), &error)) << error;
}

TEST(DaemonUser, IsTakenWithTheGroupOfItsEntryOrOfItsNumber)
{
    if (!may_be_anybody()) {
        GTEST_SKIP() << "only root may become another user";
    }
    ASSERT_EQ(getpwuid(NAMELESS), nullptr);
    EXPECT_EQ(become(std::to_string(NAMELESS), NAMELESS, NAMELESS), 0);
    setpwent();
    const passwd *entry = getpwent();
    while (entry != nullptr && entry->pw_uid == entry->pw_gid) {
        entry = getpwent();
    }
    if (entry != nullptr) {
        const passwd other = *entry;
        EXPECT_EQ(become(other.pw_name, other.pw_uid, other.pw_gid), 0) << other.pw_name;
    }
    endpwent();
}

} // namespace
