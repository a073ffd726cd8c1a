/*
 * The platform's interface data, names and selectors under a test's control. Private-data instances are those
 * of scripted_platform.h.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_INTERFACE_H
#define TESTS_SUPPORT_SCRIPTED_INTERFACE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace scripted
{

/* IF_GetDataByIfIndex and IF_GetDataByIfType; while unset every call fails and touches nothing. */
extern std::function<uint32_t(uint32_t if_index, uint32_t item, void *data)> if_data;
extern std::function<uint32_t(uint32_t type, uint32_t item, void *data)> if_type_data;

/* IF_IfNameFill and IF_GetIfIndexByFullName; while unset no name is known. */
extern std::function<uint32_t(const void *selector, const char *text, uint32_t mode, char *full_name)>
    if_name_fill;
extern std::function<uint32_t(const char *full_name)> if_index_by_name;

/* A call that fills a selector. */
struct SelectorCall {
    char call; /* 'i' IF_Select_Init, 'p' IF_SelectProperty_Set, 't' IF_SelectType_Set */
    uint32_t value;
    const void *selector;
};

/* The calls made since ResetInterface, in order. */
extern std::vector<SelectorCall> selector_calls;

/* The result of each of those calls; 0 while unset. */
extern std::function<uint32_t(const SelectorCall &call)> selector_result;

/* Unsets everything and forgets the calls. */
void ResetInterface();

} // namespace scripted

#endif
