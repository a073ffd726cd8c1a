/*
 * Bytes into the control endpoint of a daemon, and into the reader of its replies. The first byte of an input
 * chooses which. Whatever arrives, the answer is a reply that mcastctl can read; and what is read as a
 * request is written as the same bytes.
 */
#include <algorithm>
#include <cstdlib>

#include "daemons/common/control_debug.h"
#include "daemons/common/control_registry.h"

using namespace mcastd;

namespace
{

void require(bool condition)
{
    if (!condition) {
        abort();
    }
}

// A table of a thousand rows and more under two-part keys, with a setting.
void offer(ControlRegistry &registry)
{
    registry.add_table(SOURCE_TABLE, [](ControlRows &rows) {
        for (unsigned i = 0; i < 1024; ++i) {
            const auto high = static_cast<uint8_t>(i / 256);
            const auto low = static_cast<uint8_t>(i);
            const MCAST_ADDR_S group = {MCAST_FAMILY_IPV4, 0, {239, 1, high, low}};
            const MCAST_ADDR_S source = {MCAST_FAMILY_IPV6, 0, {0xfd, low}};
            if (!rows.add({ControlField::interface(i / 2u),
                           ControlField::address(group),
                           ControlField::address(source),
                           ControlField::truth(true),
                           {}})) {
                return;
            }
        }
    });
    registry.add_setting(
        SOURCE_TABLE,
        {"setting", FieldType::Number,
         [](const ControlFields &, const ControlField &value) {
             return value.as_number() > 9 ? std::string("too large") : std::string();
         },
         [](const ControlFields &, const ControlField &value) { require(value.as_number() <= 9); }});
    offer_debug(registry);
}

void take_request(std::span<const uint8_t> bytes)
{
    ControlRequest request;
    if (decode(bytes, &request) && bytes.size() <= CONTROL_REQUEST_MAX) {
        const std::vector<uint8_t> again = encode(request);
        require(std::equal(again.begin(), again.end(), bytes.begin(), bytes.end()));
    }
    ControlRegistry registry;
    offer(registry);
    const std::vector<uint8_t> answer = registry.answer(bytes);
    ControlReply reply;
    require(answer.size() <= CONTROL_REPLY_MAX && decode(answer, &reply));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1) {
        return 0;
    }
    const std::span<const uint8_t> bytes(data + 1, size - 1);
    if (data[0] % 2 == 0) {
        take_request(bytes);
    } else {
        ControlReply reply;
        decode(bytes, &reply);
    }
    return 0;
}
