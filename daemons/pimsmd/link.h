/*
 * A link on which PIM runs: what this router says of itself there, and the routers that it hears (neighbour.h).
 *
 * Hellos are sent at once in a period, and sooner, after a random time, where somebody does not know this router yet: when the
 * link comes, and for each new neighbour. A message that only a neighbour may send is preceded by the Hello that is owed.
 */
#ifndef DAEMONS_PIMSMD_LINK_H
#define DAEMONS_PIMSMD_LINK_H

#include <string>
#include <vector>

#include "daemons/pimsmd/neighbour.h"
#include "daemons/pimsmd/transmitter.h"

namespace pimsmd
{

// Milliseconds within which a new neighbour hears of this router (RFC 7761, section 4.11).
constexpr uint32_t TRIGGERED_HELLO_MS = 5000;

// What the machine knows of an interface.
struct LinkState {
    uint32_t if_index = 0;
    std::string name;
    uint32_t mtu = 1500;
    Address address;             // the primary one
    std::vector<Address> others; // of the family, on the link

    bool operator==(const LinkState &other) const;
};

// What it takes of the configuration.
struct HelloSettings {
    uint32_t hello_s = 30;
    uint32_t dr_priority = 1;
    LanDelay lan_delay;
    uint32_t most_neighbours = MOST_NEIGHBOURS;
};

class LinkOwner
{
public:
    // A neighbour came, has another generation, or is about to go; another designated router.
    virtual void neighbour_came(unsigned link, const Neighbour &neighbour) = 0;
    virtual void neighbour_restarted(unsigned link, const Neighbour &neighbour) = 0;
    virtual void neighbour_left(unsigned link, const Neighbour &neighbour) = 0;
    virtual void dr_changed(unsigned link) = 0;

    // A random number from 0 to most.
    virtual uint32_t draw(uint32_t most) = 0;

protected:
    ~LinkOwner() = default;
};

class Link final : private LinkEvents
{
public:
    // queue, transmitter and owner outlive it. It says its first Hello within the triggered delay.
    Link(unsigned number, MsQueue &queue, Transmitter &transmitter, LinkOwner &owner, const LinkState &state,
         const HelloSettings &settings);
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    // Takes other facts with the same primary address, and settings. What neighbours have to know is said soon.
    void set(const LinkState &state, const HelloSettings &settings);

    // Says goodbye: its neighbours forget this router.
    void say_goodbye();

    // Takes a Hello of another router. NO_DROP, or why it was refused.
    Count heard(const Address &sender, const Hello &hello);

    // To be called before a message that only a neighbour may send.
    void introduce();

    // Sends a message of this router to all PIM routers of the link.
    void send_to_all(std::span<const uint8_t> message);

    // Addresses of a message to all PIM routers of the link.
    Envelope envelope() const;

    // Bytes that a message may have so that IP need not cut it.
    size_t room() const;

    unsigned number() const
    {
        return number_;
    }
    const LinkState &state() const
    {
        return state_;
    }
    const Neighbours &neighbours() const
    {
        return neighbours_;
    }
    uint32_t generation() const
    {
        return generation_;
    }
    const HelloSettings &settings() const
    {
        return settings_;
    }
    // What the link received, by what became of it.
    Counters &counters()
    {
        return counters_;
    }
    const Counters &counters() const
    {
        return counters_;
    }

private:
    void neighbour_up(const Neighbour &neighbour) override;
    void neighbour_restarted(const Neighbour &neighbour) override;
    void neighbour_down(const Neighbour &neighbour) override;
    void dr_changed(const Address &dr) override;
    static void hello_due(void *self);
    void say_soon();
    void say_hello(uint16_t holdtime_s);
    LinkSettings neighbour_settings() const;

    unsigned number_;
    MsQueue &queue_;
    Transmitter &transmitter_;
    LinkOwner &owner_;
    LinkState state_;
    HelloSettings settings_;
    uint32_t generation_;
    Counters counters_;
    MsTimer hello_;
    bool owed_ = true; // somebody has not heard this router
    Neighbours neighbours_;
};

} // namespace pimsmd

#endif
