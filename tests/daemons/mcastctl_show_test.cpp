/*
 * Command lines against the router's daemons, played by this process on their own ports: which rows are shown,
 * in what order, whom an order reaches, and how a line is completed.
 */
#include <gtest/gtest.h>
#include <list>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "daemons/common/address.h"
#include "daemons/common/control.h"
#include "daemons/common/control_tables.h"
#include "daemons/common/log.h"
#include "daemons/common/services.h"
#include "daemons/mcastctl/command.h"
#include "mcast/argument_check.h"
#include "tests/daemons/runtime_folder.h"

using mcastd::ControlField;
using mcastd::ControlFields;

namespace
{

constexpr uint32_t LOOPBACK = 1; // the only interface of a namespace whose index is known
constexpr uint32_t NOBODY = 0x00fffff0;

ControlField address(const char *text)
{
    return ControlField::address(*mcastd::parse_address(text));
}

ControlFields source_row(uint32_t if_index, const char *group, const char *source)
{
    return {ControlField::interface(if_index), address(group), address(source), ControlField::truth(true),
            ControlField::seconds(10)};
}

ControlFields route_row(const char *group, const char *source, uint32_t upstream)
{
    return {ControlField::number(0),
            address(group),
            address(source),
            ControlField::interface(upstream),
            ControlField::interfaces({LOOPBACK}),
            ControlField::counter(1),
            ControlField::counter(2),
            ControlField::counter(3)};
}

class ShownRouter : public testing::Test
{
protected:
    ShownRouter()
    {
        mcastd::log_open("test", mcastd::LogLevel::Error);
        EXPECT_EQ(MC_CommonRcInit(), MCAST_OK);
        serve(mcastd::CONTROL_PORT_GMPD_IPV4, mcastd::SOURCE_TABLE,
              {source_row(LOOPBACK, "239.1.1.1", "10.0.0.1"), source_row(LOOPBACK, "239.1.1.1", "10.0.0.2"),
               source_row(LOOPBACK, "239.1.1.2", "10.0.0.1"), source_row(NOBODY, "239.1.1.1", "10.0.0.1")});
        serve(mcastd::CONTROL_PORT_GMPD_IPV6, mcastd::SOURCE_TABLE,
              {source_row(LOOPBACK, "ff1e::1", "2001:db8::1")});
        serve(mcastd::CONTROL_PORT_MRIBD, mcastd::ROUTE_TABLE,
              {route_row("239.1.1.1", "10.0.0.1", LOOPBACK), route_row("239.1.1.1", "10.0.0.2", NOBODY)});
        stop_fd_ = eventfd(0, EFD_CLOEXEC);
        reactor_.add(stop_fd_, EPOLLIN, [this](uint32_t) { reactor_.stop(); });
        thread_ = std::thread([this] { reactor_.run(); });
    }
    ~ShownRouter() override
    {
        const uint64_t end = 1;
        EXPECT_EQ(write(stop_fd_, &end, sizeof(end)), static_cast<ssize_t>(sizeof(end)));
        thread_.join();
        reactor_.remove(stop_fd_);
        close(stop_fd_);
        servers_.clear();
        MC_CommonRcExit();
    }

    // What the command line prints.
    std::string printed(std::vector<const char *> words, int code = mcastctl::EXIT_DONE)
    {
        words.insert(words.begin(), "mcastctl");
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(mcastctl::run_command_line(static_cast<int>(words.size()), words.data()), code);
        said = testing::internal::GetCapturedStderr();
        return testing::internal::GetCapturedStdout();
    }

    // Interface, group and source of each source shown, one a line.
    std::string sources(std::vector<const char *> filter, const char *table = "sources")
    {
        filter.insert(filter.begin(), {"show", table});
        std::istringstream lines(printed(filter));
        std::string result;
        std::string line;
        std::getline(lines, line); // the headings
        while (std::getline(lines, line)) {
            std::istringstream words(line);
            std::string first, group, source;
            words >> first >> group >> source;
            result += first + " " + group + " " + source + "\n";
        }
        return result;
    }

    std::string said; // on standard error
    std::string set;  // what was set

private:
    void serve(uint16_t port, const mcastd::ControlSchema &table, std::vector<ControlFields> rows)
    {
        mcastd::ControlServer &server = servers_.emplace_back(reactor_);
        server.registry().add_table(table, [rows = std::move(rows)](mcastd::ControlRows &out) {
            for (const ControlFields &row : rows) {
                if (!out.add(row)) {
                    return;
                }
            }
        });
        if (&table == &mcastd::SOURCE_TABLE) {
            server.registry().add_setting(mcastd::INTERFACE_TABLE,
                                          {mcastd::SETTING_QUERY_INTERVAL, mcastd::FieldType::Number,
                                           [](const ControlFields &, const ControlField &) { return ""; },
                                           [this, port](const ControlFields &key, const ControlField &value) {
                                               set += std::to_string(port) + (key.empty() ? "" : " on one") +
                                                      ": " + std::to_string(value.as_number()) + "\n";
                                           }});
        }
        EXPECT_TRUE(server.open(port));
    }

    RuntimeFolder folder_;
    mcastd::Reactor reactor_;
    std::list<mcastd::ControlServer> servers_;
    std::thread thread_;
    int stop_fd_ = -1;
};

TEST_F(ShownRouter, FiltersShowTheirRowsAlone)
{
    const std::pair<std::vector<const char *>, std::string> rows[] = {
        {{},
         "lo 239.1.1.1 10.0.0.1\nlo 239.1.1.1 10.0.0.2\nlo 239.1.1.2 10.0.0.1\n0xfffff0 239.1.1.1 10.0.0.1\n"
         "lo ff1e::1 2001:db8::1\n"},
        {{"--family", "ipv6"}, "lo ff1e::1 2001:db8::1\n"},
        {{"--family", "ipv4", "--interface", "lo", "--group", "239.1.1.1"},
         "lo 239.1.1.1 10.0.0.1\nlo 239.1.1.1 10.0.0.2\n"},
        {{"--family", "ipv4", "--interface", "lo"},
         "lo 239.1.1.1 10.0.0.1\nlo 239.1.1.1 10.0.0.2\nlo 239.1.1.2 10.0.0.1\n"},
        {{"--family", "ipv4", "--source", "10.0.0.2"}, "lo 239.1.1.1 10.0.0.2\n"},
        {{"--family", "ipv4", "--interface", "lo", "--group", "239.1.1.2", "--source", "10.0.0.1"},
         "lo 239.1.1.2 10.0.0.1\n"},
    };
    for (const auto &[filter, shown] : rows) {
        EXPECT_EQ(sources(filter), shown);
        EXPECT_EQ(said, "");
    }
    EXPECT_EQ(sources({}, "routes"), "0 239.1.1.1 10.0.0.1\n0 239.1.1.1 10.0.0.2\n");
    EXPECT_EQ(sources({"--incoming", "lo"}, "routes"), "0 239.1.1.1 10.0.0.1\n");
    EXPECT_EQ(sources({"--outgoing", "lo"}, "routes"), "0 239.1.1.1 10.0.0.1\n0 239.1.1.1 10.0.0.2\n");
}

TEST_F(ShownRouter, AQueryIntervalIsANumberOrTheDefaultOfAnInterface)
{
    printed({"set", "query-interval", "20"});
    printed({"set", "query-interval", "--family", "ipv6", "--interface", "lo", "30"});
    printed({"set", "query-interval", "--family", "ipv4", "--interface", "lo", "default"});
    const std::string whole = "2202: 20\n2203: 20\n2203 on one: 30\n2202 on one: 0\n";
    EXPECT_EQ(set, whole);
    for (const char *wrong : {"default", "0", "soon"}) {
        printed({"set", "query-interval", wrong}, mcastctl::EXIT_USAGE);
        EXPECT_NE(said, "") << wrong;
    }
    EXPECT_EQ(set, whole) << "nothing more is set";
}

TEST_F(ShownRouter, AnUnfinishedLineIsCompleted)
{
    EXPECT_EQ(printed({"complete", "sho"}), "show\n");
    EXPECT_EQ(printed({"complete", "show", "so"}), "sources\n");
    EXPECT_EQ(printed({"complete", "show", "sources", "--fam"}), "--family\n");
    EXPECT_EQ(printed({"complete", "show", "sources", "--family", ""}), "ipv4\nipv6\n");
    EXPECT_EQ(printed({"complete", "show", "sources", "--json", "--family", "ipv4", "--gr"}), "--group\n");
    EXPECT_EQ(printed({"complete", "show", "sources", "--interface", "l"}).substr(0, 3), "lo\n");
}

} // namespace
