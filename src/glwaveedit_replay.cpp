// GLWaveEdit extension: one journalled edit repeated through the operations
// that made it. The journal keeps frames, not seconds: a frame number f over
// the rate and back through the edits' llround gives f again, so the replay
// acts on exactly the frames the edit did.

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
    SelectionStartValueSec = startSec;
    SelectionEndValueSec = endSec;
    if (Kind == "cut" || Kind == "delete")
    {
        if (!HasSelection())
            return false;
        Kind == "cut" ? RequestCutSelection() : RequestDeleteSelection();
        return true;
    }
    if (Kind == "gain")
        return ApplyGainPercent(Percent);
    if (Kind == "paste")
    {
        if (Inserted.empty() || Inserted.size() % static_cast<size_t>(PcmChannels) != 0)
            return false;
        ClipboardFrames = Inserted;
        ClipboardSampleRate = PcmSampleRate;
        ClipboardChannels = PcmChannels;
        // Without a selection a paste goes to the time under the pointer.
        HoverTimeSec = startSec;
        RequestPasteAtSelection();
        return true;
    }
    return false;
}
