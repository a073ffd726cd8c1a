/* Data, names and selectors of interfaces, for one that the driver names. */
#include <string.h>

#include "check.h"
#include "driver.h"
#include "mcast/platform/interface.h"

static PORT_INTERFACE_S g_interface;

/* 0 when the case cannot be run. */
static int Ready(void)
{
    memset(&g_interface, 0, sizeof(g_interface));
    const int ready = PORT_Interface(&g_interface) == 0;
    if (!ready) {
        PORT_Skip("the driver has no interface");
    }
    return ready;
}

static void GivesItsNamesAndType(void)
{
    char name[IF_NAME_SIZE + 8];
    uint32_t type = UINT32_MAX;
    if (Ready() != 0) {
        memset(name, '#', sizeof(name));
        CHECK(IF_GetDataByIfIndex(g_interface.if_index, IF_ITEM_FULL_NAME, name) == 0);
        CHECK(memchr(name, '\0', IF_NAME_SIZE) != NULL && strcmp(name, g_interface.full_name) == 0);
        CHECK(memcmp(&name[IF_NAME_SIZE], "########", 8) == 0);
        memset(name, '#', sizeof(name));
        CHECK(IF_GetDataByIfIndex(g_interface.if_index, IF_ITEM_SHORT_NAME, name) == 0);
        CHECK(memchr(name, '\0', IF_SHORT_NAME_SIZE) != NULL && strcmp(name, g_interface.short_name) == 0);
        CHECK(name[IF_SHORT_NAME_SIZE] == '#');
        CHECK(IF_GetDataByIfIndex(g_interface.if_index, IF_ITEM_TYPE, &type) == 0);
        CHECK(type == g_interface.type);
    }
}

static void IsFoundByItsFullName(void)
{
    if (Ready() != 0) {
        CHECK(IF_GetIfIndexByFullName(g_interface.full_name) == g_interface.if_index);
        CHECK(IF_GetIfIndexByFullName("no-such-interface") == 0);
        CHECK(IF_GetIfIndexByFullName("") == 0);
    }
}

/* Indexes of the library's own interfaces are among those that the platform does not know. */
static void UnknownInterfacesAndItemsAreRefused(void)
{
    const uint32_t unknown[] = {0xd0000007u, UINT32_MAX};
    uint32_t value = 7;
    if (Ready() != 0) {
        for (size_t i = 0; i < sizeof(unknown) / sizeof(unknown[0]); ++i) {
            CHECK(IF_GetDataByIfIndex(unknown[i], IF_ITEM_TYPE, &value) != 0);
        }
        CHECK(IF_GetDataByIfIndex(g_interface.if_index, 0xffff, &value) != 0);
        CHECK(IF_GetDataByIfType(g_interface.type, 0xffff, &value) != 0);
        CHECK(value == 7);
    }
}

static void TellsWhetherItsTypeMayBeSelected(void)
{
    uint32_t hidden = 7;
    if (Ready() != 0) {
        CHECK(IF_GetDataByIfType(g_interface.type, IF_TYPE_ITEM_HIDDEN, &hidden) == 0);
        CHECK(hidden == 0);
    }
}

/* A selector of layer-3 interfaces of one type, as the library fills it. */
static IF_SELECTOR_S SelectorOf(uint32_t type)
{
    IF_SELECTOR_S selector;
    memset(&selector, 0xee, sizeof(selector));
    CHECK(IF_Select_Init(IF_SELECTOR_LAYER3, &selector) == 0);
    CHECK(IF_SelectProperty_Set(IF_PROPERTY_LAYER3, &selector) == 0);
    CHECK(IF_SelectType_Set(type, &selector) == 0);
    return selector;
}

static void CheckCompleted(const IF_SELECTOR_S *selector, const char *typed)
{
    char name[IF_FILLED_NAME_SIZE] = "untouched";
    CHECK(IF_IfNameFill(selector, typed, IF_FILL_ABBREVIATED, name) == 0);
    CHECK(memchr(name, '\0', sizeof(name)) != NULL && strcmp(name, g_interface.full_name) == 0);
}

static void CheckNotCompleted(const IF_SELECTOR_S *selector, const char *typed)
{
    char name[IF_FILLED_NAME_SIZE] = "untouched";
    CHECK(IF_IfNameFill(selector, typed, IF_FILL_ABBREVIATED, name) != 0);
    CHECK(strcmp(name, "untouched") == 0);
}

static void CompletesItsNameWithinASelector(void)
{
    if (Ready() != 0) {
        const IF_SELECTOR_S selector = SelectorOf(g_interface.type);
        CheckCompleted(&selector, g_interface.full_name);
        if (g_interface.abbreviated != NULL) {
            CheckCompleted(&selector, g_interface.abbreviated);
        }
        CheckNotCompleted(&selector, "no-such-interface");
    }
}

static void FindsNothingOutsideASelector(void)
{
    if (Ready() != 0) {
        const IF_SELECTOR_S selector = SelectorOf(g_interface.other_type);
        CheckNotCompleted(&selector, g_interface.full_name);
    }
}

const char *const PORT_SERVICE = "interfaces";
const PORT_CASE_S PORT_CASES[] = {
    {"gives its names and type", GivesItsNamesAndType},
    {"is found by its full name", IsFoundByItsFullName},
    {"unknown interfaces and items are refused", UnknownInterfacesAndItemsAreRefused},
    {"tells whether its type may be selected", TellsWhetherItsTypeMayBeSelected},
    {"completes its name within a selector", CompletesItsNameWithinASelector},
    {"finds nothing outside a selector", FindsNothingOutsideASelector},
};
const size_t PORT_CASE_COUNT = sizeof(PORT_CASES) / sizeof(PORT_CASES[0]);
