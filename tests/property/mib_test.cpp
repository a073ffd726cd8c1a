/*
 * Get-next over several instances against the rules written down once more, the slow way.
 */
#include "mcast/mib.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "support/property.h"
#include "support/scripted_device.h"
#include "support/scripted_libc.h"

namespace
{

/* What an instance will do in a walk. */
struct Instance {
    bool has_address;
    bool reachable;
    MCAST_STATUS result; /* of its parser */
};

/* A record with what the parser writes: the position of its entry in the table. */
struct Request {
    MCAST_MIB_REQUEST_S mib;
    uint32_t entry;
};

/* A reply: the parser's result and the entry. */
struct Reply {
    MCAST_STATUS result;
    uint32_t entry;
};

MCAST_STATUS Parse(const void *bytes, uint64_t length, void *output, void *, void *)
{
    Reply reply;
    EXPECT_EQ(length, sizeof(reply));
    memcpy(&reply, bytes, sizeof(reply));
    memcpy(output, &reply.entry, sizeof(reply.entry));
    return reply.result;
}

uint32_t EntryOf(const MCAST_MIB_REQUEST_S *request)
{
    return reinterpret_cast<const Request *>(request)->entry;
}

/* The lowest entry, the first of equals. */
uint32_t ChooseLowest(MCAST_MIB_REQUEST_S *const requests[], uint32_t count)
{
    uint32_t best = count;
    for (uint32_t i = 0; i < count; ++i) {
        if (requests[i]->result == 0 && (best == count || EntryOf(requests[i]) < EntryOf(requests[best]))) {
            best = i;
        }
    }
    return best;
}

constexpr uint32_t kUntouched = 0xabcdef;

class Walk
{
public:
    explicit Walk(property::Random &random) : instances(random.Below(7)), requests(instances.size())
    {
        static constexpr MCAST_STATUS kResults[] = {MCAST_OK, MCAST_MIB_NO_ENTRY, MCAST_MIB_NO_NEXT,
                                                    MCAST_ERR_GENERAL};
        /* Walks without an entry and without errors are the interesting ones, and rare by chance. */
        const uint32_t kinds = 1 + random.Below(4);
        const uint32_t offset = random.Below(4);

        for (size_t i = 0; i < instances.size(); ++i) {
            instances[i] = {!random.OneIn(5), !random.OneIn(3), kResults[(offset + random.Below(kinds)) % 4]};
            endpoints.push_back({100 + i, static_cast<uint16_t>(i), 0});
            requests[i].mib = {1, "?", sizeof(Reply), &replies[i], 0, kResults[1 + random.Below(3)]};
            requests[i].entry = random.Below(4);
            records.push_back(&requests[i].mib);
            before.push_back(requests[i].mib.result);
        }
        for (size_t i = 0; i < instances.size(); ++i) {
            daemons.push_back(instances[i].has_address ? &endpoints[i] : nullptr);
        }
    }

    bool Answers(size_t i) const
    {
        return instances[i].has_address && instances[i].reachable;
    }

    /* The combined result, from lists of the results instead of one pass over them. */
    static MCAST_STATUS Combined(const std::vector<int64_t> &results, uint32_t start)
    {
        const int64_t n = static_cast<int64_t>(results.size());

        if (start >= results.size()) {
            return n == 0 ? 0x6001001a : 0x60010023;
        }
        const std::vector<int64_t> walked(results.begin() + start, results.end());
        const int64_t none = std::count(walked.begin(), walked.end(), 0x6001001a);
        const int64_t end = std::count(walked.begin(), walked.end(), 0x60010023);

        if (none + end != static_cast<int64_t>(walked.size())) {
            return 0x40010005;
        }
        return none == n ? 0x6001001a : 0x60010023;
    }

    void CheckResults(const std::vector<int64_t> &expected) const
    {
        for (size_t i = 0; i < expected.size(); ++i) {
            ASSERT_EQ(requests[i].mib.result, expected[i]) << "instance " << i;
        }
    }

    std::vector<Instance> instances;
    std::vector<Request> requests;
    Reply replies[8] = {};
    std::vector<MCAST_APP_ENDPOINT_S> endpoints;
    std::vector<const MCAST_APP_ENDPOINT_S *> daemons;
    std::vector<MCAST_MIB_REQUEST_S *> records;
    std::vector<int64_t> before;
};

/* Connections go to the instance whose number is the port; sockets are counted. */
struct Network {
    explicit Network(const Walk &of) : walk(of)
    {
        scripted::socket = [this](auto...) {
            ++opened;
            return 1000;
        };
        scripted::close = [this](int) {
            ++closed;
            return 0;
        };
        scripted::setsockopt = [](auto...) { return 0; };
        scripted::connect = [this](int, const sockaddr *to, socklen_t) {
            instance = reinterpret_cast<const uint8_t *>(to)[3];
            asked.push_back(instance);
            errno = ECONNREFUSED;
            return walk.instances[instance].reachable ? 0 : -1;
        };
        scripted::send = [](int, const void *, size_t length, int) { return static_cast<ssize_t>(length); };
        scripted::recv = [this](int, void *data, size_t, int) {
            const Reply reply = {walk.instances[instance].result, walk.requests[instance].entry};

            memcpy(data, &reply, sizeof(reply));
            return static_cast<ssize_t>(sizeof(reply));
        };
    }

    ~Network()
    {
        scripted::Reset();
    }

    const Walk &walk;
    size_t instance = 0;
    std::vector<size_t> asked;
    int opened = 0;
    int closed = 0;
};

void NextByIndex(Walk &walk)
{
    Network network(walk);
    const uint32_t n = static_cast<uint32_t>(walk.instances.size());
    std::vector<int64_t> expected = walk.before;
    std::vector<size_t> asked;
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    uint32_t chosen = kUntouched;

    for (uint32_t i = 0; i < n; ++i) {
        if (walk.instances[i].has_address) {
            asked.push_back(i);
            expected[i] = walk.Answers(i) ? walk.instances[i].result : MCAST_MIB_NO_ENTRY;
            if (expected[i] == 0) {
                entries.emplace_back(walk.requests[i].entry, i);
            }
        }
    }
    const MCAST_STATUS result =
        MCAST_MIB_GetNextByIndex(walk.daemons.data(), walk.records.data(), n, Parse, ChooseLowest, &chosen);

    if (entries.empty()) {
        ASSERT_EQ(result, Walk::Combined(expected, 0));
        ASSERT_EQ(chosen, kUntouched);
    } else {
        ASSERT_EQ(result, MCAST_OK);
        ASSERT_EQ(chosen, std::min_element(entries.begin(), entries.end())->second);
    }
    ASSERT_NO_FATAL_FAILURE(walk.CheckResults(expected));
    ASSERT_EQ(network.asked, asked);
    ASSERT_EQ(network.opened, network.closed);
}

void NextByInet(Walk &walk, uint32_t start)
{
    Network network(walk);
    const uint32_t n = static_cast<uint32_t>(walk.instances.size());
    std::vector<int64_t> expected = walk.before;
    std::vector<size_t> asked;
    uint32_t answer = kUntouched;
    uint32_t chosen = kUntouched;

    for (uint32_t i = start; i < n && answer == kUntouched; ++i) {
        expected[i] = walk.Answers(i) ? walk.instances[i].result : MCAST_MIB_NO_ENTRY;
        answer = expected[i] == 0 ? i : kUntouched;
        if (walk.instances[i].has_address) {
            asked.push_back(i);
        }
    }
    const MCAST_STATUS result =
        MCAST_MIB_GetNextByInet(walk.daemons.data(), walk.records.data(), n, start, Parse, &chosen);

    ASSERT_EQ(result, answer == kUntouched ? Walk::Combined(expected, start) : MCAST_OK);
    ASSERT_EQ(chosen, answer);
    ASSERT_NO_FATAL_FAILURE(walk.CheckResults(expected));
    ASSERT_EQ(network.asked, asked);
    ASSERT_EQ(network.opened, network.closed);
}

TEST(MibProperty, GetNextFollowsTheRulesWhateverTheInstancesDo)
{
    property::Random random(property::Seed("MibProperty"));

    for (uint64_t done = property::Operations(40000); done > 0; --done) {
        Walk walk(random);

        if (random.OneIn(2)) {
            ASSERT_NO_FATAL_FAILURE(NextByIndex(walk));
        } else {
            ASSERT_NO_FATAL_FAILURE(NextByInet(walk, random.Below(3) * random.Below(4)));
        }
    }
}

} // namespace
