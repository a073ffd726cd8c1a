/*
 * "watch EVENTS...": registers with mribd for classes of events as a daemon would, and prints a line for
 * everything that mribd then tells, until a signal ends it.
 */
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/command_words.h"
#include "daemons/common/descriptor.h"
#include "daemons/mcastctl/arguments.h"
#include "daemons/mcastctl/command.h"
#include "daemons/mcastctl/watch_member.h"
#include "mcast/event.h"

namespace mcastctl
{
namespace
{

constexpr int RETRY_MS = 1000;

struct WatchOptions {
    std::vector<std::string> events;
    uint16_t family = 0;
    std::optional<uint32_t> if_index;
    bool changes_alone = false;
    bool with_time = false;
};

std::string time_of_day()
{
    struct timespec now;
    struct tm local;
    char text[64];
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d ", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(now.tv_nsec / 1000000));
    return text;
}

// Watches until a signal comes.
class Watcher
{
public:
    explicit Watcher(const WatchOptions &options) : with_time_(options.with_time)
    {
        for (const WatchedEvents &each : watched_events()) {
            if (options.events.empty() ||
                std::count(options.events.begin(), options.events.end(), each.name)) {
                watch_.events.push_back(&each);
            }
        }
        watch_.if_index = options.if_index.value_or(0);
        watch_.changes_alone = options.changes_alone;
        for (const uint8_t family : {uint8_t{MCAST_FAMILY_IPV4}, uint8_t{MCAST_FAMILY_IPV6}}) {
            if (options.family == 0 || options.family == family) {
                members_.emplace_back(reactor_, family, watch_,
                                      [this](const std::string &line) { print(line); });
            }
        }
    }

    ~Watcher()
    {
        for (const int fd : signals_) {
            reactor_.remove(fd);
            close(fd);
        }
    }
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    // The exit code.
    int run()
    {
        // mribd may end while something is sent to it, and the reader of the lines may have seen enough.
        std::signal(SIGPIPE, SIG_IGN);
        if (!reactor_.valid() || !take_signals()) {
            std::perror("mcastctl: watch");
            return EXIT_FAILED;
        }
        while (!ended_) {
            const bool all_open = open_members();
            if (!reactor_.run_once(all_open ? -1 : RETRY_MS) || std::ferror(stdout) != 0) {
                std::perror("mcastctl: watch");
                return EXIT_FAILED;
            }
        }
        for (WatchMember &member : members_) {
            member.close();
        }
        return EXIT_DONE;
    }

private:
    bool take_signals()
    {
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            uint32_t fd = MCAST_NONE;
            if (MCAST_SigToEpoll(static_cast<uint32_t>(reactor_.descriptor()), static_cast<uint32_t>(number),
                                 mcastd::Reactor::context(), &fd) != MCAST_OK) {
                return false;
            }
            signals_.push_back(static_cast<int>(fd));
            reactor_.attach(signals_.back(), [this](uint32_t) { ended_ = true; });
        }
        return true;
    }

    // Whether all are open. An unreachable mribd is reported once.
    bool open_members()
    {
        bool all_open = true;
        for (WatchMember &member : members_) {
            all_open &= member.is_open() || member.open();
        }
        if (!all_open && !said_missing_) {
            std::fputs("mcastctl: mribd cannot be reached, trying every second\n", stderr);
        }
        said_missing_ = !all_open;
        return all_open;
    }

    void print(const std::string &line)
    {
        const std::string whole = (with_time_ ? time_of_day() : "") + line + "\n";
        std::fwrite(whole.data(), 1, whole.size(), stdout);
        std::fflush(stdout);
    }

    bool with_time_;
    bool said_missing_ = false;
    bool ended_ = false;
    mcastd::Reactor reactor_;
    Watch watch_;
    std::list<WatchMember> members_;
    std::vector<int> signals_;
};

} // namespace

void add_watch_command(const CommandLine &line)
{
    CLI::App &command = *line.root.add_subcommand(
        "watch", "Print what mribd tells the daemons, as it tells it; all without EVENTS");
    const auto options = std::make_shared<WatchOptions>();
    std::vector<std::string> names;
    std::string help = "What to watch:";
    for (const WatchedEvents &each : watched_events()) {
        names.emplace_back(each.name);
        help += std::string("\n") + each.name + ": " + each.help;
    }
    command.add_option("events", options->events, help)->check(mcastd::one_of(names))->type_name("EVENTS");
    command.add_flag("--changes", options->changes_alone, "Without what holds at the start");
    command.add_flag("--time", options->with_time, "Begin each line with the time");
    add_family(command, &options->family);
    add_interface(command, "--interface", "Of what is about an interface only this one's",
                  &options->if_index);
    on_command(line, command, [options] { return Watcher(*options).run(); });
}

} // namespace mcastctl
