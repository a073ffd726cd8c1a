#include <array>
#include <cinttypes>
#include <string>

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

void add_user(std::string *out, const Environment &environment, ClientId client, uint32_t if_index,
              const UserRegistry::User &user)
{
    char own[MCAST_IF_NAME_SIZE] = "";
    MCAST_GetIfNameOrIndex(if_index, own);
    add_text(out, "  user %u of client %u on %s: %s, kind %u, address %s\n", user.user_id, client,
             environment.interface_name(user.access_if_index).c_str(), own, user.kind,
             text_or_star(user.address).c_str());
}

void add_switches(std::string *out, uint16_t vrf_index, const MsdpExchange::Reported &instance)
{
    if (instance.request_enable.enable || instance.encap_enable.enable) {
        add_text(out, "  msdp instance %u:%s%s\n", vrf_index,
                 instance.request_enable.enable ? " requests enabled" : "",
                 instance.encap_enable.enable ? " encapsulated data enabled" : "");
    }
}

} // namespace

bool ViewStatus::append_users(std::string *out, const Backend &backend, size_t &budget)
{
    const Environment &environment = backend.routers.common().environment();
    bool all = true;
    backend.users.visit_from(user_.first, user_.second,
                             [&](ClientId client, uint32_t if_index, const UserRegistry::User &user) {
                                 user_ = {client, if_index};
                                 all = budget > 0;
                                 if (all) {
                                     --budget;
                                     add_user(out, environment, client, if_index, user);
                                 }
                                 return all;
                             });
    return all;
}

bool ViewStatus::append_local_sources(std::string *out, const MsdpExchange &msdp, size_t &budget)
{
    return msdp.local_sources().visit(
        &cursor_, [&](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, uint8_t note) {
            if (budget == 0) {
                return false;
            }
            --budget;
            const std::string rp =
                text_or_star(make_address(MCAST_FAMILY_IPV4, std::array{msdp.rp_be(note)}.data()));
            add_text(out, "  local source (%s, %s): rp %s\n", text_or_star(source).c_str(),
                     text_or_star(group).c_str(), rp.c_str());
            return true;
        });
}

bool ViewStatus::append_remote_sources(std::string *out, const MsdpExchange &msdp, size_t &budget)
{
    for (const auto &[vrf_index, instance] : msdp.instances()) {
        if (vrf_index < instance_) {
            continue;
        }
        if (vrf_index > instance_) { // the one that was begun may be gone
            instance_ = vrf_index;
            cursor_ = SgTable::Cursor();
        }
        const auto add = [&, vrf = vrf_index](const MCAST_ADDR_S &group, const MCAST_ADDR_S &source,
                                              uint8_t entry) {
            if (budget == 0) {
                return false;
            }
            --budget;
            add_text(out, "  remote source (%s, %s): instance %u, entry %u\n", text_or_star(source).c_str(),
                     text_or_star(group).c_str(), vrf, entry);
            return true;
        };
        if (!instance.remote.visit(&cursor_, add)) {
            return false;
        }
        add_switches(out, vrf_index, instance);
        ++instance_;
        cursor_ = SgTable::Cursor();
    }
    add_text(out,
             "  msdp: local sources %u, remote sources %u, left out of re-sends %" PRIu64 ", refused %" PRIu64
             "\n",
             msdp.local_sources().size(), msdp.remote_count(), msdp.swept(), msdp.refused());
    return true;
}

bool ViewStatus::append(std::string *out, const Backend &backend, size_t &budget)
{
    if (step_ == Step::Head) {
        const View &view = backend.current_view.view();
        const Environment &environment = backend.routers.common().environment();
        add_instances(out, view);
        add_interfaces(out, view, environment);
        add_missing(out, backend.current_view.config(), environment);
        step_ = Step::Users;
    }
    if (step_ == Step::Users) {
        if (!append_users(out, backend, budget)) {
            return false;
        }
        step_ = backend.routers.family() == MCAST_FAMILY_IPV4 ? Step::LocalSources : Step::Done;
    }
    if (step_ == Step::LocalSources) {
        if (!append_local_sources(out, backend.msdp, budget)) {
            return false;
        }
        cursor_ = SgTable::Cursor();
        step_ = Step::RemoteSources;
    }
    if (step_ == Step::RemoteSources) {
        if (!append_remote_sources(out, backend.msdp, budget)) {
            return false;
        }
        step_ = Step::Done;
    }
    return true;
}

} // namespace mribd
