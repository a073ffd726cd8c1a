/*
 * Typed addresses and masks, and group ranges, compared with the rules written out. The input is the text, in
 * a block of exactly its size; its bytes serve as the record and the prefix length of a range as well.
 */
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "mcast/argument_check.h"

namespace
{

constexpr uint32_t kRefused = 0x40010001;

void Expect(bool accepted, MCAST_STATUS status)
{
    if (status != (accepted ? 0 : kRefused)) {
        abort();
    }
}

void CheckIpv4(const char *text)
{
    struct in_addr parsed = {};
    bool valid = inet_pton(AF_INET, text, &parsed) == 1;
    uint32_t a = ntohl(parsed.s_addr);
    uint32_t octet = a >> 24;
    bool group = valid && octet >= 224 && octet <= 239;
    bool routable = group && (a & 0xffffff00) != 0xe0000000;
    bool source = valid && octet != 0 && octet != 127 && octet <= 223;
    bool mask = false;
    for (int length = 0; valid && length <= 32; ++length) {
        mask = mask || a == (length == 0 ? 0 : 0xffffffff << (32 - length));
    }
    Expect(routable, MCAST_GroupIPCheck(text));
    Expect(routable, MCAST_GroupIPCheckExcludeResvAddr_Ext(text));
    Expect(group, MCAST_GroupIPCheck_Ext(text));
    Expect(valid && octet == 239, MCAST_AdmGroupIPCheck(text));
    Expect(mask && octet == 255, MCAST_AdmGroupMaskCheck(text));
    Expect(mask && octet >= 240, MCAST_GrpMaskCheck(text));
    Expect(mask, MCAST_MaskCheck(text));
    Expect(source, MCAST_SrcIPStrictCheck(text));
    Expect(source || (valid && a == 0), MCAST_SourceIPCheck(text));
}

void CheckIpv6(const char *text)
{
    static const uint8_t kZeros[16] = {};
    static const uint8_t kLoopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    uint8_t a[16] = {};
    bool valid = inet_pton(AF_INET6, text, a) == 1;
    bool multicast = valid && a[0] == 0xff;
    bool link_local = valid && a[0] == 0xfe && a[1] >= 0x80 && a[1] <= 0xbf;
    bool wildcard = valid && std::memcmp(a, kZeros, 16) == 0;
    bool loopback = valid && std::memcmp(a, kLoopback, 16) == 0;
    bool bare = (a[1] & 0xf0) == 0 && std::memcmp(a + 2, kZeros, 14) == 0;
    bool group = multicast && (a[1] & 0x0f) >= 3 && !bare;
    bool protocol = valid && !multicast && !wildcard && !loopback;
    Expect(group, MCAST_GroupIPv6Check(text));
    Expect(group, MCAST_GroupIPv6StrictCheck(text));
    Expect(multicast, MCAST_GroupIPv6Check_Ext(text));
    Expect(protocol && !link_local, MCAST_SourceIPv6Check(text));
    Expect(wildcard || (protocol && !link_local), MCAST_SourceIPv6Check_Ext(text));
    Expect(protocol && !link_local, MCAST_SrcIPv6Check(text));
    Expect(protocol, MCAST_SrcIPv6StrictCheck(text));
    Expect(valid && !multicast, MCAST_SrcIPv6RelaxCheck(text));
    Expect(link_local, MCAST_IPv6StrLinkCheck(text));
}

/* The range in the first bytes: family, prefix length, address. */
void CheckRange(const uint8_t *data, size_t size)
{
    MCAST_ADDR_S group = {};

    if (size < 18) {
        return;
    }
    group.family = data[0];
    std::memcpy(group.address, data + 2, sizeof(group.address));

    const uint8_t *a = group.address;
    uint8_t length = data[1];
    uint8_t scope = a[1] & 0x0f;
    bool link_block = length >= 24 && a[0] == 224 && a[1] == 0 && a[2] == 0;
    bool passes = a[0] == 0xff;

    if (group.family == 2) {
        passes = a[0] >= 224 && a[0] <= 239 && !link_block;
    } else if (group.family == 10 && length >= 15) {
        passes = passes && scope >= (length == 15 ? 2 : 3);
    }
    if (MCAST_GrpRangeCheck(&group, length) != (passes ? 1u : 0u)) {
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    auto text = std::make_unique<char[]>(size + 1);

    if (size != 0) {
        std::memcpy(text.get(), data, size);
    }
    text[size] = '\0';
    CheckIpv4(text.get());
    CheckIpv6(text.get());
    CheckRange(data, size);
    return 0;
}
