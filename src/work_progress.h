// How far a long piece of work has come, and whether its user asked it to
// stop. The worker counts what it has done block by block and looks at the
// stop request between blocks; any other thread reads the count and asks for
// the stop. Everything is atomic, so no lock is held by either side.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

struct WorkProgress
{
    std::atomic<int64_t> Done{0};
    std::atomic<int64_t> Total{0};  // 0: not known (yet)
    std::atomic<bool> bCancel{false};

    // A new piece of work of Units (frames, each pass counted), not stopped.
    void Reset(int64_t Units = 0)
    {
        Done = 0;
        Total = Units;
        bCancel = false;
    }
    void Cancel() { bCancel = true; }
    bool IsCancelled() const { return bCancel.load(std::memory_order_relaxed); }
    // 0..1, or -1 while the total is not known.
    double Fraction() const
    {
        const int64_t total = Total.load(std::memory_order_relaxed);
        if (total <= 0)
            return -1.0;
        return std::clamp(static_cast<double>(Done.load(std::memory_order_relaxed)) / total, 0.0, 1.0);
    }
};

// A pass of Units begins: the count starts again from 0 (null: nothing).
inline void BeginWorkPass(WorkProgress* Progress, int64_t Units)
{
    if (!Progress)
        return;
    Progress->Done = 0;
    Progress->Total = Units;
}

// Counts Units more as done; false once a stop was asked for. Work without a
// WorkProgress (null) always goes on.
inline bool WorkGoesOn(WorkProgress* Progress, int64_t Units)
{
    if (!Progress)
        return true;
    Progress->Done.fetch_add(Units, std::memory_order_relaxed);
    return !Progress->IsCancelled();
}

// The message of work stopped on request, the same wherever it stopped.
inline const char* WorkCancelledMessage()
{
    return "Cancelled.";
}
