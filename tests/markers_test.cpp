// The opt-in markers and regions: they follow the edits, undo and redo bring
// them back exactly, and they belong to their document.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "audio_codec_internal.h"
#include "audio_decode.h"
#include "marker_files.h"
#include "test_support.h"

// Failures name the markers instead of dumping their bytes.
void PrintTo(const GLWaveEdit::Marker& M, std::ostream* Out)
{
    *Out << "#" << M.Id << " " << M.StartFrame << ".." << M.EndFrame << " \"" << M.Name << "\"";
}
void PrintTo(const TimedMarker& M, std::ostream* Out)
{
    *Out << M.StartSec << ".." << M.EndSec << " \"" << M.Name << "\"";
}

namespace
{
using Marker = GLWaveEdit::Marker;

// The oracle: the document as the identities of its frames, between two
// boundary frames that no edit removes. A marker sits before a frame; it
// keeps to that frame while it stays, else to the frame before it, and goes
// when both go. A region is a run of frames: what is left of them, and what
// went in between, is the region.
struct FrameModel
{
    std::vector<int64_t> Ids;  // Ids[0] and Ids.back() are the boundaries
    int64_t NextId = 0;

    explicit FrameModel(int64_t Frames)
    {
        for (int64_t i = 0; i < Frames + 2; ++i)
            Ids.push_back(NextId++);
    }

    // Marker frames are 0..N; Ids are shifted by the leading boundary.
    std::vector<Marker> Follow(const std::vector<int64_t>& Before, const std::vector<Marker>& Markers) const
    {
        std::map<int64_t, int64_t> indexOf;
        for (size_t i = 0; i < Ids.size(); ++i)
            indexOf[Ids[i]] = static_cast<int64_t>(i) - 1;
        std::vector<Marker> out;
        for (Marker m : Markers)
        {
            if (!m.IsRegion())
            {
                const auto after = indexOf.find(Before[m.StartFrame + 1]);
                const auto before = indexOf.find(Before[m.StartFrame]);
                if (after == indexOf.end() && before == indexOf.end())
                    continue;
                m.StartFrame = m.EndFrame = after != indexOf.end() ? after->second : before->second + 1;
                out.push_back(m);
                continue;
            }
            int64_t first = INT64_MAX;
            int64_t last = -1;
            for (int64_t f = m.StartFrame; f < m.EndFrame; ++f)
            {
                const auto now = indexOf.find(Before[f + 1]);
                if (now != indexOf.end())
                {
                    first = std::min(first, now->second);
                    last = std::max(last, now->second);
                }
            }
            if (last < 0)
                continue;
            m.StartFrame = first;
            m.EndFrame = last + 1;
            out.push_back(m);
        }
        return out;
    }

    // Frames [Start, End) replaced by Inserted new ones.
    void Replace(int64_t Start, int64_t End, int64_t Inserted)
    {
        Ids.erase(Ids.begin() + Start + 1, Ids.begin() + End + 1);
        std::vector<int64_t> fresh;
        for (int64_t i = 0; i < Inserted; ++i)
            fresh.push_back(NextId++);
        Ids.insert(Ids.begin() + Start + 1, fresh.begin(), fresh.end());
    }
};

std::map<uint64_t, Marker> ById(const std::vector<Marker>& Markers)
{
    std::map<uint64_t, Marker> out;
    for (const Marker& m : Markers)
        out[m.Id] = m;
    return out;
}
}  // namespace

TEST(Markers, FollowRandomEditsAsTheirFramesDoAndUndoRedoGiveEveryStateBack)
{
    TestHost host;
    GLWaveEdit editor;
    editor.EnableEditHistory(size_t(1) << 30);
    editor.AdoptDecodedDocument("other.wav", RampFrames(4800, 1.0f));
    // Off by default: nothing is kept.
    EXPECT_EQ(editor.AddMarker(10, 10), 0u);
    editor.EnableMarkers(true);
    const uint64_t otherMarker = editor.AddMarker(100, 100);
    editor.AdoptDecodedDocument("edited.wav", RampFrames(48000, 0.5f));
    const uint64_t otherId = editor.DocumentIdAt(0);

    std::mt19937 random(22);
    FrameModel model(48000);
    std::vector<std::pair<std::vector<Marker>, std::vector<Marker>>> edits;  // before and after each
    for (int step = 0; step < 40; ++step)
    {
        const int64_t frames = static_cast<int64_t>(Access::PcmFrames(editor).size() / 2);
        std::uniform_int_distribution<int64_t> at(2, frames - 2);
        int64_t start = at(random);
        int64_t end = at(random);
        if (start > end)
            std::swap(start, end);
        end = std::max(end, start + 2);
        // Around the span: before, on and inside each edge, and regions over
        // the start, over the end, over all of it, to its edges and inside it.
        for (int64_t f : {start - 1, start, start + 1, end - 1, end, end + 1})
            editor.AddMarker(f, f);
        editor.AddMarker(start - 1, start + 1);
        editor.AddMarker(end - 1, end + 1);
        editor.AddMarker(start - 1, end + 1);
        editor.AddMarker(start - 1, end);
        editor.AddMarker(start, end + 1);
        editor.AddMarker(start, end);
        editor.AddMarker(start + 1, end - 1);
        const std::vector<Marker> before = editor.ActiveMarkers();
        const std::vector<int64_t> beforeIds = model.Ids;

        // 48000 * 0.01 = 480 frames, never the span's own length.
        const int64_t pasted = end - start == 480 ? 481 : 480;
        switch (random() % 4)
        {
        case 0: ASSERT_TRUE(editor.ReplayEdit("cut", start, end, 0.0, {})); model.Replace(start, end, 0); break;
        case 1:
            ASSERT_TRUE(editor.ReplayEdit("paste", start, start, 0.0, std::vector<float>(pasted * 2, 0.25f)));
            model.Replace(start, start, pasted);
            break;
        case 2:
            ASSERT_TRUE(editor.ReplayEdit("paste", start, end, 0.0, std::vector<float>(pasted * 2, 0.25f)));
            model.Replace(start, end, pasted);
            break;
        default: ASSERT_TRUE(editor.ReplayEdit("gain", start, end, 50.0, {})); break;
        }
        ASSERT_EQ(ById(editor.ActiveMarkers()), ById(model.Follow(beforeIds, before))) << "edit " << step;
        edits.emplace_back(before, editor.ActiveMarkers());
    }
    // Undo gives back each state just before its edit, and redo each after
    // it; markers placed later come along, followed back through the audio.
    const auto holds = [&editor](const std::vector<Marker>& Want) {
        const std::map<uint64_t, Marker> now = ById(editor.ActiveMarkers());
        for (const Marker& m : Want)
            if (!now.count(m.Id) || !(now.at(m.Id) == m))
                return false;
        return true;
    };
    for (size_t i = edits.size(); i-- > 0;)
    {
        ASSERT_TRUE(editor.Undo());
        ASSERT_TRUE(holds(edits[i].first)) << "undo of edit " << i;
    }
    for (size_t i = 0; i < edits.size(); ++i)
    {
        ASSERT_TRUE(editor.Redo());
        ASSERT_TRUE(holds(edits[i].second)) << "redo of edit " << i;
    }
    EXPECT_EQ(editor.ActiveMarkers(), edits.back().second);

    // The other tab's marker stayed its own through all of it, and ends with it.
    const std::vector<Marker> other = editor.MarkersOf(otherId);
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(other[0].Id, otherMarker);
    EXPECT_EQ(other[0].StartFrame, 100);
    editor.CloseDocumentAt(0);
    EXPECT_TRUE(editor.MarkersOf(otherId).empty());
}

namespace
{

uint32_t Le32(const std::string& Bytes, size_t At)
{
    const auto byte = [&](size_t i) { return static_cast<uint32_t>(static_cast<unsigned char>(Bytes.at(At + i))); };
    return byte(0) | byte(1) << 8 | byte(2) << 16 | byte(3) << 24;
}

// The cue points of a WAV file as "offset length name" lines, read after the
// RIFF layout: chunks of id, size and data padded to even; "cue " holds a
// count and 24-byte points (id, position, "data", chunk start, block start,
// sample offset); LIST "adtl" holds "labl" (id, text) and "ltxt" (id, length,
// purpose, four 16-bit codes).
std::vector<std::string> CueLines(const std::string& Bytes)
{
    std::map<uint32_t, uint32_t> offsets, lengths;
    std::map<uint32_t, std::string> names;
    for (size_t at = 12; at + 8 <= Bytes.size();)
    {
        const std::string id = Bytes.substr(at, 4);
        const uint32_t size = Le32(Bytes, at + 4);
        if (id == "cue ")
            for (uint32_t i = 0; i < Le32(Bytes, at + 8); ++i)
            {
                EXPECT_EQ(Bytes.substr(at + 12 + 24 * i + 8, 4), "data");
                offsets[Le32(Bytes, at + 12 + 24 * i)] = Le32(Bytes, at + 12 + 24 * i + 20);
            }
        if (id == "LIST" && Bytes.substr(at + 8, 4) == "adtl")
            for (size_t sub = at + 12; sub < at + 8 + size;)
            {
                const uint32_t subSize = Le32(Bytes, sub + 4);
                if (Bytes.substr(sub, 4) == "labl")
                    names[Le32(Bytes, sub + 8)] = Bytes.substr(sub + 12, subSize - 5);  // less the id and the zero
                if (Bytes.substr(sub, 4) == "ltxt")
                    lengths[Le32(Bytes, sub + 8)] = Le32(Bytes, sub + 12);
                sub += 8 + subSize + subSize % 2;
            }
        at += 8 + size + size % 2;
    }
    std::vector<std::string> lines;
    for (const auto& [id, offset] : offsets)
        lines.push_back(std::to_string(offset) + " " + std::to_string(lengths[id]) + " " + names[id]);
    return lines;
}
}  // namespace

TEST(Markers, LabelFilesCuePointsAndChaptersCarryThemToOtherTools)
{
    // A label file through a document and back, unchanged: 0.5 s is frame
    // 24000, 1.234 s frame 59232 at 48000 Hz.
    const std::string labels = "0.500000\t0.500000\tIntro\n1.234000\t1.750000\tVerse one\n1.900000\t1.900000\t\n";
    std::vector<TimedMarker> parsed;
    std::string error;
    ASSERT_TRUE(ParseLabels("\\\t200.0\t4000.0\n" + labels, parsed, error)) << error;
    TestHost host;
    GLWaveEdit editor;
    editor.EnableMarkers(true);
    editor.AdoptDecodedDocument("labels.wav", ConstantFrames(48000 * 2, 0.25f, -0.25f));
    for (const TimedMarker& m : parsed)
        editor.AddMarker(std::llround(m.StartSec * 48000), std::llround(m.EndSec * 48000), m.Name);
    std::vector<TimedMarker> back;
    for (const Marker& m : editor.ActiveMarkers())
        back.push_back({m.StartFrame / 48000.0, m.EndFrame / 48000.0, m.Name});
    EXPECT_EQ(back[2].Name, "Marker 2");  // the unnamed one, the second marker, got the default
    back[2].Name.clear();
    EXPECT_EQ(FormatLabels(back), labels);
    EXPECT_FALSE(ParseLabels("1.0\tlater\tname\n", parsed, error));
    EXPECT_EQ(error, "Line 1 is not a label (start, end and name, tab-separated).");

    back[2].Name = "Schluß";
    const std::vector<float> audio = ConstantFrames(48000 * 2, 0.25f, -0.25f);
    EncodeOptions options;
    options.Markers = back;
    for (const char* extension : {".wav", ".flac", ".mp3", ".m4a", ".ogg"})
    {
        const std::string path = ScratchPath(std::string("markers") + extension);
        ASSERT_TRUE(TarvikEncodeFloatAudioFileWith(path, audio.data(), audio.size(), 48000, 2, options, &error))
            << extension << ": " << error;
        // FFmpeg still reads the audio: whole where it is lossless.
        const std::string lossless = std::string(extension) == ".wav" || std::string(extension) == ".flac"
                                         ? "2.000000"
                                         : "";
        EXPECT_EQ(ShellOutput("ffprobe -v error -select_streams a:0 -show_entries stream=codec_type,duration -of csv=p=0 '" +
                        path + "'").substr(0, 5 + !lossless.empty() + lossless.size()),
                  "audio" + (lossless.empty() ? "" : "," + lossless))
            << extension;
        DecodedAudio decoded;
        ASSERT_TRUE(DecodeAudioFile(path, DecodeControl(), decoded, &error)) << extension << ": " << error;
        if (std::string(extension) == ".wav")
        {
            // 1.234 s * 48000 = 59232, 0.516 s of region = 24768 frames.
            EXPECT_EQ(CueLines(ReadFileBytes(path)),
                      (std::vector<std::string>{"24000 0 Intro", "59232 24768 Verse one", "91200 0 Schluß"}));
            ASSERT_TRUE(ReadWavCues(path, decoded.Markers, error)) << error;
            EXPECT_EQ(decoded.Markers, back);
            continue;
        }
        // Chapters hold milliseconds; ffprobe and the decoder agree on them.
        const std::string probed =
            ShellOutput("ffprobe -v error -show_chapters -show_entries chapter=start_time:chapter_tags=title -of csv=p=0 '" +
                path + "'");
        // A chapter track starts at 0: the time before the first marker is an unnamed chapter.
        EXPECT_EQ(probed, std::string(std::string(extension) == ".m4a" ? "0.000000,\n" : "") +
                              "0.500000,Intro\n1.234000,Verse one\n1.900000,Schluß\n")
            << extension;
        ASSERT_EQ(decoded.Markers.size(), back.size()) << extension;
        for (size_t i = 0; i < back.size(); ++i)
        {
            EXPECT_EQ(std::llround(decoded.Markers[i].StartSec * 1000), std::llround(back[i].StartSec * 1000))
                << extension;
            EXPECT_EQ(decoded.Markers[i].Name, back[i].Name) << extension;
        }
    }
}
