/*
 * One configuration is in force, an object that never changes; a load makes another and exchanges the two.
 *
 *     store:  mutex ── newest ──► Config 7           generation 7
 *     thread A: generation 7, holds Config 7         (has asked since)
 *     thread B: generation 6, holds Config 6         (has not: Config 6 lives on)
 *
 * A thread that asks compares its generation with the store's, one load of a line that nobody writes between
 * loads, and takes the mutex only when they differ. So readers never wait for each other, a configuration is
 * freed by the last thread that moves on or ends, and no reader sees two of them in one answer.
 */
#include "config_store.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "host/config/config_check.h"
#include "host/config/config_text.h"

namespace
{

using host::Config;
using host::ConfigTable;

struct Store {
    std::mutex mutex;
    std::shared_ptr<const Config> newest; // guarded by mutex
    std::atomic<uint64_t> generation{0};  // written under mutex
};

// Never destroyed: threads may ask while the process ends.
union Immortal {
    constexpr Immortal() : store()
    {
    }
    ~Immortal()
    {
    }
    Store store;
};

constinit Immortal g_immortal;

struct Held {
    uint64_t generation = 0;
    std::shared_ptr<const Config> config;
};

thread_local Held t_held;

std::shared_ptr<const Config> read_tables(ConfigTable &root, const char *const *other_tables)
{
    auto config = std::make_shared<Config>();
    config->vpns = host::read_vpns(root);
    config->acls = host::read_acls(root, config->vpns);
    config->nodes = host::read_nodes(root);
    config->services = host::read_services(root);
    for (; other_tables != nullptr && *other_tables != nullptr; ++other_tables) {
        static_cast<void>(root.table(*other_tables));
    }
    root.finish();
    return config;
}

std::shared_ptr<const Config> read_config(std::string_view name, std::string_view text,
                                          const char *const *other_tables)
{
    const host::ConfigDocument document(name, text);
    ConfigTable root = document.root();
    return read_tables(root, other_tables);
}

void exchange(std::shared_ptr<const Config> config)
{
    Store &store = g_immortal.store;
    {
        const std::lock_guard<std::mutex> lock(store.mutex);
        store.newest.swap(config);
        store.generation.fetch_add(1, std::memory_order_release);
    }
    // The old one, if nobody holds it, is freed here, outside the lock.
}

void tell(const char *text, char *error, size_t error_size)
{
    if (error_size > 0) {
        const size_t length = std::min(strlen(text), error_size - 1);
        memcpy(error, text, length);
        error[length] = '\0';
    }
}

// Runs a load, with every way in which it fails turned into text.
template <typename Load> uint32_t guarded(Load load, char *error, size_t error_size)
{
    try {
        exchange(load());
    } catch (const std::bad_alloc &) {
        tell("not enough memory for the configuration", error, error_size);
        return HOST_FAILED;
    } catch (const std::exception &failure) {
        tell(failure.what(), error, error_size);
        return HOST_FAILED;
    }
    tell("", error, error_size);
    return 0;
}

} // namespace

const Config *host::current_config()
{
    Store &store = g_immortal.store;
    Held &held = t_held;
    if (held.generation != store.generation.load(std::memory_order_acquire)) {
        std::shared_ptr<const Config> old; // freed after the lock
        const std::lock_guard<std::mutex> lock(store.mutex);
        old.swap(held.config);
        held.config = store.newest;
        held.generation = store.generation.load(std::memory_order_relaxed);
    }
    return held.config.get();
}

extern "C" {

uint32_t HOST_ConfigLoad(const char *path, const char *const *other_tables, char *error, size_t error_size)
{
    return guarded([&] { return read_config(path, host::read_config_file(path), other_tables); }, error,
                   error_size);
}

uint32_t HOST_ConfigLoadText(const char *name, const char *text, size_t length,
                             const char *const *other_tables, char *error, size_t error_size)
{
    return guarded([&] { return read_config(name, {text, length}, other_tables); }, error, error_size);
}

uint32_t HOST_ConfigCheckText(const char *name, const char *text, size_t length,
                              const char *const *other_tables,
                              void (*tell)(void *context, uint32_t line, uint32_t column, const char *error),
                              void *context)
{
    uint32_t count = 0;
    const auto tell_error = [&](const host::ConfigError &error) {
        ++count;
        tell(context, error.position().line, error.position().column, error.what());
    };
    try {
        host::ConfigDocument document(name, {text, length});
        check_document(
            document, [&](ConfigTable &root) { read_tables(root, other_tables); }, tell_error);
    } catch (const host::ConfigError &error) {
        tell_error(error);
    } catch (const std::exception &) {
        ++count;
        tell(context, 0, 0, "not enough memory for the configuration");
    }
    return count;
}

} // extern "C"
