/*
 * One router and one interface without sockets: time is scripted, and what the state machine causes is
 * written down as lines of text.
 */
#ifndef TESTS_DAEMONS_GMPD_LAB_H
#define TESTS_DAEMONS_GMPD_LAB_H

#include <cstdint>
#include <string>
#include <vector>

#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/message_handler.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/state_table.h"
#include "support/scripted_timer.h"
#include "tests/daemons/gmpd_packets.h"

namespace gmpd_test
{

// Writes down what it is told. Sources of the lab are shown by their number, groups by theirs after a G.
class Recorder final : public gmpd::QuerySink, public gmpd::MribSink
{
public:
    void send_query(gmpd::Interface &interface, const gmpd::Query &query) override;
    void tell_running(const gmpd::Interface &interface, bool running) override;
    void tell_querier(const gmpd::Interface &interface, bool elected) override;
    void tell_member(const gmpd::Interface &interface, const Address &group, const Address *source, bool join,
                     bool blocked) override;

    // The queries sent since the last call, for example "? G1 {2 3}; ? S G1".
    std::string queries();

    // What the MRIB was told since the last call, for example "join G1; block G1 3".
    std::string told();

private:
    std::string queries_;
    std::string told_;
};

// The lab. Groups and sources are numbered from 1; neighbours too, with addresses in the order of their
// numbers. The router under test is neighbour 100.
class Lab
{
public:
    // Makes router and interface; the protocol is not started.
    explicit Lab(uint8_t family, const gmpd::Config &config = {});
    ~Lab();

    // Starts the protocol, and forgets what that said.
    void start();

    Address group(unsigned number) const;
    Address source(unsigned number) const;
    Address neighbour(unsigned number) const;

    // One record about group 1, or another.
    void record(gmpd::RecordType type, const std::vector<unsigned> &sources, unsigned group_number = 1);

    // A version 1 or 2 report, or a leave, from neighbour 200.
    void old_report(uint8_t version, unsigned group_number = 1);
    void leave(unsigned group_number = 1);

    // A query from a neighbour about all groups, one (1 and up) or sources of it.
    void query(unsigned neighbour_number, uint8_t version, unsigned group_number = 0,
               const std::vector<unsigned> &sources = {}, bool suppress = false);

    // Moves time on, letting timers fire as the platform would.
    void pass(uint32_t seconds);
    void pass_ms(uint32_t milliseconds);

    // Group 1, or another, for example "INCLUDE {1:260 2:160}", "EXCLUDE {1:160} {3 4} 260" or "none".
    std::string state(unsigned group_number = 1) const;

    gmpd::Process process;
    Recorder recorder;
    gmpd::Interface *interface = nullptr;

private:
    gmpd::Message message(gmpd::MessageKind kind, uint8_t version, unsigned neighbour_number) const;
};

} // namespace gmpd_test

#endif
