/*
 * The policy as the MRIB process sends it: the library keeps boundaries, designated-router and instance
 * state; what is added here is when that view counts, and which interfaces a change concerns.
 */
#ifndef GMPD_MRIB_POLICY_H
#define GMPD_MRIB_POLICY_H

#include <cstdint>
#include <set>

#include "daemons/gmpd/policy.h"
#include "mcast/mrib.h"

namespace gmpd
{

struct Router;

// One object per process, like the view it reads. Reads it only between MRIB_GMP_Init and MRIB_GMP_Fini.
class MribPolicy final : public Policy
{
public:
    explicit MribPolicy(Router &router);
    ~MribPolicy() override;
    MribPolicy(const MribPolicy &) = delete;
    MribPolicy &operator=(const MribPolicy &) = delete;

    Joins joins_of(const Interface &interface, const Address &group) const override;
    bool reports(const Interface &interface) const override;

    // Enters the callbacks through which changes are heard.
    static void add_callbacks(MRIB_GMP_CALLBACKS_S &callbacks);

    // The access lists may have changed.
    void lists_changed();

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

    bool in_ssm_range(const Address &group) const;
    void all_changed();

    Router &router_;
    bool replayed_ = false;
    bool disabled_ = false;      // before the first replay: the instance was said to be disabled
    uint32_t ssm_acl_;           // of the public instance
    std::set<uint32_t> others_;  // before the first replay: where another router was said to be designated
    std::set<uint32_t> changed_; // interfaces to which the policy is to be applied
    std::set<uint32_t> to_ask_;  // interfaces whose hosts are to be asked
};

} // namespace gmpd

#endif
