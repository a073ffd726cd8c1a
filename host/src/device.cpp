/*
 * The nodes of the router as the configuration describes them: one, this machine, unless the configuration
 * says otherwise.
 */
#include "platform/device.h"

#include <algorithm>
#include <cstdlib>

#include "config_store.h"
#include "mcasthost/loop.h"

namespace
{

using host::Node;
using host::NodeTable;

// Never destroyed: threads may ask while the process ends.
const NodeTable &single_node()
{
    static const NodeTable &table = *new NodeTable;
    return table;
}

const NodeTable &nodes()
{
    const host::Config *config = host::current_config();
    return config == nullptr ? single_node() : config->nodes;
}

// The nodes that the condition selects, or nullptr when there are none.
template <typename Condition> uint16_t *list_nodes(uint32_t *count, Condition selects)
{
    const std::vector<Node> &all = nodes().nodes;
    const auto found = static_cast<size_t>(std::count_if(all.begin(), all.end(), selects));
    if (count == nullptr || found == 0) {
        return nullptr;
    }
    auto *list = static_cast<uint16_t *>(malloc(found * sizeof(uint16_t)));
    uint32_t filled = 0;
    for (const Node &node : all) {
        if (list != nullptr && selects(node)) {
            list[filled++] = node.id;
        }
    }
    *count = list != nullptr ? filled : *count;
    return list;
}

} // namespace

extern "C" {

HOST_API uint16_t DEV_GetSystemMaster(void)
{
    return nodes().master;
}

HOST_API uint16_t DEV_GetSelf(void)
{
    return nodes().self;
}

HOST_API uint16_t *DEV_GetAllNodes(uint32_t *count)
{
    return list_nodes(count, [](const Node &) { return true; });
}

HOST_API uint16_t *DEV_GetAllStandbyNodes(uint32_t *count)
{
    return list_nodes(count, [](const Node &node) { return node.standby; });
}

HOST_API uint32_t IF_IsNodeUp(uint16_t node)
{
    const std::vector<Node> &all = nodes().nodes;
    return std::any_of(all.begin(), all.end(),
                       [=](const Node &other) { return other.id == node && other.up; })
               ? 1
               : 0;
}

HOST_API uint32_t LIP_GetLocalLip(void)
{
    return nodes().self;
}

} // extern "C"
