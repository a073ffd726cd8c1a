/*
 * A thread of its own starts each process and then waits for it, so there is never a zombie, however
 * seldom anybody asks, and neither the daemon's SIGCHLD nor its other children are touched. The thread takes
 * no signals. It makes the process itself: when no thread can be made, no process is made that nobody would
 * reap.
 */
#include "service_process.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <future>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr int MARK_DESCRIPTOR = 3;

// Blocks every signal in this thread, and so in threads that it starts meanwhile.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked()
    {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before_;
};

// What happens between fork and exec. error is the first failure on the way.
struct SpawnPlan {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    int error = 0;

    explicit SpawnPlan(int mark)
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        note(posix_spawn_file_actions_adddup2(&actions, mark, MARK_DESCRIPTOR));
        note(posix_spawn_file_actions_addclosefrom_np(&actions, MARK_DESCRIPTOR + 1));
        note(posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        note(posix_spawnattr_setsigmask(&attributes, &none));
        note(posix_spawnattr_setsigdefault(&attributes, &all));
        note(posix_spawnattr_setflags(&attributes,
                                      POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));
    }
    ~SpawnPlan()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnPlan(const SpawnPlan &) = delete;
    SpawnPlan &operator=(const SpawnPlan &) = delete;

    void note(int result)
    {
        error = error == 0 ? result : error;
    }
};

int spawn(std::vector<char *> &words, int mark, pid_t *process)
{
    const SpawnPlan plan(mark);
    if (plan.error != 0) {
        return plan.error;
    }
    return posix_spawn(process, words[0], &plan.actions, &plan.attributes, words.data(), environ);
}

// ECHILD is as good: somebody in the process waits for any child, or has the kernel reap them.
void reap(pid_t process)
{
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void start_and_reap(std::vector<char *> &words, int mark, std::promise<int> started)
{
    pid_t process = -1;
    const int error = spawn(words, mark, &process);
    // From here on words and mark may be gone.
    started.set_value(error);
    if (error == 0) {
        reap(process);
    }
}

} // namespace

int host::start_process(const std::vector<std::string> &command, int mark)
{
    std::vector<char *> words;
    words.reserve(command.size() + 1);
    for (const std::string &word : command) {
        words.push_back(const_cast<char *>(word.c_str()));
    }
    words.push_back(nullptr);
    std::promise<int> started;
    std::future<int> result = started.get_future();
    {
        const SignalsBlocked blocked;
        std::thread(start_and_reap, std::ref(words), mark, std::move(started)).detach();
    }
    return result.get();
}
