#include "support/scripted_timer.h"

#include <algorithm>
#include <stdexcept>

namespace scripted_timer
{

static constexpr uint32_t kUnknownTimer = 0x40010001u;

Platform platform;

namespace
{

void Record(const std::string &call)
{
    if (platform.record) {
        platform.calls.push_back(call);
    }
}

} // namespace

void Reset()
{
    platform = Platform{};
}

std::string Calls()
{
    std::string joined;
    for (const std::string &call : platform.calls) {
        joined += joined.empty() ? call : ", " + call;
    }
    platform.calls.clear();
    return joined;
}

void Advance(uint64_t seconds)
{
    platform.now_ms += seconds * 1000;
}

TIMER_SERVICE Service()
{
    static uint64_t place;
    return reinterpret_cast<TIMER_SERVICE>(&place);
}

Timer &Only()
{
    if (platform.timers.size() != 1) {
        throw std::logic_error("not exactly one platform timer");
    }
    return platform.timers.begin()->second;
}

namespace
{

void Fire(TIMER_ID id)
{
    platform.timers[id].armed = false;
    Timer fired = platform.timers[id]; /* the handler may delete the timer */
    fired.handler(fired.parameters);
    if (fired.attributes.kind == TIMER_KIND_ONE_SHOT) {
        platform.timers.erase(id);
    }
}

} // namespace

bool FireIfDue()
{
    const Timer &timer = Only();
    if (!timer.armed || timer.due_ms > platform.now_ms) {
        return false;
    }
    Fire(platform.timers.begin()->first);
    return true;
}

void ServeFor(uint64_t milliseconds)
{
    TIMER_ID next = TIMER_NONE;
    uint64_t due_ms = platform.now_ms + milliseconds;
    for (const auto &[id, timer] : platform.timers) {
        if (timer.armed && timer.due_ms <= due_ms) {
            next = id;
            due_ms = timer.due_ms;
        }
    }
    platform.now_ms = std::max(platform.now_ms, due_ms);
    if (next != TIMER_NONE) {
        Fire(next);
    }
}

} // namespace scripted_timer

using scripted_timer::platform;
using scripted_timer::Record;

TIMER_ID Timer_Create(TIMER_SERVICE service, uint32_t kind, uint32_t period_ms, TIMER_HANDLER handler,
                      const uint64_t parameters[4])
{
    Record("create " + std::to_string(kind) + " " + std::to_string(period_ms));
    if (platform.fail_create) {
        return TIMER_NONE;
    }
    /* Created running, so that a library that forgets to stop it is found out. */
    scripted_timer::Timer timer{service, handler, {}, {}, true, platform.now_ms + period_ms};

    timer.attributes.state = TIMER_STATE_ENABLE;
    timer.attributes.kind = kind;
    timer.attributes.period_ms = period_ms;
    for (int word = 0; parameters != nullptr && word < 4; ++word) {
        timer.parameters[word] = parameters[word];
    }
    platform.timers[platform.next] = timer;
    return platform.next++;
}

uint32_t Timer_SetStatus(TIMER_SERVICE service, TIMER_ID id, uint32_t state, uint32_t value)
{
    switch (state) {
    case TIMER_STATE_STOP:
        Record(value == 0 ? "stop" : "stop " + std::to_string(value));
        break;
    case TIMER_STATE_ENABLE:
        Record("enable");
        break;
    case TIMER_STATE_ARM:
        Record("arm " + std::to_string(value));
        break;
    default:
        Record("state " + std::to_string(state));
    }
    auto found = platform.timers.find(id);

    if (found == platform.timers.end() || found->second.service != service) {
        return scripted_timer::kUnknownTimer;
    }
    auto refusal = platform.set_status.find(state);

    if (refusal != platform.set_status.end()) {
        return refusal->second;
    }
    if (state > TIMER_STATE_ARM) {
        return scripted_timer::kUnknownTimer;
    }
    if (state == TIMER_STATE_ARM) {
        ++platform.arms;
        found->second.due_ms = platform.now_ms + value;
    }
    found->second.armed = state == TIMER_STATE_ARM;
    found->second.attributes.state = state == TIMER_STATE_STOP ? 0 : 1;
    return 0;
}

uint32_t Timer_GetAttr(TIMER_SERVICE service, TIMER_ID id, TIMER_ATTR_S *attributes, uint32_t option)
{
    Record(option == 0 ? "attr" : "attr with option");
    auto found = platform.timers.find(id);

    if (found == platform.timers.end() || found->second.service != service) {
        return scripted_timer::kUnknownTimer;
    }
    if (platform.get_attr_status != 0) {
        return platform.get_attr_status;
    }
    *attributes = found->second.attributes;
    return 0;
}

uint32_t Timer_Delete(TIMER_SERVICE service, TIMER_ID id)
{
    Record("delete");
    auto found = platform.timers.find(id);

    if (found == platform.timers.end() || found->second.service != service) {
        return scripted_timer::kUnknownTimer;
    }
    platform.timers.erase(found);
    return 0;
}

void TIME_GetSystemBootTime(uint32_t *seconds, uint32_t *sub_seconds)
{
    ++platform.time_reads;
    *seconds = static_cast<uint32_t>(platform.now_ms / 1000);
    *sub_seconds = static_cast<uint32_t>(platform.now_ms % 1000 * 1000000);
}
