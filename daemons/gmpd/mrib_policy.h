/*
 * The policy as the MRIB process sends it: the library keeps boundaries, designated-router and instance
 * state; what is added here is when that view counts, and which interfaces a change concerns.
 */
#ifndef DAEMONS_GMPD_MRIB_POLICY_H
#define DAEMONS_GMPD_MRIB_POLICY_H

#include <cstdint>
#include <map>
#include <set>
#include <utility>

#include "daemons/gmpd/policy.h"
#include "mcast/mrib.h"

namespace gmpd
{

struct Process;

// One object per process, like the view it reads. Reads it only between MRIB_GMP_Init and MRIB_GMP_Fini.
class MribPolicy final : public Policy
{
public:
    explicit MribPolicy(Process &process);
    ~MribPolicy() override;
    MribPolicy(const MribPolicy &) = delete;
    MribPolicy &operator=(const MribPolicy &) = delete;

    Joins joins_of(const Interface &interface, const Address &group) const override;
    bool reports(const Interface &interface) const override;

    // Enters the callbacks through which changes are heard.
    static void add_callbacks(MRIB_GMP_CALLBACKS_S &callbacks);

    // The access lists may have changed.
    void lists_changed();

    // The view is to be emptied; what was heard is forgotten.
    void start_over();

    // A new connection begins: its first replay is the one that this side asked for.
    void connected();

    // Whether the MRIB process asked for everything again, memberships included; false from then on.
    bool take_demand()
    {
        return std::exchange(to_tell_, false);
    }

    // Applies what was heard since the last call, each interface once, and asks the hosts of those where more
    // is allowed than before.
    void apply_changes();

    // Whether a replay of the MRIB's state has ended since the start.
    bool replayed() const
    {
        return replayed_;
    }

private:
    static void on_smooth_finished();
    static void on_instance(const MRIB_GMP_VRF_KEY_S *key);
    static void on_designated_router(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t state);
    static void on_boundary(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index, uint32_t operation);
    static void on_ssm_policy(const MRIB_GMP_VRF_KEY_S *key, uint32_t acl_number);

    using InterfaceKey = std::pair<uint16_t, uint32_t>; // instance and index

    const Interface *find(const MRIB_GMP_VRF_KEY_S *key, uint32_t if_index) const;
    bool in_ssm_range(const MRIB_GMP_VRF_KEY_S &key, const Address &group) const;
    void changed_in(const MRIB_GMP_VRF_KEY_S &key, std::set<uint32_t> &changed) const;
    void all_changed();
    void apply_noted();
    template <typename Work> void note(const char *what, const Work &work);

    // Of how many interfaces it is kept that another router is designated: more than any router has.
    static constexpr size_t MOST_OTHERS = 16384;

    Process &process_;
    bool replayed_ = false;
    bool heard_ = false;                    // a replay has ended since the connection was made
    bool to_tell_ = false;                  // and another one, which the MRIB process asked for
    bool missed_ = false;                   // there was no memory to note a change
    std::map<uint16_t, uint32_t> ssm_acls_; // by instance; none: MCAST_NONE
    // Before the first replay: instances that were said to be disabled, and where another router was said to
    // be designated.
    std::set<uint16_t> disabled_;
    std::set<InterfaceKey> others_;
    // Interfaces to which the policy is to be applied, whose hosts are to be asked, and whose instance is
    // served from now on.
    std::set<uint32_t> changed_;
    std::set<uint32_t> to_ask_;
    std::set<uint32_t> to_introduce_;
};

} // namespace gmpd

#endif
