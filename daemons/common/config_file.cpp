#include "daemons/common/config_file.h"

#include <exception>
#include <string_view>
#include <vector>

#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/services.h"
#include "host/config/config_text.h"
#include "mcasthost/config.h"

namespace mcastd
{

static uint64_t g_refusals = 0;

uint64_t config_refusals()
{
    return g_refusals;
}

const char *const *config_tables()
{
    static const std::vector<const char *> TABLES = [] {
        std::vector<const char *> names;
        for (const RouterDaemon &daemon : ROUTER_DAEMONS) {
            if (names.empty() || std::string_view(names.back()) != daemon.name) {
                names.push_back(daemon.name);
            }
        }
        names.push_back(nullptr);
        return names;
    }();
    return TABLES.data();
}

// Also when descriptors have run out.
static std::string read_file(const char *path)
{
    const DescriptorLoan loan;
    return host::read_config_file(path);
}

bool load_config(const char *path, const char *name, const std::function<void(ConfigTable &)> &read,
                 std::string *error)
{
    try {
        const std::string text = read_file(path);
        const host::ConfigDocument document(path, text);
        ConfigTable root = document.root();
        ConfigTable table = root.table(name);
        read(table);
        table.finish();
        char host_error[HOST_CONFIG_ERROR_SIZE];
        if (HOST_ConfigLoadText(path, text.data(), text.size(), config_tables(), host_error,
                                sizeof(host_error)) != 0) {
            *error = host_error;
            ++g_refusals;
            return false;
        }
        return true;
    } catch (const std::exception &failure) {
        *error = failure.what();
        ++g_refusals;
        return false;
    }
}

} // namespace mcastd
