// The status bar under the editor: the last message (an error in red, kept
// until the next action), the progress of background work with how to cancel
// it, the active document's format as opened, the selection, and the play
// state, whose times a click lets the user type (time_entry.cpp).

#include <imgui.h>

#include <filesystem>

#include "glwaveedit.h"
#include "program.h"
#include "time_entry.h"

namespace
{
const ImVec4 kErrorColour(1.0f, 0.45f, 0.4f, 1.0f);
const ImVec4 kDimColour(0.7f, 0.74f, 0.8f, 1.0f);

std::string ProgressText(const Program& App)
{
    const Jobs& work = App.Work;
    std::string text;
    if (work.IsOpening())
    {
        const std::string name = std::filesystem::path(work.OpeningPath()).filename().string();
        text = "Opening " + (name.empty() ? std::string("...") : name) + " " +
               std::to_string(static_cast<int>(work.OpenProgress() * 100.0)) + "%";
        if (work.OpensPendingCount() > 1)
            text += " (" + std::to_string(work.OpensPendingCount() - 1) + " more waiting)";
        text += " - Esc cancels";
    }
    if (work.IsSaving())
    {
        if (!text.empty())
            text += "   ";
        text += "Saving " + std::filesystem::path(work.SavingPath()).filename().string() + " " +
                std::to_string(static_cast<int>(work.SaveProgress() * 100.0)) + "%";
    }
    return text;
}

}  // namespace

void DrawStatusBar(Program& App)
{
    const ImGuiViewport* viewport = ImGui::GetMainViewport();
    const float height = ImGui::GetFrameHeight() + ImGui::GetStyle().WindowPadding.y;
    ImGui::SetNextWindowPos(ImVec2(viewport->Pos.x, viewport->Pos.y + viewport->Size.y - height));
    ImGui::SetNextWindowSize(ImVec2(viewport->Size.x, height));
    const ImGuiWindowFlags flags = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove |
                                   ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoFocusOnAppearing |
                                   ImGuiWindowFlags_NoBringToFrontOnFocus;
    ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(8.0f, 4.0f));
    ImGui::PushStyleVar(ImGuiStyleVar_WindowRounding, 0.0f);
    if (ImGui::Begin("##status", nullptr, flags))
    {
        const GLWaveEdit& editor = *App.pEditor;
        const std::string progress = ProgressText(App);
        if (!progress.empty())
        {
            ImGui::TextUnformatted(progress.c_str());
            ImGui::SameLine();
        }
        // Stays while edits are not on the disk, whatever else is said.
        const std::string unprotected = App.Recovery.Problem();
        if (!unprotected.empty())
        {
            ImGui::TextColored(kErrorColour, "%s", unprotected.c_str());
            ImGui::SameLine();
        }
        if (App.Status.bError)
            ImGui::TextColored(kErrorColour, "%s", App.Status.Text.c_str());
        else
            ImGui::TextUnformatted(App.Status.Text.c_str());

        // The right-hand side: format | selection | play state, the times typed in on a click.
        const DocumentInfo* info = App.Docs.Find(editor.DocumentIdAt(editor.ActiveDocument()));
        const std::string format = info && !info->FormatSummary.empty() ? info->FormatSummary + "   |   " : "";
        const float width = ImGui::CalcTextSize(format.c_str()).x + TypedTimesWidth(App);
        ImGui::SameLine(std::max(ImGui::GetCursorPosX() + 24.0f, ImGui::GetWindowWidth() - width - 10.0f));
        if (!format.empty())
        {
            ImGui::TextColored(kDimColour, "%s", format.c_str());
            ImGui::SameLine(0.0f, 0.0f);
        }
        DrawTypedTimes(App);
    }
    App.StatusBarPx = height;
    ImGui::End();
    ImGui::PopStyleVar(2);
}
