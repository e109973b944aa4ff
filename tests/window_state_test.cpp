// Window state under "wave_edit" (view and raw selection) and saving the
// active document through the encoder.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>

#include "test_support.h"

using nlohmann::json;

namespace
{
using Four = std::array<double, 4>;

Four Fields(GLWaveEdit& E)
{
    return {E.ViewStartSec, E.ViewEndSec, Access::SelectionStartValueSec(E), Access::SelectionEndValueSec(E)};
}

void SetFields(GLWaveEdit& E, const Four& V)
{
    E.ViewStartSec = V[0], E.ViewEndSec = V[1];
    Access::SelectionStartValueSec(E) = V[2], Access::SelectionEndValueSec(E) = V[3];
}
}  // namespace

TEST(WindowState, ViewAndReversedSelectionComeBackBitForBit)
{
    GLWaveEdit source;
    EXPECT_STREQ(source.GetStateType(), "wave_edit");
    SetFields(source, {0.1 + 0.2, 7.0 / 3.0, 1.0 + 5.0 / 7.0, 1.0 / 3.0});  // start above end
    json j = {{"other", 1}, {"view_start_sec", "stale"}};
    source.SerializeExtraState(j);
    EXPECT_EQ(j["other"], 1);
    GLWaveEdit target;
    SignalLog log(target);
    target.NewUntitledDocument();
    log.Clear();
    target.ApplyExtraState(json::parse(j.dump()));
    EXPECT_EQ(Fields(target), Fields(source));
    EXPECT_TRUE(log.Lines.empty());
    EXPECT_EQ(Access::Document(target, 0).ViewEndSec, 0.1);  // the record waits for the next store
    json notAnObject = json::array();
    EXPECT_THROW(source.SerializeExtraState(notAnObject), json::type_error);
}

TEST(WindowState, ApplyTakesAnyJsonNumberAndKeepsAFieldForAnythingElse)
{
    const Four kept{1.0, 2.0, 3.0, 4.0};
    struct Case { json State; Four Expected; };
    const Case cases[] = {
        {json::object(), kept},
        {json::array({9, 9, 9, 9}), kept},
        {json(5.0), kept},
        {json{{"view_end_sec", 9.5}}, {1.0, 9.5, 3.0, 4.0}},
        {json{{"view_start_sec", 3}, {"selection_start_sec", 7u}, {"selection_end_sec", -2.5}}, {3.0, 2.0, 7.0, -2.5}},
        {json{{"view_start_sec", nullptr}, {"view_end_sec", "12"}, {"selection_start_sec", true},
              {"selection_end_sec", json::array({1})}},
         kept},
        {json{{"view_start_sec", json{{"a", 1}}}, {"view_end_sec", 120.0}}, {1.0, 120.0, 3.0, 4.0}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.State.dump());
        GLWaveEdit editor;
        SetFields(editor, kept);
        editor.ApplyExtraState(c.State);
        EXPECT_EQ(Fields(editor), c.Expected);
        EXPECT_TRUE(Access::bViewInitialized(editor));  // so the first pass does not fit the view
    }
}

TEST(WindowState, SaveToFileWritesTheActiveFramesAndChangesNothing)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    editor.NewUntitledDocument();
    // A new document's empty vector: the encoder refuses it and writes nothing.
    const std::string empty = ScratchPath("window_state_empty.wav");
    std::filesystem::remove(empty);
    std::string error;
    EXPECT_FALSE(editor.SaveToFile(empty, 0, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(editor.SaveToFile(empty, 0, nullptr));
    EXPECT_FALSE(std::filesystem::exists(empty));
    editor.AdoptDecodedDocument("take.wav", ConstantFrames(24000, 0.25f, -0.25f));
    log.Clear();
    const std::string path = ScratchPath("window_state_half.wav");
    EXPECT_TRUE(editor.SaveToFile(path, 128, nullptr));
    EXPECT_EQ(editor.SourcePath(), "take.wav");
    EXPECT_TRUE(log.Lines.empty());
    GLWaveEdit reopened;
    reopened.SetExternalPeakWaveform(path, {}, 0.0);
    EXPECT_NEAR(reopened.DurationSec, 0.5, 0.005);
}
