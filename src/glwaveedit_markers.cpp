// GLWaveEdit extension: markers and regions. Off until the host turns them
// on; then each document keeps its own, in frames, and they follow its edits.
//
// An edit replaces R frames at S with I others. A marker keeps to the frame
// after it while that stays (so one at or after S + R moves by I - R), else
// to the frame before it (one at S stays); one strictly inside the removed
// frames is gone. A region keeps what is left of its own frames and what
// went in between them, so a paste at its edge lands outside it; it goes
// once none of its frames is left. The reverse edit (I frames at S
// back to R) gives most of them back by itself; what it cannot (the ones
// removed, clipped, or moved onto S from both sides of a cut) goes into the
// edit's history step, and undo and redo put it back by id.
//
// Sections: State, Following edits, Changes, Queries.

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "glwaveedit.h"

// --- State ---

struct GLWaveEdit::MarkerStore
{
    struct DocumentMarkers
    {
        std::vector<Marker> List;  // by start, end, id
        uint64_t NextId = 1;
        int NextMarkerNumber = 1;  // for the default names
        int NextRegionNumber = 1;
    };
    std::unordered_map<uint64_t, DocumentMarkers> PerDocument;
};

struct GLWaveEdit::MarkerEditRecord
{
    std::vector<Marker> Return;   // removed: put back as they were
    std::vector<Marker> SetBack;  // moved otherwise than the reverse moves them back: their span again
    std::vector<uint64_t> Drop;   // put back by this swap: gone again with the next
    bool IsEmpty() const { return Return.empty() && SetBack.empty() && Drop.empty(); }
};

namespace
{
using Marker = GLWaveEdit::Marker;

const std::vector<Marker> kNoMarkers;

void SortMarkers(std::vector<Marker>& List)
{
    const auto before = [](const Marker& A, const Marker& B) {
        if (A.StartFrame != B.StartFrame)
            return A.StartFrame < B.StartFrame;
        if (A.EndFrame != B.EndFrame)
            return A.EndFrame < B.EndFrame;
        return A.Id < B.Id;
    };
    // Edits keep the order almost always; the check is cheaper than a sort.
    if (!std::is_sorted(List.begin(), List.end(), before))
        std::sort(List.begin(), List.end(), before);
}

// Where a marker lands when R frames at S become I others: with the frame
// after it while that stays, else after the frame before it; false when
// both go (it was strictly inside the removed frames). A region keeps what
// is left of its own frames, and whatever went in between them; false when
// none is left.
bool MapMarker(const Marker& In, int64_t S, int64_t R, int64_t I, int64_t& OutStart, int64_t& OutEnd)
{
    const int64_t a = In.StartFrame;
    const int64_t b = In.EndFrame;
    if (!In.IsRegion())
    {
        OutStart = OutEnd = a >= S + R ? a + I - R : (a <= S ? a : S);
        return a <= S || a >= S + R;
    }
    OutStart = a < S ? a : (a >= S + R ? a + I - R : S + I);
    OutEnd = b <= S ? b : (b > S + R ? b + I - R : S);
    return OutEnd > OutStart;
}

// Whether the reverse edit (I frames at S back to R) takes Now back to Was.
bool ReverseRestores(const Marker& Now, const Marker& Was, int64_t S, int64_t R, int64_t I)
{
    int64_t start = 0;
    int64_t end = 0;
    return MapMarker(Now, S, I, R, start, end) && start == Was.StartFrame && end == Was.EndFrame &&
           Now.IsRegion() == Was.IsRegion();
}

int64_t Clamped(int64_t Frame, int64_t FrameCount)
{
    return std::clamp<int64_t>(Frame, 0, FrameCount);
}

Marker* FindById(std::vector<Marker>& List, uint64_t Id)
{
    for (Marker& m : List)
        if (m.Id == Id)
            return &m;
    return nullptr;
}
}  // namespace

void GLWaveEdit::EnableMarkers(bool bOn)
{
    if (!bOn)
        pMarkers.reset();
    else if (!pMarkers)
        pMarkers = std::make_shared<MarkerStore>();
}

bool GLWaveEdit::AreMarkersEnabled() const
{
    return pMarkers != nullptr;
}

void GLWaveEdit::MarkersForgetDocument(uint64_t DocumentId)
{
    if (pMarkers)
        pMarkers->PerDocument.erase(DocumentId);
}

// --- Following edits ---

namespace
{
// Moves List through the edit; with the two lists, notes what the reverse
// edit would not restore: the ones removed, and the others it would not put back.
void FollowEdit(std::vector<Marker>& List, int64_t S, int64_t R, int64_t I, std::vector<Marker>* Return,
                std::vector<Marker>* SetBack)
{
    size_t kept = 0;
    for (size_t i = 0; i < List.size(); ++i)
    {
        Marker& m = List[i];
        // Everything before the edit stays: the common case of a long list.
        if (m.EndFrame < S || (m.EndFrame == S && m.IsRegion()))
        {
            if (kept != i)
                List[kept] = std::move(m);
            ++kept;
            continue;
        }
        Marker moved = m;
        if (!MapMarker(m, S, R, I, moved.StartFrame, moved.EndFrame))
        {
            if (Return)
                Return->push_back(std::move(m));
            continue;
        }
        if (SetBack && !ReverseRestores(moved, m, S, R, I))
            SetBack->push_back(m);
        List[kept++] = std::move(moved);
    }
    List.resize(kept);
    SortMarkers(List);
}
}  // namespace

std::shared_ptr<GLWaveEdit::MarkerEditRecord> GLWaveEdit::MarkersFollowEdit(int64_t StartFrame,
                                                                            int64_t RemovedFrames,
                                                                            int64_t InsertedFrames)
{
    if (!pMarkers || RemovedFrames == InsertedFrames)
        return nullptr;
    const auto found = pMarkers->PerDocument.find(ActiveDocumentId());
    if (found == pMarkers->PerDocument.end())
        return nullptr;
    auto record = std::make_shared<MarkerEditRecord>();
    FollowEdit(found->second.List, StartFrame, RemovedFrames, InsertedFrames, &record->Return, &record->SetBack);
    return record->IsEmpty() ? nullptr : record;
}

void GLWaveEdit::MarkersSwapEdit(std::shared_ptr<MarkerEditRecord>& Held, int64_t StartFrame,
                                 int64_t RemovedFrames, int64_t InsertedFrames)
{
    if (!pMarkers || RemovedFrames == InsertedFrames)
        return;
    MarkerStore::DocumentMarkers& doc = pMarkers->PerDocument[ActiveDocumentId()];
    std::vector<Marker>& list = doc.List;
    const std::vector<Marker> before = list;
    FollowEdit(list, StartFrame, RemovedFrames, InsertedFrames, nullptr, nullptr);
    if (Held)
    {
        for (uint64_t id : Held->Drop)
            list.erase(std::remove_if(list.begin(), list.end(), [id](const Marker& m) { return m.Id == id; }),
                       list.end());
        for (const Marker& was : Held->SetBack)
            if (Marker* now = FindById(list, was.Id))
            {
                now->StartFrame = was.StartFrame;
                now->EndFrame = was.EndFrame;
            }
        for (const Marker& was : Held->Return)
            if (!FindById(list, was.Id))
                list.push_back(was);
        SortMarkers(list);
    }

    // What the next swap, the opposite edit, cannot give back by itself.
    auto record = std::make_shared<MarkerEditRecord>();
    std::unordered_map<uint64_t, size_t> indexOf;
    indexOf.reserve(list.size());
    for (size_t i = 0; i < list.size(); ++i)
        indexOf[list[i].Id] = i;
    std::unordered_set<uint64_t> wasThere;
    wasThere.reserve(before.size());
    for (const Marker& was : before)
    {
        wasThere.insert(was.Id);
        const auto now = indexOf.find(was.Id);
        if (now == indexOf.end())
            record->Return.push_back(was);
        else if (!ReverseRestores(list[now->second], was, StartFrame, RemovedFrames, InsertedFrames))
            record->SetBack.push_back(was);
    }
    for (const Marker& now : list)
        if (!wasThere.count(now.Id))
            record->Drop.push_back(now.Id);
    Held = record->IsEmpty() ? nullptr : record;
}

// --- Changes ---

uint64_t GLWaveEdit::AddMarker(int64_t StartFrame, int64_t EndFrame, const std::string& Name)
{
    if (!pMarkers || !bUsePcmFrames || PcmChannels <= 0 || ActiveDocumentId() == 0)
        return 0;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    MarkerStore::DocumentMarkers& doc = pMarkers->PerDocument[ActiveDocumentId()];
    Marker added;
    added.Id = doc.NextId++;
    added.StartFrame = Clamped(StartFrame, frameCount);
    added.EndFrame = std::max(added.StartFrame, Clamped(EndFrame, frameCount));
    added.Name = Name;
    if (added.Name.empty())
    {
        // The next number past both the counter and the ones already there,
        // so that a document opened with markers does not start again at 1.
        const bool region = added.IsRegion();
        int& next = region ? doc.NextRegionNumber : doc.NextMarkerNumber;
        const int count = static_cast<int>(std::count_if(doc.List.begin(), doc.List.end(),
                                                         [region](const Marker& m) { return m.IsRegion() == region; }));
        const int number = std::max(next, count + 1);
        next = number + 1;
        added.Name = (region ? "Region " : "Marker ") + std::to_string(number);
    }
    doc.List.push_back(added);
    SortMarkers(doc.List);
    SignalMarkerChanged.emit(std::string("marker-add"), added);
    return added.Id;
}

bool GLWaveEdit::SetMarker(uint64_t Id, int64_t StartFrame, int64_t EndFrame, const std::string& Name)
{
    if (!pMarkers || PcmChannels <= 0)
        return false;
    const auto found = pMarkers->PerDocument.find(ActiveDocumentId());
    if (found == pMarkers->PerDocument.end())
        return false;
    Marker* target = FindById(found->second.List, Id);
    if (!target)
        return false;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    const int64_t start = Clamped(StartFrame, frameCount);
    const int64_t end = target->IsRegion() ? Clamped(EndFrame, frameCount) : start;
    if (target->IsRegion() && end <= start)
        return false;
    target->StartFrame = start;
    target->EndFrame = end;
    if (!Name.empty())
        target->Name = Name;
    const Marker changed = *target;
    SortMarkers(found->second.List);
    SignalMarkerChanged.emit(std::string("marker-set"), changed);
    return true;
}

bool GLWaveEdit::RemoveMarker(uint64_t Id)
{
    if (!pMarkers)
        return false;
    const auto found = pMarkers->PerDocument.find(ActiveDocumentId());
    if (found == pMarkers->PerDocument.end())
        return false;
    std::vector<Marker>& list = found->second.List;
    const auto target = std::find_if(list.begin(), list.end(), [Id](const Marker& m) { return m.Id == Id; });
    if (target == list.end())
        return false;
    const Marker removed = *target;
    list.erase(target);
    SignalMarkerChanged.emit(std::string("marker-remove"), removed);
    return true;
}

// No signal: a replay repeats what a journal already holds.
bool GLWaveEdit::ReplayMarkerChange(const std::string& Kind, const Marker& What)
{
    if (!pMarkers || !bUsePcmFrames || PcmChannels <= 0 || ActiveDocumentId() == 0)
        return false;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    MarkerStore::DocumentMarkers& doc = pMarkers->PerDocument[ActiveDocumentId()];
    Marker* existing = FindById(doc.List, What.Id);
    const bool fits = What.StartFrame >= 0 && What.EndFrame >= What.StartFrame && What.EndFrame <= frameCount;
    if (Kind == "marker-add" && !existing && fits && What.Id > 0)
    {
        doc.List.push_back(What);
        doc.NextId = std::max(doc.NextId, What.Id + 1);
    }
    else if (Kind == "marker-set" && existing && fits && What.IsRegion() == existing->IsRegion())
        *existing = What;
    else if (Kind == "marker-remove" && existing)
        doc.List.erase(doc.List.begin() + (existing - doc.List.data()));
    else
        return false;
    SortMarkers(doc.List);
    return true;
}

// --- Queries ---

const std::vector<GLWaveEdit::Marker>& GLWaveEdit::ActiveMarkers() const
{
    if (!pMarkers)
        return kNoMarkers;
    const auto found = pMarkers->PerDocument.find(ActiveDocumentId());
    return found == pMarkers->PerDocument.end() ? kNoMarkers : found->second.List;
}

std::vector<GLWaveEdit::Marker> GLWaveEdit::MarkersOf(uint64_t DocumentId) const
{
    if (!pMarkers)
        return {};
    const auto found = pMarkers->PerDocument.find(DocumentId);
    return found == pMarkers->PerDocument.end() ? std::vector<Marker>() : found->second.List;
}
