// GLWaveEdit extension: one journalled edit repeated through the operations
// that made it. The journal keeps frames, not seconds: a frame number f over
// the rate and back through the edits' llround gives f again, so the replay
// acts on exactly the frames the edit did. A replay leaves the user's own
// things as they were (the clipboard, the time under the pointer), and ends
// with the selection of its edit announced like any other.

#include "glwaveedit.h"

bool GLWaveEdit::ReplayEdit(const std::string& Kind, int64_t StartFrame, int64_t EndFrame, double Percent,
                            const std::vector<float>& Inserted)
{
    if (Kind == "undo")
        return Undo();
    if (Kind == "redo")
        return Redo();
    if (!bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return false;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    if (StartFrame < 0 || EndFrame < StartFrame || EndFrame > frameCount)
        return false;
    const double startSec = static_cast<double>(StartFrame) / PcmSampleRate;
    const double endSec = static_cast<double>(EndFrame) / PcmSampleRate;
    if (Kind == "cut" || Kind == "delete")
    {
        SelectionStartValueSec = startSec;
        SelectionEndValueSec = endSec;
        if (!HasSelection())
            return false;
        Kind == "cut" ? RequestCutSelection() : RequestDeleteSelection();
        return true;
    }
    if (Kind == "gain")
    {
        // A gain on the whole document was made without a selection.
        const bool whole = StartFrame == 0 && EndFrame == frameCount;
        SelectionStartValueSec = whole ? 0.0 : startSec;
        SelectionEndValueSec = whole ? 0.0 : endSec;
        const bool applied = ApplyGainPercent(Percent);
        EmitSelectionChanged();
        return applied;
    }
    if (Kind == "paste")
    {
        if (Inserted.empty() || Inserted.size() % static_cast<size_t>(PcmChannels) != 0)
            return false;
        SelectionStartValueSec = startSec;
        SelectionEndValueSec = endSec;
        // The paste goes through the clipboard and, without a selection, the
        // time under the pointer: both are the user's, and come back after.
        std::vector<float> userClipboard;
        userClipboard.swap(ClipboardFrames);
        const int userClipboardRate = ClipboardSampleRate;
        const int userClipboardChannels = ClipboardChannels;
        const double userHoverSec = HoverTimeSec;
        ClipboardFrames = Inserted;
        ClipboardSampleRate = PcmSampleRate;
        ClipboardChannels = PcmChannels;
        HoverTimeSec = startSec;
        RequestPasteAtSelection();
        ClipboardFrames.swap(userClipboard);
        ClipboardSampleRate = userClipboardRate;
        ClipboardChannels = userClipboardChannels;
        HoverTimeSec = userHoverSec;
        return true;
    }
    return false;
}
