// TEMPORARY local stand-in (not committed): decodes through the editor.
#include "audio_decode.h"
#include <sys/stat.h>
#include "glwaveedit.h"
bool DecodeAudioFile(const std::string& Path, const DecodeControl& Control, DecodedAudio& Out, std::string* ErrorMessage)
{
    struct stat st;
    if (stat(Path.c_str(), &st) != 0) { if (ErrorMessage) *ErrorMessage = "File not found."; return false; }
    GLWaveEdit editor;
    editor.SetExternalPeakWaveform(Path, {}, 0.0);
    if (editor.ActiveFrames().empty()) { if (ErrorMessage) *ErrorMessage = "Not an audio file."; return false; }
    Out.Frames = editor.ActiveFrames();
    Out.CodecName = "stub"; Out.SourceSampleRate = 48000; Out.SourceChannels = 2;
    if (Control.pProgress) Control.pProgress->store(1.0);
    return true;
}
