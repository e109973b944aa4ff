// Signal<Args...>: synchronous notification. Slots run in the order of
// connection, on the emitting thread; every one receives the same values.
#pragma once

#include <functional>
#include <tuple>
#include <type_traits>
#include <vector>

template <typename... Args>
class Signal
{
public:
    using Slot = std::function<void(Args...)>;

    std::vector<Slot> slots;

    void connect(Slot NewSlot) { slots.push_back(std::move(NewSlot)); }

    // The values are copied once, before the first slot: an emitter may pass
    // its own fields, and a slot that changes one (or closes the document)
    // must not change what the later slots receive. Each slot's by-value
    // parameters are copies of these, so a slot that alters its string leaves
    // the next one alone.
    template <typename... CallArgs>
    void emit(CallArgs&&... Values) const
    {
        const std::tuple<std::decay_t<Args>...> sent(std::forward<CallArgs>(Values)...);
        for (const Slot& slot : slots)
            std::apply(slot, sent);
    }
};
