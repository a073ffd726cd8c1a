// The nodes of the router that a configuration describes.
#ifndef HOST_SRC_NODE_TABLE_H
#define HOST_SRC_NODE_TABLE_H

#include <cstdint>
#include <vector>

#include "host/config/config_reader.h"

namespace host
{

struct Node {
    uint16_t id;
    bool up;
    bool standby;
};

// Without a configuration: one node that is up, this one, its own master.
struct NodeTable {
    std::vector<Node> nodes{{0, true, false}}; // in the order of the file
    uint16_t self = 0;
    uint16_t master = 0;
};

// Reads [[node]]. Throws ConfigError.
NodeTable read_nodes(ConfigTable &root);

} // namespace host

#endif
