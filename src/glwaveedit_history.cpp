// GLWaveEdit extension: edit history. Off until the host turns it on; then
// every cut, paste, delete and gain can be undone and redone, sample exact.
//
// A step keeps only what its edit took away: the frames a cut or delete
// removed, the frames a paste replaced, the frames a gain changed. Undo puts
// them back and keeps, in their place, what the edit had put there, so the
// same step serves redo. Every kind of step is one region swap: at StartFrame
// the document holds a region of one length, the step holds the other.
//
// Sections: State, Capture, Undo and redo, Queries.

#include <algorithm>
#include <deque>
#include <unordered_map>

#include "glwaveedit.h"
#include "large_buffer.h"

// --- State ---

struct GLWaveEdit::EditHistory
{
    struct ViewAndSelection
    {
        double ViewStartSec = 0.0;
        double ViewEndSec = 0.0;
        double SelectionStartSec = 0.0;  // raw pair, as the mirror holds it
        double SelectionEndSec = 0.0;
        bool bValid = false;
    };

    struct Step
    {
        uint64_t Id = 0;
        int64_t StartFrame = 0;
        int64_t OldFrames = 0;     // length of the region before the edit
        int64_t NewFrames = 0;     // length of the region after it
        std::vector<float> Held;   // applied: the old region; undone: the new one
        std::shared_ptr<MarkerEditRecord> Markers;  // what the markers need back; null: nothing
        ViewAndSelection Before;   // what the edit had, brought back by undo
        ViewAndSelection After;    // what undo found, brought back by redo
        size_t Bytes() const { return Held.capacity() * sizeof(float); }
    };

    struct DocumentSteps
    {
        std::deque<Step> Steps;  // oldest first
        size_t Applied = 0;      // Steps[0 .. Applied) are in the audio
        uint64_t BaseId = 0;     // the state id before Steps[0]
        bool bDropped = false;   // older steps went to the cap
    };

    size_t CapBytes = 0;
    size_t TotalBytes = 0;
    uint64_t NextStepId = 1;
    std::unordered_map<uint64_t, DocumentSteps> PerDocument;

    void Release(Step& S)
    {
        TotalBytes -= S.Bytes();
        std::vector<float>().swap(S.Held);
    }

    // Drops the steps that can no longer be redone.
    void DropRedoTail(DocumentSteps& Doc)
    {
        while (Doc.Steps.size() > Doc.Applied)
        {
            Release(Doc.Steps.back());
            Doc.Steps.pop_back();
        }
    }

    // The document whose oldest step is the oldest of all, or null.
    DocumentSteps* OldestHolder()
    {
        DocumentSteps* oldest = nullptr;
        for (auto& entry : PerDocument)
            if (!entry.second.Steps.empty() &&
                (!oldest || entry.second.Steps.front().Id < oldest->Steps.front().Id))
                oldest = &entry.second;
        return oldest;
    }

    // Oldest steps first, across all documents, until the cap holds. A step
    // that is undone cannot go alone: its document's redo chain goes with it.
    void EnforceCap()
    {
        while (TotalBytes > CapBytes)
        {
            DocumentSteps* doc = OldestHolder();
            if (!doc)
                return;
            doc->bDropped = true;
            if (doc->Applied == 0)
            {
                DropRedoTail(*doc);
                continue;
            }
            doc->BaseId = doc->Steps.front().Id;
            Release(doc->Steps.front());
            doc->Steps.pop_front();
            --doc->Applied;
        }
    }
};

void GLWaveEdit::EnableEditHistory(size_t CapBytes)
{
    if (CapBytes == 0)
    {
        pEditHistory.reset();
        return;
    }
    if (!pEditHistory)
        pEditHistory = std::make_shared<EditHistory>();
    pEditHistory->CapBytes = CapBytes;
    pEditHistory->EnforceCap();
}

bool GLWaveEdit::IsEditHistoryEnabled() const
{
    return pEditHistory != nullptr;
}

void GLWaveEdit::HistoryForgetDocument(uint64_t DocumentId)
{
    if (!pEditHistory)
        return;
    const auto found = pEditHistory->PerDocument.find(DocumentId);
    if (found == pEditHistory->PerDocument.end())
        return;
    for (EditHistory::Step& step : found->second.Steps)
        pEditHistory->Release(step);
    pEditHistory->PerDocument.erase(found);
}

// --- Capture ---
// Called by the edits just before they change the frames; the edit always
// goes through once its hook has run.

void GLWaveEdit::RecordEdit(const EditRecord& Edit)
{
    LastEditRecord = Edit;
    HistoryBeforeChange(Edit);
}

const GLWaveEdit::EditRecord& GLWaveEdit::LastEdit() const
{
    return LastEditRecord;
}

// The region at Edit.StartFrame is about to lose Edit.RemovedFrames frames to
// Edit.InsertedFrames others (a cut or delete inserts none, a gain as many as
// it removes, a paste the clipboard's); the step keeps the removed ones.
void GLWaveEdit::HistoryBeforeChange(const EditRecord& Edit)
{
    // Markers follow every edit, kept in the history or not.
    std::shared_ptr<MarkerEditRecord> markerRecord =
        MarkersFollowEdit(Edit.StartFrame, Edit.RemovedFrames, Edit.InsertedFrames);
    const int64_t oldEndFrame = Edit.StartFrame + Edit.RemovedFrames;
    const uint64_t documentId = ActiveDocumentId();
    if (!pEditHistory || documentId == 0 || PcmChannels <= 0)
        return;
    EditHistory& history = *pEditHistory;
    EditHistory::DocumentSteps& doc = history.PerDocument[documentId];
    history.DropRedoTail(doc);
    // A step larger than the whole cap could not be kept: rather than copy
    // it only to drop it, the document's history ends here.
    const size_t stepBytes = static_cast<size_t>(Edit.RemovedFrames) * PcmChannels * sizeof(float);
    if (stepBytes > history.CapBytes)
    {
        for (EditHistory::Step& step : doc.Steps)
            history.Release(step);
        doc.Steps.clear();
        doc.Applied = 0;
        doc.BaseId = history.NextStepId++;
        doc.bDropped = true;
        return;
    }

    EditHistory::Step step;
    step.Id = history.NextStepId++;
    step.StartFrame = Edit.StartFrame;
    step.OldFrames = Edit.RemovedFrames;
    step.NewFrames = Edit.InsertedFrames;
    LargeBuffer::AssignFloats(step.Held, PcmFrames.data() + Edit.StartFrame * PcmChannels,
                              PcmFrames.data() + oldEndFrame * PcmChannels);
    step.Before = {ViewStartSec, ViewEndSec, SelectionStartValueSec, SelectionEndValueSec, true};
    step.Markers = std::move(markerRecord);
    history.TotalBytes += step.Bytes();
    doc.Steps.push_back(std::move(step));
    doc.Applied = doc.Steps.size();
    history.EnforceCap();
}

// --- Undo and redo ---

// Swaps the CurrentFrames-long region at StartFrame with Held: the document
// gets Held's frames, Held gets the region's. One move of the tail at most.
static void SwapRegion(std::vector<float>& Frames, int Channels, int64_t StartFrame, int64_t CurrentFrames,
                       std::vector<float>& Held)
{
    const size_t start = static_cast<size_t>(StartFrame) * Channels;
    const size_t currentLen = static_cast<size_t>(CurrentFrames) * Channels;
    const size_t heldLen = Held.size();
    if (heldLen == currentLen)
    {
        std::swap_ranges(Held.begin(), Held.end(), Frames.begin() + start);
        return;
    }
    std::vector<float> taken;
    LargeBuffer::AssignFloats(taken, Frames.data() + start, Frames.data() + start + currentLen);
    if (heldLen > currentLen)
    {
        const size_t needed = Frames.size() + heldLen - currentLen;
        if (Frames.capacity() < needed)
            LargeBuffer::ReserveFloats(Frames, needed);
        Frames.insert(Frames.begin() + start + currentLen, heldLen - currentLen, 0.0f);
        std::copy(Held.begin(), Held.end(), Frames.begin() + start);
    }
    else
    {
        std::copy(Held.begin(), Held.end(), Frames.begin() + start);
        Frames.erase(Frames.begin() + start + heldLen, Frames.begin() + start + currentLen);
    }
    Held.swap(taken);
}

bool GLWaveEdit::Undo()
{
    if (!CanUndo())
        return false;
    EditHistory& history = *pEditHistory;
    EditHistory::DocumentSteps& doc = history.PerDocument[ActiveDocumentId()];
    EditHistory::Step& step = doc.Steps[doc.Applied - 1];

    LastEditRecord = {EditKind::Undo, step.StartFrame, step.NewFrames, step.OldFrames};
    history.TotalBytes -= step.Bytes();
    SwapRegion(PcmFrames, PcmChannels, step.StartFrame, step.NewFrames, step.Held);
    history.TotalBytes += step.Bytes();
    --doc.Applied;
    MarkersSwapEdit(step.Markers, step.StartFrame, step.NewFrames, step.OldFrames);
    NoteFramesChanged(step.StartFrame, step.OldFrames == step.NewFrames ? step.StartFrame + step.OldFrames : -1);
    DurationSec = static_cast<double>(PcmFrames.size() / static_cast<size_t>(PcmChannels)) / PcmSampleRate;

    step.After = {ViewStartSec, ViewEndSec, SelectionStartValueSec, SelectionEndValueSec, true};
    ViewStartSec = step.Before.ViewStartSec;
    ViewEndSec = step.Before.ViewEndSec;
    SelectionStartValueSec = step.Before.SelectionStartSec;
    SelectionEndValueSec = step.Before.SelectionEndSec;
    const double spanStartSec = static_cast<double>(step.StartFrame) / PcmSampleRate;
    const double spanEndSec = static_cast<double>(step.StartFrame + step.OldFrames) / PcmSampleRate;
    FinishEdit("undo", spanStartSec, spanEndSec);
    // Undo grew a step by what the edit had put there; the cap still holds.
    history.EnforceCap();
    return true;
}

bool GLWaveEdit::Redo()
{
    if (!CanRedo())
        return false;
    EditHistory& history = *pEditHistory;
    EditHistory::DocumentSteps& doc = history.PerDocument[ActiveDocumentId()];
    EditHistory::Step& step = doc.Steps[doc.Applied];

    LastEditRecord = {EditKind::Redo, step.StartFrame, step.OldFrames, step.NewFrames};
    history.TotalBytes -= step.Bytes();
    SwapRegion(PcmFrames, PcmChannels, step.StartFrame, step.OldFrames, step.Held);
    history.TotalBytes += step.Bytes();
    ++doc.Applied;
    MarkersSwapEdit(step.Markers, step.StartFrame, step.OldFrames, step.NewFrames);
    NoteFramesChanged(step.StartFrame, step.OldFrames == step.NewFrames ? step.StartFrame + step.NewFrames : -1);
    DurationSec = static_cast<double>(PcmFrames.size() / static_cast<size_t>(PcmChannels)) / PcmSampleRate;

    if (step.After.bValid)
    {
        ViewStartSec = step.After.ViewStartSec;
        ViewEndSec = step.After.ViewEndSec;
        SelectionStartValueSec = step.After.SelectionStartSec;
        SelectionEndValueSec = step.After.SelectionEndSec;
    }
    const double spanStartSec = static_cast<double>(step.StartFrame) / PcmSampleRate;
    const double spanEndSec = static_cast<double>(step.StartFrame + std::max(step.NewFrames, step.OldFrames)) /
                              PcmSampleRate;
    FinishEdit("redo", spanStartSec, spanEndSec);
    history.EnforceCap();
    return true;
}

// --- Queries ---

bool GLWaveEdit::CanUndo() const
{
    if (!pEditHistory || !bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return false;
    const auto found = pEditHistory->PerDocument.find(ActiveDocumentId());
    return found != pEditHistory->PerDocument.end() && found->second.Applied > 0;
}

bool GLWaveEdit::CanRedo() const
{
    if (!pEditHistory || !bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return false;
    const auto found = pEditHistory->PerDocument.find(ActiveDocumentId());
    return found != pEditHistory->PerDocument.end() && found->second.Applied < found->second.Steps.size();
}

uint64_t GLWaveEdit::EditStateId() const
{
    return EditStateIdOf(ActiveDocumentId());
}

uint64_t GLWaveEdit::EditStateIdOf(uint64_t DocumentId) const
{
    if (!pEditHistory)
        return 0;
    const auto found = pEditHistory->PerDocument.find(DocumentId);
    if (found == pEditHistory->PerDocument.end())
        return 0;
    const EditHistory::DocumentSteps& doc = found->second;
    return doc.Applied > 0 ? doc.Steps[doc.Applied - 1].Id : doc.BaseId;
}

bool GLWaveEdit::HistoryDroppedSteps() const
{
    if (!pEditHistory)
        return false;
    const auto found = pEditHistory->PerDocument.find(ActiveDocumentId());
    return found != pEditHistory->PerDocument.end() && found->second.bDropped;
}

size_t GLWaveEdit::HistoryBytes() const
{
    return pEditHistory ? pEditHistory->TotalBytes : 0;
}
