/*
 * The exchange with the MRIB process: the local sources that it knows, and the remote ones that peers
 * announce.
 */
#ifndef DAEMONS_MSDPD_MRIB_LINK_H
#define DAEMONS_MSDPD_MRIB_LINK_H

#include "daemons/common/mrib_channel.h"
#include "daemons/msdpd/speaker.h"

namespace msdpd
{

// One object per process: the library's channel has no handle.
class MribLink final : public Mrib
{
public:
    explicit MribLink(mcastd::Reactor &reactor);
    ~MribLink() override;
    MribLink(const MribLink &) = delete;
    MribLink &operator=(const MribLink &) = delete;

    // Connects the speaker, whose configuration is in force, with the MRIB process. False when the channel
    // cannot be set up, which is logged.
    bool open(Speaker &speaker);

    // Ends the exchange; the speaker may go then.
    void close();

    // Tells again whether peers are to be asked for sources; for when the configuration changed.
    void tell_requests();

    // Announces local sources that have just come, then sends what was appended to the channel.
    void flush();

    bool next_local(uint32_t acl, Ipv4 group, MRIB_MSDP_CURSOR_S *cursor, MRIB_MSDP_BATCH_S *batch) override;
    uint32_t local_count() override;
    bool is_source_specific(Ipv4 group) override;

    const mcastd::MribChannel &channel() const
    {
        return channel_;
    }

private:
    static void on_local_source(const MRIB_GMP_VRF_KEY_S *key, uint32_t rp_be, uint32_t group_be,
                                uint32_t source_be, const void *data, uint32_t length);
    static uint64_t on_request(const MRIB_GMP_VRF_KEY_S *key, uint32_t group_be);
    static void on_ssm_policy(const MRIB_GMP_VRF_KEY_S *key, uint32_t acl_number);
    static void on_relearned(void *link);

    void report_all();
    void end_bracket();

    mcastd::MribChannel channel_;
    Speaker *speaker_ = nullptr;
    mcastd::Timer relearning_; // runs while peers may not have told everything yet
    bool bracket_open_ = false;
};

} // namespace msdpd

#endif
