#include "tests/daemons/gmpd_lab.h"

#include <utility>

#include "daemons/common/log.h"
#include "daemons/common/timer.h"

namespace gmpd_test
{
namespace
{

void fired(uint64_t parameters[4])
{
    MCAST_TMR_ProcExpires(*reinterpret_cast<MCAST_TMR_S **>(parameters[0]));
}

std::string number_of(const Address &address)
{
    return std::to_string(address.address[gmpd::address_size(address.family) - 1]);
}

std::string group_text(const Address &group)
{
    return "G" + number_of(group);
}

void add_line(std::string &lines, const std::string &line)
{
    lines += lines.empty() ? line : "; " + line;
}

Address numbered(uint16_t family, const char *ipv4, const char *ipv6, unsigned number)
{
    Address address = from_text(family == MCAST_FAMILY_IPV4 ? ipv4 : ipv6);
    address.address[gmpd::address_size(family) - 1] = static_cast<uint8_t>(number);
    return address;
}

} // namespace

void Recorder::send_query(gmpd::Interface &, const gmpd::Query &query)
{
    std::string line = query.suppress ? "? S " : "? ";
    line += gmpd::is_unspecified(query.group) ? "all" : group_text(query.group);
    if (!query.sources.empty()) {
        line += " {";
        for (const Address &source : query.sources) {
            line += (line.back() == '{' ? "" : " ") + number_of(source);
        }
        line += "}";
    }
    add_line(queries_, line);
}

void Recorder::tell_running(const gmpd::Interface &, bool running)
{
    add_line(told_, running ? "running" : "stopped");
}

void Recorder::tell_querier(const gmpd::Interface &, bool elected)
{
    add_line(told_, elected ? "querier" : "not querier");
}

void Recorder::tell_member(const gmpd::Interface &, const Address &group, const Address *source, bool join,
                           bool blocked)
{
    std::string line = blocked ? (join ? "block " : "unblock ") : (join ? "join " : "prune ");
    line += group_text(group);
    if (source != nullptr) {
        line += " " + number_of(*source);
    }
    add_line(told_, line);
}

std::string Recorder::queries()
{
    return std::exchange(queries_, std::string());
}

std::string Recorder::told()
{
    return std::exchange(told_, std::string());
}

Lab::Lab(uint8_t family, const gmpd::Config &config)
{
    mcastd::log_open("gmpd", mcastd::LogLevel::Error);
    scripted_timer::Reset();
    scripted_timer::platform.record = false;
    const uint64_t parameters[4] = {reinterpret_cast<uint64_t>(&process.timers), 0, 0, 0};

    process.config = config;
    process.config.family = family;
    process.queries = &recorder;
    process.mrib = &recorder;
    process.timers = MCAST_TMR_Create(scripted_timer::Service(), fired, parameters);
    auto made = std::make_unique<gmpd::Interface>(process, 7, "lab");

    interface = made.get();
    process.interfaces[7] = std::move(made);
}

Lab::~Lab()
{
    process.interfaces.clear();
    MCAST_TMR_Destroy(process.timers);
}

void Lab::start()
{
    gmpd::interface_start(*interface, neighbour(100));
    recorder.queries();
    recorder.told();
}

Address Lab::group(unsigned number) const
{
    return numbered(process.config.family, "239.1.1.0", "ff1e::1:0", number);
}

Address Lab::source(unsigned number) const
{
    return numbered(process.config.family, "192.0.2.0", "2001:db8::1:0", number);
}

Address Lab::neighbour(unsigned number) const
{
    return numbered(process.config.family, "10.0.0.0", "fe80::1:0", number);
}

void Lab::record(gmpd::RecordType type, const std::vector<unsigned> &sources, unsigned group_number)
{
    std::vector<Address> addresses;
    for (unsigned number : sources) {
        addresses.push_back(source(number));
    }
    gmpd::apply_record(interface->memberships, type, group(group_number), addresses);
}

gmpd::Message Lab::message(gmpd::MessageKind kind, uint8_t version, unsigned neighbour_number) const
{
    gmpd::Message made;
    made.kind = kind;
    made.version = version;
    made.sender = neighbour(neighbour_number);
    made.group = gmpd::any_address(process.config.family);
    return made;
}

void Lab::old_report(uint8_t version, unsigned group_number)
{
    gmpd::Message report = message(gmpd::MessageKind::Report, version, 200);
    report.group = group(group_number);
    gmpd::handle_message(*interface, report);
}

void Lab::leave(unsigned group_number)
{
    gmpd::Message left = message(gmpd::MessageKind::Leave, 2, 200);
    left.group = group(group_number);
    gmpd::handle_message(*interface, left);
}

void Lab::query(unsigned neighbour_number, uint8_t version, unsigned group_number,
                const std::vector<unsigned> &sources, bool suppress)
{
    gmpd::Message asked = message(gmpd::MessageKind::Query, version, neighbour_number);
    Bytes bytes;

    if (group_number != 0) {
        asked.group = group(group_number);
    }
    for (unsigned number : sources) {
        const Address address = source(number);

        bytes.insert(bytes.end(), address.address, address.address + gmpd::address_size(address.family));
    }
    asked.sources = gmpd::SourceList{process.config.family, bytes};
    asked.suppress = suppress;
    asked.max_response_ms = group_number == 0 ? 10000 : 1000;
    asked.robustness = version == 3 ? 2 : 0;
    asked.query_interval_s = version == 3 ? 125 : 0;
    gmpd::handle_message(*interface, asked);
}

void Lab::pass_ms(uint32_t milliseconds)
{
    scripted_timer::platform.now_ms += milliseconds;
    scripted_timer::FireIfDue();
}

void Lab::pass(uint32_t seconds)
{
    for (uint32_t i = 0; i < seconds; ++i) {
        pass_ms(1000);
    }
}

std::string Lab::state(unsigned group_number) const
{
    const gmpd::GroupState *group_state = gmpd::find_group(interface->memberships, group(group_number));
    std::string wanted;
    std::string blocked;

    if (group_state == nullptr) {
        return "none";
    }
    gmpd::for_each_source(*group_state, [&](const gmpd::SourceState &source) {
        const std::string number = number_of(*source.entry->address);

        if (source.timer.running()) {
            wanted += (wanted.empty() ? "" : " ") + number + ":" + std::to_string(source.timer.remaining_s());
        } else {
            blocked += (blocked.empty() ? "" : " ") + number;
        }
    });
    if (!group_state->exclude) {
        return "INCLUDE {" + wanted + "}" + (blocked.empty() ? "" : " blocked in INCLUDE: " + blocked);
    }
    return "EXCLUDE {" + wanted + "} {" + blocked + "} " +
           std::to_string(mcastd::timer_remaining_s(group_state->timer));
}

} // namespace gmpd_test
