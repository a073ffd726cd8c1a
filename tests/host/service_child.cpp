// A service for the tests: service_child PORT REPORT ORDERS, the last two named pipes. It reports how it was
// started, listens on the local port when the first order comes, and ends with status 3 after the second.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <unistd.h>

#include "platform/local_socket.h"
#include "support.h"

namespace
{

// The line of /proc/self/status that begins so.
std::string status_line(const std::string &name)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line) && line.rfind(name, 0) != 0) {
    }
    return line.substr(line.find_last_of('\t') + 1);
}

// The open descriptors, without the one that reads them.
std::string descriptors()
{
    std::set<int> found;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        found.insert(atoi(entry.path().filename().c_str()));
    }
    std::string text;
    for (const int fd : found) {
        text += fcntl(fd, F_GETFD) >= 0 ? std::to_string(fd) + "," : "";
    }
    return text;
}

void await_order(int orders)
{
    char order = 0;
    if (read(orders, &order, 1) != 1) {
        _exit(1);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        return 2;
    }
    const std::string open_ones = descriptors();
    const int report = open(argv[2], O_WRONLY | O_CLOEXEC);
    const int orders = open(argv[3], O_RDONLY | O_CLOEXEC);
    dprintf(report, "%d %d %s %s %s %s\n", getpid(), getsid(0) == getpid() ? 1 : 0, open_ones.c_str(),
            std::filesystem::read_symlink("/proc/self/fd/0").c_str(), status_line("SigBlk").c_str(),
            status_line("SigIgn").c_str());
    await_order(orders);
    const int listener = host_test::listen_local(static_cast<uint16_t>(atoi(argv[1])));
    dprintf(report, listener >= 0 ? "listening\n" : "failed\n");
    await_order(orders);
    return 3;
}
