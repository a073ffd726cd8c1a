/*
 * Data of interfaces: names, type codes and whether a type may be selected. The kernel's names are short
 * already, so the short name is the full one.
 */
#include <cstring>

#include "interface_type.h"
#include "interface_view.h"
#include "platform/interface.h"

namespace
{

static_assert(sizeof(HOST_LINK_S::name) <= IF_SHORT_NAME_SIZE && IF_SHORT_NAME_SIZE <= IF_NAME_SIZE);

void put_number(uint32_t number, void *data)
{
    memcpy(data, &number, sizeof(number));
}

void put_text(const char *text, void *data)
{
    memcpy(data, text, strlen(text) + 1);
}

} // namespace

extern "C" {

HOST_API uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data)
{
    HOST_LINK_S link;
    if (data == nullptr || !host::find_interface_quietly(if_index, &link)) {
        return HOST_FAILED;
    }
    switch (item) {
    case IF_ITEM_FULL_NAME:
    case IF_ITEM_SHORT_NAME:
        put_text(link.name, data);
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
    if (data == nullptr || type == 0 || type > host::TYPE_OTHER) {
        return HOST_FAILED;
    }
    const host::TypeName *name = host::type_name(type);
    switch (item) {
    case IF_ITEM_FULL_NAME:
    case IF_ITEM_SHORT_NAME:
        if (name == nullptr) {
            return HOST_FAILED;
        }
        put_text(item == IF_ITEM_FULL_NAME ? name->full : name->brief, data);
        return 0;
    case IF_ITEM_TYPE:
        put_number(type, data);
        return 0;
    case IF_TYPE_ITEM_HIDDEN:
        put_number(type == host::TYPE_OTHER ? 1 : 0, data);
        return 0;
    default:
        return HOST_FAILED;
    }
}

HOST_API uint32_t IF_GetIfIndexByFullName(const char *full_name)
{
    HOST_LINK_S link;
    return full_name != nullptr && host::find_interface_quietly(full_name, &link) ? link.if_index : 0;
}

} // extern "C"
