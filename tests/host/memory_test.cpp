// The host platform when memory is short: every allocation of a call fails once, on the calling thread alone.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <net/if.h>
#include <new>
#include <string>
#include <utility>

#include "mcasthost/config.h"
#include "mcasthost/help.h"
#include "mcasthost/link.h"
#include "mcasthost/route.h"
#include "namespace.h"
#include "platform/device.h"
#include "platform/interface.h"
#include "platform/resource.h"
#include "platform/vpn.h"
#include "support/descriptors.h"

namespace
{

thread_local unsigned long t_until_failure; // 0: none fails
thread_local bool t_fired;
thread_local long t_live; // blocks taken and not yet freed

void *allocate(size_t size)
{
    if (t_until_failure != 0 && --t_until_failure == 0) {
        t_fired = true;
        throw std::bad_alloc();
    }
    void *block = malloc(size != 0 ? size : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++t_live;
    return block;
}

void release(void *block)
{
    t_live -= block != nullptr ? 1 : 0;
    free(block);
}

} // namespace

void *operator new(size_t size)
{
    return allocate(size);
}

void *operator new[](size_t size)
{
    return allocate(size);
}

void operator delete(void *block) noexcept
{
    release(block);
}

void operator delete[](void *block) noexcept
{
    release(block);
}

void operator delete(void *block, size_t) noexcept
{
    release(block);
}

void operator delete[](void *block, size_t) noexcept
{
    release(block);
}

namespace
{

// Runs the call with its 1st, 2nd, ... allocation failing, and the check after each, until none fails any
// more. How many failed.
unsigned long for_every_allocation(const std::function<void()> &call, const std::function<void(bool)> &check,
                                   bool leaves_nothing = true)
{
    for (unsigned long nth = 1;; ++nth) {
        t_fired = false;
        const long live = t_live;
        t_until_failure = nth;
        call();
        t_until_failure = 0;
        const bool failed = t_fired;
        if (failed && leaves_nothing) {
            EXPECT_EQ(t_live, live) << "with allocation " << nth << " failing";
        }
        check(failed);
        if (!failed) {
            return nth - 1;
        }
    }
}

TEST(ShortMemory, InterfaceDataFailsAndLeavesTheOutputAlone)
{
    IN_FRESH_NAMESPACE([] {
        uint32_t index = if_nametoindex("lo");
        uint32_t result = 0;
        uint32_t found = 0;
        char name[IF_NAME_SIZE] = "untouched";
        EXPECT_GE(for_every_allocation([&] { result = IF_GetDataByIfIndex(index, IF_ITEM_FULL_NAME, name); },
                                       [&](bool failed) {
                                           EXPECT_EQ(result != 0, failed);
                                           EXPECT_STREQ(name, failed ? "untouched" : "lo");
                                       }),
                  1u);
        EXPECT_GE(for_every_allocation([&] { found = IF_GetIfIndexByFullName("lo"); },
                                       [&](bool failed) { EXPECT_EQ(found, failed ? 0 : index); }),
                  1u);
    });
}

TEST(ShortMemory, InstanceOfAnInterfaceFailsAndLeavesTheOutputAlone)
{
    IN_FRESH_NAMESPACE([] {
        const uint32_t index = if_nametoindex("lo");
        uint32_t result = 0;
        uint16_t vrf = 99;
        EXPECT_GE(for_every_allocation([&] { result = L3VPN_GetVrfIndexByIfIndex(index, &vrf); },
                                       [&](bool failed) {
                                           EXPECT_EQ(result != 0, failed);
                                           EXPECT_EQ(vrf, failed ? 99u : 0u);
                                       }),
                  1u);
        char name[L3VPN_NAME_SIZE] = "untouched";
        EXPECT_GE(for_every_allocation([&] { result = L3VPN_GetNameByVrfIndex(77, sizeof(name), name); },
                                       [&](bool) { EXPECT_NE(result, 0u); }),
                  1u);
        EXPECT_STREQ(name, "untouched");
    });
}

TEST(ShortMemory, CompletionFailsAndLeavesTheOutputAlone)
{
    IN_FRESH_NAMESPACE([] {
        IF_SELECTOR_S selector;
        ASSERT_EQ(IF_Select_Init(IF_SELECTOR_LAYER3, &selector), 0u);
        ASSERT_EQ(IF_SelectType_Set(16, &selector), 0u);
        uint32_t result = 0;
        char name[IF_FILLED_NAME_SIZE] = "untouched";
        EXPECT_GE(
            for_every_allocation([&] { result = IF_IfNameFill(&selector, "l", IF_FILL_ABBREVIATED, name); },
                                 [&](bool failed) {
                                     EXPECT_EQ(result != 0, failed);
                                     EXPECT_STREQ(name, failed ? "untouched" : "lo");
                                 }),
            2u);
    });
}

// Whatever fails while a notification is served, the interface is known afterwards.
TEST(ShortMemory, InterfacesAreKnownAfterANotificationCouldNotBeKept)
{
    IN_FRESH_NAMESPACE([] {
        int loop = HOST_LoopCreate();
        HOST_LINK_TABLE table = HOST_LinkOpen(loop, nullptr, nullptr);
        ASSERT_NE(table, nullptr);
        EXPECT_GE(for_every_allocation(
                      [&] {
                          unsigned long nth = std::exchange(t_until_failure, 0);
                          host_test::shell("ip link add left0 type veth peer name right0");
                          t_until_failure = nth;
                          HOST_LoopRunOnce(loop, 0);
                      },
                      [&](bool) {
                          while (HOST_LoopRunOnce(loop, 0) == 1) {
                          }
                          EXPECT_EQ(IF_GetIfIndexByFullName("left0"), if_nametoindex("left0"));
                          EXPECT_EQ(IF_GetIfIndexByFullName("right0"), if_nametoindex("right0"));
                          host_test::shell("ip link del left0");
                          while (HOST_LoopRunOnce(loop, 0) == 1) {
                          }
                          EXPECT_EQ(IF_GetIfIndexByFullName("left0"), 0u);
                      },
                      false),
                  2u);
        HOST_LinkClose(table);
        EXPECT_EQ(HOST_LoopDestroy(loop), 0u);
    });
}

TEST(ShortMemory, ATableThatIsNotRegisteredMayBeRegisteredLater)
{
    constexpr uint32_t BLOCK = 0x7760000;
    const char *const texts[] = {"text"};
    const RC_TEXT_TABLE_S table = {texts, 0};
    uint32_t result = 0;
    EXPECT_GE(for_every_allocation([&] { result = RC_RegInfo(BLOCK, &table, 1); },
                                   [&](bool failed) {
                                       EXPECT_EQ(result != 0, failed);
                                       EXPECT_STREQ(RC_LoadString(BLOCK), failed ? "" : "text");
                                   }),
              1u);
    EXPECT_EQ(RC_DeregInfo(BLOCK), 0u);
}

TEST(ShortMemory, AWayToLookUpRoutesIsNotOpened)
{
    HOST_ROUTE_LOOKUP lookup = nullptr;
    const int descriptors = OpenDescriptors();
    EXPECT_GE(for_every_allocation([&] { lookup = HOST_RouteLookupOpen(); },
                                   [&](bool failed) {
                                       EXPECT_EQ(lookup == nullptr, failed);
                                       EXPECT_EQ(errno == ENOMEM, failed);
                                       EXPECT_EQ(OpenDescriptors(), descriptors + (failed ? 0 : 1));
                                       errno = 0;
                                   }),
              2u);
    HOST_RouteLookupClose(lookup);
}

TEST(ShortMemory, AHelpEntryIsLeftOutWhole)
{
    const std::string syntax(100, 's');
    const std::string description(100, 'd');
    CLI_HELP_LIST_S *list = nullptr;
    EXPECT_GE(for_every_allocation([&] { list = HOST_HelpCreate(); },
                                   [&](bool failed) { EXPECT_EQ(list == nullptr, failed); }),
              1u);
    const char *first = nullptr;
    const char *second = nullptr;
    EXPECT_GE(for_every_allocation(
                  [&] { CLI_NewHelpInfo(syntax.c_str(), description.c_str(), list); },
                  [&](bool failed) { EXPECT_EQ(HOST_HelpGet(list, 0, &first, &second) != 0, failed); }),
              2u);
    EXPECT_EQ(second, description);
    HOST_HelpDestroy(list);
}

TEST(ShortMemory, AServiceIsNotStartedAndCanBeStartedLater)
{
    const std::string text = "[[service]]\nid = 7\nport = 4000\ncommand = ['/bin/true', 'one', 'two']\n";
    char base[] = "/tmp/mcasthost-test-XXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    setenv("MCAST_HOST_RUNTIME_DIR", base, 1);
    ASSERT_EQ(HOST_ConfigLoadText("f", text.data(), text.size(), nullptr, nullptr, 0), 0u);
    ASSERT_EQ(DEV_GetSelf(), 0u); // this thread has seen the configuration
    const int descriptors = OpenDescriptors();
    uint32_t result = 0;
    EXPECT_GE(for_every_allocation([&] { result = SERVICE_Start(0, 7, 0, 0); },
                                   [&](bool failed) {
                                       EXPECT_EQ(result, failed ? HOST_FAILED : 0u);
                                       EXPECT_TRUE(!failed || errno == ENOMEM);
                                       EXPECT_EQ(OpenDescriptors(), descriptors);
                                   }),
              3u);
    ASSERT_EQ(HOST_ConfigLoadText("f", "", 0, nullptr, nullptr, 0), 0u);
    unsetenv("MCAST_HOST_RUNTIME_DIR");
    EXPECT_EQ(system((std::string("rm -rf ") + base).c_str()), 0);
}

} // namespace
