#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/options.h"

using namespace mcastd;

namespace
{

std::string slurp(const std::string &path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        char path[] = "/tmp/mcastd-test-XXXXXX";
        path_ = mkdtemp(path);
    }
    ~TemporaryFolder()
    {
        std::filesystem::remove_all(path_);
    }
    std::string file(const std::string &name) const
    {
        return path_ + "/" + name;
    }
    const std::string &path() const
    {
        return path_;
    }

private:
    std::string path_;
};

TEST(Log, KnowsItsFourLevelsOnly)
{
    EXPECT_EQ(log_level_from_name("error"), LogLevel::Error);
    EXPECT_EQ(log_level_from_name("debug"), LogLevel::Debug);
    EXPECT_FALSE(log_level_from_name("verbose"));
    EXPECT_FALSE(log_level_from_name(""));
}

TEST(Reactor, HandlerMayRemoveItselfAndAnotherThatIsReady)
{
    Reactor reactor;
    const int first = eventfd(1, EFD_NONBLOCK);
    const int second = eventfd(1, EFD_NONBLOCK);
    int calls = 0;
    const auto both_away = [&](uint32_t) {
        ++calls;
        reactor.remove(first);
        reactor.remove(second);
    };
    ASSERT_TRUE(reactor.add(first, EPOLLIN, both_away));
    ASSERT_TRUE(reactor.add(second, EPOLLIN, both_away));
    EXPECT_TRUE(reactor.run_once(0));
    EXPECT_TRUE(reactor.run_once(0));
    EXPECT_EQ(calls, 1);
    close(first);
    close(second);
}

TEST(Reactor, DescriptorReusedInAHandlerDoesNotGetItsPredecessorsEvent)
{
    Reactor reactor;
    int fds[2] = {eventfd(1, EFD_NONBLOCK), eventfd(1, EFD_NONBLOCK)};
    int replaced = -1;
    int stray = 0;
    for (const int self : {0, 1}) {
        ASSERT_TRUE(reactor.add(fds[self], EPOLLIN, [&, self](uint32_t) {
            if (replaced >= 0) {
                return;
            }
            const int other = fds[1 - self];
            reactor.remove(other);
            close(other);
            replaced = eventfd(0, EFD_NONBLOCK);
            ASSERT_EQ(replaced, other);
            ASSERT_TRUE(reactor.add(replaced, EPOLLIN, [&](uint32_t) { ++stray; }));
        }));
    }
    EXPECT_TRUE(reactor.run_once(0));
    EXPECT_TRUE(reactor.run_once(0));
    EXPECT_GE(replaced, 0);
    EXPECT_EQ(stray, 0);
    close(fds[0]);
    close(fds[1]);
}

TEST(Reactor, BackgroundWorkKeepsTheLoopFromWaiting)
{
    Reactor reactor;
    int slices = 0;
    reactor.set_background([&] {
        ++slices;
        if (slices == 3) {
            reactor.stop();
        }
        return true;
    });
    const int wake = eventfd(1, EFD_NONBLOCK);
    ASSERT_TRUE(reactor.add(wake, EPOLLIN, [&](uint32_t) { reactor.remove(wake); }));
    EXPECT_TRUE(reactor.run());
    EXPECT_EQ(slices, 3);
    close(wake);
}

TEST(StatusFile, IsReplacedAndLeavesNothingBeside)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("status");
    ASSERT_TRUE(write_file_atomically(path, "first, longer\n"));
    ASSERT_TRUE(write_file_atomically(path, "second\n"));
    EXPECT_EQ(slurp(path), "second\n");
    const auto files = std::filesystem::directory_iterator(folder.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST(StatusFile, FailureNamesTheCauseAndKeepsTheOldFile)
{
    const TemporaryFolder folder;
    EXPECT_FALSE(write_file_atomically(folder.file("absent/status"), "text"));
    EXPECT_EQ(errno, ENOENT);
}

TEST(Options, RejectsAnUnknownLevelAndAnUnknownOption)
{
    for (const char *wrong : {"--log-level=loud", "--no-such-option"}) {
        Options options("testd", "a daemon");
        std::string name = "testd";
        std::string argument = wrong;
        char *argv[] = {name.data(), argument.data(), nullptr};
        testing::internal::CaptureStderr();
        const auto code = options.parse(2, argv);
        EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
        ASSERT_TRUE(code);
        EXPECT_NE(*code, 0);
    }
}

TEST(Frame, SignalsWriteTheStatusReloadAndEnd)
{
    const TemporaryFolder folder;
    Options options("testd", "a daemon");
    std::string name = "testd";
    std::string file = "--status-file=" + folder.file("status");
    std::string level = "--log-level=error";
    char *argv[] = {name.data(), file.data(), level.data(), nullptr};
    ASSERT_FALSE(options.parse(3, argv));
    Frame frame(options);
    ASSERT_TRUE(frame.open());
    int reloads = 0;
    // One after the other: which of several pending signals is served first is not told.
    frame.on_status([] {
        kill(getpid(), SIGHUP);
        return std::string("the table\n");
    });
    frame.on_reload([&] {
        ++reloads;
        kill(getpid(), SIGTERM);
    });
    kill(getpid(), SIGUSR1);
    EXPECT_EQ(frame.run(), EXIT_SUCCESS);
    EXPECT_EQ(slurp(folder.file("status")), "the table\n");
    EXPECT_EQ(reloads, 1);
}

} // namespace
