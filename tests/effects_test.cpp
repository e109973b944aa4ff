// Effects as edits: each on synthesised audio against a value worked out by
// hand, undone to the original sample for sample, redone, and repeated from
// its recorded span to the same samples (what a journal replay does). The
// loudness meter against FFmpeg's ebur128 filter on the same frames.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <regex>

#include "loudness.h"
#include "test_support.h"
#include "work_progress.h"

namespace
{
constexpr int kRate = 48000;
using Frames = std::vector<float>;

Frames Generate(size_t Count, const std::function<std::pair<float, float>(size_t)>& Frame)
{
    Frames out;
    for (size_t f = 0; f < Count; ++f)
    {
        const auto [left, right] = Frame(f);
        out.push_back(left);
        out.push_back(right);
    }
    return out;
}

Frames Sine(double Seconds, double Hz, float Amplitude)
{
    return Generate(static_cast<size_t>(Seconds * kRate), [=](size_t f) {
        const float v = Amplitude * static_cast<float>(std::sin(2.0 * M_PI * Hz * f / kRate));
        return std::make_pair(v, v);
    });
}

void Load(GLWaveEdit& Editor, const Frames& Audio, double SelStart = 0.0, double SelEnd = 0.0)
{
    Editor.AdoptDecodedDocument("effect.wav", Frames(Audio));
    Editor.SetHostedSelection(SelStart, SelEnd);
}

// One sample of the result, within Tolerance (0: exactly) of Value.
struct Sample
{
    size_t Index;
    float Value;
    float Tolerance = 1e-5f;
};

struct Case
{
    const char* Title;
    Frames Audio;
    double SelStart, SelEnd;
    GLWaveEdit::Effect What;
    std::vector<Sample> Samples;
    std::function<void(const Frames&)> Check = [](const Frames&) {};
};
}  // namespace

TEST(Effects, EachGivesTheWorkedValueUndoesRedoesAndRepeatsFromItsSpan)
{
    const Frames flat = ConstantFrames(48000, 0.5f, -0.5f);
    const Frames ramp = RampFrames(1000, 1e-3f);
    const Frames padded = Generate(36000, [](size_t f) {
        const float v = f >= 9600 && f < 33600 ? 0.5f : 0.0f;  // 0.2 s, 0.5 s of sound, 0.05 s
        return std::make_pair(v, -v);
    });
    const Frames offset = Generate(1000, [](size_t f) {
        const float s = f % 2 ? 0.2f : -0.2f;
        return std::make_pair(0.1f + s, -0.3f + s);
    });
    const Frames uneven = ConstantFrames(100, 0.25f, -0.125f);
    const float sQuarter = static_cast<float>(0.5 * (1 - std::cos(M_PI / 4)) / 2);
    const Case cases[] = {
        {"linear fade in, whole", flat, 0, 0, {"fade-in", 0, 0}, {{0, 0.0f, 0}, {2 * 24000, 0.25f}, {2 * 12000 + 1, -0.125f}}},
        {"linear fade out over the second half", flat, 0.5, 1.0, {"fade-out", 0, 0},
         {{2 * 23999, 0.5f, 0}, {2 * 24000, 0.5f}, {2 * 36000, 0.25f}}},
        // (1 - cos(pi/2)) / 2 of 0.5 halfway
        {"S-curve fade in", flat, 0, 0, {"fade-in", 2, 0}, {{2 * 24000, 0.25f}, {2 * 12000, sQuarter}}},
        {"silence a quarter", flat, 0.25, 0.5, {"silence", 0, 0},
         {{2 * 11999, 0.5f, 0}, {2 * 12000, 0.0f, 0}, {2 * 23999 + 1, 0.0f, 0}, {2 * 24000 + 1, -0.5f, 0}}},
        {"normalize linked to -6.02 dBFS", uneven, 0, 0, {"normalize", -6.0206, 1}, {{0, 0.5f, 1e-4f}, {1, -0.25f, 1e-4f}}},
        {"normalize each channel", uneven, 0, 0, {"normalize", -6.0206, 0}, {{0, 0.5f, 1e-4f}, {1, -0.5f, 1e-4f}}},
        {"remove DC", offset, 0, 0, {"dc", 0, 0}, {},
         [](const Frames& a) {
             for (size_t i = 0; i < a.size(); ++i)
                 ASSERT_NEAR(std::fabs(a[i]), 0.2f, 1e-6) << i;
         }},
        {"reverse a ramp", ramp, 0, 0, {"reverse", 0, 0}, {},
         [&ramp](const Frames& a) {
             for (size_t f = 0; f < 1000; ++f)
                 ASSERT_EQ(a[2 * f], ramp[2 * (999 - f)]) << f;
         }},
        {"high-pass takes the DC away", flat, 0, 0, {"highpass", 80, 0}, {{0, 0.5f, 0.01f}, {2 * 47999, 0.0f, 1e-3f}}},
        {"trim the long silence before, keep the short one after", padded, 0, 0, {"trim-silence", -60, 0.1},
         {{0, 0.5f, 0}, {2 * 23999, 0.5f, 0}, {2 * 24000, 0.0f, 0}},
         [](const Frames& a) { EXPECT_EQ(a.size(), 2u * 26400); }},
        {"loudness to -23 LUFS", Sine(5, 1000, 0.05f), 0, 0, {"loudness", -23, -1}, {},
         [](const Frames& a) {
             LoudnessFigures figures;
             ASSERT_EQ(MeasureLoudness(a.data(), a.size() / 2, 2, kRate, figures), "");
             EXPECT_NEAR(figures.IntegratedLufs, -23.0, 0.01);
         }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.Title);
        GLWaveEdit editor;
        SignalLog log(editor);
        editor.EnableEditHistory(size_t(1) << 28);
        Load(editor, c.Audio, c.SelStart, c.SelEnd);
        log.Clear();
        GLWaveEdit::EffectSpan span;
        std::string error;
        ASSERT_TRUE(editor.ApplyEffect(c.What, &error, &span)) << error;
        const Frames applied = editor.ActiveFrames();
        for (const Sample& at : c.Samples)
            EXPECT_NEAR(applied.at(at.Index), at.Value, at.Tolerance) << "sample " << at.Index;
        c.Check(applied);
        EXPECT_EQ(editor.DurationSec, static_cast<double>(applied.size() / 2) / kRate);
        ASSERT_FALSE(log.Lines.empty());
        EXPECT_EQ(log.Lines.front().rfind("edit ", 0), 0u) << log.Lines.front();
        ASSERT_TRUE(editor.Undo());
        EXPECT_TRUE(editor.ActiveFrames() == c.Audio);
        ASSERT_TRUE(editor.Redo());
        EXPECT_TRUE(editor.ActiveFrames() == applied);

        GLWaveEdit again;
        Load(again, c.Audio);
        ASSERT_TRUE(again.ApplyEffectToFrames(c.What, span, &error)) << error;
        EXPECT_TRUE(again.ActiveFrames() == applied);
        EXPECT_EQ(again.HasSelection(), c.SelEnd > c.SelStart);
    }
}

TEST(Effects, InsertedSilenceAndRefusalsThatLeaveTheAudioAlone)
{
    GLWaveEdit editor;
    const Frames ramp = RampFrames(48000, 1e-5f);
    Load(editor, ramp);
    editor.CurrentTimeSec = 0.25;
    ASSERT_TRUE(editor.ApplyEffect({"insert-silence", 0.5, 0}));
    const Frames& a = editor.ActiveFrames();
    ASSERT_EQ(a.size(), 2u * 72000);
    EXPECT_EQ(a[2 * 11999], ramp[2 * 11999]);
    EXPECT_EQ(a[2 * 12000], 0.0f);
    EXPECT_EQ(a[2 * 35999 + 1], 0.0f);
    EXPECT_EQ(a[2 * 36000], ramp[2 * 12000]);
    EXPECT_NEAR(editor.SelectionStartSec(), 0.25, 1e-9);
    EXPECT_NEAR(editor.SelectionEndSec(), 0.75, 1e-9);

    struct Refusal { GLWaveEdit::Effect What; Frames Audio; const char* Says; };
    const Refusal refusals[] = {
        {{"loudness", 0, -1}, Sine(5, 1000, 0.05f), "LUFS is the loudest within it"},
        {{"loudness", -16, -1}, ConstantFrames(1000, 0, 0), "too quiet"},
        {{"normalize", -1, 1}, ConstantFrames(1000, 0, 0), "silent"},
        {{"normalize", 3, 1}, ramp, "at most 0 dBFS"},
        {{"trim-silence", -60, 0}, ConstantFrames(1000, 0, 0), "nothing would be left"},
        {{"fade-in", 7, 0}, ramp, "curve"},
        {{"highpass", 30000, 0}, ramp, "cutoff"},
        {{"echo", 0, 0}, ramp, "Unknown effect"},
    };
    for (const Refusal& r : refusals)
    {
        SCOPED_TRACE(r.Says);
        Load(editor, r.Audio);
        std::string error;
        EXPECT_FALSE(editor.ApplyEffect(r.What, &error));
        EXPECT_NE(error.find(r.Says), std::string::npos) << error;
        EXPECT_TRUE(editor.ActiveFrames() == r.Audio);
    }

    // A stop request (Esc in the program) ends each kind of pass, a filter
    // graph's, a scan's, the loudness meter's, before the edit: the audio and
    // the history stay as they were.
    WorkProgress stop;
    stop.Cancel();
    editor.EnableEditHistory(size_t(1) << 24);
    editor.SetEffectProgress(&stop);
    const GLWaveEdit::Effect stopped[] = {
        {"fade-in", 0, 0}, {"reverse", 0, 0}, {"dc", 0, 0}, {"normalize", -1, 1}, {"loudness", -20, 0}};
    for (const GLWaveEdit::Effect& what : stopped)
    {
        SCOPED_TRACE(what.Name);
        Load(editor, Sine(1, 1000, 0.25f));
        const Frames before = Access::PcmFrames(editor);
        std::string error;
        EXPECT_FALSE(editor.ApplyEffect(what, &error));
        EXPECT_EQ(error, WorkCancelledMessage());
        EXPECT_TRUE(Access::PcmFrames(editor) == before);
        EXPECT_FALSE(editor.CanUndo());
    }
    editor.SetEffectProgress(nullptr);
}

namespace
{
// FFmpeg's own meter on raw stereo float frames: its summary's I, LRA and
// (true) Peak.
struct FfmpegFigures
{
    double I = NAN, Lra = NAN, Peak = NAN;
};
FfmpegFigures MeasureWithFfmpeg(const std::string& RawPath)
{
    const std::string command = std::string("\"") + GLWE_FFMPEG_PATH + "\" -hide_banner -nostats -f f32le -ar 48000 -ac 2 -i \"" +
                                RawPath + "\" -af ebur128=peak=true -f null - 2>&1";
    const std::string text = ShellOutput(command);
    FfmpegFigures out;
    const size_t summary = text.rfind("Summary:");
    if (summary == std::string::npos)
        return out;
    const std::string tail = text.substr(summary);
    std::smatch m;
    if (std::regex_search(tail, m, std::regex(R"(I:\s+(-?[0-9.]+) LUFS)")))
        out.I = std::stod(m[1]);
    if (std::regex_search(tail, m, std::regex(R"(LRA:\s+(-?[0-9.]+) LU)")))
        out.Lra = std::stod(m[1]);
    if (std::regex_search(tail, m, std::regex(R"(Peak:\s+(-?[0-9.]+) dBFS)")))
        out.Peak = std::stod(m[1]);
    return out;
}
}  // namespace

TEST(Loudness, PinkNoiseAndATone1kAgreeWithFfmpegEbur128)
{
    const char* const sources[] = {
        "anoisesrc=color=pink:amplitude=0.25:seed=7:duration=20:sample_rate=48000",
        "sine=frequency=1000:sample_rate=48000:duration=20,volume=-18dB",
        // Loud and quiet halves, so the range is more than nothing.
        "anoisesrc=color=pink:amplitude=0.5:seed=3:duration=20:sample_rate=48000,volume='if(lt(t,10),1,0.1)':eval=frame",
    };
    int index = 0;
    for (const char* source : sources)
    {
        SCOPED_TRACE(source);
        const std::string raw = MakeFfmpegFixture("loudness" + std::to_string(index++) + ".f32",
                                                  std::string("-f lavfi -i \"") + source + "\" -ac 2 -f f32le");
        const std::string bytes = ReadFileBytes(raw);
        Frames audio(bytes.size() / sizeof(float));
        std::memcpy(audio.data(), bytes.data(), audio.size() * sizeof(float));
        LoudnessFigures ours;
        ASSERT_EQ(MeasureLoudness(audio.data(), audio.size() / 2, 2, kRate, ours), "");
        const FfmpegFigures theirs = MeasureWithFfmpeg(raw);
        ASSERT_FALSE(std::isnan(theirs.I) || std::isnan(theirs.Lra) || std::isnan(theirs.Peak));
        EXPECT_NEAR(ours.IntegratedLufs, theirs.I, 0.1);
        EXPECT_NEAR(ours.RangeLu, theirs.Lra, 0.1);
        EXPECT_NEAR(ours.TruePeakDbtp, theirs.Peak, 0.1);
    }
}
