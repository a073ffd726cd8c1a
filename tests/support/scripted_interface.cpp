#include "support/scripted_interface.h"

#include "platform/interface.h"

namespace scripted
{

std::function<uint32_t(uint32_t, uint32_t, void *)> if_data;
std::function<uint32_t(uint32_t, uint32_t, void *)> if_type_data;
std::function<uint32_t(const void *, const char *, uint32_t, char *)> if_name_fill;
std::function<uint32_t(const char *)> if_index_by_name;
std::vector<SelectorCall> selector_calls;
std::function<uint32_t(const SelectorCall &)> selector_result;

void ResetInterface()
{
    if_data = nullptr;
    if_type_data = nullptr;
    if_name_fill = nullptr;
    if_index_by_name = nullptr;
    selector_calls.clear();
    selector_result = nullptr;
}

} // namespace scripted

namespace
{

uint32_t Note(char call, uint32_t value, const void *selector)
{
    scripted::selector_calls.push_back({call, value, selector});
    return scripted::selector_result ? scripted::selector_result(scripted::selector_calls.back()) : 0;
}

} // namespace

uint32_t IF_GetDataByIfIndex(uint32_t if_index, uint32_t item, void *data)
{
    return scripted::if_data ? scripted::if_data(if_index, item, data) : 1;
}

uint32_t IF_GetDataByIfType(uint32_t type, uint32_t item, void *data)
{
    return scripted::if_type_data ? scripted::if_type_data(type, item, data) : 1;
}

uint32_t IF_Select_Init(uint32_t kind, IF_SELECTOR_S *selector)
{
    *selector = {};
    return Note('i', kind, selector);
}

uint32_t IF_SelectProperty_Set(uint32_t property, IF_SELECTOR_S *selector)
{
    return Note('p', property, selector);
}

uint32_t IF_SelectType_Set(uint32_t type, IF_SELECTOR_S *selector)
{
    return Note('t', type, selector);
}

uint32_t IF_IfNameFill(const IF_SELECTOR_S *selector, const char *text, uint32_t mode, char *full_name)
{
    return scripted::if_name_fill ? scripted::if_name_fill(selector, text, mode, full_name) : 1;
}

uint32_t IF_GetIfIndexByFullName(const char *full_name)
{
    return scripted::if_index_by_name ? scripted::if_index_by_name(full_name) : 0;
}
