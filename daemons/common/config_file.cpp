#include "daemons/common/config_file.h"

#include <exception>

#include "mcasthost/config.h"

namespace mcastd
{

bool load_config(const char *path, const char *name, const std::function<void(ConfigTable &)> &read,
                 std::string *error)
{
    try {
        const std::string text = host::read_config_file(path);
        const host::ConfigDocument document(path, text);
        ConfigTable root = document.root();
        ConfigTable table = root.table(name);
        read(table);
        table.finish();
        char host_error[HOST_CONFIG_ERROR_SIZE];
        if (HOST_ConfigLoadText(path, text.data(), text.size(), host_error, sizeof(host_error)) != 0) {
            *error = host_error;
            return false;
        }
        return true;
    } catch (const std::exception &failure) {
        *error = failure.what();
        return false;
    }
}

} // namespace mcastd
