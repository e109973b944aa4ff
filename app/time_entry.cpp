#include "time_entry.h"

#include <imgui.h>

#include <algorithm>
#include <cstring>

#include "glwaveedit.h"
#include "program.h"

namespace
{
const ImVec4 kDimColour(0.7f, 0.74f, 0.8f, 1.0f);

enum class Field
{
    SelectionStart,
    SelectionEnd,
    SelectionLength,
    PlayPosition,
};

struct Entry
{
    Field Which = Field::PlayPosition;
    char Text[64] = {};
    bool bFocus = false;
};
Entry TheEntry;  // one field is typed in at a time

const char* FieldName(Field Which)
{
    switch (Which)
    {
    case Field::SelectionStart: return "Selection start";
    case Field::SelectionEnd: return "Selection end";
    case Field::SelectionLength: return "Selection length";
    case Field::PlayPosition: break;
    }
    return "Play position";
}

std::string Text(const Program& App, double Seconds) { return TimeText(Seconds, App.Settings.Time, ActiveSourceRate(App)); }

// A typed time applied: the selection through the hosted selection (its
// other edge kept), the play position through a seek; clamped to the document.
void Apply(Program& App, Field Which, double Seconds)
{
    GLWaveEdit& editor = *App.pEditor;
    const double duration = editor.DurationSec;
    Seconds = std::clamp(Seconds, 0.0, duration);
    const bool bSelection = editor.HasSelection();
    const double start = bSelection ? editor.SelectionStartSec() : editor.CurrentTimeSec;
    const double end = bSelection ? editor.SelectionEndSec() : editor.CurrentTimeSec;
    switch (Which)
    {
    case Field::SelectionStart: editor.SetHostedSelection(Seconds, std::max(end, Seconds)); break;
    case Field::SelectionEnd: editor.SetHostedSelection(std::min(start, Seconds), Seconds); break;
    case Field::SelectionLength: editor.SetHostedSelection(start, std::min(start + Seconds, duration)); break;
    case Field::PlayPosition: editor.SeekPlaybackTo(Seconds); break;
    }
}

// The time as a button without a frame; a click opens the field under it.
void TimeButton(Program& App, Field Which, double Seconds)
{
    const std::string label = Text(App, Seconds) + "##" + FieldName(Which);
    ImGui::PushStyleColor(ImGuiCol_Button, ImVec4(0, 0, 0, 0));
    ImGui::PushStyleColor(ImGuiCol_Text, kDimColour);
    ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, ImVec2(0, 0));
    if (ImGui::SmallButton(label.c_str()))
    {
        TheEntry.Which = Which;
        std::snprintf(TheEntry.Text, sizeof TheEntry.Text, "%s", Text(App, Seconds).c_str());
        TheEntry.bFocus = true;
        ImGui::OpenPopup("##typed time");
    }
    ImGui::PopStyleVar();
    ImGui::PopStyleColor(2);
    if (ImGui::IsItemHovered())
        ImGui::SetTooltip("%s: click to type a time (1:02:03.5, 12.5, or 592200 smp)", FieldName(Which));
}

void Dim(const char* Text)
{
    ImGui::TextColored(kDimColour, "%s", Text);
    ImGui::SameLine(0.0f, 0.0f);
}

void DrawEntryPopup(Program& App)
{
    if (!ImGui::BeginPopup("##typed time"))
        return;
    ImGui::TextUnformatted(FieldName(TheEntry.Which));
    if (TheEntry.bFocus)
    {
        ImGui::SetKeyboardFocusHere();
        TheEntry.bFocus = false;
    }
    if (ImGui::InputText("##time", TheEntry.Text, sizeof TheEntry.Text,
                         ImGuiInputTextFlags_EnterReturnsTrue | ImGuiInputTextFlags_AutoSelectAll))
    {
        double seconds = 0.0;
        std::string error;
        if (ParseTime(TheEntry.Text, App.Settings.Time, ActiveSourceRate(App), seconds, error))
        {
            Apply(App, TheEntry.Which, seconds);
            ImGui::CloseCurrentPopup();
        }
        else
            App.Complain(error);
    }
    ImGui::EndPopup();
}
}  // namespace

int ActiveSourceRate(const Program& App)
{
    const GLWaveEdit& editor = *App.pEditor;
    const DocumentInfo* info = App.Docs.Find(editor.DocumentIdAt(editor.ActiveDocument()));
    return info && info->Source.bKnown ? info->Source.SampleRate : 0;
}

void ConnectTimeFormat(Program& App)
{
    App.pEditor->TimeTextProvider = [&App](double TimeSec, double StepSec) {
        return AxisTimeText(TimeSec, StepSec, App.Settings.Time, ActiveSourceRate(App));
    };
}

float TypedTimesWidth(const Program& App)
{
    const GLWaveEdit& editor = *App.pEditor;
    std::string all = "stopped  / ";
    if (editor.HasSelection())
        all += "selection  -  ()   |   " + Text(App, editor.SelectionStartSec()) + Text(App, editor.SelectionEndSec()) +
               Text(App, editor.SelectionEndSec() - editor.SelectionStartSec());
    else
        all += "no selection   |   ";
    all += Text(App, editor.CurrentTimeSec) + Text(App, editor.DurationSec) + "playing ";
    return ImGui::CalcTextSize(all.c_str()).x;
}

void DrawTypedTimes(Program& App)
{
    GLWaveEdit& editor = *App.pEditor;
    if (editor.HasSelection())
    {
        const double start = editor.SelectionStartSec();
        const double end = editor.SelectionEndSec();
        Dim("selection ");
        TimeButton(App, Field::SelectionStart, start);
        ImGui::SameLine(0.0f, 0.0f);
        Dim(" - ");
        TimeButton(App, Field::SelectionEnd, end);
        ImGui::SameLine(0.0f, 0.0f);
        Dim(" (");
        TimeButton(App, Field::SelectionLength, end - start);
        ImGui::SameLine(0.0f, 0.0f);
        Dim(")");
    }
    else
        Dim("no selection");
    Dim("   |   ");
    Dim(!editor.IsPlaybackActive() ? "stopped " : (editor.IsPlaybackPaused() ? "paused " : "playing "));
    TimeButton(App, Field::PlayPosition, editor.CurrentTimeSec);
    ImGui::SameLine(0.0f, 0.0f);
    ImGui::TextColored(kDimColour, " / %s", Text(App, editor.DurationSec).c_str());
    DrawEntryPopup(App);
}
