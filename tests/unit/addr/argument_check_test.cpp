#include "mcast/argument_check.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

constexpr uint32_t kRefused = 0x40010001;

struct Kind {
    const char *name;
    MCAST_STATUS (*check)(const char *text);
    std::vector<const char *> accepted;
    std::vector<const char *> refused;
};

const std::vector<Kind> kIpv4 = {
    {"GroupIPCheck",
     MCAST_GroupIPCheck,
     {"224.0.1.1", "224.0.1.0", "232.1.1.1", "239.255.255.255"},
     {"224.0.0.5", "224.0.0.0", "224.0.0.255", "223.255.255.255", "240.0.0.0", "0.0.0.0"}},
    {"GroupIPCheckExcludeResvAddr_Ext",
     MCAST_GroupIPCheckExcludeResvAddr_Ext,
     {"224.0.1.1", "224.0.1.0", "232.1.1.1", "239.255.255.255"},
     {"224.0.0.5", "224.0.0.0", "224.0.0.255", "223.255.255.255", "240.0.0.0", "0.0.0.0"}},
    {"GroupIPCheck_Ext",
     MCAST_GroupIPCheck_Ext,
     {"224.0.0.5", "224.0.1.1", "224.0.0.0", "239.255.255.255"},
     {"223.255.255.255", "240.0.0.0", "0.0.0.0", "255.255.255.255"}},
    {"AdmGroupIPCheck",
     MCAST_AdmGroupIPCheck,
     {"239.1.1.1", "239.0.0.0", "239.255.255.255"},
     {"238.1.1.1", "238.255.255.255", "240.0.0.0", "224.0.1.1"}},
    {"AdmGroupMaskCheck",
     MCAST_AdmGroupMaskCheck,
     {"255.0.0.0", "255.128.0.0", "255.255.255.0", "255.255.255.255"},
     {"254.0.0.0", "255.0.255.0", "0.0.0.0", "240.0.0.0", "255.255.255.253"}},
    {"GrpMaskCheck",
     MCAST_GrpMaskCheck,
     {"240.0.0.0", "248.0.0.0", "255.0.0.0", "255.255.255.255"},
     {"224.0.0.0", "0.0.0.0", "128.0.0.0", "240.255.0.0", "255.0.255.0"}},
    {"MaskCheck",
     MCAST_MaskCheck,
     {"0.0.0.0", "128.0.0.0", "224.0.0.0", "255.0.0.0", "255.255.255.254", "255.255.255.255"},
     {"0.0.0.1", "255.0.255.0", "127.0.0.0", "255.255.255.253"}},
    {"SrcIPStrictCheck",
     MCAST_SrcIPStrictCheck,
     {"1.0.0.0", "10.1.1.1", "126.255.255.255", "128.0.0.1", "191.1.1.1", "192.0.0.0", "223.255.255.255"},
     {"0.0.0.0", "0.1.2.3", "127.0.0.1", "224.0.0.1", "240.0.0.1", "255.255.255.255"}},
    {"SourceIPCheck",
     MCAST_SourceIPCheck,
     {"0.0.0.0", "1.0.0.0", "126.255.255.255", "128.0.0.1", "223.255.255.255"},
     {"0.0.0.1", "0.255.255.255", "127.0.0.1", "224.0.0.1", "240.0.0.1", "255.255.255.255"}},
};

const std::vector<Kind> kIpv6 = {
    {"GroupIPv6Check",
     MCAST_GroupIPv6Check,
     {"ff05::1", "ff0e::1", "ff03::1", "ff15::", "ff3e::1234", "FF0E::1", "ff05::0.0.0.1"},
     {"ff02::1", "ff01::1", "ff00::1", "ff05::", "ff0e::", "fe05::1", "2001::1", "::", "ff12::1"}},
    {"GroupIPv6StrictCheck",
     MCAST_GroupIPv6StrictCheck,
     {"ff05::1", "ff0e::1", "ff03::1", "ff15::", "ff3e::1234", "FF0E::1"},
     {"ff02::1", "ff01::1", "ff00::1", "ff05::", "ff0e::", "fe05::1", "2001::1", "::", "ff12::1"}},
    {"GroupIPv6Check_Ext",
     MCAST_GroupIPv6Check_Ext,
     {"ff00::", "ff02::1", "ffff::", "ff05::"},
     {"fe80::1", "feff::", "2001::1", "::", "::1", "::ff"}},
    {"SourceIPv6Check",
     MCAST_SourceIPv6Check,
     {"2001:db8::1", "fec0::1", "::2", "fe40::1", "::ffff:10.0.0.1", "::1:0"},
     {"::", "::1", "fe80::1", "febf::1", "ff02::1"}},
    {"SourceIPv6Check_Ext",
     MCAST_SourceIPv6Check_Ext,
     {"::", "2001:db8::1", "fec0::1", "::2"},
     {"::1", "fe80::1", "febf::1", "ff02::1"}},
    {"SrcIPv6Check",
     MCAST_SrcIPv6Check,
     {"2001:db8::1", "fec0::1", "::2", "1::1", "fe40::1"},
     {"::", "::1", "fe80::1", "febf::1", "ff02::1"}},
    {"SrcIPv6StrictCheck",
     MCAST_SrcIPv6StrictCheck,
     {"fe80::1", "2001:db8::1", "fec0::1", "::2"},
     {"::", "::1", "ff02::1", "ffff::"}},
    {"SrcIPv6RelaxCheck",
     MCAST_SrcIPv6RelaxCheck,
     {"::", "::1", "fe80::1", "2001:db8::1", "feff::"},
     {"ff00::", "ff02::1", "ffff::"}},
    {"IPv6StrLinkCheck",
     MCAST_IPv6StrLinkCheck,
     {"fe80::", "fe80::1", "febf:ffff::1", "fe90::1"},
     {"fe7f::1", "fec0::1", "fe40::1", "ff80::1", "2001::1", "::"}},
};

void ExpectRule(const Kind &kind)
{
    for (const char *text : kind.accepted) {
        EXPECT_EQ(kind.check(text), 0u) << kind.name << " " << text;
    }
    for (const char *text : kind.refused) {
        EXPECT_EQ(kind.check(text), kRefused) << kind.name << " " << text;
    }
    EXPECT_EQ(kind.check(nullptr), kRefused) << kind.name;
    EXPECT_EQ(kind.check("default"), kRefused) << kind.name;
    EXPECT_EQ(kind.check(std::string(100000, '1').c_str()), kRefused) << kind.name;
}

TEST(ArgumentCheck, Ipv4KindsAcceptWhatTheirRuleSays)
{
    for (const Kind &kind : kIpv4) {
        ExpectRule(kind);
        for (const char *text : {"", " ", "224.1.1", "255.255.255.0.0", "239.1.1.1 ", " 239.1.1.1",
                                 "10.1.1.256", "224.0.1.01x", "0x0", "ff05::1", "2001::1", "::"}) {
            EXPECT_EQ(kind.check(text), kRefused) << kind.name << " " << text;
        }
    }
}

TEST(ArgumentCheck, Ipv6KindsAcceptWhatTheirRuleSays)
{
    for (const Kind &kind : kIpv6) {
        ExpectRule(kind);
        for (const char *text : {"", " ", "ff05:", ":", ":::", "ff05::1 ", " 2001::1", "fe80::1%eth0",
                                 "fe80::1/64", "12345::", "224.1.1.1", "1:2:3:4:5:6:7:8:9", "ff05::g"}) {
            EXPECT_EQ(kind.check(text), kRefused) << kind.name << " " << text;
        }
    }
}

} // namespace
