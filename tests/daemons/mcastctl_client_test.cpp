/*
 * The client against daemons of this process: two that answer on ports of their own, and one that is absent.
 */
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

#include "daemons/common/control.h"
#include "daemons/common/log.h"
#include "daemons/mcastctl/client.h"
#include "tests/daemons/runtime_folder.h"

using namespace mcastctl;
using mcastd::ControlField;
using mcastd::ControlFields;
using mcastd::ControlRows;
using mcastd::ControlServer;
using mcastd::FieldType;

namespace
{

constexpr mcastd::ControlColumn COLUMNS[] = {
    {"interface", FieldType::Interface}, {"number", FieldType::Number}, {"value", FieldType::Text}};
constexpr mcastd::ControlSchema TABLE{99, "numbers", 2, COLUMNS};
constexpr mcastd::ControlSchema MISSING{98, "missing", 2, COLUMNS};

constexpr DaemonInfo ONE{"one", MCAST_FAMILY_IPV4, {901, 2391, 0}};
constexpr DaemonInfo TWO{"two", MCAST_FAMILY_IPV6, {902, 2392, 0}};
constexpr DaemonInfo ABSENT{"absent", 0, {903, 2393, 0}};

using Keys = std::set<std::pair<uint32_t, uint64_t>>;

// A daemon with a table of these keys, a setting and a command.
class FakeDaemon
{
public:
    FakeDaemon(mcastd::Reactor &reactor, const DaemonInfo &daemon, Keys keys)
        : server_(reactor), keys_(std::move(keys))
    {
        mcastd::ControlRegistry &registry = server_.registry();
        registry.add_table(TABLE, [this](ControlRows &rows) {
            ++requests;
            if (is_late) {
                kill(getpid(), SIGALRM); // which time would do
            }
            for (const auto &[if_index, number] : keys_) {
                if (!rows.add({ControlField::interface(if_index), ControlField::number(number),
                               ControlField::text(std::string(100, 'x'))})) {
                    return;
                }
            }
        });
        registry.add_setting(TABLE, {"setting", FieldType::Number,
                                     [](const ControlFields &, const ControlField &value) {
                                         return value.as_number() > 9 ? "at most 9" : "";
                                     },
                                     [this](const ControlFields &key, const ControlField &value) {
                                         set += std::to_string(key.size()) + ":" +
                                                std::to_string(value.as_number()) + " ";
                                     }});
        registry.add_command(5, [](const ControlFields &arguments) {
            return mcastd::ControlOutcome{mcastd::ControlStatus::Done, mcastd::CONTROL_NO_INDEX,
                                          "done " + arguments.at(0).as_text()};
        });
        EXPECT_TRUE(server_.open(daemon.endpoint.port));
    }

    std::atomic<unsigned> requests = 0;
    std::atomic<bool> is_late = false;
    std::string set;

private:
    ControlServer server_;
    Keys keys_;
};

class Client : public testing::Test
{
protected:
    Client()
    {
        mcastd::log_open("test", mcastd::LogLevel::Error);
    }
    ~Client() override
    {
        stop();
    }

    // Two daemons with tables of these keys, served from a thread of its own.
    void start(const Keys &first, const Keys &second = {})
    {
        one = std::make_unique<FakeDaemon>(reactor, ONE, first);
        two = std::make_unique<FakeDaemon>(reactor, TWO, second);
        stop_fd_ = eventfd(0, EFD_CLOEXEC);
        reactor.add(stop_fd_, EPOLLIN, [this](uint32_t) { reactor.stop(); });
        thread_ = std::thread([this] { reactor.run(); });
    }

    void stop()
    {
        if (thread_.joinable()) {
            const uint64_t end = 1;
            EXPECT_EQ(write(stop_fd_, &end, sizeof(end)), static_cast<ssize_t>(sizeof(end)));
            thread_.join();
            reactor.remove(stop_fd_);
            close(stop_fd_);
        }
    }

    // What a walk shows, for example "one 1/5, two 2/7".
    RowVisitor writer()
    {
        return [this](const DaemonInfo &daemon, const ControlFields &row) {
            seen += (seen.empty() ? "" : ", ") + std::string(daemon.name) + " " +
                    std::to_string(row[0].as_number()) + "/" + std::to_string(row[1].as_number());
            return true;
        };
    }

    mcastd::Reactor reactor;
    std::unique_ptr<FakeDaemon> one;
    std::unique_ptr<FakeDaemon> two;
    std::string seen;

private:
    RuntimeFolder folder_;
    std::thread thread_;
    int stop_fd_ = -1;
};

} // namespace

TEST_F(Client, ShowsOneDaemonsTableAfterTheOther)
{
    start({{1, 5}, {3, 1}}, {{2, 7}});
    const Outcome outcome = walk_in_turn({&ONE, &ABSENT, &TWO}, TABLE, {}, writer());
    EXPECT_EQ(seen, "one 1/5, one 3/1, two 2/7");
    EXPECT_TRUE(outcome.good());
    EXPECT_EQ(outcome.unreachable, Daemons{&ABSENT});
}

TEST_F(Client, GoesOnAsLongAsThereAreRows)
{
    Keys keys;
    for (uint64_t i = 0; i < 2000; ++i) {
        keys.insert({1, i});
    }
    start(keys, {{1, 0}});
    uint64_t next = 0;
    unsigned of_two = 0;
    const Outcome outcome =
        walk_in_turn({&ONE, &TWO}, TABLE, {}, [&](const DaemonInfo &daemon, const ControlFields &row) {
            if (&daemon == &TWO) {
                ++of_two;
            } else {
                EXPECT_EQ(row[1].as_number(), next++);
            }
            return true;
        });
    EXPECT_TRUE(outcome.good());
    EXPECT_EQ(next, 2000u);
    EXPECT_EQ(of_two, 1u);
    EXPECT_LT(one->requests, 20u) << "many rows a reply";
}

TEST_F(Client, BeginsAtTheKeyAndLeavesADaemonWhenTold)
{
    start({{1, 1}, {2, 2}, {2, 3}, {3, 4}}, {{2, 5}, {4, 6}});
    walk_in_turn({&ONE, &TWO}, TABLE, {ControlField::interface(2)},
                 [this](const DaemonInfo &daemon, const ControlFields &row) {
                     return row[0].as_number() <= 2 && writer()(daemon, row);
                 });
    EXPECT_EQ(seen, "one 2/2, one 2/3, two 2/5");
}

TEST_F(Client, MergesTablesByInterface)
{
    start({{1, 1}, {3, 1}, {5, 1}}, {{2, 2}, {3, 2}, {6, 2}});
    const Outcome outcome = walk_merged({&ONE, &TWO, &ABSENT}, TABLE, {}, writer());
    EXPECT_EQ(seen, "one 1/1, two 2/2, one 3/1, two 3/2, one 5/1, two 6/2");
    EXPECT_EQ(outcome.unreachable, Daemons{&ABSENT});
}

TEST_F(Client, FindsARowWhereThereIsOne)
{
    start({{1, 1}}, {{1, 1}, {2, 2}});
    const auto get = [this](uint32_t if_index, uint64_t number) {
        seen.clear();
        return get_row({&ONE, &TWO, &ABSENT}, TABLE,
                       {ControlField::interface(if_index), ControlField::number(number)}, writer());
    };
    EXPECT_TRUE(get(1, 1).good());
    EXPECT_EQ(seen, "one 1/1, two 1/1");
    EXPECT_EQ(get(2, 2).unreachable, Daemons{&ABSENT});
    EXPECT_EQ(seen, "two 2/2");
    EXPECT_TRUE(get(2, 3).good());
    EXPECT_EQ(seen, "");
}

TEST_F(Client, ADaemonWithoutTheTableIsNamedWithItsReason)
{
    start({}, {});
    const std::vector<std::string> errors = {"one (IPv4): no such table here",
                                             "two (IPv6): no such table here"};
    EXPECT_EQ(walk_merged({&ONE, &TWO}, MISSING, {}, writer()).errors, errors);
    EXPECT_EQ(get_row({&ONE, &TWO}, MISSING, {ControlField::interface(1), ControlField::number(1)}, writer())
                  .errors,
              errors);
    EXPECT_EQ(walk_in_turn({&ONE}, MISSING, {}, writer()).errors, std::vector<std::string>{errors[0]});
}

TEST_F(Client, ADaemonWithoutTheTableDoesNotHideTheNext)
{
    start({{1, 1}}, {});
    constexpr DaemonInfo WRONG{"wrong", 0, {901, 2391, 0}};
    EXPECT_EQ(walk_in_turn({&WRONG, &TWO}, MISSING, {}, writer()).errors.size(), 2u);
}

TEST_F(Client, SetsForAllAndForOne)
{
    start({}, {});
    EXPECT_TRUE(set_value(ONE, TABLE, {}, "setting", ControlField::number(3)).good());
    EXPECT_TRUE(
        set_value(ONE, TABLE, {ControlField::interface(1)}, "setting", ControlField::number(4)).good());
    stop();
    EXPECT_EQ(one->set, "0:3 1:4 ");
}

TEST_F(Client, SaysWhichValueIsWrong)
{
    start({}, {});
    EXPECT_EQ(set_value(ONE, TABLE, {}, "setting", ControlField::number(10)).errors,
              std::vector<std::string>{"one (IPv4): at most 9"});
    EXPECT_EQ(set_value(ONE, TABLE, {ControlField::interface(1)}, "setting", ControlField::number(10)).errors,
              std::vector<std::string>{"one (IPv4): at most 9 (value 1 of the request)"});
    EXPECT_EQ(set_value(ABSENT, TABLE, {}, "setting", ControlField::number(1)).unreachable, Daemons{&ABSENT});
    EXPECT_EQ(set_value(ABSENT, TABLE, {ControlField::interface(1)}, "setting", ControlField::number(1))
                  .unreachable,
              Daemons{&ABSENT});
}

TEST_F(Client, GivesCommands)
{
    start({}, {});
    std::string answer;
    EXPECT_TRUE(give_command(ONE, 5, {ControlField::text("it")}, &answer).good());
    EXPECT_EQ(answer, "done it");
    EXPECT_EQ(give_command(ONE, 6, {}, &answer).errors.size(), 1u);
    EXPECT_EQ(give_command(ABSENT, 5, {}, &answer).unreachable, Daemons{&ABSENT});
}

TEST_F(Client, NamesWhoHasNotAnsweredInTime)
{
    const auto ask = [this](const Daemons &daemons) {
        start({}, {});
        one->is_late = true;
        walk_merged(daemons, TABLE, {}, writer());
    };
    EXPECT_EXIT(ask({&ONE}), testing::ExitedWithCode(EXIT_FAILURE),
                "^mcastctl: one \\(IPv4\\) does not answer\n");
    EXPECT_EXIT(ask({&ONE, &TWO}), testing::ExitedWithCode(EXIT_FAILURE),
                "^mcastctl: one of these: one \\(IPv4\\), two \\(IPv6\\) does not answer\n");
}

TEST_F(Client, KnowsWhoRuns)
{
    start({}, {});
    EXPECT_TRUE(is_running(ONE));
    EXPECT_FALSE(is_running(ABSENT));
}
