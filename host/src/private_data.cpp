/*
 * Private-data instances of the interface service: an ordered map from interface index to pointer.
 */
#include <map>
#include <new>

#include "mcasthost/loop.h"
#include "platform/interface.h"

namespace
{

using Instance = std::map<uint32_t, void *>;

// The kinds of instance: 2 is multicast's, the only one used.
constexpr uint32_t KIND_MULTICAST = 2;

Instance *instance_of(IF_INSTANCE handle)
{
    return handle == IF_NO_INSTANCE ? nullptr : reinterpret_cast<Instance *>(handle);
}

uint32_t give(Instance::const_iterator entry, const Instance &instance, uint32_t *if_index, void **data)
{
    if (entry == instance.end() || if_index == nullptr || data == nullptr) {
        return HOST_FAILED;
    }
    *if_index = entry->first;
    *data = entry->second;
    return 0;
}

} // namespace

extern "C" {

HOST_API IF_INSTANCE IF_CreatePDInstance(uint32_t kind, uint32_t option)
{
    Instance *instance = kind == KIND_MULTICAST && option == 0 ? new (std::nothrow) Instance : nullptr;
    return instance == nullptr ? IF_NO_INSTANCE : reinterpret_cast<IF_INSTANCE>(instance);
}

HOST_API uint32_t IF_DestroyPDInstance(IF_INSTANCE handle)
{
    Instance *instance = instance_of(handle);
    delete instance;
    return instance == nullptr ? HOST_FAILED : 0;
}

HOST_API uint32_t IF_SetPrivateData(IF_INSTANCE handle, uint32_t if_index, void *data, uint32_t option)
{
    Instance *instance = instance_of(handle);
    if (instance == nullptr || data == nullptr || option != 0) {
        return HOST_FAILED;
    }
    try {
        instance->insert_or_assign(if_index, data);
    } catch (const std::bad_alloc &) {
        return HOST_FAILED;
    }
    return 0;
}

HOST_API uint32_t IF_DelPrivateData(IF_INSTANCE handle, uint32_t if_index, uint32_t option)
{
    Instance *instance = instance_of(handle);
    return instance != nullptr && option == 0 && instance->erase(if_index) != 0 ? 0 : HOST_FAILED;
}

HOST_API uint32_t IF_GetPrivateData(IF_INSTANCE handle, uint32_t if_index, void **data)
{
    const Instance *instance = instance_of(handle);
    return instance == nullptr ? HOST_FAILED : give(instance->find(if_index), *instance, &if_index, data);
}

HOST_API uint32_t IF_GetFirstPrivateData(IF_INSTANCE handle, uint32_t *if_index, void **data)
{
    const Instance *instance = instance_of(handle);
    return instance == nullptr ? HOST_FAILED : give(instance->begin(), *instance, if_index, data);
}

HOST_API uint32_t IF_GetNextPrivateData(IF_INSTANCE handle, uint32_t after, uint32_t *if_index, void **data)
{
    const Instance *instance = instance_of(handle);
    return instance == nullptr ? HOST_FAILED : give(instance->upper_bound(after), *instance, if_index, data);
}

} // extern "C"
