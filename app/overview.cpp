#include "overview.h"

#include <imgui.h>

#include <algorithm>
#include <cmath>

#include "glwaveedit.h"
#include "navigation.h"
#include "program.h"

namespace
{
constexpr float kStripPx = 36.0f;
constexpr float kEdgeGripPx = 5.0f;  // how near a frame edge a press takes the edge
const ImU32 kBackground = IM_COL32(16, 20, 28, 255);
const ImU32 kWave = IM_COL32(110, 160, 215, 255);
const ImU32 kFrameFill = IM_COL32(255, 190, 70, 40);
const ImU32 kFrameEdge = IM_COL32(255, 190, 70, 230);

// The strip's left and right in points: under the editor's plot, so that a
// time sits above the same time when the document is fitted.
void PlotSpanPx(const GLWaveEdit& Editor, float& OutLeft, float& OutRight)
{
    const float width = ImGui::GetIO().DisplaySize.x;
    double x1 = 0.0, x2 = 0.0;
    Editor.PlotSpanX(x1, x2);
    OutLeft = static_cast<float>((x1 + 1.0) * 0.5 * width);
    OutRight = static_cast<float>((x2 + 1.0) * 0.5 * width);
    if (OutRight - OutLeft < 2.0f)
        OutLeft = 0.0f, OutRight = width;
}

void RefreshColumns(Program& App, int Columns)
{
    OverviewStrip& strip = App.Overview;
    GLWaveEdit& editor = *App.pEditor;
    const uint64_t id = editor.DocumentIdAt(editor.ActiveDocument());
    if (strip.DocumentId == id && strip.DurationSec == editor.DurationSec && strip.EditSerial == App.LastEdit.Serial &&
        strip.Columns == Columns)
        return;
    strip.DocumentId = id;
    strip.DurationSec = editor.DurationSec;
    strip.EditSerial = App.LastEdit.Serial;
    strip.Columns = Columns;
    editor.OverviewColumns(Columns, strip.MinMax);
}

// A press: on an edge of the frame, it takes that edge; inside, the frame;
// elsewhere the view is centred there first and the frame is taken.
void Press(Program& App, double TimeSec, double EdgeSec)
{
    GLWaveEdit& editor = *App.pEditor;
    OverviewStrip& strip = App.Overview;
    const double start = editor.ViewStartSec;
    const double end = editor.ViewEndSec;
    if (std::fabs(TimeSec - start) <= EdgeSec)
        strip.Held = OverviewStrip::Grip::StartEdge;
    else if (std::fabs(TimeSec - end) <= EdgeSec)
        strip.Held = OverviewStrip::Grip::EndEdge;
    else
    {
        if (TimeSec < start || TimeSec > end)
            SetView(editor, TimeSec - (end - start) / 2.0, end - start);
        strip.Held = OverviewStrip::Grip::Frame;
        strip.GripOffsetSec = TimeSec - editor.ViewStartSec;
    }
}

void Drag(Program& App, double TimeSec)
{
    GLWaveEdit& editor = *App.pEditor;
    const double start = editor.ViewStartSec;
    const double end = editor.ViewEndSec;
    switch (App.Overview.Held)
    {
    case OverviewStrip::Grip::Frame: SetView(editor, TimeSec - App.Overview.GripOffsetSec, end - start); break;
    case OverviewStrip::Grip::StartEdge:
        SetView(editor, std::min(TimeSec, end - editor.MinViewSpanSec), end - std::min(TimeSec, end));
        break;
    case OverviewStrip::Grip::EndEdge: SetView(editor, start, TimeSec - start); break;
    case OverviewStrip::Grip::None: break;
    }
}
}  // namespace

void ToggleOverview(Program& App) { App.Overview.bShown = !App.Overview.bShown; }

void DrawOverview(Program& App)
{
    OverviewStrip& strip = App.Overview;
    GLWaveEdit& editor = *App.pEditor;
    const bool bAudio = strip.bShown && editor.DurationSec > 0.0 && !editor.ActiveFrames().empty();
    strip.HeightPx = bAudio ? kStripPx : 0.0f;
    if (!bAudio)
        return;
    float left = 0.0f, right = 0.0f;
    PlotSpanPx(editor, left, right);
    const float top = App.MenuBarPx;
    const int columns = std::max(1, static_cast<int>(right - left));
    RefreshColumns(App, columns);

    ImGui::SetNextWindowPos(ImVec2(0.0f, top));
    ImGui::SetNextWindowSize(ImVec2(ImGui::GetIO().DisplaySize.x, kStripPx));
    const ImGuiWindowFlags flags = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove |
                                   ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoFocusOnAppearing |
                                   ImGuiWindowFlags_NoBringToFrontOnFocus | ImGuiWindowFlags_NoBackground;
    ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(0.0f, 0.0f));
    if (ImGui::Begin("##overview", nullptr, flags))
    {
        const float y1 = top + 3.0f;
        const float y2 = top + kStripPx - 3.0f;
        const float mid = (y1 + y2) * 0.5f;
        const float half = (y2 - y1) * 0.5f;
        const double duration = editor.DurationSec;
        const double secPerPx = duration / std::max(right - left, 1.0f);
        ImDrawList& draw = *ImGui::GetWindowDrawList();
        draw.AddRectFilled(ImVec2(left, y1), ImVec2(right, y2), kBackground);
        // The shape matters here, not the level: the loudest column fills the strip.
        float peak = 1e-3f;
        for (const float value : strip.MinMax)
            peak = std::max(peak, std::fabs(value));
        for (int column = 0; column * 2 + 1 < static_cast<int>(strip.MinMax.size()); ++column)
        {
            const float x = left + column + 0.5f;
            const float low = std::clamp(strip.MinMax[2 * column] / peak, -1.0f, 1.0f);
            const float high = std::clamp(strip.MinMax[2 * column + 1] / peak, -1.0f, 1.0f);
            draw.AddLine(ImVec2(x, mid - high * half), ImVec2(x, mid - low * half + 1.0f), kWave);
        }
        const float frameLeft = left + static_cast<float>(editor.ViewStartSec / secPerPx);
        const float frameRight = std::max(frameLeft + 2.0f, left + static_cast<float>(editor.ViewEndSec / secPerPx));
        draw.AddRectFilled(ImVec2(frameLeft, y1), ImVec2(frameRight, y2), kFrameFill);
        draw.AddRect(ImVec2(frameLeft, y1), ImVec2(frameRight, y2), kFrameEdge, 0.0f, 0, 1.5f);

        ImGui::SetCursorScreenPos(ImVec2(left, y1));
        ImGui::InvisibleButton("##overview strip", ImVec2(std::max(right - left, 1.0f), y2 - y1));
        const double pointerSec = std::clamp((ImGui::GetIO().MousePos.x - left) * secPerPx, 0.0, duration);
        if (ImGui::IsItemActivated())
            Press(App, pointerSec, kEdgeGripPx * secPerPx);
        else if (ImGui::IsItemActive())
            Drag(App, pointerSec);
        else
            strip.Held = OverviewStrip::Grip::None;
        if (ImGui::IsItemActive())
            App.FramesToDraw = std::max(App.FramesToDraw, 2);
    }
    ImGui::End();
    ImGui::PopStyleVar();
}
