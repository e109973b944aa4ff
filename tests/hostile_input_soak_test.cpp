// Hostile input: long random runs (fixed seeds) of the editor's public calls,
// pointer states, mouse events and wheel steps, fed NaN, infinities,
// huge values, broken window rectangles, a zero-sized screen, lying
// providers and hundreds of tabs opened and closed while playing. After every
// step the editor's promises are checked: a valid active tab, a clamped view
// after a pass (the fuzz harness's check) and no sample beyond full scale
// after a gain. Crashes, hangs
// and leaks show as a failed run (the ASan build runs this file too). Hostile
// files and restored state are the fuzz targets' (fuzz/fuzz_harness.h).
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

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

class Soak
{
public:
    explicit Soak(uint64_t Seed) : Random(Seed)
    {
        Host.Root().Windows.push_back(&Editor);
        Editor.Init();
        ValidWindow();
    }
    ~Soak() { Editor.Destroy(); }

    // One random step, weighted by repetition in the table; false once a check failed.
    bool Step(uint64_t Index)
    {
        using Action = std::pair<const char*, void (Soak::*)()>;
        static const Action kActions[] = {
            {"pass", &Soak::Pass},           {"pass", &Soak::Pass},          {"pass", &Soak::Pass},
            {"pass", &Soak::Pass},           {"click", &Soak::Click},        {"click", &Soak::Click},
            {"event", &Soak::OtherEvent},    {"field", &Soak::SetField},     {"field", &Soak::SetField},
            {"heal", &Soak::Heal},           {"heal", &Soak::Heal},          {"window", &Soak::BreakWindow},
            {"screen", &Soak::BreakScreen},  {"providers", &Soak::SetProviders}, {"selection", &Soak::Selection},
            {"seek", &Soak::Seek},           {"transport", &Soak::Transport}, {"edit", &Soak::Edit},
            {"edit", &Soak::Edit},           {"history", &Soak::History},    {"gain", &Soak::Gain},
            {"open", &Soak::Open},           {"open", &Soak::Open},          {"close", &Soak::Close},
            {"switch", &Soak::Switch},       {"render", &Soak::RenderQueries}};
        const Action& action = kActions[Pick(sizeof(kActions) / sizeof(kActions[0]))];
        Where = "step " + std::to_string(Index) + " (" + action.first + ")";
        (this->*action.second)();
        CheckActiveIndex();
        return !testing::Test::HasFailure();
    }

    int MaxTabsSeen = 0;
    int ViewChecks = 0;  // passes whose state was finite enough to check
    int GainChecks = 0;

private:
    TestHost Host{1000, 700};
    GLWaveEdit Editor;
    std::mt19937_64 Random;
    std::string Where;

    // --- Random values ---

    size_t Pick(size_t Count) { return std::uniform_int_distribution<size_t>(0, Count - 1)(Random); }
    int PickInt(int Count, int Offset = 0) { return static_cast<int>(Pick(static_cast<size_t>(Count))) + Offset; }
    bool Chance(double P) { return std::uniform_real_distribution<double>(0.0, 1.0)(Random) < P; }
    // Lo..Hi, or -1.0..1.0 where the editor's own state gives no usable span.
    double Uniform(double Lo, double Hi)
    {
        if (!(Lo < Hi) || !std::isfinite(Hi - Lo))
            Lo = -1.0, Hi = 1.0;
        return std::uniform_real_distribution<double>(Lo, Hi)(Random);
    }
    // Mostly ordinary values near the document, now and then the worst a double can hold.
    double HostileDouble(double Ordinary)
    {
        static const double kWorst[] = {kNaN, kInf, -kInf, DBL_MAX, -DBL_MAX, 1e300, -1e300, DBL_MIN, -0.0, 1e-300};
        return Chance(0.25) ? kWorst[Pick(10)] : Ordinary;
    }
    double AnyTime() { return HostileDouble(Uniform(-1.0, std::max(Editor.DurationSec, 0.5) * 1.3)); }
    double AnyCoordinate() { return HostileDouble(Uniform(-1.2, 1.2)); }

    std::vector<float> SomeFrames()
    {
        static const float kWild[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                                      -FLT_MAX, 40.0f};
        std::vector<float> samples((Pick(24000) + (Chance(0.1) ? 0 : 1)) * 2 + (Chance(0.05) ? 1 : 0));
        const bool wild = Chance(0.2);
        for (float& s : samples)
            s = wild && Chance(0.01) ? kWild[Pick(4)] : static_cast<float>(Uniform(-1.0, 1.0));
        return samples;
    }

    // --- Window, settings and host ---

    void ValidWindow() { Editor.X1 = -0.9, Editor.X2 = 0.9, Editor.Y1 = 0.9, Editor.Y2 = -0.9; }
    void BreakWindow()
    {
        double* const edges[] = {&Editor.X1, &Editor.Y1, &Editor.X2, &Editor.Y2};
        Chance(0.3) ? ValidWindow() : void(*edges[Pick(4)] = HostileDouble(Uniform(-2.0, 2.0)));
    }
    void BreakScreen()
    {
        static const int kSizes[] = {0, -1, 1, 3, 700, 1000, 100000, std::numeric_limits<int>::max(),
                                     std::numeric_limits<int>::min()};
        CoreSDL& screen = *Host.Host.pCoreSDL;
        (Chance(0.5) ? screen.Width : screen.Height) = kSizes[Pick(9)];
        if (Chance(0.3))
            screen.Width = 1000, screen.Height = 700;
    }
    void SetField()
    {
        double* const fields[] = {&Editor.DurationSec, &Editor.CurrentTimeSec, &Editor.PreviewTimeSec,
                                  &Editor.ViewStartSec, &Editor.ViewEndSec, &Editor.BorderWidth,
                                  &Editor.PaddingPx, &Editor.LabelBandPx, &Editor.WheelZoomStep,
                                  &Editor.MinViewSpanSec};
        const size_t which = Pick(10);
        *fields[which] = HostileDouble(which < 5 ? AnyTime() : Uniform(-1.0, 30.0));
        if (Chance(0.2))
            Editor.FontPx = PickInt(200, -50);
        if (Chance(0.1))
            Editor.DesiredXTicks = PickInt(100, -10);
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
                return Min = -amp, Max = amp * 0.5f, answer;
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
        }
    }

    // --- Pointer, events, keys ---

    // A pass with the pointer somewhere: inside the window most of the time.
    void Pass()
    {
        Mouse& pointer = Host.Pointer();
        const bool inside = Chance(0.7);
        SetPointer(pointer, inside ? Uniform(Editor.X1, Editor.X2) : AnyCoordinate(),
                   inside ? Uniform(Editor.Y2, Editor.Y1) : AnyCoordinate(), Chance(0.4), Chance(0.2));
        if (Chance(0.05))
            pointer.pPrevButton[Pick(2)] = Chance(0.5);  // a frame the shell lost
        SDL_SetModState(Chance(0.4) ? KMOD_LSHIFT : KMOD_NONE);
        Editor.MouseProcessing();
        if (Editor.bEnabled && Editor.bVisible)
            ViewChecks += GLWaveEditFuzz::CheckPromises(Editor, Where.c_str(), false);
    }
    void Click()
    {
        const double x = Chance(0.8) ? Uniform(Editor.X1, Editor.X2) : AnyCoordinate();
        Editor.EventMouseClick(PickInt(5), x, Chance(0.5) ? Uniform(Editor.Y1 - 0.1, Editor.Y1) : AnyCoordinate());
    }
    void OtherEvent()
    {
        switch (Pick(3))
        {
        case 0: Editor.EventMouseDoubleClick(PickInt(3)); break;
        case 1: Editor.EventMouseRelease(PickInt(5), AnyCoordinate(), AnyCoordinate()); break;
        default: Editor.EventMouseOut();
        }
    }
    // --- Public calls ---

    void Selection() { Editor.SetHostedSelection(AnyTime(), AnyTime()); }
    void Seek() { Chance(0.5) ? Editor.SeekPlaybackTo(AnyTime()) : Editor.SeekPlaybackRelative(AnyTime()); }
    void Transport()
    {
        const std::function<void()> calls[] = {
            [&] { Editor.PlayFromCurrentPosition(); }, [&] { Editor.PlaySelectionOrCurrent(); },
            [&] { Editor.PausePlayback(); }, [&] { Editor.StopPlayback(); }, [&] { Editor.TogglePlayback(); }};
        calls[Pick(5)]();
    }
    void Edit()
    {
        const std::function<void()> calls[] = {
            [&] { Editor.RequestCopySelection(); }, [&] { Editor.RequestCutSelection(); },
            [&] { Editor.RequestPasteAtSelection(); }, [&] { Editor.RequestDeleteSelection(); },
            [&] { Editor.Undo(); }, [&] { Editor.Redo(); }};
        calls[Pick(6)]();
    }
    void History() { Editor.EnableEditHistory(Chance(0.3) ? 0 : Pick(4) * 1000000); }
    void Gain()
    {
        if (Editor.ApplyGainPercent(HostileDouble(Uniform(0.0, 400.0))))
            CheckFullScale();
    }
    void Open()
    {
        if (Editor.DocumentCount() >= kMaxTabs)
            return Close();
        switch (Pick(4))
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
        default:  // a burst while playing, up to the tab limit
            Editor.AdoptDecodedDocument("burst.wav", SomeFrames());
            Editor.PlayFromCurrentPosition();
            while (Editor.DocumentCount() < kMaxTabs && Chance(0.97))
                Editor.NewUntitledDocument();
            Editor.PlayFromCurrentPosition();
        }
        MaxTabsSeen = std::max(MaxTabsSeen, Editor.DocumentCount());
    }
    void Close()
    {
        switch (Pick(3))
        {
        case 0: Editor.CloseActiveDocument(); break;
        case 1: Editor.CloseDocumentAt(PickInt(kMaxTabs + 4, -2)); break;
        default:  // most of them, while playing
            Editor.PlayFromCurrentPosition();
            while (Editor.DocumentCount() > 1 && Chance(0.95))
                Editor.CloseDocumentAt(PickInt(Editor.DocumentCount()));
        }
    }
    void Switch() { Editor.ActivateDocument(PickInt(Editor.DocumentCount() + 4, -2)); }
    void RenderQueries()
    {
        // The render side's column cache and labels, without a GL context.
        Access::RefreshRenderColumns(Editor, PickInt(10000, -100), HostileDouble(Uniform(0, 4000)));
        Access::NiceTimeStep(Editor, HostileDouble(Uniform(-1.0, 1000.0)));
        Access::FormatTimeLabel(Editor, AnyTime());
        Access::WaveformPeakForSpan(Editor, AnyTime(), AnyTime());
    }

    // --- Checks ---

    void CheckActiveIndex()
    {
        const int count = Editor.DocumentCount(), active = Editor.ActiveDocument();
        EXPECT_TRUE(count == 0 ? active == -1 : active >= 0 && active < count)
            << Where << ": active " << active << " of " << count;
        for (int i = 0; i < count; i += 1 + count / 8)
            EXPECT_NE(Editor.DocumentIdAt(i), 0u) << Where << ": tab " << i;
    }

    // After a gain the gained frames are within full scale. With a selection
    // only the frames well inside it are sure to have been gained: its ends
    // round to the nearest frame.
    void CheckFullScale()
    {
        ++GainChecks;
        const std::vector<float>& frames = Editor.ActiveFrames();
        const int64_t channels = Editor.ActiveChannels();
        const double rate = Editor.ActiveSampleRate();
        const int64_t frameCount = static_cast<int64_t>(frames.size()) / channels;
        int64_t first = 0, end = frameCount;
        if (Editor.HasSelection())
        {
            first = static_cast<int64_t>(std::ceil(std::max(Editor.SelectionStartSec(), 0.0) * rate)) + 1;
            end = static_cast<int64_t>(std::floor(std::min(Editor.SelectionEndSec() * rate, double(frameCount)))) - 1;
        }
        for (int64_t i = first * channels; i < end * channels; ++i)
            if (const float s = frames[static_cast<size_t>(i)]; !(s >= -1.0f && s <= 1.0f))
                return void(ADD_FAILURE() << Where << ": sample " << i << " is " << s << " after a gain");
    }
};
}  // namespace

TEST(HostileInputSoak, LongRandomRunsKeepEveryPromiseAndNeitherCrashNorHang)
{
    uint64_t steps = 0;
    int maxTabs = 0, viewChecks = 0, gainChecks = 0;
    for (const uint64_t seed : kSeeds)
    {
        Soak soak(seed);
        for (int i = 0; i < kStepsPerRun; ++i, ++steps)
            ASSERT_TRUE(soak.Step(steps)) << "seed " << seed;
        maxTabs = std::max(maxTabs, soak.MaxTabsSeen);
        viewChecks += soak.ViewChecks;
        gainChecks += soak.GainChecks;
    }
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
    editor.EventMouseClick(0, 0.0, 0.47);  // no tab loads, none closes
    EXPECT_EQ(editor.DocumentCount(), 2);
    EXPECT_EQ(editor.ActiveDocument(), 1);
}
