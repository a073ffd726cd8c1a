/* Interfaces of the minimal platform: one, called eth0, of index 1; and private data in sorted lists. */
#include "mcast/platform/interface.h"

#include <stdlib.h>
#include <string.h>

enum { THE_INDEX = 1, THE_TYPE = 22 };

static const char THE_NAME[] = "eth0";

/* What is stored for an interface; the list of an instance ascends. */
typedef struct ENTRY_S {
    struct ENTRY_S *next;
    uint32_t if_index;
    void *data;
} ENTRY_S;

typedef struct INSTANCE_S {
    ENTRY_S *first;
} INSTANCE_S;

static INSTANCE_S *InstanceOf(IF_INSTANCE handle)
{
    return handle == IF_NO_INSTANCE ? NULL : (INSTANCE_S *)(uintptr_t)handle;
}

/* Where the first entry of at least this index is linked; a place of its own for no instance. */
static ENTRY_S **PlaceOf(IF_INSTANCE handle, uint64_t if_index)
{
    static ENTRY_S *nothing;
    INSTANCE_S *instance = InstanceOf(handle);
    ENTRY_S **place = instance == NULL ? &nothing : &instance->first;
    while (*place != NULL && (*place)->if_index < if_index) {
        place = &(*place)->next;
    }
    return place;
}

static uint32_t Give(const ENTRY_S *entry, uint32_t *if_index, void **data)
{
    if (entry == NULL) {
        return 1;
    }
    *if_index = entry->if_index;
    *data = entry->data;
    return 0;
}

IF_INSTANCE IF_CreatePDInstance(uint32_t kind, uint32_t option)
{
    INSTANCE_S *instance = kind == 2 && option == 0 ? calloc(1, sizeof(*instance)) : NULL;
    return instance == NULL ? IF_NO_INSTANCE : (IF_INSTANCE)(uintptr_t)instance;
}

uint32_t IF_DestroyPDInstance(IF_INSTANCE handle)
{
    INSTANCE_S *instance = InstanceOf(handle);
    if (instance == NULL) {
        return 1;
    }
    while (instance->first != NULL) {
        ENTRY_S *entry = instance->first;
        instance->first = entry->next;
        free(entry);
    }
    free(instance);
    return 0;
}

uint32_t IF_SetPrivateData(IF_INSTANCE handle, uint32_t if_index, void *data, uint32_t option)
{
    ENTRY_S **place = PlaceOf(handle, if_index);
    (void)option;
    if (InstanceOf(handle) == NULL) {
        return 1;
    }
    if (*place == NULL || (*place)->if_index != if_index) {
        ENTRY_S *entry = malloc(sizeof(*entry));
        if (entry == NULL) {
            return 1;
        }
        entry->if_index = if_index;
        entry->next = *place;
        *place = entry;
    }
    (*place)->data = data;
    return 0;
}

uint32_t IF_DelPrivateData(IF_INSTANCE handle, uint32_t if_index, uint32_t option)
{
    ENTRY_S **place = PlaceOf(handle, if_index);
    ENTRY_S *entry = *place;
    (void)option;
    if (entry == NULL || entry->if_index != if_index) {
        return 1;
    }
    *place = entry->next;
    free(entry);
    return 0;
}

uint32_t IF_GetPrivateData(IF_INSTANCE handle, uint32_t if_index, void **data)
{
    const ENTRY_S *entry = *PlaceOf(handle, if_index);
    if (entry == NULL || entry->if_index != if_index) {
        return 1;
    }
    *data = entry->data;
    return 0;
}

uint32_t IF_GetFirstPrivateData(IF_INSTANCE handle, uint32_t *if_index, void **data)
{
    return Give(*PlaceOf(handle, 0), if_index, data);
}

uint32_t IF_GetNextPrivateData(IF_INSTANCE handle, uint32_t after, uint32_t *if_index, void **data)
{
    return Give(*PlaceOf(handle, (uint64_t)after + 1), if_index, data);
}

uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data)
{
    const uint32_t type = THE_TYPE;
    if (if_index != THE_INDEX) {
        return 1;
    }
    switch (item) {
    case IF_ITEM_FULL_NAME:
    case IF_ITEM_SHORT_NAME:
        memcpy(data, THE_NAME, sizeof(THE_NAME));
        return 0;
    case IF_ITEM_TYPE:
        memcpy(data, &type, sizeof(type));
        return 0;
    default:
        return IF_GetDataByIfType(type, item, data);
    }
}

uint32_t IF_GetDataByIfType(uint32_t type, uint32_t item, void *data)
{
    const uint32_t hidden = type != THE_TYPE;
    if (item != IF_TYPE_ITEM_HIDDEN) {
        return 1;
    }
    memcpy(data, &hidden, sizeof(hidden));
    return 0;
}

/* A selector is one bit for each type, 0 to 127; the property for layer 3 is every interface's. */
uint32_t IF_Select_Init(uint32_t kind, IF_SELECTOR_S *selector)
{
    memset(selector, 0, sizeof(*selector));
    return kind == IF_SELECTOR_LAYER3 ? 0 : 1;
}

uint32_t IF_SelectProperty_Set(uint32_t property, IF_SELECTOR_S *selector)
{
    (void)selector;
    return property == IF_PROPERTY_LAYER3 ? 0 : 1;
}

uint32_t IF_SelectType_Set(uint32_t type, IF_SELECTOR_S *selector)
{
    if (type >= 128) {
        return 1;
    }
    selector->words[type / 64] |= (uint64_t)1 << type % 64;
    return 0;
}

uint32_t IF_IfNameFill(const IF_SELECTOR_S *selector, const char *text, uint32_t mode, char *full_name)
{
    const size_t length = strlen(text);
    if ((selector->words[THE_TYPE / 64] >> THE_TYPE % 64 & 1) == 0 || mode != IF_FILL_ABBREVIATED ||
        length == 0 || strncmp(text, THE_NAME, length) != 0) {
        return 1;
    }
    memcpy(full_name, THE_NAME, sizeof(THE_NAME));
    return 0;
}

uint32_t IF_GetIfIndexByFullName(const char *full_name)
{
    return strcmp(full_name, THE_NAME) == 0 ? THE_INDEX : 0;
}
