// The host platform's driver: sockets in a folder of their own, lists in a configuration, the loopback as interface.
#include <cstdio>
#include <cstdlib>
#include <net/if.h>
#include <string>

#include "driver.h"
#include "mcasthost/config.h"
#include "mcasthost/loop.h"

namespace
{

int g_loop = -1;
std::string g_folder;

std::string list(unsigned number, const std::string &family, const std::string &rules)
{
    return "[[acl]]\nnumber = " + std::to_string(number) + "\nfamily = '" + family + "'\n" + rules;
}

std::string rule(unsigned id, const std::string &action, const std::string &addresses)
{
    return "[[acl.rule]]\nid = " + std::to_string(id) + "\naction = '" + action + "'\n" + addresses;
}

// The lists of a family as driver.h describes them.
std::string lists(const std::string &family, const std::string &denied, const std::string &permitted,
                  const std::string &groups)
{
    return list(2000, family,
                rule(1, "deny", "source = '" + denied + "'\n") +
                    rule(2, "permit", "source = '" + permitted + "'\n")) +
           list(2001, family, "") +
           list(3000, family,
                rule(1, "permit", "source = '" + permitted + "'\ndestination = '" + groups + "'\n") +
                    rule(2, "deny", ""));
}

} // namespace

int PORT_Begin(void)
{
    char folder[] = "/tmp/port-XXXXXX";
    char error[HOST_CONFIG_ERROR_SIZE];
    if (mkdtemp(folder) == nullptr) {
        return 1;
    }
    g_folder = folder;
    setenv("MCAST_HOST_RUNTIME_DIR", folder, 1);
    g_loop = HOST_LoopCreate();
    const std::string text = lists("ipv4", "10.1.0.0/16", "10.0.0.0/8", "232.0.0.0/8") +
                             lists("ipv6", "2001:db8:1::/48", "2001:db8::/32", "ff3e::/16");
    if (HOST_ConfigLoadText("lists", text.data(), text.size(), nullptr, error, sizeof(error)) != 0) {
        puts(error);
        return 1;
    }
    return g_loop < 0 ? 1 : 0;
}

void PORT_End(void)
{
    HOST_LoopDestroy(g_loop);
    if (system(("rm -rf " + g_folder).c_str()) != 0) {
        puts("the folder of the sockets stays");
    }
}

TIMER_SERVICE PORT_TimerService(void)
{
    return HOST_LoopTimerService(g_loop);
}

int PORT_ServeEvents(uint32_t milliseconds)
{
    return HOST_LoopRunOnce(g_loop, static_cast<int32_t>(milliseconds)) < 0 ? 1 : 0;
}

int PORT_Interface(PORT_INTERFACE_S *interface)
{
    *interface = {if_nametoindex("lo"), 16, "lo", "lo", "LO", 22};
    return interface->if_index == 0 ? 1 : 0;
}

int PORT_AccessLists(uint32_t, PORT_ACCESS_LISTS_S *lists)
{
    *lists = {2000, 3000, 2001, 2002};
    return 0;
}

uint16_t PORT_LocalPort(void)
{
    return 7001;
}
