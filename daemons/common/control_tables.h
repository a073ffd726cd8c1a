/*
 * The tables that the daemons show through their control endpoints: numbers, columns, and which of the
 * columns are the key. Daemon and mcastctl read the same description, so that neither names a column twice.
 */
#ifndef DAEMONS_COMMON_CONTROL_TABLES_H
#define DAEMONS_COMMON_CONTROL_TABLES_H

#include <cstdint>
#include <span>

#include "daemons/common/control_field.h"

namespace mcastd
{

struct ControlColumn {
    const char *name; // the member of JSON rows; the heading of text tables, "_" as a blank
    FieldType type;   // of a row's field, which may also be None
};

// Rows are ordered by their key, which is the first key_size columns and never None.
struct ControlSchema {
    uint16_t number;
    const char *name;
    size_t key_size;
    std::span<const ControlColumn> columns;
};

// Tables that every daemon has.

inline constexpr ControlColumn COUNTER_COLUMNS[] = {
    {"family", FieldType::Family},
    {"interface", FieldType::Interface}, // 0: of the daemon as a whole
    {"counter", FieldType::Text},
    {"value", FieldType::Counter},
};
inline constexpr ControlSchema COUNTER_TABLE{1, "counters", 3, COUNTER_COLUMNS};

inline constexpr ControlColumn DEBUG_COLUMNS[] = {
    {"category", FieldType::Text},
    {"traced", FieldType::Truth},
    {"acl", FieldType::Number},          // that narrows the traces, None without one
    {"interface", FieldType::Interface}, // likewise
};
inline constexpr ControlSchema DEBUG_TABLE{2, "debug", 1, DEBUG_COLUMNS};

// Tables of gmpd, one process for each family.

inline constexpr ControlColumn GROUP_COLUMNS[] = {
    {"interface", FieldType::Interface},    {"group", FieldType::Address},   {"mode", FieldType::Text},
    {"sources", FieldType::Number},         {"expires", FieldType::Seconds}, // in exclude mode
    {"version_1_host", FieldType::Seconds}, // while one is taken to be present
    {"version_2_host", FieldType::Seconds},
};
inline constexpr ControlSchema GROUP_TABLE{16, "groups", 2, GROUP_COLUMNS};

inline constexpr ControlColumn SOURCE_COLUMNS[] = {
    {"interface", FieldType::Interface}, {"group", FieldType::Address},   {"source", FieldType::Address},
    {"wanted", FieldType::Truth},        {"expires", FieldType::Seconds}, // while wanted
};
inline constexpr ControlSchema SOURCE_TABLE{17, "sources", 3, SOURCE_COLUMNS};

inline constexpr ControlColumn INTERFACE_COLUMNS[] = {
    {"interface", FieldType::Interface},     {"family", FieldType::Family},   {"running", FieldType::Truth},
    {"address", FieldType::Address},         {"version", FieldType::Number},  {"groups", FieldType::Number},
    {"reported", FieldType::Truth}, // whether the MRIB is told of the memberships
    {"query_interval_s", FieldType::Number}, {"instance", FieldType::Number},
};
inline constexpr ControlSchema INTERFACE_TABLE{18, "interfaces", 1, INTERFACE_COLUMNS};

inline constexpr ControlColumn QUERIER_COLUMNS[] = {
    {"interface", FieldType::Interface},     {"family", FieldType::Family},
    {"querier", FieldType::Address},         {"this_router", FieldType::Truth},
    {"next_query", FieldType::Seconds}, // when this router is the querier
    {"expires", FieldType::Seconds},    // when it is another one
    {"query_interval_s", FieldType::Number}, {"robustness", FieldType::Number},
    {"response_ms", FieldType::Number},
};
inline constexpr ControlSchema QUERIER_TABLE{19, "queriers", 1, QUERIER_COLUMNS};

// Tables of a gmpd with user authentication.

inline constexpr ControlColumn USER_COLUMNS[] = {
    {"user_interface", FieldType::Interface},
    {"family", FieldType::Family},
    {"user", FieldType::Number},
    {"node", FieldType::Number},
    {"kind", FieldType::Number},
    {"interface", FieldType::Interface},
    {"address", FieldType::Address}, // None: the user is not served
    {"name", FieldType::Text},
    {"permitted", FieldType::Number}, // pairs that the user may join
    {"groups", FieldType::Number},    // that the user joined
};
inline constexpr ControlSchema USER_TABLE{20, "users", 1, USER_COLUMNS};

inline constexpr ControlColumn USER_RIGHT_COLUMNS[] = {
    {"user_interface", FieldType::Interface},
    {"group", FieldType::Address},
    {"source", FieldType::Address}, // all zero: any source
    {"joined", FieldType::Truth},
};
inline constexpr ControlSchema USER_RIGHT_TABLE{21, "user-rights", 3, USER_RIGHT_COLUMNS};

inline constexpr ControlColumn USER_MESSAGE_COLUMNS[] = {
    {"family", FieldType::Family},       {"node", FieldType::Number},
    {"user", FieldType::Number},         {"announcements", FieldType::Counter},
    {"withdrawals", FieldType::Counter}, {"updates", FieldType::Counter},
    {"group_lists", FieldType::Counter}, {"list_ends", FieldType::Counter},
};
inline constexpr ControlSchema USER_MESSAGE_TABLE{22, "user-messages", 3, USER_MESSAGE_COLUMNS};

inline constexpr ControlColumn USER_STATISTICS_COLUMNS[] = {
    {"family", FieldType::Family}, {"kind", FieldType::Number},      {"type", FieldType::Number},
    {"message", FieldType::Text},  {"received", FieldType::Counter},
};
inline constexpr ControlSchema USER_STATISTICS_TABLE{23, "user-statistics", 3, USER_STATISTICS_COLUMNS};

// Tables of mribd, which serves both families.

inline constexpr ControlColumn ROUTE_COLUMNS[] = {
    {"instance", FieldType::Number}, // 0: the public one
    {"group", FieldType::Address},
    {"source", FieldType::Address},
    {"upstream", FieldType::Interface}, // None: no usable route to the source
    {"outgoing", FieldType::Interfaces},
    {"packets", FieldType::Counter}, // the counters are None when the kernel does not have the entry
    {"bytes", FieldType::Counter},
    {"wrong_interface", FieldType::Counter},
};
inline constexpr ControlSchema ROUTE_TABLE{32, "routes", 3, ROUTE_COLUMNS};

inline constexpr ControlColumn MEMBER_COLUMNS[] = {
    {"instance", FieldType::Number},     {"group", FieldType::Address},
    {"source", FieldType::Address}, // all zero: any source
    {"interface", FieldType::Interface}, {"client", FieldType::Number},
    {"joined", FieldType::Truth},        {"blocked", FieldType::Truth},
};
inline constexpr ControlSchema MEMBER_TABLE{33, "members", 5, MEMBER_COLUMNS};

inline constexpr ControlColumn VIF_COLUMNS[] = {
    {"family", FieldType::Family},       {"instance", FieldType::Number}, {"vif", FieldType::Number},
    {"interface", FieldType::Interface}, {"protocol", FieldType::Truth}, // a GMP daemon serves it
    {"forwarder", FieldType::Truth},
};
inline constexpr ControlSchema VIF_TABLE{34, "vifs", 3, VIF_COLUMNS};

inline constexpr ControlColumn CLIENT_COLUMNS[] = {
    {"family", FieldType::Family},    {"client", FieldType::Number}, {"component", FieldType::Number},
    {"registered", FieldType::Truth}, {"sent", FieldType::Counter},  {"waiting", FieldType::Number},
};
inline constexpr ControlSchema CLIENT_TABLE{35, "clients", 2, CLIENT_COLUMNS};

// Tables of msdpd, which serves IPv4.

inline constexpr ControlColumn MSDP_PEER_COLUMNS[] = {
    {"peer", FieldType::Address},    {"local_address", FieldType::Address}, {"state", FieldType::Text},
    {"since", FieldType::Seconds},   {"entries", FieldType::Number},        {"limit", FieldType::Number},
    {"mesh_group", FieldType::Text}, {"description", FieldType::Text},
};
inline constexpr ControlSchema MSDP_PEER_TABLE{48, "msdp-peers", 1, MSDP_PEER_COLUMNS};

inline constexpr ControlColumn MSDP_CACHE_COLUMNS[] = {
    {"group", FieldType::Address}, {"source", FieldType::Address}, {"originator", FieldType::Address},
    {"peer", FieldType::Address},  {"age", FieldType::Seconds},    {"expires", FieldType::Seconds},
};
inline constexpr ControlSchema MSDP_CACHE_TABLE{49, "msdp-cache", 2, MSDP_CACHE_COLUMNS};

// Counters that are not zero.
inline constexpr ControlColumn MSDP_COUNTER_COLUMNS[] = {
    {"peer", FieldType::Address},
    {"counter", FieldType::Text},
    {"value", FieldType::Counter},
};
inline constexpr ControlSchema MSDP_COUNTER_TABLE{50, "msdp-counters", 2, MSDP_COUNTER_COLUMNS};

// For each originator in the cache the peer from which its announcements are accepted now.
inline constexpr ControlColumn MSDP_RPF_COLUMNS[] = {
    {"originator", FieldType::Address},
    {"peer", FieldType::Address}, // None: they are not accepted
    {"rule", FieldType::Text},
    {"entries", FieldType::Number}, // of the cache
};
inline constexpr ControlSchema MSDP_RPF_TABLE{51, "msdp-rpf", 1, MSDP_RPF_COLUMNS};

// Tables of pimsmd, one process for each family.

inline constexpr ControlColumn PIM_INTERFACE_COLUMNS[] = {
    {"interface", FieldType::Interface},     {"family", FieldType::Family},
    {"address", FieldType::Address},         {"designated_router", FieldType::Address},
    {"designated", FieldType::Truth}, // this router is
    {"dr_priority", FieldType::Number},      {"neighbors", FieldType::Number},
    {"hello_interval_s", FieldType::Number}, {"prune_delay_ms", FieldType::Number},
    {"generation", FieldType::Number},
};
inline constexpr ControlSchema PIM_INTERFACE_TABLE{64, "pim-interfaces", 1, PIM_INTERFACE_COLUMNS};

inline constexpr ControlColumn PIM_NEIGHBOR_COLUMNS[] = {
    {"interface", FieldType::Interface}, {"neighbor", FieldType::Address},
    {"designated", FieldType::Truth},    {"dr_priority", FieldType::Number}, // None: it says none
    {"generation", FieldType::Number},   {"expires", FieldType::Seconds},    // None: never
    {"addresses", FieldType::Number},                                        // beside that one
};
inline constexpr ControlSchema PIM_NEIGHBOR_TABLE{65, "pim-neighbors", 2, PIM_NEIGHBOR_COLUMNS};

// What is wanted behind each interface. Of a group the source is all zero, and there are no sources to leave out.
inline constexpr ControlColumn PIM_JOIN_COLUMNS[] = {
    {"group", FieldType::Address},          {"source", FieldType::Address},
    {"interface", FieldType::Interface},    {"join", FieldType::Text},   // states of the downstream machines
    {"shared_tree_prune", FieldType::Text}, {"hosts", FieldType::Truth}, // want it
    {"excluded", FieldType::Truth},
};
inline constexpr ControlSchema PIM_JOIN_TABLE{66, "pim-joins", 3, PIM_JOIN_COLUMNS};

inline constexpr ControlColumn PIM_TREE_COLUMNS[] = {
    {"group", FieldType::Address},     {"source", FieldType::Address}, // all zero: the shared tree
    {"rp", FieldType::Address},        {"upstream", FieldType::Interface},
    {"neighbor", FieldType::Address},  {"joined", FieldType::Truth},
    {"next_join", FieldType::Seconds}, {"outgoing", FieldType::Interfaces},
    {"source_tree", FieldType::Truth}, // packets come over the source's own
    {"shared_tree", FieldType::Text},  {"register", FieldType::Text},
    {"keepalive", FieldType::Seconds},
};
inline constexpr ControlSchema PIM_TREE_TABLE{67, "pim-trees", 2, PIM_TREE_COLUMNS};

inline constexpr ControlColumn PIM_ASSERT_COLUMNS[] = {
    {"group", FieldType::Address},     {"source", FieldType::Address}, {"interface", FieldType::Interface},
    {"state", FieldType::Text},        {"winner", FieldType::Address}, {"shared_tree", FieldType::Truth},
    {"preference", FieldType::Number}, {"metric", FieldType::Number},
};
inline constexpr ControlSchema PIM_ASSERT_TABLE{68, "pim-asserts", 3, PIM_ASSERT_COLUMNS};

inline constexpr ControlColumn RP_COLUMNS[] = {
    {"range", FieldType::Address},   {"length", FieldType::Number},
    {"rp", FieldType::Address},      {"origin", FieldType::Text},
    {"priority", FieldType::Number}, {"expires", FieldType::Seconds}, // None: configured
};
inline constexpr ControlSchema RP_TABLE{69, "rp", 4, RP_COLUMNS};

inline constexpr ControlColumn BSR_COLUMNS[] = {
    {"family", FieldType::Family},     {"state", FieldType::Text},
    {"bsr", FieldType::Address}, // None: not known
    {"priority", FieldType::Number},   {"hash_mask_length", FieldType::Number},
    {"this_router", FieldType::Truth}, {"candidate_rps", FieldType::Number}, // that told this router as BSR
};
inline constexpr ControlSchema BSR_TABLE{70, "bsr", 1, BSR_COLUMNS};

// The ways to sources and RPs that the trees asked for. A row that is asked for by its key is there for every address.
inline constexpr ControlColumn RPF_COLUMNS[] = {
    {"source", FieldType::Address},  {"interface", FieldType::Interface}, {"neighbor", FieldType::Address},
    {"connected", FieldType::Truth}, {"preference", FieldType::Number},   {"metric", FieldType::Number},
};
inline constexpr ControlSchema RPF_TABLE{71, "rpf", 1, RPF_COLUMNS};

// Commands, each with a number of its own, whatever daemon has it.
enum ControlCommand : uint16_t {
    // Of every daemon: its traces, see control_debug.h.
    COMMAND_DEBUG = 1,
    // Of a gmpd with user authentication. Without an argument every user is forgotten at once, with one those
    // of the node of that number and of kinds 2 to 4, a few at a time; agents announce them again.
    COMMAND_CLEAR_USERS = 2,
    // Of msdpd. Without an argument the whole cache is forgotten, with one the sources of that group; peers
    // announce them again.
    COMMAND_CLEAR_MSDP_CACHE = 3,
    // Of gmpd: it hands over to its standby.
    COMMAND_SWITCH_OVER = 4,
    // Of a gmpd with user authentication: what agents sent is counted anew, by user and by kind.
    COMMAND_CLEAR_USER_COUNTERS = 5,
    // Of pimsmd: RPs that a BSR told of are forgotten; its next Bootstrap brings them again.
    COMMAND_CLEAR_RPS = 6,
};

// Settings of gmpd, of the interface table: for the interface of the key, without a key for all.
inline constexpr const char *SETTING_QUERY_INTERVAL = "query_interval";

// Settings of pimsmd, of the table of its interfaces: for the interface of the key, without a key for all that have none of
// their own in the configuration. They count until that is read again.
inline constexpr const char *SETTING_DR_PRIORITY = "dr_priority";

} // namespace mcastd

#endif
