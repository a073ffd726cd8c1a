#include "tests/daemons/msdpd_lab.h"

#include "mcast/acl_filter.h"

namespace msdpd_test
{

using namespace msdpd;

// The whole table in batches of three, so that tests see several.
bool FakeMrib::next_local(uint32_t acl, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor, MRIB_MSDP_BATCH_S *batch)
{
    constexpr uint32_t BATCH = 3;
    size_t at = cursor->source_be; // the place in the table: the cursor is ours to use
    asked_acl = acl;
    batch->rp_be = to_network(peer_address(100));
    for (; at < local.size() && batch->count < BATCH; ++at) {
        if ((group == Ipv4{} || local[at].group == group) &&
            MCAST4_IsAclPermit(0, acl, local[at].source.number, local[at].group.number) == MCAST_TRUE) {
            batch->pairs[batch->count++] = {to_network(local[at].group), to_network(local[at].source)};
        }
    }
    cursor->source_be = static_cast<uint32_t>(at);
    return at < local.size();
}

Lab::Lab(const std::vector<unsigned> &peers, const std::function<void(Config &config)> &change)
{
    const uint64_t parameters[4] = {reinterpret_cast<uint64_t>(this), 0, 0, 0};

    mcastd::log_open("msdpd", mcastd::LogLevel::Error);
    scripted_timer::Reset();
    scripted_timer::platform.record = false;
    timers = MCAST_TMR_Create(
        scripted_timer::Service(),
        [](uint64_t words[4]) { MCAST_TMR_ProcExpires(reinterpret_cast<Lab *>(words[0])->timers); },
        parameters);
    speaker = std::make_unique<Speaker>(timers, transport, mrib, routes);
    speaker->cache.on_change(
        [this](const Pair &pair, bool present) { append(&told_, (present ? "+" : "-") + text(pair)); });
    speaker->cache.on_forget([this](Ipv4 group) {
        append(&told_, group == Ipv4{} ? "-all" : "-all>" + std::to_string(group.number - 0xef000000));
    });
    for (const unsigned number : peers) {
        PeerConfig peer;

        peer.address = peer_address(number);
        peer.local_address = peer_address(100);
        peer.position = static_cast<uint32_t>(config.peers.size());
        config.peers[peer.address] = peer;
    }
    if (change) {
        change(config);
    }
    configure();
}

Lab::~Lab()
{
    speaker.reset();
    MCAST_TMR_Destroy(timers);
}

std::string Lab::state(unsigned number)
{
    return state_name(peer(number).state);
}

void Lab::configure()
{
    speaker_configure(*speaker, config);
}

void Lab::establish(unsigned number)
{
    peer_connected(peer(number));
    while (dump_continue(peer(number))) {
        sent(number);
    }
    sent(number);
    transport.calls.clear();
}

void Lab::establish(const std::vector<unsigned> &numbers)
{
    for (const unsigned number : numbers) {
        establish(number);
    }
}

void Lab::input(unsigned number, const Bytes &bytes)
{
    peer_input(peer(number), bytes);
}

void Lab::announce(unsigned number, Ipv4 rp, const std::vector<Pair> &pairs)
{
    input(number, build_source_active(TLV_SOURCE_ACTIVE, rp, pairs));
}

void Lab::announce(unsigned number, const std::vector<Pair> &pairs)
{
    announce(number, peer_address(number), pairs);
}

std::string Lab::sent(unsigned number)
{
    SendBuffer &output = peer(number).output;
    const Bytes bytes(output.waiting().begin(), output.waiting().end());
    std::span<const uint8_t> left(bytes);
    std::string line;
    Tlv tlv;

    output.consume(bytes.size());
    for (; next_tlv(left, &tlv) == Framing::Complete; left = left.subspan(tlv.size)) {
        SourceActive message;
        Ipv4 group;

        if (tlv.type == TLV_KEEPALIVE) {
            append(&line, "keepalive");
        } else if (tlv.type == TLV_REQUEST && parse_request(tlv.value, &group)) {
            append(&line, "request " + std::to_string(group.number - 0xef000000));
        } else if (parse_source_active(tlv.value, &message)) {
            append(&line, tlv.type == TLV_RESPONSE ? "response" : "sa");
            append(&line, std::to_string(message.rp.number & 0xff));
            for (const Pair &pair : message.pairs) {
                append(&line, text(pair));
            }
        }
    }
    return left.empty() ? line : line + " and what is no message";
}

std::string Lab::cache()
{
    std::string line;
    SaCache::Cursor cursor;
    speaker->cache.visit(&cursor, [&line](const SaEntry &entry) {
        append(&line, text(entry.pair()));
        return true;
    });
    return line;
}

std::string Lab::told()
{
    return std::exchange(told_, {});
}

void Lab::pass(uint32_t seconds)
{
    for (uint32_t i = 0; i < seconds; ++i) {
        scripted_timer::Advance(1);
        scripted_timer::FireIfDue();
    }
}

} // namespace msdpd_test
