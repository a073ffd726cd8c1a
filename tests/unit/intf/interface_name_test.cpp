#include "mcast/interface_name.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "mcast/interface_registry.h"
#include "support/scripted_interface.h"

namespace
{

constexpr uint32_t kMua = 0xD0000007;
constexpr uint32_t kNbma = 0xCC00000A;
constexpr uint32_t kForeign = 5;

/* A buffer of exactly the size that a function may fill, with a mark behind it. */
template <size_t size> struct Buffer {
    char text[size];
    char mark[16];

    Buffer()
    {
        std::memset(this, 0x5a, sizeof(*this));
    }
    ~Buffer()
    {
        for (char each : mark) {
            EXPECT_EQ(each, 0x5a) << "written past the end";
        }
    }
};

class InterfaceName : public testing::Test
{
protected:
    Buffer<MCAST_IF_NAME_SIZE> name;
    Buffer<MCAST_IF_SIMPLE_NAME_SIZE> simple;
    uint32_t asked = 0;
    uint32_t asked_item = 0;

    void TearDown() override
    {
        scripted::ResetInterface();
    }

    /* Makes the platform answer every item with text, or fill nothing when that is NULL. */
    void Answer(const char *text, uint32_t result)
    {
        scripted::if_data = [=, this](uint32_t if_index, uint32_t item, void *data) {
            asked = if_index;
            asked_item = item;
            if (text != nullptr) {
                std::strcpy(static_cast<char *>(data), text);
            }
            return result;
        };
    }
};

TEST_F(InterfaceName, MulticastUaNameHasTheNumberWithoutTheType)
{
    EXPECT_EQ(MCAST_GetMUANameByIfIndex(0xD0000007, name.text), 13u);
    EXPECT_STREQ(name.text, "Multicast-UA7");
    EXPECT_EQ(MCAST_GetMUANameByIfIndex(0xD2000007, name.text), 13u);
    EXPECT_STREQ(name.text, "Multicast-UA7");
    EXPECT_EQ(MCAST_GetMUANameByIfIndex(0xFFFFFFFF, name.text), 20u);
    EXPECT_STREQ(name.text, "Multicast-UA33554431");
    EXPECT_EQ(MCAST_GetMUANameByIfIndex(0, name.text), 13u);
    EXPECT_STREQ(name.text, "Multicast-UA0");
    EXPECT_EQ(MCAST_GetMUANameByIfIndex(0xD0000000 + 1000, name.text), 16u);
    EXPECT_STREQ(name.text, "Multicast-UA1000");
}

TEST_F(InterfaceName, NbmaNameHasTheNumberWithoutTheType)
{
    EXPECT_EQ(MCAST_GetNBMANameByIfIndex(0xCC00000A, name.text), 16u);
    EXPECT_STREQ(name.text, "Multicast-NBMA10");
    EXPECT_EQ(MCAST_GetNBMANameByIfIndex(0xFFFFFFFF, name.text), 22u);
    EXPECT_STREQ(name.text, "Multicast-NBMA33554431");
}

TEST_F(InterfaceName, IndexComesFromAWholeNameByFamily)
{
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(2, "Multicast-UA7"), 0xD0000007u);
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(10, "Multicast-UA7"), 0xD2000007u);
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(0, "Multicast-UA7"), 0xD2000007u);
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(2, "Multicast-UA33554429"), 0xD1FFFFFDu);
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(2, "Multicast-UA12x9"), 0xD000000Cu);
    EXPECT_EQ(MCAST_GetIfIndexByMUAName(2, "Multicast-UA4294967295"), 0xCFFFFFFFu);
}

TEST_F(InterfaceName, IndexFromANameTooShortReadsNothingBehindIt)
{
    for (const char *text : {"", "m", "Multicast-U", "Multicast-UA"}) {
        std::string exact(text);

        EXPECT_EQ(MCAST_GetIfIndexByMUAName(2, exact.c_str()), 0xD0000000u) << text;
    }
}

TEST_F(InterfaceName, OwnInterfacesAreNamedWithoutThePlatform)
{
    Answer("platform", 0);
    EXPECT_EQ(MCAST_GetIfName(kMua, name.text), 0u);
    EXPECT_STREQ(name.text, "Multicast-UA7");
    EXPECT_EQ(MCAST_GetIfName(kNbma, name.text), 0u);
    EXPECT_STREQ(name.text, "Multicast-NBMA10");
    EXPECT_EQ(asked, 0u);
}

TEST_F(InterfaceName, OthersHaveThePlatformsNameAndResult)
{
    Answer("ge0/1", 0);
    EXPECT_EQ(MCAST_GetIfName(kForeign, name.text), 0u);
    EXPECT_STREQ(name.text, "ge0/1");
    EXPECT_EQ(asked, kForeign);
    EXPECT_EQ(asked_item, 10u);
    Answer(nullptr, 0x77);
    EXPECT_EQ(MCAST_GetIfName(0xFE000000, name.text), 0x77u);
    EXPECT_EQ(asked, 0xFE000000u);
}

TEST_F(InterfaceName, ShortNameOfAMulticastUaInterfaceIsWhatThePlatformSaysLast)
{
    Answer("mua7", 0);
    EXPECT_EQ(MCAST_GetIfSimpleName(kMua, simple.text), 0u);
    EXPECT_STREQ(simple.text, "mua7");
    EXPECT_EQ(asked, kMua);
    EXPECT_EQ(asked_item, 11u);
    Answer(nullptr, 0x55);
    EXPECT_EQ(MCAST_GetIfSimpleName(kMua, simple.text), 0x55u);
    EXPECT_STREQ(simple.text, "Multicast-UA7");
}

TEST_F(InterfaceName, ShortNameOfOthers)
{
    Answer("ge1", 0);
    EXPECT_EQ(MCAST_GetIfSimpleName(kNbma, simple.text), 0u);
    EXPECT_STREQ(simple.text, "Multicast-NBMA10");
    EXPECT_EQ(asked, 0u);
    EXPECT_EQ(MCAST_GetIfSimpleName(kForeign, simple.text), 0u);
    EXPECT_STREQ(simple.text, "ge1");
    EXPECT_EQ(asked_item, 11u);
    Answer(nullptr, 3);
    EXPECT_EQ(MCAST_GetIfSimpleName(kForeign, simple.text), 3u);
}

TEST_F(InterfaceName, NameOrIndexFallsBackToHexadecimal)
{
    Answer("ge0/1", 0);
    MCAST_GetIfNameOrIndex(kForeign, name.text);
    EXPECT_STREQ(name.text, "ge0/1");
    MCAST_GetIfNameOrIndex(kMua, name.text);
    EXPECT_STREQ(name.text, "Multicast-UA7");

    asked = 99;
    MCAST_GetIfNameOrIndex(0, name.text);
    EXPECT_STREQ(name.text, "0x0");
    EXPECT_EQ(asked, 99u);
    Answer("half a name", 1);
    MCAST_GetIfNameOrIndex(0xABCDEF01, name.text);
    EXPECT_STREQ(name.text, "0xabcdef01");
    Answer(nullptr, 0);
    MCAST_GetIfNameOrIndex(kForeign, name.text);
    EXPECT_STREQ(name.text, "");
    MCAST_GetIfNameOrIndex(kForeign, nullptr);
    MCAST_GetIfNameOrIndex(0, nullptr);
}

TEST_F(InterfaceName, SimpleNameOrIndexFallsBackToHexadecimal)
{
    Answer("ge1", 0);
    EXPECT_EQ(MCAST_GetIfSimpleNameOrIndex(kForeign, simple.text), 0u);
    EXPECT_STREQ(simple.text, "ge1");
    asked = 99;
    EXPECT_EQ(MCAST_GetIfSimpleNameOrIndex(0, simple.text), 3u);
    EXPECT_STREQ(simple.text, "0x0");
    EXPECT_EQ(asked, 99u);
    Answer(nullptr, 1);
    EXPECT_EQ(MCAST_GetIfSimpleNameOrIndex(kMua, simple.text), 10u);
    EXPECT_STREQ(simple.text, "0xd0000007");
    EXPECT_EQ(MCAST_GetIfSimpleNameOrIndex(0xCFFFFFFF, simple.text), 0u);
    EXPECT_STREQ(simple.text, "Multicast-NBMA33554431");
}

TEST_F(InterfaceName, FullNameIsCompletedAmongWhatAQueryMayAskAbout)
{
    char full[IF_FILLED_NAME_SIZE] = "untouched";
    size_t calls_of_hook = 0;
    IF_SELECTOR_S selector;

    scripted::if_type_data = [](uint32_t, uint32_t, void *) -> uint32_t { return 0; };
    MCAST_IF_HookForQuery(&selector);
    auto expected = scripted::selector_calls;

    scripted::selector_calls.clear();
    scripted::if_name_fill = [&](const void *chosen, const char *text, uint32_t mode, char *out) -> uint32_t {
        calls_of_hook = scripted::selector_calls.size();
        EXPECT_EQ(chosen, scripted::selector_calls.front().selector);
        EXPECT_STREQ(text, "gi0/1");
        EXPECT_EQ(mode, 1u);
        std::strcpy(out, "GigabitEthernet0/1");
        return 0;
    };
    EXPECT_EQ(MCAST_IF_GetFullName("gi0/1", full), 0u);
    EXPECT_STREQ(full, "GigabitEthernet0/1");
    ASSERT_EQ(calls_of_hook, expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(scripted::selector_calls[i].value, expected[i].value);
    }
    scripted::if_name_fill = [](const void *, const char *, uint32_t, char *) -> uint32_t { return 0x1234; };
    EXPECT_EQ(MCAST_IF_GetFullName("gi0/1", full), 0x1234u);
}

class TypedName : public InterfaceName
{
protected:
    std::string typed;
    std::string looked_up;
    std::string full = "GigabitEthernet0/1";
    uint32_t result = 0;

    void SetUp() override
    {
        scripted::if_name_fill = [this](const void *, const char *text, uint32_t, char *out) -> uint32_t {
            typed = text;
            if (result == 0) {
                std::strcpy(out, full.c_str());
            }
            return result;
        };
        scripted::if_index_by_name = [this](const char *text) -> uint32_t {
            looked_up = text;
            return 42;
        };
    }
};

TEST_F(TypedName, IsComposedFromTypeAndNumberWhenTheBufferIsEmpty)
{
    name.text[0] = '\0';
    EXPECT_EQ(MCAST_GetIfIndexByIfName("gi", "0/1", name.text), 42u);
    EXPECT_EQ(typed, "gi0/1");
    EXPECT_EQ(looked_up, full);
    EXPECT_EQ(name.text, full);
}

TEST_F(TypedName, IsTakenFromTheBufferWhenThatHoldsOne)
{
    std::strcpy(name.text, "held");
    EXPECT_EQ(MCAST_GetIfIndexByIfName(nullptr, nullptr, name.text), 42u);
    EXPECT_EQ(typed, "held");
    EXPECT_EQ(name.text, full);
}

TEST_F(TypedName, StaysInTheBufferWhenItCannotBeCompleted)
{
    result = 1;
    name.text[0] = '\0';
    EXPECT_EQ(MCAST_GetIfIndexByIfName("xx", "9", name.text), 0u);
    EXPECT_STREQ(name.text, "xx9");
    EXPECT_EQ(looked_up, "");
    EXPECT_EQ(MCAST_GetIfIndexByIfName("yy", "8", name.text), 0u);
    EXPECT_STREQ(name.text, "xx9");
}

TEST_F(TypedName, IsCutToTheBufferWhileTheLookUpHasTheWholeName)
{
    std::string text(100, 'a');
    full = std::string(200, 'b');
    name.text[0] = '\0';
    EXPECT_EQ(MCAST_GetIfIndexByIfName(text.c_str(), "1", name.text), 42u);
    EXPECT_EQ(typed, std::string(47, 'a'));
    EXPECT_EQ(looked_up, full);
    EXPECT_EQ(name.text, std::string(47, 'b'));
}

TEST_F(TypedName, TextsThatAreMissingCountAsEmpty)
{
    name.text[0] = '\0';
    EXPECT_EQ(MCAST_GetIfIndexByIfName("gi", nullptr, name.text), 42u);
    EXPECT_EQ(typed, "gi");
    name.text[0] = '\0';
    EXPECT_EQ(MCAST_GetIfIndexByIfName(nullptr, "7", name.text), 42u);
    EXPECT_EQ(typed, "7");
}

TEST_F(TypedName, UnknownFullNameGivesZero)
{
    scripted::if_index_by_name = nullptr;
    name.text[0] = '\0';
    EXPECT_EQ(MCAST_GetIfIndexByIfName("gi", "0/1", name.text), 0u);
    EXPECT_EQ(name.text, full);
}

} // namespace
