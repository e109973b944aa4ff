// Large float buffers: an hour of 48 kHz stereo float is 1.4 GB, and the
// first touch of fresh 4 KiB pages costs seconds at that size. Big buffers
// ask the kernel for transparent huge pages before they are touched, and
// copies reuse capacity that is already there. Shared by the editor, its
// extensions, the player and the program's decoder.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <vector>

#include "document_format.h"

namespace LargeBuffer
{
constexpr size_t kHugePageBytes = size_t(2) << 20;

// Asks for huge pages over the 2 MiB-aligned part of Data..Data+Bytes.
// Only worth it, and only asked, from four huge pages up.
inline void AdviseHugePages(void* Data, size_t Bytes)
{
    if (Bytes < 4 * kHugePageBytes)
        return;
    // madvise wants a page-aligned start; the unaligned head stays small pages.
    const uintptr_t begin = reinterpret_cast<uintptr_t>(Data);
    const uintptr_t aligned = (begin + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
    const uintptr_t end = begin + Bytes;
    if (aligned < end)
        madvise(reinterpret_cast<void*>(aligned), end - aligned, MADV_HUGEPAGE);
}

// Room a large buffer gets beyond what it was asked for: a quarter more, so
// that pastes and undos of a long document grow into pages that are already
// mapped instead of moving the whole document. Untouched pages cost address
// space, not memory.
inline size_t CapacityWithHeadroom(size_t Floats)
{
    if (Floats * sizeof(float) < 4 * kHugePageBytes)
        return Floats;
    return Floats + Floats / 4;
}

// Room a decoding reserves for its document floats before the first frame
// arrives, so that an hour of audio is laid out once rather than grown
// by doubling: what the container's duration says, with a margin, bounded by
// three hours and by what the file's bytes can hold. At 6 kbit/s (750 bytes
// a second) a byte decodes to 96000 / 750 = 128 floats, so a few hundred
// bytes whose header claims hours ask for kilobytes, not gigabytes. A file
// that decodes to more (silence packed tighter) grows its buffer as usual.
// FileBytes of 0 or less: unknown.
inline double FloatsToReserveForDecoding(double DurationSec, int64_t FileBytes)
{
    constexpr double kMaxReservedSec = 3.0 * 3600.0;
    constexpr double kMaxFloatsPerFileByte = 128.0;
    double floats =
        (std::min(DurationSec, kMaxReservedSec) * 1.01 * kDocumentRateHz + kDocumentRateHz) * kDocumentChannels;
    if (FileBytes > 0)
        floats = std::min(floats, static_cast<double>(FileBytes) * kMaxFloatsPerFileByte);
    return floats;
}

// Gives V room for Floats values (and a large V headroom beyond) without
// touching new memory before the kernel has been asked for huge pages.
// Keeps V's content.
inline void ReserveFloats(std::vector<float>& V, size_t Floats)
{
    if (V.capacity() >= Floats)
        return;
    std::vector<float> fresh;
    fresh.reserve(CapacityWithHeadroom(Floats));
    AdviseHugePages(fresh.data(), fresh.capacity() * sizeof(float));
    fresh.insert(fresh.end(), V.begin(), V.end());
    V.swap(fresh);
}

// ReserveFloats where the memory can be had; false, and V as it was, where it
// cannot. For room wished for ahead of need, which must not fail where
// growing step by step would succeed.
inline bool TryReserveFloats(std::vector<float>& V, size_t Floats)
{
    try
    {
        ReserveFloats(V, Floats);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    catch (const std::length_error&)
    {
        return false;
    }
}

// Dst becomes a copy of First..Last, reusing Dst's capacity where it suffices.
inline void AssignFloats(std::vector<float>& Dst, const float* First, const float* Last)
{
    Dst.clear();
    ReserveFloats(Dst, static_cast<size_t>(Last - First));
    Dst.insert(Dst.end(), First, Last);
}

inline void AssignFloats(std::vector<float>& Dst, const std::vector<float>& Src)
{
    AssignFloats(Dst, Src.data(), Src.data() + Src.size());
}
}  // namespace LargeBuffer
