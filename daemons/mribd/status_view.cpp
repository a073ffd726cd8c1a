#include <cinttypes>

#include "daemons/mribd/address.h"
#include "daemons/mribd/status.h"
#include "mcast/interface_name.h"

namespace mribd
{
namespace
{

void add_instances(std::string *out, const View &view)
{
    for (const auto &[vrf_index, instance] : view.instances) {
        add_text(out, "  instance %u: %s, ssm acl %s\n", vrf_index, instance.enabled ? "enabled" : "disabled",
                 instance.ssm_acl == MCAST_NONE ? "none" : std::to_string(instance.ssm_acl).c_str());
    }
    if (view.busy != 0) {
        add_text(out, "  flow control: %u\n", view.busy);
    }
}

void add_interfaces(std::string *out, const View &view, const Environment &environment)
{
    for (const InterfaceKey &key : view.designated) {
        add_text(out, "  designated router: %s, instance %u\n",
                 environment.interface_name(key.if_index).c_str(), key.vrf_index);
    }
    for (const auto &[key, boundary] : view.boundaries) {
        add_text(out, "  boundary %s, instance %u:", environment.interface_name(key.if_index).c_str(),
                 key.vrf_index);
        for (const Prefix &range : boundary.ranges) {
            add_text(out, " %s", range.text().c_str());
        }
        if (boundary.scope != 0) {
            add_text(out, " scope %u", boundary.scope);
        }
        *out += '\n';
    }
}

void add_missing(std::string *out, const Config &config, const Environment &environment)
{
    for (const InterfaceConfig &interface : config.interfaces) {
        if (environment.interface_index(interface.name) == 0) {
            add_text(out, "  configured interface %s: there is none of this name\n", interface.name.c_str());
        }
    }
}

void add_msdp(std::string *out, const MsdpExchange &msdp)
{
    if (msdp.rp_be() != 0) {
        const std::string rp = text_or_star(make_address(MCAST_FAMILY_IPV4, std::array{msdp.rp_be()}.data()));
        SgTable::Cursor cursor;
        msdp.local_sources().visit(
            &cursor, [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t) {
                add_text(out, "  local source (%s, %s): rp %s\n", text_or_star(source).c_str(),
                         text_or_star(group).c_str(), rp.c_str());
                return true;
            });
    }
    for (const auto &[vrf_index, instance] : msdp.instances()) {
        SgTable::Cursor cursor;
        const auto add = [&, vrf = vrf_index](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                                              uint8_t entry) {
            add_text(out, "  remote source (%s, %s): instance %u, entry %u\n", text_or_star(source).c_str(),
                     text_or_star(group).c_str(), vrf, entry);
            return true;
        };
        instance.remote.visit(&cursor, add);
        if (instance.request_enable.enable || instance.encap_enable.enable) {
            add_text(out, "  msdp instance %u:%s%s\n", vrf_index,
                     instance.request_enable.enable ? " requests enabled" : "",
                     instance.encap_enable.enable ? " encapsulated data enabled" : "");
        }
    }
    add_text(out,
             "  msdp: local sources %u, remote sources %u, left out of re-sends %" PRIu64 ", refused %" PRIu64
             "\n",
             msdp.local_sources().size(), msdp.remote_count(), msdp.swept(), msdp.refused());
}

void add_users(std::string *out, const UserRegistry &users, const Environment &environment)
{
    users.visit([&](ClientId client, uint32_t if_index, const UserRegistry::User &user) {
        char own[MCAST_IF_NAME_SIZE] = "";
        MCAST_GetIfNameOrIndex(if_index, own);
        add_text(out, "  user %u of client %u on %s: %s, kind %u, address %s\n", user.user_id, client,
                 environment.interface_name(user.access_if_index).c_str(), own, user.kind,
                 text_or_star(user.address).c_str());
    });
}

} // namespace

std::string view_text(const Backend &backend)
{
    const View &view = backend.current_view.view();
    const Environment &environment = backend.routers.common().environment();
    std::string out;
    add_instances(&out, view);
    add_interfaces(&out, view, environment);
    add_missing(&out, backend.current_view.config(), environment);
    add_users(&out, backend.users, environment);
    if (backend.routers.family() == MCAST_FAMILY_IPV4) {
        add_msdp(&out, backend.msdp);
    }
    return out;
}

} // namespace mribd
