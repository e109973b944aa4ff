// GLWaveEdit extension: the tab list seen from the host. Read-only views and
// direct moves for a host that keeps its own bookkeeping per tab; the ids stay
// with their tab when others close, so they can key that bookkeeping.

#include "glwaveedit.h"

int GLWaveEdit::DocumentCount() const
{
    return static_cast<int>(Documents.size());
}

int GLWaveEdit::ActiveDocument() const
{
    return ActiveDocumentIndex;
}

uint64_t GLWaveEdit::DocumentIdAt(int Index) const
{
    if (Index < 0 || Index >= static_cast<int>(DocumentIds.size()))
        return 0;
    return DocumentIds[static_cast<size_t>(Index)];
}

// The active tab's record may be older than its mirror, so its path comes
// from the mirror.
std::string GLWaveEdit::DocumentPathAt(int Index) const
{
    if (Index < 0 || Index >= static_cast<int>(Documents.size()))
        return std::string();
    return Index == ActiveDocumentIndex ? SourceFilePath : Documents[static_cast<size_t>(Index)].SourceFilePath;
}

void GLWaveEdit::ActivateDocument(int Index)
{
    if (Index != ActiveDocumentIndex)
        LoadActiveDocument(Index);
}

void GLWaveEdit::CloseDocumentAt(int Index)
{
    CloseDocument(Index);
}

const std::vector<float>& GLWaveEdit::ActiveFrames() const
{
    return PcmFrames;
}

int GLWaveEdit::ActiveChannels() const
{
    return PcmChannels;
}

int GLWaveEdit::ActiveSampleRate() const
{
    return PcmSampleRate;
}
