// The services of a configuration: the daemons of this node and how they are started.
#ifndef HOST_SRC_SERVICE_TABLE_H
#define HOST_SRC_SERVICE_TABLE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/config/config_reader.h"

namespace host
{

struct Service {
    std::string name;                 // for the reader of the file; may be empty
    uint16_t port;                    // the local port that it listens on while it runs
    std::vector<std::string> command; // the program's absolute path, then its arguments
};

// By identifier.
using ServiceTable = std::map<uint64_t, Service>;

// Reads [[service]]. Throws ConfigError.
ServiceTable read_services(ConfigTable &root);

} // namespace host

#endif
