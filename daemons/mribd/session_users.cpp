/*
 * What a client says of the users that it knows. The record carries more of a user than is kept here.
 */
#include "daemons/common/membership.h"
#include "daemons/common/memory.h"
#include "daemons/mribd/address.h"
#include "daemons/mribd/session.h"
#include "mcast/usrauth_wire.h"

namespace mribd
{

Session::Taken Session::take_user(const MRIB_RECORD_S &record)
{
    const auto *value = value_of<MRIB_MAUTH_USER_INFO_S>(record);
    if (value == nullptr) {
        return refuse(Fault::Short);
    }
    if (router_for(value->family, value->vrf_index, value->if_index) == nullptr) {
        return Taken::Ignored;
    }
    if (value->byte2 > mcastd::USER_PRESENT || value->byte1 < USRAUTH_KIND_MIN ||
        value->byte1 > USRAUTH_KIND_MAX) {
        return refuse(Fault::Flags);
    }
    if (value->byte2 == mcastd::USER_GONE) {
        users_.remove(id_, value->if_index);
        return Taken::Done;
    }
    const UserRegistry::User user = {value->access_if_index, value->user_id, value->byte1,
                                     make_address(value->family, value->block)};
    if (users_.set(id_, value->if_index, user)) {
        return Taken::Done;
    }
    // Who says memberships again says users again.
    return mcastd::memory_is_short() ? refuse_member(routers_.common(), value->if_index, Fault::Memory)
                                     : refuse(Fault::Limit);
}

} // namespace mribd
