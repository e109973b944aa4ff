// Signal<Args...>: synchronous notification. Slots run in the order of
// connection, on the emitting thread; each gets its own by-value arguments.
#pragma once

#include <functional>
#include <vector>

template <typename... Args>
class Signal
{
public:
    using Slot = std::function<void(Args...)>;

    std::vector<Slot> slots;

    void connect(Slot NewSlot) { slots.push_back(std::move(NewSlot)); }

    // The arguments stay lvalues here, so every slot's by-value parameters are
    // copies: a slot that keeps or alters a string leaves the next one alone.
    template <typename... CallArgs>
    void emit(CallArgs&&... Values) const
    {
        for (const Slot& slot : slots)
            slot(Values...);
    }
};
