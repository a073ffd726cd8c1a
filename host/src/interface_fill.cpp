/*
 * Completion of interface names. A name is a type, up to its first digit, and a number, the rest; what is
 * typed is split alike, blanks between the two left out:
 *
 *     typed        meant, when nothing else fits
 *     left0        left0: the very name, whatever else fits
 *     LEFT0        left0: no difference but case
 *     le0, L 0     left0: the type abbreviated, the number whole
 *     le           left0: no number typed; then the whole is a prefix
 *     le1          never left10: a number is not abbreviated
 *
 * Each step counts only when the one before it found nothing, and finds only when it fits one interface. The
 * very name of an interface outside the selector means that interface, and so nothing here: it is not an
 * abbreviation of another.
 */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include "interface_selector.h"
#include "interface_view.h"
#include "platform/interface.h"

namespace
{

struct Name {
    std::string_view type;
    std::string_view number;
};

Name split(std::string_view text)
{
    const size_t digit = std::min(text.find_first_of("0123456789"), text.size());
    Name name{text.substr(0, digit), text.substr(digit)};
    while (!name.type.empty() && name.type.back() == ' ') {
        name.type.remove_suffix(1);
    }
    return name;
}

// The C locale's letters: names are bytes to the kernel.
char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool starts_with(std::string_view text, std::string_view prefix)
{
    return prefix.size() <= text.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(),
                      [](char left, char right) { return lower(left) == lower(right); });
}

bool same(std::string_view left, std::string_view right)
{
    return left.size() == right.size() && starts_with(left, right);
}

bool whole(const Name &typed, const Name &name)
{
    return same(name.type, typed.type) && same(name.number, typed.number);
}

bool abbreviated(const Name &typed, const Name &name)
{
    return starts_with(name.type, typed.type) && (typed.number.empty() || same(name.number, typed.number));
}

using Links = std::vector<HOST_LINK_S>;
using Fits = bool (*)(const Name &typed, const Name &name);

// Counts the links that fit; *meant is the last of them.
size_t count_fitting(const Links &links, const Name &typed, Fits fits, const HOST_LINK_S **meant)
{
    size_t count = 0;
    for (const HOST_LINK_S &link : links) {
        if (fits(typed, split(link.name))) {
            ++count;
            *meant = &link;
        }
    }
    return count;
}

const HOST_LINK_S *by_exact_name(const Links &links, const char *text)
{
    const auto place = std::find_if(links.begin(), links.end(),
                                    [text](const HOST_LINK_S &link) { return strcmp(link.name, text) == 0; });
    return place == links.end() ? nullptr : &*place;
}

const HOST_LINK_S *complete(const Links &links, const Links &candidates, const char *text)
{
    if (by_exact_name(links, text) != nullptr) {
        return by_exact_name(candidates, text);
    }
    const Name typed = split(text);
    if (typed.type.empty()) {
        return nullptr; // a number alone abbreviates nothing
    }
    for (Fits fits : {whole, abbreviated}) {
        const HOST_LINK_S *meant = nullptr;
        const size_t count = count_fitting(candidates, typed, fits, &meant);
        if (count != 0) {
            return count == 1 ? meant : nullptr;
        }
    }
    return nullptr;
}

uint32_t fill(const IF_SELECTOR_S &selector, const char *text, char *full_name)
{
    Links links;
    if (!host::all_interfaces(&links)) {
        return HOST_FAILED;
    }
    const Links candidates = host::selected(selector, links);
    const HOST_LINK_S *meant = complete(links, candidates, text);
    if (meant == nullptr) {
        return HOST_FAILED;
    }
    memcpy(full_name, meant->name, strlen(meant->name) + 1);
    return 0;
}

} // namespace

extern "C" {

HOST_API uint32_t IF_IfNameFill(const IF_SELECTOR_S *selector, const char *text, uint32_t mode,
                                char *full_name)
{
    if (!host::is_selector(selector) || text == nullptr || full_name == nullptr ||
        mode != IF_FILL_ABBREVIATED) {
        return HOST_FAILED;
    }
    const int saved = errno;
    uint32_t result = HOST_FAILED;
    try {
        result = fill(*selector, text, full_name);
    } catch (const std::bad_alloc &) {
        result = HOST_FAILED;
    }
    errno = saved;
    return result;
}

} // extern "C"
