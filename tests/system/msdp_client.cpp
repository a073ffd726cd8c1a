/*
 * An MSDP daemon's end of the channel for the system tests: it connects by the library, prints what the
 * library knows on standard output after every change, and obeys commands from standard input, one a line:
 *
 *     remote GROUP SOURCE      reports a remote source
 *     delete GROUP SOURCE      takes it back; 0.0.0.0 for all
 *     resend GROUP SOURCE ...  reports just these in a bracket
 *     enable                   asks for requests and for encapsulated data
 *     instance NUMBER          what is printed and reported is from now on that instance's
 *     show                     prints
 *
 *     show: vrf 1, acl none, replays 1, busy 0, local 10.1.0.2>239.1.1.1@10.0.0.9
 */
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

#include "mcast/acl_filter.h"
#include "mcast/mrib.h"
#include "mcast/msdp.h"
#include "mcasthost/loop.h"

namespace
{

constexpr uint16_t INSTANCES = 8;

int the_loop;
uint16_t instance; // the one that is looked at
std::array<uint32_t, INSTANCES> acl_numbers;
unsigned replays;

std::string text_of(uint32_t address_be)
{
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &address_be, text, sizeof(text));
    return text;
}

uint32_t address_of(const std::string &text)
{
    uint32_t address_be;
    if (inet_pton(AF_INET, text.c_str(), &address_be) != 1) {
        std::exit(EXIT_FAILURE);
    }
    return address_be;
}

// All local sources as the library has them, one RP a call.
void show()
{
    const MRIB_GMP_VRF_KEY_S key{MCAST_FAMILY_IPV4, instance};
    const uint32_t acl_number = acl_numbers[instance];
    std::cout << "show: vrf " << MRIB_GMP_IsL3McEnabled(&key) << ", acl "
              << (acl_number == MCAST_NONE ? "none" : std::to_string(acl_number)) << ", replays " << replays
              << ", busy " << MRIB_GMP_IsConnectionBusy() << ", local";
    const MRIB_MSDP_FILTER_S filter{instance, MCAST_NONE, MRIB_MSDP_BATCH_MAX, 0};
    MRIB_MSDP_CURSOR_S cursor{};
    uint64_t result;
    do {
        MRIB_MSDP_BATCH_S batch{};
        result = MRIB_MSDP_GetLocalSrc(instance, &filter, &cursor, &batch);
        for (uint64_t i = 0; i < batch.count; ++i) {
            std::cout << ' ' << text_of(batch.pairs[i].source_be) << '>' << text_of(batch.pairs[i].group_be)
                      << '@' << text_of(batch.rp_be);
        }
    } while (result == MCAST_WALK_AGAIN || cursor.rp_be != 0);
    std::cout << std::endl;
}

uint64_t take_socket(uint32_t events, int32_t fd)
{
    if ((events & EPOLLOUT) != 0) {
        MRIB_GMP_SendFailData();
    }
    MRIB_GMP_ProcLipcMsg(events, fd);
    show();
    return 0;
}

uint64_t connected(int32_t fd)
{
    return HOST_LoopAdd(the_loop, fd, EPOLLIN, take_socket);
}

void disconnected(int32_t fd)
{
    HOST_LoopRemove(the_loop, fd);
    HOST_LoopStop(the_loop);
}

void obey(const std::string &line)
{
    std::istringstream words(line);
    std::string command;
    std::string group;
    std::string source;
    words >> command;
    if (command == "enable") {
        MRIB_MSDP_SendRequestSAEnable(instance, 1);
        MRIB_MSDP_SendEncapDataEnable(instance, 1);
    } else if (command == "resend") {
        MRIB_MSDP_SendSmoothRemoteSGBegin();
        while (words >> group >> source) {
            MRIB_MSDP_SendRemoteOneSG(instance, 1, address_of(group), address_of(source), 0, nullptr, 0);
        }
        MRIB_MSDP_SendSmoothRemoteSGEnd();
    } else if (command == "remote" || command == "delete") {
        words >> group >> source;
        MRIB_MSDP_SendRemoteOneSG(instance, command == "remote" ? 1 : 0, address_of(group),
                                  address_of(source), 0, nullptr, 0);
    } else {
        if (command == "instance") {
            words >> instance;
        }
        show();
    }
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
        obey(pending.substr(0, end));
    }
    return 0;
}

} // namespace

int main()
{
    the_loop = HOST_LoopCreate();
    acl_numbers.fill(MCAST_NONE);
    MRIB_GMP_CALLBACKS_S callbacks{};
    callbacks.connected = connected;
    callbacks.disconnected = disconnected;
    callbacks.smooth_finished = [] { ++replays; };
    callbacks.vrf_enabled = [](const MRIB_GMP_VRF_KEY_S *) {};
    callbacks.ssm_policy_changed = [](const MRIB_GMP_VRF_KEY_S *key, uint32_t number) {
        acl_numbers[key->vrf_index] = number;
    };
    callbacks.msdp_local_source = [](const MRIB_GMP_VRF_KEY_S *, uint32_t, uint32_t, uint32_t, const void *,
                                     uint32_t) {};
    constexpr uint8_t COMPONENT = 7;
    if (the_loop < 0 ||
        MRIB_GMP_Init(COMPONENT, MCAST_FAMILY_IPV4, INSTANCES, MRIB_MSG_RECV_MAX, &callbacks) != MCAST_OK ||
        HOST_LoopAdd(the_loop, STDIN_FILENO, EPOLLIN, take_input) != 0 ||
        MRIB_GMP_OpenConnect() != MCAST_OK) {
        std::cerr << "cannot connect to mribd\n";
        return EXIT_FAILURE;
    }
    HOST_LoopRun(the_loop);
    MRIB_GMP_CloseConnection();
    MRIB_GMP_Fini();
    return EXIT_SUCCESS;
}
