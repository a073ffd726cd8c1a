#include "mcasthost/help.h"

#include <deque>
#include <new>
#include <string>
#include <utility>

struct CLI_HELP_LIST_S {
    std::deque<std::pair<std::string, std::string>> entries; // a deque: texts given out stay where they are
};

extern "C" {

CLI_HELP_LIST_S *HOST_HelpCreate(void)
{
    try {
        return new CLI_HELP_LIST_S;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void HOST_HelpDestroy(CLI_HELP_LIST_S *list)
{
    delete list;
}

uint32_t HOST_HelpGet(const CLI_HELP_LIST_S *list, uint32_t position, const char **syntax,
                      const char **description)
{
    if (list == nullptr || syntax == nullptr || description == nullptr || position >= list->entries.size()) {
        return HOST_FAILED;
    }
    *syntax = list->entries[position].first.c_str();
    *description = list->entries[position].second.c_str();
    return 0;
}

HOST_API void CLI_NewHelpInfo(const char *syntax, const char *description, CLI_HELP_LIST_S *list)
{
    if (syntax == nullptr || description == nullptr || list == nullptr) {
        return;
    }
    try {
        list->entries.emplace_back(syntax, description);
    } catch (const std::bad_alloc &) {
        return; // the entry is left out
    }
}

} // extern "C"
