/*
 * A member of the MRIB for the system tests: it opens the member channel of the family in its argument, prints "open",
 * then the type of every record that it is sent, one a line, and obeys commands from standard input, one a line:
 *
 *     add MASK, remove MASK       changes the events it is registered for
 *     ask TYPE                    sends a request
 *     send TYPE LENGTH            sends a record of so many zero bytes
 *     close, open                 ends the channel, opens it again
 *
 * After each command it prints "done" and the result.
 */
#include <csignal>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "mcast/event.h"
#include "mcast/member_channel.h"
#include "mcast/mrib_message.h"
#include "mcasthost/loop.h"

namespace
{

constexpr uint32_t MODULE = 16;

int the_loop;
uint32_t family;

uint64_t take_socket(uint32_t, int32_t fd)
{
    static uint8_t message[MRIB_MSG_RECV_MAX];
    const ssize_t size = recv(fd, message, sizeof(message), MSG_DONTWAIT);
    if (size <= 0) {
        std::cout << "hung up" << std::endl;
        MBR_LIB_Fini(family);
        return 0;
    }
    MRIB_MSG_READER_S reader;
    MRIB_RECORD_S record;
    MRIB_MsgReaderStart(&reader, message, static_cast<size_t>(size));
    while (MRIB_MsgReaderNext(&reader, &record) == MCAST_TRUE) {
        std::cout << "record " << record.type << std::endl;
    }
    return 0;
}

bool open_channel()
{
    return MBR_LIB_Init(family, MODULE, static_cast<uint32_t>(the_loop),
                        reinterpret_cast<uint64_t>(take_socket)) != MCAST_NONE;
}

uint32_t obey(const std::string &line)
{
    std::istringstream words(line);
    std::string command;
    uint64_t number = 0;
    uint16_t length = 0;
    words >> command >> std::setbase(0) >> number >> length;
    if (command == "add") {
        return MBR_LIB_RegEvt(family, number);
    }
    if (command == "remove") {
        return MBR_LIB_DeRegEvt(family, number);
    }
    if (command == "ask") {
        const MRIB_REQUEST_S request{static_cast<uint8_t>(family), {}};
        return MBR_LIB_SendMsg(family, static_cast<uint16_t>(number), sizeof(request), &request, 1);
    }
    if (command == "send") {
        const std::vector<uint8_t> zeros(length);
        return MBR_LIB_SendMsg(family, static_cast<uint16_t>(number), length, zeros.data(), 1);
    }
    if (command == "close") {
        MBR_LIB_Fini(family);
        return 0;
    }
    return open_channel() ? 0 : 1;
}

uint64_t take_input(uint32_t, int32_t fd)
{
    static std::string pending;
    char bytes[4096];
    const ssize_t size = read(fd, bytes, sizeof(bytes));
    if (size <= 0) {
        HOST_LoopStop(the_loop);
        return 0;
    }
    pending.append(bytes, static_cast<size_t>(size));
    for (size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
        std::cout << "done " << obey(pending.substr(0, end)) << std::endl;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    family = argc == 2 && std::string(argv[1]) == "ipv6" ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
    signal(SIGPIPE, SIG_IGN);
    the_loop = HOST_LoopCreate();
    if (the_loop < 0 || HOST_LoopAdd(the_loop, STDIN_FILENO, EPOLLIN, take_input) != 0 || !open_channel()) {
        std::cerr << "cannot connect to mribd\n";
        return EXIT_FAILURE;
    }
    std::cout << "open" << std::endl;
    HOST_LoopRun(the_loop);
    MBR_LIB_Fini(family);
    HOST_LoopDestroy(the_loop);
    return EXIT_SUCCESS;
}
