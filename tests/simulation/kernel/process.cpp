#include "tests/simulation/kernel/process.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "tests/simulation/kernel/kernel.h"

namespace sim
{

Process *g_process;

namespace
{

constexpr uint64_t MOST_CALLS_IN_A_RUN = 100000;
constexpr size_t LOG_LINES = 40;
constexpr size_t FIRST_DESCRIPTOR = 3;

// A daemon's std::terminate ends that daemon.
[[noreturn]] void terminated()
{
    if (g_process != nullptr) {
        g_process->die(Process::End::Uncaught);
    }
    abort();
}

ImageLease no_image()
{
    return ImageLease(nullptr, [](Image *) {});
}

} // namespace

const char *end_name(Process::End end)
{
    constexpr const char *NAMES[] = {"lives",
                                     "returned",
                                     "exited",
                                     "was killed",
                                     "crashed",
                                     "ended by an uncaught exception",
                                     "is in a busy loop",
                                     "blocks for ever"};
    return NAMES[static_cast<size_t>(end)];
}

Process::Process(Kernel &kernel, Machine &machine, std::string name, const std::string &daemon)
    : kernel_(kernel), machine_(machine), name_(std::move(name)), number_(kernel.processes.size() + 1),
      image_(daemon.empty() ? no_image() : lease_image(daemon))
{
    std::set_terminate(terminated);
    kernel_.processes.push_back(this);
    if (image_ == nullptr) {
        running_ = waiting_ = true;
        files_.resize(FIRST_DESCRIPTOR);
    }
}

Process::~Process()
{
    clean_up();
    std::erase(kernel_.processes, this);
}

void Process::start(std::vector<std::string> arguments)
{
    if (running_) {
        return;
    }
    clean_up();
    image_->restore();
    arguments_ = std::move(arguments);
    files_.assign(FIRST_DESCRIPTOR, nullptr);
    running_ = true;
    waiting_ = false;
    waits_for_ = nullptr;
    pending_signals_ = 0;
    stopped_until_ = 0;
    traffic.clear();
    calls_made.clear();
    exit_code_ = 0;
    end_ = End::None;
    ++lives_;
    kernel_.trace.note(number_);
    fiber_.begin([this] { main(); });
}

void Process::main()
{
    {
        std::vector<char *> arguments;
        {
            const OwnMemory own;
            for (std::string &argument : arguments_) {
                arguments.push_back(argument.data());
            }
            arguments.push_back(nullptr);
        }
        try {
            exit_code_ = image_->main()(static_cast<int>(arguments_.size()), arguments.data());
            end_ = End::Returned;
        } catch (...) {
            end_ = End::Uncaught;
        }
        while (!at_exit_.empty()) {
            const auto [function, argument] = at_exit_.back();
            at_exit_.pop_back();
            function(argument);
        }
        for (auto each = image_->at_exit().rbegin(); each != image_->at_exit().rend(); ++each) {
            each->first(each->second);
        }
        const OwnMemory own;
        arguments = {};
    }
    die(end_, exit_code_);
}

void Process::die(End end, int code)
{
    g_account = nullptr;
    end_ = end;
    exit_code_ = code;
    running_ = false;
    fiber_.leave(true);
    abort();
}

void Process::kill()
{
    if (running_) {
        running_ = false;
        end_ = End::Killed;
        clean_up();
    }
}

void Process::clean_up()
{
    // One by one, as the kernel does: peers learn of it in this order.
    for (auto &file : files_) {
        file.reset();
    }
    files_.clear();
    at_exit_.clear();
    waits_for_.reset();
    account.reset();
    crash_after_ = 0;
}

bool Process::is_runnable() const
{
    return running_ && image_ != nullptr && stopped_until_ <= kernel_.clock.now() &&
           (!waiting_ || wakes_at_ <= kernel_.clock.now() || waits_for_->has_event());
}

Ns Process::due() const
{
    if (!running_ || image_ == nullptr) {
        return NEVER;
    }
    if (stopped_until_ > kernel_.clock.now()) {
        return stopped_until_;
    }
    Ns due = waiting_ ? wakes_at_ : NEVER;
    for (const auto &file : files_) {
        if (file != nullptr) {
            due = std::min(due, file->due());
        }
    }
    return due;
}

void Process::run()
{
    waiting_ = false;
    calls_in_this_run_ = 0;
    ++wake_ups_;
    kernel_.trace.note(number_);
    kernel_.trace.note(kernel_.clock.now());
    g_process = this;
    g_account = &account;
    fiber_.resume();
    g_account = nullptr;
    g_process = nullptr;
    if (!running_) {
        kernel_.ended(*this);
        for (auto &file : files_) {
            file.reset();
        }
        files_.clear();
    }
}

void Process::enter()
{
    if (crash_after_ != 0 && --crash_after_ == 0) {
        die(End::Crashed);
    }
    if (++calls_in_this_run_ > MOST_CALLS_IN_A_RUN && image_ != nullptr) {
        die(End::Busy);
    }
}

std::shared_ptr<File> Process::file(int fd) const
{
    return fd >= 0 && static_cast<size_t>(fd) < files_.size() ? files_[static_cast<size_t>(fd)] : nullptr;
}

int Process::install(std::shared_ptr<File> file)
{
    const auto from = files_.begin() + FIRST_DESCRIPTOR;
    auto place = std::find(from, files_.end(), nullptr);
    const auto fd = static_cast<size_t>(place - files_.begin());
    if (fd >= descriptor_limit) {
        return -EMFILE;
    }
    if (place == files_.end()) {
        files_.push_back(std::move(file));
    } else {
        *place = std::move(file);
    }
    return static_cast<int>(fd);
}

int Process::close(int fd)
{
    const std::shared_ptr<File> closed = file(fd);
    if (closed == nullptr) {
        return -EBADF;
    }
    for (const auto &each : files_) {
        if (auto *epoll = dynamic_cast<Epoll *>(each.get())) {
            epoll->forget(fd);
        }
    }
    files_[static_cast<size_t>(fd)].reset();
    return 0;
}

size_t Process::descriptor_count() const
{
    return static_cast<size_t>(
        std::count_if(files_.begin(), files_.end(), [](const auto &file) { return file != nullptr; }));
}

size_t Process::null_device_count() const
{
    return static_cast<size_t>(std::count_if(files_.begin(), files_.end(), [](const auto &file) {
        return file != nullptr && file->is_null_device();
    }));
}

int Process::wait(std::shared_ptr<Epoll> epoll, epoll_event *event, int timeout_ms)
{
    const OwnMemory own;
    const bool gives_way =
        kernel_.another_is_runnable(*this) && kernel_.draw.below(Stream::Scheduler, number_, 8) == 0;
    if (!gives_way && epoll->take(event)) {
        return 1;
    }
    if (timeout_ms == 0 && !gives_way) {
        return 0;
    }
    if (image_ == nullptr) {
        return 0; // nobody could wake it
    }
    wakes_at_ = timeout_ms < 0 ? NEVER : kernel_.clock.now() + static_cast<Ns>(timeout_ms) * MILLISECOND;
    waits_for_ = std::move(epoll);
    waiting_ = true;
    fiber_.leave(false);
    g_account = nullptr;
    return waits_for_->take(event) ? 1 : 0;
}

void Process::write_log(std::string_view text)
{
    kernel_.trace.note(text);
    if (kernel_.verbose) {
        fprintf(stderr, "%12s %s | %.*s", to_text(kernel_.clock.elapsed()).c_str(), name_.c_str(),
                static_cast<int>(text.size()), text.data());
    }
    log_.push_back(to_text(kernel_.clock.elapsed()) + " " + std::string(text));
    if (log_.size() > LOG_LINES) {
        log_.pop_front();
    }
}

} // namespace sim
