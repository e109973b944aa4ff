// The Effect and Analyze menus. Each effect asks its values through the
// program's dialogs, one question at a time, starting from the values last
// used (kept in the settings), then runs as an edit like the others.

#include <imgui.h>

#include <cmath>
#include <cstdio>
#include <mutex>

#include "gldeck_audio_player.h"
#include "glwaveedit.h"
#include "loudness.h"
#include "program.h"
#include "work_progress.h"

namespace
{
double Remembered(const Program& App, const char* Key, double Default)
{
    const auto found = App.Settings.EffectValues.find(Key);
    return found != App.Settings.EffectValues.end() && found->is_number() ? found->get<double>() : Default;
}

void Remember(Program& App, const char* Key, double Value)
{
    App.Settings.EffectValues[Key] = Value;
}

std::string OneDecimal(double Value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", Value);
    return text;
}

// Asks for one number, remembered under Key, then runs Then with it.
void AskNumber(Program& App, const std::string& Title, const std::string& Text, const char* Key, double Default,
               double Min, double Max, std::function<void(Program&, double)> Then)
{
    NumberPrompt prompt;
    prompt.Title = Title;
    prompt.Text = Text;
    prompt.Value = Remembered(App, Key, Default);
    prompt.Min = Min;
    prompt.Max = Max;
    prompt.OnAnswer = [&App, Key, Then = std::move(Then)](bool bApply, double Value) {
        if (!bApply)
            return;
        Remember(App, Key, Value);
        Then(App, Value);
    };
    App.Prompts.Ask(std::move(prompt));
}

// Asks which of Buttons (the last is Cancel); Then gets the index chosen.
void AskChoice(Program& App, const std::string& Title, const std::string& Text, std::vector<std::string> Buttons,
               std::function<void(Program&, int)> Then)
{
    Question question;
    question.Title = Title;
    question.Text = Text;
    question.Buttons = std::move(Buttons);
    const int cancel = static_cast<int>(question.Buttons.size()) - 1;
    question.OnAnswer = [&App, cancel, Then = std::move(Then)](int Button) {
        if (Button != cancel)
            Then(App, Button);
    };
    App.Prompts.Ask(std::move(question));
}

// The preview has a player of its own, so that the editor's position and its
// own playback stay as they were. Never destroyed: its thread outlives any
// order of static destruction.
GLDeckAudioPlayer& PreviewPlayer()
{
    static GLDeckAudioPlayer* const player = new GLDeckAudioPlayer();
    return *player;
}

constexpr double kPreviewSec = 5.0;

// The last question of every effect: apply it, or hear the first 5 s of its
// result first (made on the edit worker, the document untouched).
void Confirm(Program& App, const GLWaveEdit::Effect& What, const std::string& Title,
             std::function<void(Program&)> Apply)
{
    AskChoice(App, Title, Title + " on the " + (App.pEditor->HasSelection() ? "selection." : "whole document."),
              {"Apply", "Preview 5 s", "Cancel"}, [What, Title, Apply](Program& App, int Button) {
                  if (Button == 0)
                  {
                      PreviewPlayer().Stop();
                      Apply(App);
                      return;
                  }
                  App.Edits.Queue("Preparing the preview", [&App, What, Title] {
                      GLWaveEdit& editor = *App.pEditor;
                      std::vector<float> result;
                      std::string error;
                      if (!editor.RenderEffect(What, editor.CurrentEffectSpan(What), result, &error))
                      {
                          if (error == WorkCancelledMessage())
                              App.Say("Preview cancelled.");
                          else
                              App.Complain(Title + ": " + error);
                          return;
                      }
                      const size_t keep = static_cast<size_t>(kPreviewSec * editor.ActiveSampleRate()) *
                                          static_cast<size_t>(editor.ActiveChannels());
                      if (result.size() > keep)
                          result.resize(keep);
                      editor.StopPlayback();
                      if (PreviewPlayer().PlayPcm(std::move(result), editor.ActiveSampleRate(), editor.ActiveChannels(),
                                                  0.0, &error))
                          App.Say("Previewing " + Title + ": the first 5 s of the result.");
                      else
                          App.Complain("Preview: " + error);
                  }, true);
                  Confirm(App, What, Title, Apply);
              });
}

void ConfirmAndRun(Program& App, const GLWaveEdit::Effect& What, const std::string& Title)
{
    Confirm(App, What, Title, [What, Title](Program& App) { RunEffect(App, What, Title); });
}

void AskFade(Program& App, const char* Name, const std::string& Title)
{
    AskChoice(App, Title, "The fade's curve, over the selection (or the whole document):",
              {"Linear", "Logarithmic", "S-curve", "Cancel"}, [Name, Title](Program& App, int Curve) {
                  ConfirmAndRun(App, {Name, static_cast<double>(Curve), 0.0}, Title);
              });
}

// A loudness the ceiling refuses comes back from the edit's worker; the frame
// thread offers what can be reached instead.
std::mutex RefusalLock;  // also for MeasuredText below
std::string RefusalText;  // under RefusalLock

void RunLoudness(Program& App, double TargetLufs, double CeilingDbtp)
{
    RunEffect(App, {"loudness", TargetLufs, CeilingDbtp}, "Loudness", [&App](const std::string& Error) {
        if (Error.find("loudest within it") == std::string::npos)
            App.Complain("Loudness: " + Error);
        else
        {
            std::lock_guard<std::mutex> hold(RefusalLock);
            RefusalText = Error;
        }
    });
}

void OfferReachableLoudness(Program& App)
{
    std::string text;
    {
        std::lock_guard<std::mutex> hold(RefusalLock);
        text.swap(RefusalText);
    }
    if (text.empty())
        return;
    // The reachable figure is the last number of the refusal.
    const size_t end = text.rfind(" LUFS is the loudest");
    const size_t start = text.rfind(' ', end - 1);
    const double reachable = std::atof(text.substr(start + 1, end - start - 1).c_str());
    const double ceiling = Remembered(App, "loudness_ceiling_dbtp", -1.0);
    AskChoice(App, "Loudness", text + "\n\nNo limiter is applied; bring it to " + OneDecimal(reachable) +
                                   " LUFS instead?",
              {"Apply " + OneDecimal(reachable) + " LUFS", "Cancel"},
              [reachable, ceiling](Program& App, int) { RunLoudness(App, reachable, ceiling); });
}

void AskLoudness(Program& App)
{
    AskChoice(App, "Loudness",
              "Integrated loudness target (EBU R128), with one gain:\n"
              "-23 LUFS broadcast, -16 LUFS podcasts, -14 LUFS streaming.",
              {"-23 LUFS", "-16 LUFS", "-14 LUFS", "Other...", "Cancel"},
              [](Program& App, int Choice) {
                  const auto withCeiling = [](Program& App, double Target) {
                      AskNumber(App, "Loudness", "True-peak ceiling in dBTP:", "loudness_ceiling_dbtp", -1.0, -20.0,
                                0.0, [Target](Program& App, double Ceiling) {
                                    Confirm(App, {"loudness", Target, Ceiling}, "Loudness",
                                            [Target, Ceiling](Program& App) { RunLoudness(App, Target, Ceiling); });
                                });
                  };
                  const double presets[] = {-23.0, -16.0, -14.0};
                  if (Choice < 3)
                      withCeiling(App, presets[Choice]);
                  else
                      AskNumber(App, "Loudness", "Target in LUFS:", "loudness_target_lufs", -16.0, -70.0, 0.0,
                                withCeiling);
              });
}

// The measurement reads the whole span (seconds for an hour): it runs on the
// edit worker, and the frame thread shows its figures when they are there.
std::string MeasuredText;  // under RefusalLock

void MeasureLoudnessOfSpan(Program& App)
{
    App.Edits.Queue("Measuring loudness", [&App] {
        GLWaveEdit& editor = *App.pEditor;
        const GLWaveEdit::EffectSpan span = editor.CurrentEffectSpan({"normalize", 0, 0});
        // Through the editor, which keeps the figures: a loudness applied to
        // the same frames next does not measure them again.
        LoudnessFigures figures;
        std::string error;
        if (!editor.MeasureEffectSpan(span, figures, &error) && error == WorkCancelledMessage())
        {
            App.Say("Measuring cancelled.");
            return;
        }
        std::lock_guard<std::mutex> hold(RefusalLock);
        MeasuredText = (span.bWhole ? "The whole document:\n\n" : "The selection:\n\n") +
                       (error.empty() ? DescribeLoudness(figures) : "Cannot measure: " + error);
    }, true);
}

void ShowMeasuredLoudness(Program& App)
{
    Question question;
    {
        std::lock_guard<std::mutex> hold(RefusalLock);
        question.Text.swap(MeasuredText);
    }
    if (question.Text.empty())
        return;
    question.Title = "Loudness and levels";
    question.Buttons = {"Close"};
    App.Prompts.Ask(std::move(question));
}

bool Usable(const Program& App)
{
    return !App.pEditor->ActiveFrames().empty() && !IsEditorFrozen(App) && !App.Edits.IsBusy();
}
}  // namespace

void DrawEffectMenus(Program& App)
{
    OfferReachableLoudness(App);
    ShowMeasuredLoudness(App);
    const bool usable = Usable(App);
    if (ImGui::BeginMenu("Effect"))
    {
        if (ImGui::MenuItem("Fade in...", nullptr, false, usable))
            AskFade(App, "fade-in", "Fade in");
        if (ImGui::MenuItem("Fade out...", nullptr, false, usable))
            AskFade(App, "fade-out", "Fade out");
        if (ImGui::MenuItem("Silence selection", nullptr, false, usable && App.pEditor->HasSelection()))
            RunEffect(App, {"silence", 0.0, 0.0}, "Silence");
        if (ImGui::MenuItem("Insert silence...", nullptr, false, usable))
            AskNumber(App, "Insert silence", "Seconds of silence at the play position:", "insert_silence_sec", 1.0,
                      0.001, 3600.0, [](Program& App, double Sec) { RunEffect(App, {"insert-silence", Sec, 0.0}, "Insert silence"); });
        ImGui::Separator();
        if (ImGui::MenuItem("Normalize...", nullptr, false, usable))
            AskNumber(App, "Normalize", "Peak in dBFS:", "normalize_dbfs", -1.0, -60.0, 0.0, [](Program& App, double Db) {
                AskChoice(App, "Normalize", "The channels:", {"Linked (one gain)", "Each on its own", "Cancel"},
                          [Db](Program& App, int Each) { ConfirmAndRun(App, {"normalize", Db, Each ? 0.0 : 1.0}, "Normalize"); });
            });
        if (ImGui::MenuItem("Loudness...", nullptr, false, usable))
            AskLoudness(App);
        ImGui::Separator();
        if (ImGui::MenuItem("Remove DC offset", nullptr, false, usable))
            ConfirmAndRun(App, {"dc", 0.0, 0.0}, "Remove DC offset");
        if (ImGui::MenuItem("Reverse", nullptr, false, usable))
            ConfirmAndRun(App, {"reverse", 0.0, 0.0}, "Reverse");
        if (ImGui::MenuItem("High-pass...", nullptr, false, usable))
            AskNumber(App, "High-pass", "Cutoff in Hz (rumble: 80):", "highpass_hz", 80.0, 1.0, 20000.0,
                      [](Program& App, double Hz) { ConfirmAndRun(App, {"highpass", Hz, 0.0}, "High-pass"); });
        if (ImGui::MenuItem("Trim silence...", nullptr, false, usable))
            AskNumber(App, "Trim silence", "Threshold in dBFS:", "trim_threshold_dbfs", -50.0, -120.0, 0.0,
                      [](Program& App, double Db) {
                          AskNumber(App, "Trim silence", "Shortest silence trimmed, seconds:", "trim_min_sec", 0.5,
                                    0.0, 3600.0, [Db](Program& App, double Sec) {
                                        ConfirmAndRun(App, {"trim-silence", Db, Sec}, "Trim silence");
                                    });
                      });
        ImGui::EndMenu();
    }
    if (ImGui::BeginMenu("Analyze"))
    {
        if (ImGui::MenuItem("Loudness and levels", nullptr, false, usable))
            MeasureLoudnessOfSpan(App);
        ImGui::EndMenu();
    }
}
