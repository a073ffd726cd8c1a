#include "daemons/gmpd/memberships.h"

#include "daemons/common/memory.h"
#include "daemons/gmpd/group_state.h"
#include "daemons/gmpd/process.h"

namespace gmpd
{

Memberships::Memberships(Interface &of_link) : Memberships(of_link, 0, "")
{
}

Memberships::Memberships(Interface &of_link, uint32_t of_user, const std::string &name)
    : link(of_link), user_index(of_user), user_name(name), groups(mcastd::must_have([&of_link] {
          return MRT_CreateTable(of_link.process->config.family, of_link.name.c_str(), release_group,
                                 release_source);
      }))
{
}

Memberships::~Memberships()
{
    MRT_DestroyTable(groups);
}

std::string Memberships::name() const
{
    return of_user() ? link.name + ", " + user_name : link.name;
}

uint32_t Memberships::shown_index() const
{
    return of_user() ? user_index : link.index;
}

Counters &Memberships::counters()
{
    return of_user() ? user_counters : link.counters;
}

} // namespace gmpd
