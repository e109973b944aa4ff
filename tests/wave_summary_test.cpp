// The waveform summary: every level and every run of frames against a
// brute-force scan, after builds, in-place changes, insertions and removals,
// and inside the editor across its edits, selection changes and tab switches.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>

#include "test_support.h"
#include "wave_summary.h"

namespace
{
using Stats = WaveSummary::Stats;

// Min, max (from 0.0) and sum of squares of every trace over First..Last,
// one sample at a time; the mix summed and divided in float like the span query.
std::vector<Stats> ScanFrames(const std::vector<float>& Frames, int Channels, int64_t First, int64_t Last)
{
    std::vector<Stats> out(static_cast<size_t>(Channels) + 1);
    const auto add = [](Stats& S, float X) {
        if (X != X)
            return;
        S.MinAmp = std::min(S.MinAmp, X);
        S.MaxAmp = std::max(S.MaxAmp, X);
        S.SumSquares += static_cast<double>(X) * X;
    };
    for (int64_t f = First; f <= Last; ++f)
    {
        float mixed = 0.0f;
        for (int c = 0; c < Channels; ++c)
        {
            const float x = Frames[static_cast<size_t>(f * Channels + c)];
            add(out[static_cast<size_t>(c)], x);
            mixed += x;
        }
        add(out[static_cast<size_t>(Channels)], mixed / static_cast<float>(Channels));
    }
    return out;
}

// Min and max exactly; sums of squares to float rounding (blocks keep them in float).
void ExpectStatsEqual(const Stats& Got, const Stats& Want, const std::string& Where)
{
    EXPECT_EQ(Got.MinAmp, Want.MinAmp) << Where;
    EXPECT_EQ(Got.MaxAmp, Want.MaxAmp) << Where;
    EXPECT_NEAR(Got.SumSquares, Want.SumSquares, 1e-5 * Want.SumSquares + 1e-9) << Where;
}

// Every block of every level, and Spans random runs, against the scan.
void ExpectMatchesScan(const WaveSummary& Summary, const std::vector<float>& Frames, int Channels,
                       std::mt19937& Random, int Spans)
{
    const int64_t frameCount = static_cast<int64_t>(Frames.size()) / Channels;
    ASSERT_EQ(Summary.FrameCount(), frameCount);
    ASSERT_EQ(Summary.Channels(), Channels);
    for (int level = 0; level < Summary.LevelCount(); ++level)
    {
        const int64_t size = Summary.FramesPerBlock(level);
        ASSERT_EQ(Summary.BlockCount(level), (frameCount + size - 1) / size) << "level " << level;
        for (int64_t b = 0; b < Summary.BlockCount(level); ++b)
        {
            const auto want = ScanFrames(Frames, Channels, b * size, std::min((b + 1) * size, frameCount) - 1);
            for (int t = 0; t <= Channels; ++t)
                ExpectStatsEqual(Summary.BlockStats(level, b, t), want[static_cast<size_t>(t)],
                                 "level " + std::to_string(level) + " block " + std::to_string(b) + " trace " +
                                     std::to_string(t));
        }
    }
    std::vector<Stats> got(static_cast<size_t>(Channels) + 1);
    for (int i = 0; i < Spans && frameCount > 0; ++i)
    {
        int64_t first = std::uniform_int_distribution<int64_t>(0, frameCount - 1)(Random);
        int64_t last = std::uniform_int_distribution<int64_t>(0, frameCount - 1)(Random);
        if (last < first)
            std::swap(first, last);
        Summary.FoldFrames(Frames.data(), first, last, got.data());
        const auto want = ScanFrames(Frames, Channels, first, last);
        for (int t = 0; t <= Channels; ++t)
            ExpectStatsEqual(got[static_cast<size_t>(t)], want[static_cast<size_t>(t)],
                             "run " + std::to_string(first) + ".." + std::to_string(last));
    }
}

// Noise with loud stretches beyond full scale, NaNs and exact zeros.
std::vector<float> NoisyFrames(std::mt19937& Random, int64_t FrameCount, int Channels)
{
    std::uniform_real_distribution<float> amp(-1.2f, 1.2f);
    std::uniform_int_distribution<int> pick(0, 999);
    std::vector<float> frames(static_cast<size_t>(FrameCount * Channels));
    for (float& x : frames)
    {
        const int roll = pick(Random);
        x = roll == 0 ? std::numeric_limits<float>::quiet_NaN() : (roll < 50 ? 0.0f : amp(Random) * 0.5f);
        if (roll > 990)
            x = amp(Random) * 2.0f;
    }
    return frames;
}
}  // namespace

TEST(WaveSummary, FollowsInPlaceChangesInsertionsAndRemovalsAtEveryLevel)
{
    std::mt19937 random(20261123);
    for (const int channels : {1, 2, 3})
    {
        SCOPED_TRACE("channels " + std::to_string(channels));
        // 300000 frames: 1172 fine blocks of 256, 74 of 4096, 5 of 65536.
        std::vector<float> frames = NoisyFrames(random, 300000, channels);
        WaveSummary summary;
        summary.Build(frames.data(), 300000, channels);
        ASSERT_EQ(summary.LevelCount(), 3);
        ExpectMatchesScan(summary, frames, channels, random, 40);
        for (int step = 0; step < 8; ++step)
        {
            const int64_t frameCount = static_cast<int64_t>(frames.size()) / channels;
            const int64_t at = std::uniform_int_distribution<int64_t>(0, frameCount)(random);
            const int64_t length = std::uniform_int_distribution<int64_t>(1, 70000)(random);
            switch (step % 3)
            {
            case 0:  // in place: a gain over a run
            {
                const int64_t end = std::min(at + length, frameCount);
                for (int64_t s = at * channels; s < end * channels; ++s)
                    frames[static_cast<size_t>(s)] *= 1.7f;
                summary.Update(frames.data(), frameCount, channels, at, end);
                break;
            }
            case 1:  // insertion
            {
                const std::vector<float> inserted = NoisyFrames(random, length, channels);
                frames.insert(frames.begin() + at * channels, inserted.begin(), inserted.end());
                summary.Update(frames.data(), frameCount + length, channels, at, -1);
                break;
            }
            default:  // removal
            {
                const int64_t end = std::min(at + length, frameCount);
                frames.erase(frames.begin() + at * channels, frames.begin() + end * channels);
                summary.Update(frames.data(), frameCount - (end - at), channels, at, -1);
                break;
            }
            }
            ExpectMatchesScan(summary, frames, channels, random, 20);
        }
        // Down to a handful of frames and back: levels come and go.
        frames.resize(static_cast<size_t>(5 * channels));
        summary.Update(frames.data(), 5, channels, 0, -1);
        ExpectMatchesScan(summary, frames, channels, random, 5);
        EXPECT_EQ(summary.LevelCount(), 1);
    }
}

// Long runs are shared out between threads: every block must still be
// computed once, with no gap or overlap where the shares meet.
TEST(WaveSummary, ComputesALongRunSharedBetweenThreadsLikeAShortOne)
{
    std::mt19937 random(7);
    const int64_t frameCount = 9001 * WaveSummary::kFramesPerFineBlock + 77;
    std::vector<float> frames = NoisyFrames(random, frameCount, 2);
    WaveSummary summary;
    summary.MaxWorkers = WaveSummary::kMostWorkers;
    summary.Build(frames.data(), frameCount, 2);
    ExpectMatchesScan(summary, frames, 2, random, 10);
    const int64_t first = 1234567;
    for (int64_t s = first * 2; s < frameCount * 2; ++s)
        frames[static_cast<size_t>(s)] *= -0.5f;
    summary.Update(frames.data(), frameCount, 2, first, frameCount);
    ExpectMatchesScan(summary, frames, 2, random, 10);
}

namespace
{
// The active tab's summary, brought current the way a frame brings it, and
// its revision.
const WaveSummary* ActiveSummary(GLWaveEdit& Editor, uint64_t* OutRevision = nullptr)
{
    Access::RefreshRenderColumns(Editor, 300, 300.0);
    for (const auto& entry : Access::Summaries(Editor))
        if (entry.DocumentId == Editor.DocumentIdAt(Editor.ActiveDocument()))
        {
            if (OutRevision)
                *OutRevision = entry.Revision;
            return &entry.Summary;
        }
    return nullptr;
}

// Column by column against the span query, over the view as it is.
void ExpectColumnsMatchSpanQuery(GLWaveEdit& Editor, int Count)
{
    ASSERT_TRUE(Access::RefreshRenderColumns(Editor, Count, Count));
    const auto& columns = Access::CachedRenderSamples(Editor);
    ASSERT_EQ(columns.size(), static_cast<size_t>(Count));
    const double start = Editor.ViewStartSec;
    const double span = Editor.ViewEndSec - start;
    for (int i = 0; i < Count; ++i)
    {
        double minAmp = 0.0;
        double maxAmp = 0.0;
        // Column i spans the i-th Count-th of the view, computed as a fraction
        // first: where its ends fall on whole frames, another rounding moves
        // them by a frame.
        Access::ExternalRangeForSpan(Editor, start + (static_cast<double>(i) / Count) * span,
                                     start + (static_cast<double>(i + 1) / Count) * span, minAmp, maxAmp);
        EXPECT_EQ(columns[i].MinAmp, minAmp) << "column " << i;
        EXPECT_EQ(columns[i].MaxAmp, maxAmp) << "column " << i;
    }
}
}  // namespace

TEST(EditorSummary, FollowsRandomEditsAndSurvivesSelectionChangesAndTabSwitches)
{
    std::mt19937 random(4242);
    GLWaveEdit editor;
    editor.AdoptDecodedDocument("a.wav", NoisyFrames(random, 200000, 2));
    // The second tab comes prepared, as the program's opening worker makes
    // it: its record and summary were made before it came in.
    const std::vector<float> second = NoisyFrames(random, 150000, 2);
    editor.AdoptPreparedDocument("b.wav", GLWaveEdit::PrepareForAdoption(std::vector<float>(second)));
    uint64_t revision = 0;
    const WaveSummary* prepared = ActiveSummary(editor, &revision);
    ASSERT_NE(prepared, nullptr);
    EXPECT_EQ(revision, 1u) << "the prepared summary was rebuilt";
    ExpectMatchesScan(*prepared, second, 2, random, 10);
    editor.ActivateDocument(0);
    ASSERT_NE(ActiveSummary(editor), nullptr);
    editor.ActivateDocument(1);
    const std::vector<float> back = editor.ActiveFrames();  // from the prepared record
    ASSERT_EQ(back.size(), second.size());
    EXPECT_EQ(std::memcmp(back.data(), second.data(), back.size() * sizeof(float)), 0);  // NaNs too
    editor.ActivateDocument(0);
    // Fixed views from a frame or two per column to coarse blocks of 16384.
    for (const auto& [start, end, count] : {std::tuple{1.4, 1.41, 300}, {0.1234, 2.9, 700}, {0.01, 3.0, 4}, {0.0, 3.0, 50}})
    {
        editor.ViewStartSec = start, editor.ViewEndSec = end;
        ExpectColumnsMatchSpanQuery(editor, count);
    }

    for (int step = 0; step < 24; ++step)
    {
        SCOPED_TRACE("step " + std::to_string(step));
        if (step % 4 == 3)
        {
            // Back to the other tab: its summary is the one it left with.
            const int other = 1 - editor.ActiveDocument();
            editor.ActivateDocument(other);
            editor.ActivateDocument(1 - other);
            uint64_t before = 0;
            ActiveSummary(editor, &before);
            editor.ActivateDocument(other);
            ActiveSummary(editor);  // a frame of the other tab
            editor.ActivateDocument(1 - other);
            uint64_t after = 0;
            const WaveSummary* back = ActiveSummary(editor, &after);
            EXPECT_EQ(after, before);
            ASSERT_NE(back, nullptr);
            ExpectMatchesScan(*back, editor.ActiveFrames(), 2, random, 10);
            // The columns it left with come back with it, as they were.
            ExpectColumnsMatchSpanQuery(editor, 300);
        }
        std::uniform_real_distribution<double> at(0.0, editor.DurationSec);
        uint64_t before = 0;
        ActiveSummary(editor, &before);
        editor.SetHostedSelection(at(random), at(random));
        uint64_t afterSelection = 0;
        ActiveSummary(editor, &afterSelection);
        EXPECT_EQ(afterSelection, before) << "a selection change touched the summary";

        switch (std::uniform_int_distribution<int>(0, 3)(random))
        {
        case 0: editor.RequestCutSelection(); break;
        case 1: editor.RequestDeleteSelection(); break;
        case 2:
            editor.RequestCopySelection();
            editor.SetHostedSelection(at(random), at(random));
            editor.RequestPasteAtSelection();
            break;
        default:
            if (step % 5 == 0)
                editor.ClearSelection(false);  // gain on all
            editor.ApplyGainPercent(std::uniform_real_distribution<double>(20.0, 180.0)(random));
            break;
        }
        ExpectColumnsMatchSpanQuery(editor, 300);  // the columns cached before the edit must not survive it
        const WaveSummary* summary = ActiveSummary(editor);
        ASSERT_NE(summary, nullptr);
        ExpectMatchesScan(*summary, editor.ActiveFrames(), 2, random, 10);
        std::uniform_real_distribution<double> now(0.0, editor.DurationSec);
        const double a = now(random), b = now(random);
        editor.ViewStartSec = std::min(a, b), editor.ViewEndSec = std::max(a, b) + 1e-3;
        ExpectColumnsMatchSpanQuery(editor, 97);
    }
    // A closed tab's summary goes with it.
    editor.CloseDocumentAt(0);
    ActiveSummary(editor);
    EXPECT_EQ(Access::Summaries(editor).size(), 1u);
}

// A view of more than about 90 s shares its columns out between two threads;
// they must still meet where the halves meet.
TEST(EditorSummary, ColumnsOfALongViewMatchTheSpanQueryAcrossTheSharedHalves)
{
    std::mt19937 random(99);
    GLWaveEdit editor;
    editor.bRenderHelperThread = true;
    editor.AdoptDecodedDocument("long.wav", NoisyFrames(random, 100 * 48000, 2));
    editor.ViewStartSec = 0.0;
    editor.ViewEndSec = editor.DurationSec;
    ExpectColumnsMatchSpanQuery(editor, 1263);
}
