/*
 * Registered tables of texts. A table stays its module's, so registering copies no text, and what is handed
 * out outlives even the registration.
 */
#include "platform/resource.h"

#include <map>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "mcasthost/loop.h"

namespace
{

constexpr uint32_t INDEX_MASK = 0xffff;
constexpr uint32_t COUNT_MAX = INDEX_MASK + 1;

struct Table {
    const char *const *texts;
    uint32_t count;
};

struct Registry {
    std::shared_mutex mutex;
    std::map<uint32_t, Table> tables; // by module block; guarded by mutex
};

// Made at the first use and never destroyed: modules withdraw their tables while the process ends.
Registry &registry()
{
    static Registry &made = *new Registry;
    return made;
}

} // namespace

extern "C" {

HOST_API uint32_t RC_RegInfo(uint32_t module_id, const RC_TEXT_TABLE_S *table, uint32_t count)
{
    if ((module_id & INDEX_MASK) != 0 || table == nullptr || table->texts == nullptr || count == 0 ||
        count > COUNT_MAX) {
        return HOST_FAILED;
    }
    try {
        Registry &all = registry();
        const std::lock_guard<std::shared_mutex> lock(all.mutex);
        return all.tables.try_emplace(module_id, Table{table->texts, count}).second ? 0 : HOST_FAILED;
    } catch (const std::bad_alloc &) {
        return HOST_FAILED;
    }
}

HOST_API uint32_t RC_DeregInfo(uint32_t module_id)
{
    try {
        Registry &all = registry();
        const std::lock_guard<std::shared_mutex> lock(all.mutex);
        return all.tables.erase(module_id) == 1 ? 0 : HOST_FAILED;
    } catch (const std::bad_alloc &) {
        return HOST_FAILED;
    }
}

HOST_API const char *RC_LoadString(uint32_t id)
{
    const char *text = nullptr;
    try {
        Registry &all = registry();
        const std::shared_lock<std::shared_mutex> lock(all.mutex);
        const auto place = all.tables.find(id & ~INDEX_MASK);
        if (place != all.tables.end() && (id & INDEX_MASK) < place->second.count) {
            text = place->second.texts[id & INDEX_MASK];
        }
    } catch (const std::bad_alloc &) {
        text = nullptr;
    }
    return text == nullptr ? "" : text;
}

} // extern "C"
