// Hostile input: long random runs (fixed seeds) of the editor's public calls,
// pointer states, mouse events, wheel steps and keys, fed NaN, infinities,
// huge values, broken window rectangles, a zero-sized screen, lying
// providers and hundreds of tabs opened and closed while playing. After every
// step the editor's promises are checked: a valid active tab, a clamped view
// after a pass, records that agree with the mirror after a store, and no
// sample beyond full scale after a gain. Crashes, hangs and leaks show as a
// failed run (the ASan build runs this file too); a broken view promise
// aborts, naming its step.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "fuzz_harness.h"
#include "sdl_compat.h"
#include "test_support.h"

namespace
{
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr int kMaxTabs = 200;
constexpr int kStepsPerRun = 4000;
constexpr uint64_t kSeeds[] = {1, 0x5eed, 20240611, 77, 4242};

// NaN equals NaN here: the record is a copy of the mirror, bit for bit.
bool SameDouble(double A, double B)
{
    return A == B || (std::isnan(A) && std::isnan(B));
}

bool SameFloats(const std::vector<float>& A, const std::vector<float>& B)
{
    return A.size() == B.size() && (A.empty() || std::memcmp(A.data(), B.data(), A.size() * sizeof(float)) == 0);
}

class Soak
{
public:
    explicit Soak(uint64_t Seed) : Random(Seed)
    {
        Host.Root().Windows.push_back(&Editor);
        Editor.Init();
        ValidWindow();
        // One real decode in the mix; every other tab is synthesised.
        WavPath = MakeFfmpegFixture("soak.wav", "-f lavfi -i sine=frequency=300:duration=0.25 -ac 2 -ar 48000");
    }
    ~Soak() { Editor.Destroy(); }

    // One random step; false once a check has failed.
    bool Step(uint64_t Index)
    {
        const std::vector<Action>& actions = Actions();
        const Action& action = actions[Pick(actions.size())];
        CurrentAction = action.Name;
        StepIndex = Index;
        (this->*action.Run)();
        CheckActiveIndex();
        return !testing::Test::HasFailure();
    }

    int MaxTabsSeen = 0;
    int ViewChecks = 0;  // passes whose state was finite enough to check
    int GainChecks = 0;

private:
    struct Action
    {
        const char* Name;
        void (Soak::*Run)();
    };
    static const std::vector<Action>& Actions();

    TestHost Host{1000, 700};
    GLWaveEdit Editor;
    std::mt19937_64 Random;
    std::string WavPath;
    const char* CurrentAction = "";
    uint64_t StepIndex = 0;

    // --- Random values ---

    size_t Pick(size_t Count) { return std::uniform_int_distribution<size_t>(0, Count - 1)(Random); }
    bool Chance(double P) { return std::uniform_real_distribution<double>(0.0, 1.0)(Random) < P; }
    // Lo..Hi, or -1.0..1.0 where the editor's own state gives no usable span.
    double Uniform(double Lo, double Hi)
    {
        if (!(Lo < Hi) || !std::isfinite(Hi - Lo))
            Lo = -1.0, Hi = 1.0;
        return std::uniform_real_distribution<double>(Lo, Hi)(Random);
    }

    // Mostly ordinary values near the document, now and then the worst a
    // double can hold.
    double HostileDouble(double Ordinary)
    {
        static const double kWorst[] = {kNaN, kInf, -kInf, DBL_MAX, -DBL_MAX, 1e300, -1e300, DBL_MIN, -0.0, 1e-300};
        if (Chance(0.25))
            return kWorst[Pick(sizeof(kWorst) / sizeof(kWorst[0]))];
        return Ordinary;
    }
    double AnyTime() { return HostileDouble(Uniform(-1.0, std::max(Editor.DurationSec, 0.5) * 1.3)); }
    double AnyCoordinate() { return HostileDouble(Uniform(-1.2, 1.2)); }

    std::vector<float> SomeFrames()
    {
        const size_t frames = Pick(24000) + (Chance(0.1) ? 0 : 1);
        std::vector<float> samples(frames * 2 + (Chance(0.05) ? 1 : 0));
        const bool wild = Chance(0.2);
        for (float& s : samples)
        {
            s = static_cast<float>(Uniform(-1.0, 1.0));
            if (wild && Chance(0.01))
            {
                static const float kWild[] = {std::numeric_limits<float>::quiet_NaN(),
                                              std::numeric_limits<float>::infinity(), -FLT_MAX, 40.0f};
                s = kWild[Pick(4)];
            }
        }
        return samples;
    }

    // --- Window and host ---

    void ValidWindow()
    {
        Editor.X1 = -0.9, Editor.X2 = 0.9, Editor.Y1 = 0.9, Editor.Y2 = -0.9;
    }

    void BreakWindow()
    {
        if (Chance(0.3))
            return ValidWindow();
        double* const edges[] = {&Editor.X1, &Editor.Y1, &Editor.X2, &Editor.Y2};
        *edges[Pick(4)] = HostileDouble(Uniform(-2.0, 2.0));
    }

    void BreakScreen()
    {
        static const int kSizes[] = {0, -1, 1, 3, 700, 1000, 100000, std::numeric_limits<int>::max(),
                                     std::numeric_limits<int>::min()};
        (Chance(0.5) ? Host.Host.pCoreSDL->Width : Host.Host.pCoreSDL->Height) = kSizes[Pick(9)];
        if (Chance(0.3))
            Host.Host.pCoreSDL->Width = 1000, Host.Host.pCoreSDL->Height = 700;
    }

    void SetField()
    {
        double* const fields[] = {&Editor.DurationSec,  &Editor.CurrentTimeSec, &Editor.PreviewTimeSec,
                                  &Editor.ViewStartSec, &Editor.ViewEndSec,     &Editor.BorderWidth,
                                  &Editor.PaddingPx,    &Editor.LabelBandPx,    &Editor.WheelZoomStep,
                                  &Editor.MinViewSpanSec};
        const size_t which = Pick(sizeof(fields) / sizeof(fields[0]));
        *fields[which] = HostileDouble(which < 5 ? AnyTime() : Uniform(-1.0, 30.0));
        if (Chance(0.2))
            Editor.FontPx = static_cast<int>(Pick(200)) - 50;
        if (Chance(0.1))
            Editor.DesiredXTicks = static_cast<int>(Pick(100)) - 10;
    }

    // Sane settings again, so that a run spends most steps on usable state.
    void Heal()
    {
        Editor.MinViewSpanSec = 0.1, Editor.WheelZoomStep = 0.22, Editor.PaddingPx = 8.0;
        Editor.BorderWidth = 5.0, Editor.LabelBandPx = 20.0;
        Editor.bEnabled = true, Editor.bVisible = true;
        ValidWindow();
        Host.Host.pCoreSDL->Width = 1000, Host.Host.pCoreSDL->Height = 700;
        Editor.FitViewToData();
    }

    void SetProviders()
    {
        const double value = HostileDouble(Uniform(-2.0, 2.0));
        const float amp = static_cast<float>(value);
        const bool answer = Chance(0.7);
        switch (Pick(7))
        {
        case 0: Editor.HasWaveformProvider = [answer] { return answer; }; break;
        case 1: Editor.WaveformPeakProvider = [amp](double, double) { return amp; }; break;
        case 2:
            Editor.WaveformRangeProvider = [amp, answer](double, double, float& Min, float& Max) {
                Min = -amp, Max = amp * 0.5f;
                return answer;
            };
            break;
        case 3:
            Editor.WaveformLodProvider = [value, answer](double A, double B, int N, std::vector<GLWaveEdit::WaveSample>& Out) {
                Out.assign(static_cast<size_t>(std::clamp(N, 0, 64)), GLWaveEdit::WaveSample{A, -value, value});
                if (!Out.empty())
                    Out.back().TimeSec = B;
                return answer;
            };
            break;
        case 4: Editor.CurrentTimeProvider = [value] { return value; }; break;
        case 5: Editor.DurationProvider = [value] { return value * 100.0; }; break;
        default:
            Editor.HasWaveformProvider = nullptr, Editor.WaveformPeakProvider = nullptr;
            Editor.WaveformRangeProvider = nullptr, Editor.WaveformLodProvider = nullptr;
            Editor.CurrentTimeProvider = nullptr, Editor.DurationProvider = nullptr;
            break;
        }
    }

    // --- Pointer, events, keys ---

    // A pass with a pointer somewhere: inside the plot most of the time.
    void Pass()
    {
        Mouse& pointer = Host.Pointer();
        pointer.BeginFrame();
        if (Chance(0.7))
        {
            pointer.X3D = Uniform(Access::PlotX1(Editor), Access::PlotX2(Editor));
            pointer.Y3D = Uniform(Access::PlotY2(Editor), Access::PlotY1(Editor));
        }
        else
        {
            pointer.X3D = AnyCoordinate();
            pointer.Y3D = AnyCoordinate();
        }
        pointer.pButton[0] = Chance(0.4);
        pointer.pButton[1] = Chance(0.2);
        if (Chance(0.05))
            pointer.pPrevButton[Pick(2)] = Chance(0.5);  // a frame the shell lost
        SDL_SetModState(Chance(0.4) ? KMOD_LSHIFT : KMOD_NONE);
        Editor.MouseProcessing();
        CheckViewAfterPass();
    }

    void Click()
    {
        const int button = static_cast<int>(Pick(5));
        double y = AnyCoordinate();
        if (Chance(0.5))  // on the tab bar
            y = Uniform(Access::PlotY1(Editor), Editor.Y1);
        Editor.EventMouseClick(button, Chance(0.8) ? Uniform(Editor.X1, Editor.X2) : AnyCoordinate(), y);
    }

    void OtherEvent()
    {
        switch (Pick(3))
        {
        case 0: Editor.EventMouseDoubleClick(static_cast<int>(Pick(3))); break;
        case 1: Editor.EventMouseRelease(static_cast<int>(Pick(5)), AnyCoordinate(), AnyCoordinate()); break;
        default: Editor.EventMouseOut(); break;
        }
    }

    void Key()
    {
        static const int kKeys[] = {32, 102, 99, 0, -1, 127, 1 << 30};
        Editor.bFocused = Chance(0.8);
        Editor.HandleGlobalKey(kKeys[Pick(7)], Chance(0.3), Chance(0.1), Chance(0.1));
    }

    // --- Public calls ---

    void Selection() { Editor.SetHostedSelection(AnyTime(), AnyTime()); }
    void Seek() { Chance(0.5) ? Editor.SeekPlaybackTo(AnyTime()) : Editor.SeekPlaybackRelative(AnyTime()); }

    void Transport()
    {
        switch (Pick(5))
        {
        case 0: Editor.PlayFromCurrentPosition(); break;
        case 1: Editor.PlaySelectionOrCurrent(); break;
        case 2: Editor.PausePlayback(); break;
        case 3: Editor.StopPlayback(); break;
        default: Editor.TogglePlayback(); break;
        }
    }

    void Edit()
    {
        switch (Pick(6))
        {
        case 0: Editor.RequestCopySelection(); break;
        case 1: Editor.RequestCutSelection(); break;
        case 2: Editor.RequestPasteAtSelection(); break;
        case 3: Editor.RequestDeleteSelection(); break;
        case 4: Editor.Undo(); break;
        default: Editor.Redo(); break;
        }
        CheckRecordAgreesAfterStore();
    }

    void History()
    {
        Editor.EnableEditHistory(Chance(0.3) ? 0 : Pick(4) * 1000000);
    }

    void Gain()
    {
        const double percent = HostileDouble(Uniform(0.0, 400.0));
        if (Editor.ApplyGainPercent(percent))
            CheckFullScale();
        CheckRecordAgreesAfterStore();
    }

    void Open()
    {
        if (Editor.DocumentCount() >= kMaxTabs)
            return Close();
        switch (Pick(5))
        {
        case 0: Editor.NewUntitledDocument(); break;
        case 1: Editor.AdoptDecodedDocument("adopted.wav", SomeFrames()); break;
        case 2:
        {
            std::vector<float> peaks(Pick(50));
            for (float& peak : peaks)
                peak = static_cast<float>(HostileDouble(Uniform(-1.5, 1.5)));
            Editor.SetExternalPeakWaveform(Chance(0.2) ? "/nonexistent/file.mp3" : "", peaks, AnyTime());
            break;
        }
        case 3: Editor.SetExternalPeakWaveform(WavPath, {}, AnyTime()); break;
        default:  // a burst while playing, up to the tab limit
            Editor.AdoptDecodedDocument("burst.wav", SomeFrames());
            Editor.PlayFromCurrentPosition();
            while (Editor.DocumentCount() < kMaxTabs && Chance(0.97))
                Editor.NewUntitledDocument();
            Editor.PlayFromCurrentPosition();
            break;
        }
        MaxTabsSeen = std::max(MaxTabsSeen, Editor.DocumentCount());
        CheckRecordAgreesAfterStore();
    }

    void Close()
    {
        switch (Pick(3))
        {
        case 0: Editor.CloseActiveDocument(); break;
        case 1: Editor.CloseDocumentAt(static_cast<int>(Pick(kMaxTabs + 4)) - 2); break;
        default:  // most of them, while playing
            Editor.PlayFromCurrentPosition();
            while (Editor.DocumentCount() > 1 && Chance(0.95))
                Editor.CloseDocumentAt(static_cast<int>(Pick(static_cast<size_t>(Editor.DocumentCount()))));
            break;
        }
        CheckRecordAgreesAfterStore();
    }

    void Switch()
    {
        Editor.ActivateDocument(static_cast<int>(Pick(static_cast<size_t>(Editor.DocumentCount()) + 4)) - 2);
        CheckRecordAgreesAfterStore();
    }

    void RestoreState()
    {
        nlohmann::json state = nlohmann::json::object();
        const char* const keys[] = {"view_start_sec", "view_end_sec", "selection_start_sec", "selection_end_sec"};
        for (const char* key : keys)
        {
            switch (Pick(4))
            {
            case 0: state[key] = AnyTime(); break;  // a NaN stored as a number
            case 1: state[key] = "1.5"; break;
            case 2: state[key] = static_cast<int64_t>(Pick(1000)) - 500; break;
            default: break;
            }
        }
        Editor.ApplyExtraState(Chance(0.1) ? nlohmann::json::array({1, 2}) : state);
        nlohmann::json saved;
        Editor.SerializeExtraState(saved);
    }

    void RenderQueries()
    {
        // The render side's column cache and labels, without a GL context.
        Access::RefreshRenderColumns(Editor, static_cast<int>(Pick(10000)) - 100, HostileDouble(Uniform(0, 4000)));
        Access::NiceTimeStep(Editor, HostileDouble(Uniform(-1.0, 1000.0)));
        Access::FormatTimeLabel(Editor, AnyTime());
        Access::WaveformPeakForSpan(Editor, AnyTime(), AnyTime());
    }

    // --- Checks ---

    std::string Where() const
    {
        return "step " + std::to_string(StepIndex) + " (" + CurrentAction + ")";
    }

    void CheckActiveIndex()
    {
        const int count = static_cast<int>(Access::Documents(Editor).size());
        const int active = Access::ActiveDocumentIndex(Editor);
        if (count == 0)
            EXPECT_EQ(active, -1) << Where();
        else
            EXPECT_TRUE(active >= 0 && active < count) << Where() << ": active " << active << " of " << count;
        EXPECT_EQ(Editor.DocumentCount(), count) << Where();
        for (int i = 0; i < count; i += 1 + count / 8)
            EXPECT_NE(Editor.DocumentIdAt(i), 0u) << Where() << ": tab " << i;
    }

    // The fuzz harness's view promise, for a pass the editor took part in.
    void CheckViewAfterPass()
    {
        if (Editor.bEnabled && Editor.bVisible)
            ViewChecks += GLWaveEditFuzz::CheckPromises(Editor, Where().c_str(), false);
    }

    void CheckRecordAgreesAfterStore()
    {
        const int active = Access::ActiveDocumentIndex(Editor);
        if (active < 0)
            return;
        Access::StoreActiveDocument(Editor);
        const auto& record = Access::Document(Editor, active);
        EXPECT_EQ(record.SourceFilePath, Editor.SourcePath()) << Where();
        EXPECT_TRUE(SameFloats(Access::RecordFrames(Editor, active), Access::PcmFrames(Editor))) << Where();
        EXPECT_TRUE(SameFloats(record.ExternalPeaks, Access::ExternalPeaks(Editor))) << Where();
        EXPECT_EQ(record.PcmSampleRate, Access::PcmSampleRate(Editor)) << Where();
        EXPECT_EQ(record.PcmChannels, Access::PcmChannels(Editor)) << Where();
        EXPECT_TRUE(SameDouble(record.DurationSec, Editor.DurationSec)) << Where();
        EXPECT_TRUE(SameDouble(record.ViewStartSec, Editor.ViewStartSec)) << Where();
        EXPECT_TRUE(SameDouble(record.ViewEndSec, Editor.ViewEndSec)) << Where();
        EXPECT_TRUE(SameDouble(record.SelectionStartSec, Access::SelectionStartValueSec(Editor))) << Where();
        EXPECT_TRUE(SameDouble(record.SelectionEndSec, Access::SelectionEndValueSec(Editor))) << Where();
        EXPECT_EQ(record.bUsePcmFrames, Access::bUsePcmFrames(Editor)) << Where();
        EXPECT_EQ(record.bUseExternalPeaks, Access::bUseExternalPeaks(Editor)) << Where();
    }

    // After a gain the gained frames are within full scale. With a selection
    // only the frames well inside it are sure to have been gained: its ends
    // round to the nearest frame.
    void CheckFullScale()
    {
        ++GainChecks;
        const std::vector<float>& frames = Access::PcmFrames(Editor);
        const int64_t channels = Access::PcmChannels(Editor);
        const double rate = Access::PcmSampleRate(Editor);
        const int64_t frameCount = static_cast<int64_t>(frames.size()) / channels;
        int64_t first = 0;
        int64_t end = frameCount;
        if (Editor.HasSelection())
        {
            first = static_cast<int64_t>(std::ceil(std::max(Editor.SelectionStartSec(), 0.0) * rate)) + 1;
            end = static_cast<int64_t>(std::floor(std::min(Editor.SelectionEndSec() * rate, double(frameCount)))) - 1;
        }
        for (int64_t i = first * channels; i < end * channels; ++i)
        {
            const float s = frames[static_cast<size_t>(i)];
            if (!(s >= -1.0f && s <= 1.0f))
            {
                ADD_FAILURE() << Where() << ": sample " << i << " is " << s << " after a gain";
                return;
            }
        }
    }
};

// Weights by repetition: passes and clicks come most often.
const std::vector<Soak::Action>& Soak::Actions()
{
    static const std::vector<Action> kActions = {
    {"pass", &Soak::Pass},         {"pass", &Soak::Pass},           {"pass", &Soak::Pass},
    {"pass", &Soak::Pass},         {"click", &Soak::Click},         {"click", &Soak::Click},
    {"event", &Soak::OtherEvent},  {"key", &Soak::Key},             {"field", &Soak::SetField},
    {"field", &Soak::SetField},    {"heal", &Soak::Heal},           {"heal", &Soak::Heal},
    {"window", &Soak::BreakWindow}, {"screen", &Soak::BreakScreen}, {"providers", &Soak::SetProviders},
    {"selection", &Soak::Selection}, {"seek", &Soak::Seek},         {"transport", &Soak::Transport},
    {"edit", &Soak::Edit},         {"edit", &Soak::Edit},           {"history", &Soak::History},
    {"gain", &Soak::Gain},         {"open", &Soak::Open},           {"open", &Soak::Open},
    {"close", &Soak::Close},       {"switch", &Soak::Switch},       {"restore", &Soak::RestoreState},
    {"render", &Soak::RenderQueries},
    };
    return kActions;
}
}  // namespace

TEST(HostileInputSoak, LongRandomRunsKeepEveryPromiseAndNeitherCrashNorHang)
{
    setenv("GLWE_AUDIO_OUTPUT", "silent", 1);
    uint64_t steps = 0;
    int maxTabs = 0;
    int viewChecks = 0;
    int gainChecks = 0;
    for (const uint64_t seed : kSeeds)
    {
        Soak soak(seed);
        for (int i = 0; i < kStepsPerRun; ++i, ++steps)
            ASSERT_TRUE(soak.Step(steps)) << "seed " << seed;
        maxTabs = std::max(maxTabs, soak.MaxTabsSeen);
        viewChecks += soak.ViewChecks;
        gainChecks += soak.GainChecks;
    }
    std::printf("hostile soak: %llu steps, up to %d tabs, %d views and %d gains checked\n",
                static_cast<unsigned long long>(steps), maxTabs, viewChecks, gainChecks);
    RecordProperty("steps", static_cast<int>(steps));
    // The runs did reach the tab limit, and enough states were usable for
    // the checks to mean something.
    EXPECT_EQ(maxTabs, kMaxTabs);
    EXPECT_GT(viewChecks, static_cast<int>(steps) / 20);
    EXPECT_GT(gainChecks, 100);
}

// A window stretched to infinity makes a tab bar of infinite width, where the
// slot under the pointer is inf / inf: that hits no tab (it was cast to int).
TEST(HostileInputSoak, AnInfinitelyWideTabBarHitsNoTab)
{
    TestHost host;
    GLWaveEdit editor;
    editor.NewUntitledDocument();
    editor.NewUntitledDocument();
    editor.X1 = -kInf, editor.X2 = kInf, editor.Y1 = 0.5, editor.Y2 = -0.5;
    Access::UpdatePlotRect(editor, false);
    EXPECT_EQ(Access::HitTestDocumentTab(editor, 0.0, 0.47), -1);
    editor.EventMouseClick(0, 0.0, 0.47);  // no tab loads, none closes
    EXPECT_EQ(editor.DocumentCount(), 2);
    EXPECT_EQ(editor.ActiveDocument(), 1);
}
