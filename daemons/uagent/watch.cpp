#include "daemons/uagent/watch.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "daemons/common/log.h"

namespace uagent
{
namespace
{

// The longest line.
constexpr size_t MOST_LINE = 1 << 20;
constexpr uint32_t RETRY_MS = 1000;

bool is_file(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

// Whether the process is to end; the frame hears of it only between events.
bool end_is_asked_for()
{
    sigset_t pending;
    return sigpending(&pending) == 0 &&
           (sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1);
}

} // namespace

Watch::Watch(mcastd::Frame &frame, const Settings &settings, int input, const std::string &input_name,
             FILE *out)
    : frame_(frame), settings_(settings), input_(input), input_name_(input_name),
      input_is_file_(is_file(input)), agent_(settings, out)
{
    agent_.stop_waiting_when(end_is_asked_for);
}

Watch::~Watch()
{
    mcastd::timer_stop(frame_.timers(), retry_);
    forget_daemon();
    listen_to_input(false);
}

bool Watch::open()
{
    std::string error;
    signal(SIGPIPE, SIG_DFL); // of what is printed: it ends with its reader, as every filter does
    if (agent_.connect(&error)) {
        follow_daemon();
        return true;
    }
    if (settings_.reconnect) {
        lose_daemon(error);
        return true;
    }
    mcastd::log_error("%s", error.c_str());
    return false;
}

bool Watch::start()
{
    if (!waiting() && !listen_to_input(true)) {
        mcastd::log_error("%s: %s", input_name_.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

bool Watch::round()
{
    if (input_is_file_ && listens_) {
        read_some();
    }
    return input_is_file_ && listens_;
}

mcastd::TextParts Watch::status()
{
    return mcastd::one_part(std::string(waiting() ? "waiting for the daemon" : "connected") +
                            "\nusers announced: " + std::to_string(told_.count()) + "\n");
}

// Ends the process with a failure.
void Watch::fail(const std::string &error)
{
    mcastd::log_error("%s", error.c_str());
    listen_to_input(false);
    ended_ = true;
    frame_.end(EXIT_FAILURE);
}

void Watch::follow_daemon()
{
    followed_ = agent_.descriptor();
    if (followed_ >= 0 && !frame_.reactor().add(followed_, 0, [this](uint32_t) {
            answered(false, "the daemon closed the connection");
        })) {
        followed_ = -1; // the next line will tell
    }
}

void Watch::forget_daemon()
{
    if (followed_ >= 0) {
        frame_.reactor().remove(followed_);
        followed_ = -1;
    }
}

void Watch::lose_daemon(const std::string &error)
{
    mcastd::log_warning("%s; trying every second", error.c_str());
    forget_daemon();
    listen_to_input(false);
    try_again();
}

bool Watch::tell_everything(std::string *error)
{
    if (!agent_.reconnect(error)) {
        return false;
    }
    for (const Command &command : told_.again()) {
        if (!agent_.send(command, error)) {
            return false;
        }
    }
    return agent_.finish(error);
}

void Watch::try_again()
{
    std::string error;
    if (!tell_everything(&error)) {
        const auto again = [](void *owner) { static_cast<Watch *>(owner)->try_again(); };
        mcastd::timer_start_near(frame_.timers(), retry_, RETRY_MS, again, this);
        return;
    }
    mcastd::log_info("connected, %zu users announced", told_.count());
    follow_daemon();
    if (!listen_to_input(true)) {
        fail(input_name_ + ": " + std::strerror(errno));
        return;
    }
    if (!takes_) {
        take_lines();
    }
}

bool Watch::listen_to_input(bool wanted)
{
    if (wanted == listens_) {
        return true;
    }
    if (!wanted && !input_is_file_) {
        frame_.reactor().remove(input_);
    }
    listens_ = wanted &&
               (input_is_file_ || frame_.reactor().add(input_, EPOLLIN, [this](uint32_t) { read_some(); }));
    return listens_ == wanted;
}

void Watch::read_some()
{
    char bytes[4096];
    const ssize_t size = read(input_, bytes, sizeof(bytes));
    if (size < 0) {
        if (errno != EINTR && errno != EAGAIN) {
            fail(input_name_ + ": " + std::strerror(errno));
        }
        return;
    }
    input_ended_ = size == 0;
    pending_.append(input_ended_ ? std::string("\n") : std::string(bytes, static_cast<size_t>(size)));
    take_lines();
}

// Takes the whole lines out of what was read, as long as there is a daemon to tell.
void Watch::take_lines()
{
    size_t begin = 0;
    takes_ = true;
    for (size_t end; listens_ && (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1) {
        ++line_;
        take_line(pending_.substr(begin, end - begin));
    }
    pending_.erase(0, begin);
    if (listens_ && pending_.size() > MOST_LINE) {
        fail(input_name_ + ':' + std::to_string(line_ + 1) + ": the line is too long");
    }
    std::string error;
    if (listens_) {
        answered(agent_.finish(&error), error);
    }
    takes_ = false;
    if (listens_ && input_ended_ && !all_good_) {
        fail("some lines were invalid");
    } else if (listens_ && input_ended_) {
        listen_to_input(false);
        frame_.end(EXIT_SUCCESS);
    }
}

void Watch::take_line(const std::string &line)
{
    const auto words = split_words(line);
    Command command;
    std::string error;
    if (words.empty()) {
        return;
    }
    if (!parse_command(words, settings_.family, &command, &error)) {
        mcastd::log_error("%s:%zu: %s", input_name_.c_str(), line_, error.c_str());
        all_good_ = false;
        return;
    }
    told_.note(command);
    answered(agent_.send(command, &error), error);
}

// What failed because the daemon is gone is told to the next one.
void Watch::answered(bool good, const std::string &error)
{
    if (good || ended_) {
        return;
    }
    if (settings_.reconnect && agent_.hung_up()) {
        lose_daemon(error);
    } else {
        fail(error);
    }
}

} // namespace uagent
