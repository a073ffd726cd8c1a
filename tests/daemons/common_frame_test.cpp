#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <optional>
#include <set>
#include <sstream>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "daemons/common/frame.h"
#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "daemons/common/options.h"
#include "daemons/common/program.h"
#include "daemons/common/services.h"
#include "daemons/common/status_output.h"
#include "daemons/common/timer.h"

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

TEST(StatusFile, OnlyAFailureIsLogged)
{
    const TemporaryFolder folder;
    Reactor reactor;
    StatusOutput output(reactor);
    testing::internal::CaptureStderr();
    output.write(folder.file("status"), one_part("text\n"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    output.write(folder.file("absent/status"), one_part("text\n"));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot write the status file " +
                                                          folder.file("absent/status: No such file")),
              std::string::npos);
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

// Writes down what the frame calls, and does in each step what the test says.
class Testd final : public Daemon
{
public:
    TakeOver read_config(ConfigTable &table) override
    {
        const int64_t value = table.integer("value", 1, 9);
        steps += " read" + std::to_string(value);
        return [this, value] {
            steps += " take" + std::to_string(value);
            then(taken);
        };
    }
    bool open() override
    {
        steps += " open";
        return opens;
    }
    bool start() override
    {
        steps += " start";
        then(started);
        return starts;
    }
    bool round() override
    {
        steps += " round";
        return false;
    }
    TextParts status() override
    {
        then(asked);
        return parts ? parts : one_part("the table\n");
    }
    bool resynchronise() override
    {
        steps += " again";
        then(resynchronised);
        return true;
    }
    void close() override
    {
        steps += " close";
    }

    std::string steps;
    bool opens = true;
    bool starts = true;
    std::function<void()> taken, started, asked, resynchronised;
    TextParts parts; // of the status, when it has several

private:
    static void then(const std::function<void()> &action)
    {
        if (action) {
            action();
        }
    }
};

class FrameTest : public testing::Test
{
protected:
    // A frame with the status file, and with the configuration file when it has a text.
    void make(const std::string &text)
    {
        std::vector<std::string> arguments{"mribd", "--status-file=" + folder.file("status"),
                                           "--log-level=error"};
        options.add_config("the file", Options::Config::Optional);
        if (!text.empty()) {
            write(text);
            arguments.push_back("--config=" + folder.file("config"));
        }
        std::vector<char *> argv;
        for (std::string &argument : arguments) {
            argv.push_back(argument.data());
        }
        ASSERT_FALSE(options.parse(static_cast<int>(argv.size()), argv.data()));
        frame.emplace(options);
        ASSERT_TRUE(frame->open());
        daemon.emplace();
    }
    void TearDown() override
    {
        log_open("daemon", LogLevel::Info);
    }
    void write(const std::string &text) const
    {
        std::ofstream(folder.file("config")) << text;
    }
    static std::function<void()> signals(int number)
    {
        return [number] { kill(getpid(), number); };
    }

    const TemporaryFolder folder;
    Options options{"mribd", "a daemon"};
    std::optional<Frame> frame;
    std::optional<Testd> daemon;
};

TEST_F(FrameTest, CallsTheDaemonInOneOrder)
{
    make("[mribd]\nvalue = 5\n");
    daemon->started = signals(SIGTERM);
    EXPECT_EQ(frame->run(*daemon), EXIT_SUCCESS);
    EXPECT_EQ(daemon->steps, " read5 open take5 start round close");
}

TEST_F(FrameTest, APeerThatHasGoneEndsNobody)
{
    struct sigaction action {
    };
    signal(SIGPIPE, SIG_DFL);
    make("");
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(FrameTest, WithoutAFileThereIsNothingToRead)
{
    make("");
    daemon->started = signals(SIGINT);
    EXPECT_EQ(frame->run(*daemon), EXIT_SUCCESS);
    EXPECT_EQ(daemon->steps, " open start round close");
}

// One signal after the other: which of several pending ones is served first is not told.
TEST_F(FrameTest, SignalsWriteTheStatusResynchroniseReloadAndEnd)
{
    make("[mribd]\nvalue = 5\n");
    daemon->started = signals(SIGUSR1);
    daemon->asked = signals(SIGUSR2);
    daemon->resynchronised = [this] {
        write("[mribd]\nvalue = 6\n");
        daemon->taken = signals(SIGTERM);
        kill(getpid(), SIGHUP);
    };
    EXPECT_EQ(frame->run(*daemon), EXIT_SUCCESS);
    EXPECT_EQ(slurp(folder.file("status")), "the table\n");
    EXPECT_EQ(daemon->steps, " read5 open take5 start round again round read6 take6 round round close");
}

// A part a round; who asks meanwhile gets a further one that begins afterwards.
TEST_F(FrameTest, ALongStatusIsWrittenInRoundsOfItsOwn)
{
    make("");
    int made = 0;
    size_t seen = 0; // how many steps there were before the last part
    daemon->started = signals(SIGUSR1);
    daemon->parts = [&](std::string *text) {
        ++made;
        *text += std::to_string(made);
        EXPECT_TRUE(made % 4 == 1 || daemon->steps.size() > seen) << "two parts in a round";
        seen = daemon->steps.size();
        if (made == 2) {
            kill(getpid(), SIGUSR1);
        } else if (made == 8) {
            kill(getpid(), SIGTERM);
        }
        return made % 4 != 0;
    };
    EXPECT_EQ(frame->run(*daemon), EXIT_SUCCESS);
    EXPECT_EQ(slurp(folder.file("status")), "5678");
}

TEST_F(FrameTest, NothingOfAFileThatIsWrongCounts)
{
    make("[mribd]\nvalue = 5\n");
    daemon->started = [this] {
        write("[mribd]\nvalue = 6\n[[acl]]\nnumber = 1\n"); // wrong where the host platform reads
        kill(getpid(), SIGHUP);
        kill(getpid(), SIGUSR1);
    };
    // Signals of lower number are read first, so that the reload is over.
    daemon->asked = signals(SIGTERM);
    testing::internal::CaptureStderr();
    EXPECT_EQ(frame->run(*daemon), EXIT_SUCCESS);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("config:4:10: number is 1"), std::string::npos);
    EXPECT_EQ(daemon->steps.find("take6"), std::string::npos) << daemon->steps;
    EXPECT_NE(daemon->steps.find("read6"), std::string::npos) << daemon->steps;
}

TEST_F(FrameTest, AFileThatIsWrongAtTheStartEndsItBeforeAnythingIsOpen)
{
    make("[mribd]\nvalue = 10\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(frame->run(*daemon), EXIT_FAILURE);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("config:2:9: value is 10"), std::string::npos);
    EXPECT_EQ(daemon->steps, "");
}

TEST_F(FrameTest, AStepOfTheStartThatFailsEndsIt)
{
    make("");
    daemon->opens = false;
    EXPECT_EQ(frame->run(*daemon), EXIT_FAILURE);
    daemon->opens = true;
    daemon->starts = false;
    EXPECT_EQ(frame->run(*daemon), EXIT_FAILURE);
    EXPECT_EQ(daemon->steps, " open open start");
}

TEST_F(FrameTest, TimersWakeItAndTheDaemonMayEndItself)
{
    make("");
    Timer timer;
    daemon->started = [&] {
        const auto ends = [](void *owner) { static_cast<Frame *>(owner)->end(7); };
        timer_start(frame->timers(), timer, 1, ends, &*frame);
    };
    EXPECT_EQ(frame->run(*daemon), 7);
    EXPECT_FALSE(timer.running());
    EXPECT_EQ(daemon->steps, " open start round round close");
}

TEST_F(FrameTest, StartWithoutMemoryFailsAndSaysSo)
{
    make("");
    daemon->started = [] { throw std::bad_alloc(); };
    testing::internal::CaptureStderr();
    EXPECT_EQ(run_program("tested", [this] { return frame->run(*daemon); }), EXIT_FAILURE);
    EXPECT_NE(
        testing::internal::GetCapturedStderr().find("tested: error: the memory was not enough to start"),
        std::string::npos);
}

TEST_F(FrameTest, WhatFindsNoMemoryIsRefusedAndTheDaemonGoesOn)
{
    make("");
    Timer fails;
    Timer ends;
    const uint64_t before = memory_refusals();
    daemon->started = [&] {
        timer_start(
            frame->timers(), fails, 1, [](void *) { throw std::bad_alloc(); }, nullptr);
        const auto end = [](void *owner) { static_cast<Frame *>(owner)->end(7); };
        timer_start(frame->timers(), ends, 1000, end, &*frame);
    };
    EXPECT_EQ(frame->run(*daemon), 7);
    EXPECT_EQ(memory_refusals(), before + 1);
}

TEST(RouterDaemons, TheFileMayHaveATableOfEachAndOfNobodyElse)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("config");
    std::string error;
    std::ofstream(path) << "[gmpd]\nx = 1\n[msdpd]\nx = 1\n[mribd]\n";
    EXPECT_TRUE(load_config(
        path.c_str(), "mribd", [](ConfigTable &) {}, &error))
        << error;
    std::ofstream(path) << "[mribd]\n[pim]\n";
    EXPECT_FALSE(load_config(
        path.c_str(), "mribd", [](ConfigTable &) {}, &error));
    EXPECT_EQ(error,
              path +
                  ":2:2: unknown key \"pim\"; allowed: vpn, acl, node, service, gmpd, mribd, msdpd, pimsmd");
}

TEST(RouterDaemons, HaveNumbersOfTheirOwn)
{
    std::set<uint64_t> services;
    std::set<uint16_t> ports;
    for (const RouterDaemon &daemon : ROUTER_DAEMONS) {
        EXPECT_TRUE(services.insert(daemon.service).second) << daemon.name;
        EXPECT_TRUE(ports.insert(daemon.control_port).second) << daemon.name;
    }
}

} // namespace
