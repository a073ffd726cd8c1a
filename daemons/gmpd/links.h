/*
 * Following the machine's network interfaces: which of them the protocol runs on, and from which address.
 */
#ifndef DAEMONS_GMPD_LINKS_H
#define DAEMONS_GMPD_LINKS_H

#include <cstdint>

#include "daemons/gmpd/process.h"
#include "daemons/gmpd/receiver.h"
#include "mcasthost/link.h"

namespace gmpd
{

class Links
{
public:
    Links(Process &process, Receiver &receiver) : process_(process), receiver_(receiver)
    {
    }
    ~Links();
    Links(const Links &) = delete;
    Links &operator=(const Links &) = delete;

    // Begins to follow, on the host loop, what exists and what will. False on failure, which is logged.
    bool open(int32_t loop);

    // Which instances the links are in may be different now.
    void instances_changed()
    {
        if (table_ != nullptr) {
            update_all(table_);
        }
    }

    // To be called every round: takes up what there was no memory for.
    void settle();

    // Ends following and the protocol on every interface.
    void close();

private:
    static void on_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S *event, void *context);

    bool is_wanted(HOST_LINK_TABLE table, const HOST_LINK_S &link) const;
    void take_event(HOST_LINK_TABLE table, const HOST_LINK_EVENT_S &event);
    void update(HOST_LINK_TABLE table, const HOST_LINK_S &link);
    void update_all(HOST_LINK_TABLE table);
    void remove(uint32_t if_index);
    void report_missing_names() const;

    Process &process_;
    Receiver &receiver_;
    HOST_LINK_TABLE table_ = nullptr;
    bool missed_ = false; // a change was not taken
};

} // namespace gmpd

#endif
