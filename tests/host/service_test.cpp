// Services of this node: what is known of them, whoever started them, and how they are started.
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

#include "config_support.h"
#include "mcast/mib.h"
#include "platform/device.h"
#include "support.h"
#include "support/descriptors.h"

namespace
{

using host_test::in_child;
using host_test::listen_local;
using host_test::load;

constexpr uint64_t SERVICE = 7;
constexpr uint16_t PORT = 4000;

// Waits for what another process is about to do; the test fails by its never being done.
template <typename Condition> bool becomes(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        sched_yield();
    }
    return true;
}

// The state of the service, 99 when the call fails.
uint32_t state_of(uint64_t service = SERVICE)
{
    uint32_t state = 98;
    return SERVICE_GetStatus(DEV_GetSelf(), service, 0, &state) == 0 ? state : 99;
}

uint32_t start(uint64_t service = SERVICE)
{
    return SERVICE_Start(DEV_GetSelf(), service, 0, 0);
}

class Services : public host_test::RuntimeDirTest
{
protected:
    void SetUp() override
    {
        RuntimeDirTest::SetUp();
        report_path_ = base_ + "/report";
        orders_path_ = base_ + "/orders";
        ASSERT_EQ(mkfifo(report_path_.c_str(), 0600), 0);
        ASSERT_EQ(mkfifo(orders_path_.c_str(), 0600), 0);
        // Both ends stay open here, so that nobody waits for the other side in open.
        report_ = open(report_path_.c_str(), O_RDWR | O_CLOEXEC);
        orders_ = open(orders_path_.c_str(), O_RDWR | O_CLOEXEC);
        configure(SERVICE_CHILD);
    }

    void TearDown() override
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            EXPECT_TRUE(becomes([this] { return gone(); })) << "a zombie";
        }
        close(report_);
        close(orders_);
        load("");
        RuntimeDirTest::TearDown();
    }

    void configure(const std::string &program) const
    {
        load("[[service]]\nid = 7\nname = 'x'\nport = 4000\ncommand = ['" + program + "', '4000', '" +
             report_path_ + "', '" + orders_path_ + "']\n");
    }

    // The next line that the service reports.
    std::string report() const
    {
        std::string line;
        char letter = 0;
        while (read(report_, &letter, 1) == 1 && letter != '\n') {
            line += letter;
        }
        return line;
    }

    // Takes the first report: process, whether it leads a session, descriptors, input, signals.
    std::array<std::string, 6> started()
    {
        std::array<std::string, 6> fields;
        std::istringstream line(report());
        for (std::string &field : fields) {
            line >> field;
        }
        process_ = std::stoi(fields[0]);
        return fields;
    }

    void order() const
    {
        EXPECT_EQ(write(orders_, "x", 1), 1);
    }

    // Whether the process is gone altogether: of a zombie this is not true.
    bool gone() const
    {
        return kill(process_, 0) != 0 && errno == ESRCH;
    }

    std::string report_path_;
    std::string orders_path_;
    int report_ = -1;
    int orders_ = -1;
    pid_t process_ = 0;
};

TEST_F(Services, IsAbsentUntilItIsStartedStartingUntilItListensAndThenRunning)
{
    EXPECT_EQ(state_of(), SERVICE_STATE_ABSENT);
    ASSERT_EQ(start(), 0u);
    started();
    EXPECT_EQ(state_of(), SERVICE_STATE_STARTING);
    order();
    ASSERT_EQ(report(), "listening");
    EXPECT_EQ(state_of(), SERVICE_STATE_RUNNING);
}

TEST_F(Services, IsStoppedOnceItEndsAndLeavesNoZombie)
{
    ASSERT_EQ(start(), 0u);
    started();
    order();
    ASSERT_EQ(report(), "listening");
    order();
    EXPECT_TRUE(becomes([] { return state_of() == SERVICE_STATE_STOPPED; }));
    EXPECT_TRUE(becomes([this] { return gone(); })) << "a zombie";
}

TEST_F(Services, IsStoppedWhenItIsKilledBeforeItListens)
{
    ASSERT_EQ(start(), 0u);
    started();
    kill(process_, SIGKILL);
    EXPECT_TRUE(becomes([] { return state_of() == SERVICE_STATE_STOPPED; }));
}

TEST_F(Services, IsStartedAgainAfterItHasStopped)
{
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(start(), 0u);
        started();
        order();
        ASSERT_EQ(report(), "listening");
        EXPECT_EQ(state_of(), SERVICE_STATE_RUNNING);
        kill(process_, SIGKILL);
        EXPECT_TRUE(becomes([] { return state_of() == SERVICE_STATE_STOPPED; }));
    }
}

TEST_F(Services, IsStartedOnceHoweverManyTry)
{
    ASSERT_EQ(start(), 0u);
    started();
    EXPECT_EQ(start(), SERVICE_NOTHING_DONE);
    order();
    ASSERT_EQ(report(), "listening");
    EXPECT_EQ(start(), SERVICE_NOTHING_DONE);
}

TEST_F(Services, IsKnownToOtherProcessesAndOutlivesWhoStartedIt)
{
    ASSERT_EQ(in_child([] { return start() == 0 ? 0 : 1; }), 0);
    started();
    EXPECT_EQ(state_of(), SERVICE_STATE_STARTING);
    EXPECT_EQ(start(), SERVICE_NOTHING_DONE);
    order();
    ASSERT_EQ(report(), "listening");
    EXPECT_EQ(in_child([] { return static_cast<int>(state_of()); }), 2);
    kill(process_, SIGKILL);
    process_ = 0; // somebody else's child now, and his zombie until he looks
    EXPECT_TRUE(becomes([] { return state_of() == SERVICE_STATE_STOPPED; }));
}

TEST_F(Services, ThatSomebodyElseStartedRunsAndIsNotStarted)
{
    const int listener = listen_local(PORT, 16, SOCK_NONBLOCK);
    ASSERT_GE(listener, 0);
    EXPECT_EQ(state_of(), SERVICE_STATE_RUNNING);
    EXPECT_EQ(start(), SERVICE_NOTHING_DONE);
    EXPECT_EQ(accept(listener, nullptr, nullptr), -1) << "nobody connects to find out";
    close(listener);
    EXPECT_NE(state_of(), SERVICE_STATE_RUNNING) << "the name is left, but nobody has it";
}

TEST_F(Services, BeginsWithNothingOfOursButItsMark)
{
    sigset_t blocked;
    sigset_t before;
    sigset_t after;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto old = signal(SIGPIPE, SIG_IGN);
    const int inherited = open("/dev/zero", O_RDONLY); // not closed on exec
    const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    ASSERT_EQ(dup2(inherited, STDIN_FILENO), STDIN_FILENO);
    const int descriptors = OpenDescriptors();

    ASSERT_EQ(start(), 0u);
    const auto fields = started();
    EXPECT_EQ(fields[1], "1") << "a session of its own";
    EXPECT_EQ(fields[2], "0,1,2,3,");
    EXPECT_EQ(fields[3], "/dev/null");
    EXPECT_EQ(fields[4], "0000000000000000") << "blocked signals";
    // The C library ignores two signals of its own there, 32 and 33, until it needs them.
    EXPECT_EQ(std::stoull(fields[5], nullptr, 16) & ~0x180000000ull, 0u) << "ignored signals";

    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(sigismember(&after, SIGTERM), 1);
    EXPECT_EQ(sigismember(&after, SIGUSR1), 0) << "our own mask is what it was";
    EXPECT_EQ(OpenDescriptors(), descriptors);
    signal(SIGPIPE, old);
    EXPECT_EQ(dup2(input, STDIN_FILENO), STDIN_FILENO);
    close(input);
    close(inherited);
}

TEST_F(Services, LeavesOtherChildrenAndTheHandlerOfTheirEndAlone)
{
    struct sigaction action {
    };
    struct sigaction old {
    };
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGCHLD, &action, &old), 0);
    ASSERT_EQ(start(), 0u);
    started();
    EXPECT_EQ(in_child([] { return 42; }), 42);
    kill(process_, SIGKILL);
    EXPECT_TRUE(becomes([this] { return gone(); }));
    EXPECT_EQ(in_child([] { return 43; }), 43);
    struct sigaction now {
    };
    ASSERT_EQ(sigaction(SIGCHLD, &old, &now), 0);
    EXPECT_EQ(now.sa_handler, action.sa_handler);
}

TEST_F(Services, AProgramThatIsNotThereIsToldAndCountsAsStopped)
{
    configure("/nonexistent/program");
    const int descriptors = OpenDescriptors();
    EXPECT_EQ(start(), HOST_FAILED);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(state_of(), SERVICE_STATE_STOPPED);
    EXPECT_EQ(OpenDescriptors(), descriptors);
    configure("/dev/null");
    EXPECT_EQ(start(), HOST_FAILED);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(Services, ARuntimeDirectoryThatIsNotOursIsAnErrorAndNotAbsence)
{
    uint32_t state = 98;
    ASSERT_EQ(chmod(base_.c_str(), 0755), 0);
    EXPECT_EQ(SERVICE_GetStatus(0, SERVICE, 0, &state), HOST_FAILED);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(state, 98u);
    EXPECT_EQ(start(), HOST_FAILED);
    ASSERT_EQ(chmod(base_.c_str(), 0700), 0);
}

TEST_F(Services, WithoutDescriptorsNothingIsKnownAndNothingStarts)
{
    close(listen_local(PORT + 1)); // so that there is a directory
    EXPECT_EQ(in_child([] {
                  const rlimit none = {3, 3};
                  uint32_t state = 98;
                  setrlimit(RLIMIT_NOFILE, &none);
                  const bool unknown = SERVICE_GetStatus(0, SERVICE, 0, &state) == HOST_FAILED && state == 98;
                  return unknown && start() == HOST_FAILED ? 0 : 1;
              }),
              0);
}

TEST_F(Services, NobodyConfiguredIsAbsentAndCannotBeStarted)
{
    EXPECT_EQ(state_of(8), SERVICE_STATE_ABSENT);
    EXPECT_EQ(start(8), HOST_FAILED);
    EXPECT_EQ(errno, ENOENT);
    load("");
    EXPECT_EQ(state_of(), SERVICE_STATE_ABSENT);
    EXPECT_EQ(start(), HOST_FAILED);
}

TEST_F(Services, OtherNodesAreOutOfReach)
{
    uint32_t state = 98;
    EXPECT_EQ(SERVICE_GetStatus(1, SERVICE, 0, &state), HOST_FAILED);
    EXPECT_EQ(errno, EHOSTUNREACH);
    EXPECT_EQ(SERVICE_Start(1, SERVICE, 0, 0), HOST_FAILED);
    EXPECT_EQ(errno, EHOSTUNREACH);
    EXPECT_EQ(state, 98u);
}

TEST_F(Services, ArgumentsThatAreNotAgreedAreRefused)
{
    uint32_t state = 98;
    EXPECT_EQ(SERVICE_GetStatus(0, SERVICE, 1, &state), HOST_FAILED);
    EXPECT_EQ(SERVICE_GetStatus(0, SERVICE, 0, nullptr), HOST_FAILED);
    EXPECT_EQ(SERVICE_Start(0, SERVICE, 1, 0), HOST_FAILED);
    EXPECT_EQ(SERVICE_Start(0, SERVICE, 0, 1), HOST_FAILED);
    EXPECT_EQ(state, 98u);
    EXPECT_EQ(state_of(), SERVICE_STATE_ABSENT) << "none of them did anything";
}

// ---- What the library makes of it ----

TEST_F(Services, AreStartedAndReachedByTheLibrary)
{
    const MCAST_APP_ENDPOINT_S no_start = {SERVICE, PORT, 0};
    const MCAST_APP_ENDPOINT_S endpoint = {SERVICE, PORT, 1};
    const int descriptors = OpenDescriptors();
    EXPECT_EQ(MCAST_Connect2APP(&no_start), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(state_of(), SERVICE_STATE_ABSENT);
    int fd = -1;
    order(); // it listens as soon as it runs
    EXPECT_TRUE(becomes([&] {
        fd = MCAST_Connect2APP(&endpoint);
        return fd >= 0;
    }));
    started();
    EXPECT_EQ(OpenDescriptors(), descriptors + 1);
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(&no_start), MCAST_OK);
    close(fd);
    kill(process_, SIGKILL);
    EXPECT_TRUE(becomes([] { return state_of() == SERVICE_STATE_STOPPED; }));
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(&no_start), MCAST_OK) << "it runs nowhere, which is as good";
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(Services, AnswerManagementRequestsOfTheLibrary)
{
    const MCAST_APP_ENDPOINT_S endpoint = {SERVICE, PORT, 0};
    char reply[4] = {};
    MCAST_MIB_REQUEST_S request = {8, "question", sizeof(reply), reply, 0, 0};
    const auto parse = [](const void *bytes, uint64_t length, void *, void *, void *) {
        return std::string(static_cast<const char *>(bytes), length) == "answ" ? MCAST_OK : MCAST_ERR_GENERAL;
    };
    const int listener = listen_local(PORT);
    ASSERT_GE(listener, 0);
    std::thread server([listener] {
        close(accept(listener, nullptr, nullptr)); // that of the status
        for (const char *answer : {"answer", "", static_cast<const char *>(nullptr)}) {
            char question[16] = {};
            const int fd = accept(listener, nullptr, nullptr);
            if (answer != nullptr) { // otherwise it closes without reading
                EXPECT_EQ(recv(fd, question, sizeof(question), 0), 8);
                EXPECT_STREQ(question, "question");
                EXPECT_EQ(send(fd, answer, strlen(answer), 0), static_cast<ssize_t>(strlen(answer)));
            }
            close(fd);
        }
    });
    EXPECT_EQ(MCAST_MIB_GetDaemonStatus(&endpoint), MCAST_OK);
    EXPECT_EQ(MCAST_MIB_Get(&endpoint, parse, &request), MCAST_OK) << "cut to the buffer";
    EXPECT_EQ(request.reply_length, 4u);
    EXPECT_EQ(MCAST_MIB_Get(&endpoint, parse, &request), MCAST_MIB_NO_ENTRY) << "an empty answer is none";
    EXPECT_EQ(MCAST_MIB_Get(&endpoint, parse, &request), MCAST_MIB_NO_ENTRY) << "the peer has gone";
    server.join();
    close(listener);
}

struct ErrorRow {
    const char *text;
    const char *error;
};

TEST(ServiceTable, ErrorsNameTheirPlaceAndWhatIsAllowed)
{
    const ErrorRow rows[] = {
        {"[[service]]\nport = 1\n", "f:1:1: [[service]] lacks the key id"},
        {"[[service]]\nid = 0\n", "f:2:6: id is 0; allowed: 1 to 9223372036854775807"},
        {"[[service]]\nid = 1\n", "f:1:1: [[service]] lacks the key port"},
        {"[[service]]\nid = 1\nport = 0\n", "f:3:8: port is 0; allowed: 1 to 65535"},
        {"[[service]]\nid = 1\nport = 65536\n", "f:3:8: port is 65536; allowed: 1 to 65535"},
        {"[[service]]\nid = 1\nname = ''\nport = 1\n", "f:3:8: name has 0 characters; allowed: 1 to 63"},
        {"[[service]]\nid = 1\nport = 1\n",
         "f:1:1: there is no command; allowed: a list of a program and its arguments"},
        {"[[service]]\nid = 1\nport = 1\ncommand = []\n",
         "f:4:11: there is no command; allowed: a list of a program and its arguments"},
        {"[[service]]\nid = 1\nport = 1\ncommand = '/bin/x'\n",
         "f:4:11: command is a string; allowed: a list of strings"},
        {"[[service]]\nid = 1\nport = 1\ncommand = ['x']\n",
         "f:4:12: \"x\" is no program; allowed: an absolute path"},
        {"[[service]]\nid = 1\nport = 1\ncommand = ['']\n",
         "f:4:12: \"\" is no program; allowed: an absolute path"},
        {"[[service]]\nid = 1\nport = 1\ncommand = ['/x', \"a\\u0000b\"]\n",
         "f:4:18: \"a?b\" holds a zero byte; allowed: none"},
        {"[[service]]\nid = 1\nport = 1\ncommand = ['/x']\nuser = 'root'\n",
         "f:5:1: unknown key \"user\" in [[service]]; allowed: id, name, port, command"},
        {"[[service]]\nid = 1\nport = 1\ncommand = ['/x']\n[[service]]\nid = 1\nport = 2\ncommand = ['/x']\n",
         "f:6:6: there is another service 1; allowed: an id of its own"},
        {"[[service]]\nid = 1\nport = 1\ncommand = ['/x']\n[[service]]\nid = 2\nport = 1\ncommand = ['/x']\n",
         "f:7:8: port 1 is service 1's; allowed: a port of its own"},
    };
    for (const ErrorRow &row : rows) {
        EXPECT_EQ(host_test::load_error(row.text), row.error) << row.text;
    }
    load("");
}

} // namespace
