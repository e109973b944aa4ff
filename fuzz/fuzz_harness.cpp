// The fuzz inputs' road into the editor; see fuzz_harness.h.
//
// Index: Host, Import, Promises, Restored state.

#include "fuzz_harness.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio_decode.h"
#include "audio_decode_core.h"
#include "core.h"
#include "glwaveedit.h"
#include "sdl_compat.h"

namespace GLWaveEditFuzz
{
namespace
{
// --- Host ---

// A shell for one input: screen, pointer and root object as the global p,
// and an editor with a window of its own in it.
struct Rig
{
    Core Host;
    GLWaveEdit Editor;

    Rig()
    {
        Host.CreateParts();
        Host.pCoreSDL->Width = 800;
        Host.pCoreSDL->Height = 600;
        p = &Host;
        Host.pTarvik->Windows.push_back(&Editor);
        Editor.X1 = -0.9, Editor.X2 = 0.9, Editor.Y1 = 0.9, Editor.Y2 = -0.9;
        SDL_SetModState(KMOD_NONE);
    }
    ~Rig()
    {
        SDL_SetModState(KMOD_NONE);
        p = nullptr;
    }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    void Pass(double X, double Y, bool bLeft, bool bMiddle)
    {
        Mouse& pointer = *Host.pMouse;
        pointer.BeginFrame();
        pointer.X3D = X;
        pointer.Y3D = Y;
        pointer.pButton[0] = bLeft;
        pointer.pButton[1] = bMiddle;
        Editor.MouseProcessing();
    }
};

// A seek drag, a shift drag, a pan and wheel steps over the plot, with the
// promises checked after each pass.
void DrivePasses(Rig& R)
{
    R.Pass(0.0, 0.0, false, false);
    CheckPromises(R.Editor, "hover");
    const double xs[] = {-0.5, 0.2, 0.85, -0.95};
    SDL_SetModState(KMOD_NONE);
    for (double x : xs)
        R.Pass(x, 0.0, true, false);
    R.Pass(0.1, 0.0, false, false);
    CheckPromises(R.Editor, "seek drag");
    SDL_SetModState(KMOD_LSHIFT);
    for (double x : xs)
        R.Pass(x, 0.0, true, false);
    R.Pass(0.3, 0.0, false, false);
    SDL_SetModState(KMOD_NONE);
    CheckPromises(R.Editor, "shift drag");
    for (double x : xs)
        R.Pass(x, 0.0, false, true);
    R.Pass(0.0, 0.0, false, false);
    CheckPromises(R.Editor, "pan");
    R.Editor.EventMouseClick(3, 0.1, 0.0);
    R.Editor.EventMouseClick(4, 0.7, 0.0);
    R.Pass(0.0, 0.0, false, false);
    CheckPromises(R.Editor, "wheel");
}

// Two seconds of stereo frames that ramp up and down within full scale.
std::vector<float> TwoSeconds()
{
    std::vector<float> frames(2 * 96000);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = static_cast<float>((i % 200) / 100.0 - 1.0);
    return frames;
}

// --- Import ---

// One file per process, rewritten for every input and removed at exit.
class ScratchFile
{
public:
    ScratchFile()
    {
        char pattern[] = "/tmp/glwe-fuzz-import-XXXXXX";
        const int fd = mkstemp(pattern);
        if (fd < 0)
        {
            std::perror("mkstemp");
            std::abort();
        }
        close(fd);
        Path = pattern;
    }
    ~ScratchFile() { std::remove(Path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& Write(const uint8_t* Data, size_t Size)
    {
        FILE* file = std::fopen(Path.c_str(), "wb");
        if (!file || (Size > 0 && std::fwrite(Data, 1, Size, file) != Size) || std::fclose(file) != 0)
        {
            std::perror(Path.c_str());
            std::abort();
        }
        return Path;
    }

private:
    std::string Path;
};

// Float WAVs carry infinities and NaN: equal values agree whatever they are.
bool SameSample(float A, float B, float Tolerance)
{
    return A == B || std::fabs(A - B) <= Tolerance || (std::isnan(A) && std::isnan(B));
}

void Differs(const char* What, const std::string& First, const std::string& Second)
{
    std::fprintf(stderr, "%s: \"%s\" / \"%s\"\n", What, First.c_str(), Second.c_str());
    std::abort();
}

// The program's decoder on one thread and in halves (forced on any file that
// says how long it is) must agree on the outcome, the message and every
// sample: the second half is only ever joined where it gives what a decoding
// from the start gives. The editor's import must then fail at the same step,
// or give the same frames, sample for sample, less the resampler's tail; a
// file the program refuses by a limit of its own never reaches the editor.
void DecodeEveryWay(const std::string& Path)
{
    using AudioDecodeCore::Step;
    DecodeControl oneThread, halves;
    Step wholeStep = Step::None;
    oneThread.Threads = 1;
    oneThread.pFailedStep = &wholeStep;
    halves.HalvesFromSec = 0.0;
    DecodedAudio whole, joined;
    std::string wholeError, joinedError;
    const bool bWhole = DecodeAudioFile(Path, oneThread, whole, &wholeError);
    const bool bJoined = DecodeAudioFile(Path, halves, joined, &joinedError);
    bool bSame = bWhole == bJoined && wholeError == joinedError && whole.Frames.size() == joined.Frames.size();
    for (size_t i = 0; bSame && i < whole.Frames.size(); ++i)
        bSame = SameSample(whole.Frames[i], joined.Frames[i], 1e-6f);
    if (!bSame)
        Differs(("decoded in halves (seam at frame " + std::to_string(joined.SecondHalfFromFrame) +
                 ") differs from one thread").c_str(),
                wholeError, joinedError);

    if (wholeStep == Step::OwnLimit)
        return;
    std::vector<float> imported;
    std::string importError;
    const bool bImported = EditorImport::Decode(Path, imported, &importError);
    const std::string expectedError = bWhole ? "" : EditorImport::FailureMessage(wholeStep);
    if (bImported != bWhole || importError != expectedError)
        Differs("the import's outcome differs from the program's decoder", importError,
                bWhole ? "decoded" : wholeError);
    const size_t commonFloats = whole.Frames.size() - whole.TailFrames * 2;
    bSame = !bWhole || imported.size() == commonFloats;
    for (size_t i = 0; bSame && i < imported.size(); ++i)
        bSame = SameSample(imported[i], whole.Frames[i], 0.0f);
    if (!bSame)
        Differs("the import's frames differ from the program's decoder",
                std::to_string(imported.size() / 2) + " frames",
                std::to_string(commonFloats / 2) + " frames and a tail of " + std::to_string(whole.TailFrames));
}
}  // namespace

void ImportOnce(const uint8_t* Data, size_t Size)
{
    // As the program does at start: FFmpeg's allocations are capped.
    static const bool bCapped = (CapFfmpegAllocations(), true);
    (void)bCapped;
    static ScratchFile scratch;
    const std::string& path = scratch.Write(Data, Size);
    Rig rig;
    rig.Editor.SetExternalPeakWaveform(path, {0.5f, 1.0f, 0.25f}, 3.0);
    DrivePasses(rig);
    rig.Editor.SetHostedSelection(0.01, 0.2);
    rig.Editor.ApplyGainPercent(150.0);
    rig.Editor.RequestCutSelection();
    rig.Editor.RequestPasteAtSelection();
}

void DecodeOnce(const uint8_t* Data, size_t Size)
{
    static const bool bCapped = (CapFfmpegAllocations(), true);
    (void)bCapped;
    static ScratchFile scratch;
    DecodeEveryWay(scratch.Write(Data, Size));
}

// --- Promises ---

// What every pass promises for finite state: the view obeys ClampView's
// rule and a selection lies within the document. Its clamps are documented
// for finite values only, so NaN and infinities are let through.
bool CheckPromises(const GLWaveEdit& Editor, const char* Where, bool bSelection)
{
    const double start = Editor.ViewStartSec;
    const double end = Editor.ViewEndSec;
    if (!std::isfinite(Editor.DurationSec) || !std::isfinite(Editor.MinViewSpanSec) || !std::isfinite(start) ||
        !std::isfinite(end))
        return false;
    const double duration = std::max(0.0, Editor.DurationSec);
    const double minSpan = std::max(Editor.MinViewSpanSec, 0.01);
    const double tolerance = 1e-9 * std::max(1.0, duration);
    const bool clamped = minSpan >= duration ? start == 0.0 && end == std::max(duration, minSpan)
                                             : start >= 0.0 && end <= duration + tolerance &&
                                                   end - start >= minSpan - tolerance;
    const bool selectionInside = !bSelection || !Editor.HasSelection() ||
                                 (Editor.SelectionStartSec() >= 0.0 && Editor.SelectionEndSec() <= duration);
    if (!clamped || !selectionInside)
    {
        std::fprintf(stderr, "%s: view %.17g..%.17g, selection %.17g..%.17g, duration %.17g\n", Where, start, end,
                     Editor.SelectionStartSec(), Editor.SelectionEndSec(), Editor.DurationSec);
        std::abort();
    }
    return true;
}

// --- Restored state ---

void RestoreStateOnce(const uint8_t* Data, size_t Size)
{
    const nlohmann::json state = nlohmann::json::parse(Data, Data + Size, nullptr, false);
    if (state.is_discarded())
        return;
    // A document of two seconds, and the fresh untitled one of no length.
    for (const bool withAudio : {true, false})
    {
        Rig rig;
        if (withAudio)
            rig.Editor.AdoptDecodedDocument("fuzz.wav", TwoSeconds());
        else
            rig.Editor.NewUntitledDocument();
        rig.Editor.ApplyExtraState(state);
        DrivePasses(rig);
        nlohmann::json saved;
        rig.Editor.SerializeExtraState(saved);
    }
}
}  // namespace GLWaveEditFuzz
