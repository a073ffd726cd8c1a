/*
 * Data of interfaces: names, type codes and whether a type may be selected. The kernel's names are short
 * already, so the short name is the full one.
 */
#include <cerrno>
#include <cstring>
#include <new>

#include "interface_type.h"
#include "interface_view.h"
#include "platform/interface.h"

namespace
{

static_assert(sizeof(HOST_LINK_S::name) <= IF_SHORT_NAME_SIZE && IF_SHORT_NAME_SIZE <= IF_NAME_SIZE);

// Finds a link with what a C caller can bear: no exceptions, and errno as it was.
template <typename Key> bool find_quietly(Key key, HOST_LINK_S *link)
{
    const int saved = errno;
    bool found = false;
    try {
        found = host::find_interface(key, link);
    } catch (const std::bad_alloc &) {
        found = false;
    }
    errno = saved;
    return found;
}

void put_number(uint32_t number, void *data)
{
    memcpy(data, &number, sizeof(number));
}

} // namespace

extern "C" {

HOST_API uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data)
{
    HOST_LINK_S link;
    if (data == nullptr || !find_quietly(if_index, &link)) {
        return HOST_FAILED;
    }
    switch (item) {
    case IF_ITEM_FULL_NAME:
    case IF_ITEM_SHORT_NAME:
        memcpy(data, link.name, strlen(link.name) + 1);
        return 0;
    case IF_ITEM_TYPE:
        put_number(host::interface_type(link), data);
        return 0;
    case IF_TYPE_ITEM_HIDDEN:
        return IF_GetDataByIfType(host::interface_type(link), item, data);
    default:
        return HOST_FAILED;
    }
}

HOST_API uint32_t IF_GetDataByIfType(uint32_t type, uint32_t item, void *data)
{
    if (data == nullptr || item != IF_TYPE_ITEM_HIDDEN || type == 0 || type > host::TYPE_OTHER) {
        return HOST_FAILED;
    }
    put_number(type == host::TYPE_OTHER ? 1 : 0, data);
    return 0;
}

HOST_API uint32_t IF_GetIfIndexByFullName(const char *full_name)
{
    HOST_LINK_S link;
    return full_name != nullptr && find_quietly(full_name, &link) ? link.if_index : 0;
}

} // extern "C"
