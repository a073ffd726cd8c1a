/*
 * The messager beside a model that keeps packets as strings in a list, under random messages, partial and
 * failed sends, refusals and lost memory. For the mode that keeps tails it is also checked that what the peer
 * took is every byte of every packet in order.
 */
#include "mcast/messager.h"

#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/fault.h"
#include "support/property.h"

namespace
{

constexpr uint64_t kReserve = 8;
constexpr uint64_t kFailed = 5;

class Owner;

Owner *g_owner; /* the callbacks get no context */

/* What the peer's side does, drawn before the messager and the model act alike on it. */
struct Answer {
    uint64_t status;
    uint32_t share; /* of 8, taken on failure */
};

class Owner
{
public:
    Owner(uint64_t seed, uint64_t chosen_mode, uint64_t chosen_capacity)
        : random(seed), mode(chosen_mode), capacity(chosen_capacity), packet(Header())
    {
        static const MESSAGER_CALLBACKS_S callbacks = {
            nullptr, [](void *buffer) { memcpy(buffer, g_owner->Header().data(), kReserve); },
            [](uint32_t, const void *data, uint64_t length, uint64_t *sent) {
                return g_owner->Take(g_owner->real_answers, g_owner->real_taken,
                                     std::string(static_cast<const char *>(data), length), sent);
            }};
        g_owner = this;
        messager = Messager_Init(1, capacity, kReserve, mode, kMostPending, &callbacks);
    }

    ~Owner()
    {
        Messager_Fini(messager);
    }

    void Step()
    {
        real_answers.clear();
        model_answers.clear();
        for (int count = 0; count < 12; ++count) { /* more than one step can use */
            Answer answer = {random.OneIn(3) ? kFailed : 0, random.Below(9)};

            real_answers.push_back(answer);
            model_answers.push_back(answer);
        }
        real_taken.clear();
        model_taken.clear();
        allocations = 0;
        failing_allocation = random.OneIn(20) ? 1 + random.Below(4) : 0;
        fault::FailAllocation(failing_allocation);
        switch (random.Below(12)) {
        case 0:
            EXPECT_EQ(Messager_Announce(messager), FlushAll());
            break;
        case 1:
            if (random.OneIn(20)) {
                EXPECT_EQ(Messager_Clear(messager), MCAST_OK);
                pending.clear();
                packet = Header();
                lossless = false;
            }
            break;
        default:
            Message();
        }
        fault::FailAllocation(0);
        Check();
    }

    /* Blocks that memory was too short for. */
    uint64_t Losses() const
    {
        return losses;
    }

    std::string Header() const
    {
        return "[header]";
    }

private:
    static constexpr uint64_t kMostPending = 6;

    uint64_t Take(std::deque<Answer> &answers, std::vector<std::string> &taken, const std::string &data,
                  uint64_t *sent)
    {
        Answer answer = answers.front();
        answers.pop_front();
        *sent = answer.status == 0 ? 0 : data.size() * answer.share / 8;
        taken.push_back(data.substr(0, answer.status == 0 ? data.size() : *sent));
        return answer.status;
    }

    /* A block is two allocations; when one fails, what it was to keep is lost. */
    void Queue(uint64_t sent)
    {
        if (mode == MESSAGER_DROP) {
            return;
        }
        allocations += 2;
        if (failing_allocation == allocations - 1 || failing_allocation == allocations) {
            lossless = false;
            ++losses;
            return;
        }
        pending.push_back(mode == MESSAGER_KEEP_TAIL ? packet.substr(sent) : packet);
    }

    uint64_t FlushPacket()
    {
        if (packet.size() == kReserve) {
            return 0;
        }
        uint64_t sent;
        uint64_t status = Take(model_answers, model_taken, packet, &sent);

        if (status != 0) {
            Queue(sent);
        }
        Finish();
        return status;
    }

    void Finish()
    {
        made += packet;
        packet = Header();
    }

    uint64_t FlushAll()
    {
        while (!pending.empty()) {
            uint64_t sent;
            uint64_t status = Take(model_answers, model_taken, pending.front(), &sent);

            if (status != 0) {
                if (mode == MESSAGER_KEEP_TAIL) {
                    pending.front().erase(0, sent);
                }
                return status;
            }
            pending.pop_front();
        }
        return FlushPacket();
    }

    void Message()
    {
        uint16_t length = static_cast<uint16_t>(random.Below(static_cast<uint32_t>(capacity - kReserve) / 3));
        std::string text(length, static_cast<char>('a' + random.Below(26)));
        MCAST_BOOL flush = random.OneIn(4);
        MCAST_STATUS status = Messager_Send(messager, text.data(), length, flush);
        if (pending.size() >= kMostPending) {
            EXPECT_EQ(status, MCAST_ERR_GENERAL);
            return;
        }
        EXPECT_EQ(status, MCAST_OK);
        if (packet.size() + length > capacity) {
            if (pending.empty()) {
                FlushPacket();
            } else {
                Queue(0);
                Finish();
                FlushAll();
            }
        }
        packet += text;
        if (flush == 1 || packet.size() > 1199) {
            FlushAll();
        }
    }

    void Check()
    {
        uint64_t bytes = packet.size();
        const MESSAGER_BLOCK_S *block = messager->pending_head;
        const MESSAGER_BLOCK_S *tail = nullptr;
        EXPECT_EQ(real_taken, model_taken);
        EXPECT_EQ(messager->used, packet.size());
        EXPECT_EQ(messager->free, capacity - packet.size());
        EXPECT_EQ(std::string(reinterpret_cast<char *>(messager->buffer), messager->used), packet);
        EXPECT_EQ(messager->pending_count, pending.size());
        for (const std::string &waiting : pending) {
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(std::string(reinterpret_cast<char *>(block->current), block->length), waiting);
            bytes += waiting.size();
            tail = block;
            block = block->next;
        }
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(messager->pending_tail, tail);
        EXPECT_EQ(Messager_GetDataLen(messager), bytes);
        for (const std::string &piece : real_taken) {
            stream += piece;
        }
        CheckStream();
    }

    /* In the mode of tails the peer's stream and what still waits are together every packet that was made. */
    void CheckStream()
    {
        if (mode == MESSAGER_KEEP_TAIL && lossless) {
            std::string all = stream;

            for (const std::string &waiting : pending) {
                all += waiting;
            }
            EXPECT_EQ(all, made);
        }
        lossless = true;
        made.clear();
        for (const std::string &waiting : pending) {
            made += waiting;
        }
        stream.clear();
    }

    property::Random random;
    uint64_t mode;
    uint64_t capacity;
    MESSAGER_S *messager;
    std::deque<Answer> real_answers;
    std::deque<Answer> model_answers;
    std::vector<std::string> real_taken;
    std::vector<std::string> model_taken;
    std::deque<std::string> pending;
    std::string packet;
    std::string made;   /* packets finished since the last step, behind what waited then */
    std::string stream; /* what the peer took since then */
    bool lossless = true;
    unsigned long allocations = 0; /* of this step */
    unsigned long failing_allocation = 0;
    uint64_t losses = 0;
};

TEST(MessagerProperty, SendsKeepsAndRefusesAsAListOfPacketsDoes)
{
    uint64_t seed = property::Seed("messager");
    uint64_t operations = property::Operations(300000);
    long live = fault::LiveBlocks();

    for (uint64_t mode = 0; mode < 3; ++mode) {
        for (uint64_t capacity : {uint64_t{200}, uint64_t{3000}}) {
            Owner owner(seed + mode, mode, capacity);

            for (uint64_t operation = 0; operation < operations / 6; ++operation) {
                owner.Step();
                if (HasFailure()) {
                    FAIL() << "mode " << mode << ", operation " << operation;
                }
            }
            if (operations >= 6000) {
                EXPECT_EQ(owner.Losses() > 0, mode != MESSAGER_DROP);
            }
        }
    }
    EXPECT_EQ(fault::LiveBlocks(), live);
}

} // namespace
