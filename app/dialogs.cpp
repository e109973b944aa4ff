#include "dialogs.h"

#include <imgui.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "audio_codec_internal.h"

namespace
{
constexpr int kBitrates[] = {96, 128, 160, 192, 256, 320};
constexpr size_t kPathBufferBytes = 4096;

std::vector<std::string> SplitPaths(const std::string& Text)
{
    std::vector<std::string> paths;
    size_t start = 0;
    while (start <= Text.size())
    {
        size_t end = Text.find(';', start);
        if (end == std::string::npos)
            end = Text.size();
        std::string one = Text.substr(start, end - start);
        one.erase(0, one.find_first_not_of(" \t"));
        one.erase(one.find_last_not_of(" \t") + 1);
        if (!one.empty())
            paths.push_back(one);
        start = end + 1;
    }
    return paths;
}

// A modal in the middle of the screen, at a width that reads well.
bool BeginCentredModal(const std::string& Id)
{
    const ImGuiViewport* viewport = ImGui::GetMainViewport();
    ImGui::SetNextWindowPos(viewport->GetCenter(), ImGuiCond_Appearing, ImVec2(0.5f, 0.5f));
    ImGui::SetNextWindowSizeConstraints(ImVec2(380, 0), ImVec2(viewport->Size.x * 0.9f, viewport->Size.y * 0.9f));
    return ImGui::BeginPopupModal(Id.c_str(), nullptr, ImGuiWindowFlags_AlwaysAutoResize);
}
}  // namespace


void Dialogs::Ask(Question Q)
{
    Entry entry;
    entry.Kind = DialogKind::Question;
    entry.Q = std::move(Q);
    Pending.push_back(std::move(entry));
}

void Dialogs::Ask(PathPrompt P)
{
    Entry entry;
    entry.Kind = DialogKind::Path;
    entry.Buffer = P.Path;
    entry.P = std::move(P);
    Pending.push_back(std::move(entry));
}

void Dialogs::Ask(NumberPrompt N)
{
    Entry entry;
    entry.Kind = DialogKind::Number;
    entry.N = std::move(N);
    Pending.push_back(std::move(entry));
}

void Dialogs::Ask(PanelPrompt Panel)
{
    Entry entry;
    entry.Kind = DialogKind::Panel;
    entry.Panel = std::move(Panel);
    Pending.push_back(std::move(entry));
}

void Dialogs::Draw()
{
    if (Pending.empty())
        return;
    Entry& front = Pending.front();
    const std::string title = front.Kind == DialogKind::Question ? front.Q.Title
                              : front.Kind == DialogKind::Path   ? front.P.Title
                              : front.Kind == DialogKind::Number ? front.N.Title
                                                                 : front.Panel.Title;
    const std::string id = title + "##dialog" + std::to_string(Serial);
    if (!front.bOpened)
    {
        ImGui::OpenPopup(id.c_str());
        front.bOpened = true;
    }
    ++front.FramesDrawn;
    if (!BeginCentredModal(id))
        return;
    std::function<void()> after;
    const bool done = front.Kind == DialogKind::Question ? DrawQuestion(front, after)
                      : front.Kind == DialogKind::Path   ? DrawPath(front, after)
                      : front.Kind == DialogKind::Number ? DrawNumber(front, after)
                                                         : front.Panel.Draw(after);
    if (done)
        ImGui::CloseCurrentPopup();
    ImGui::EndPopup();
    if (done)
    {
        // The answer may ask the next question: the entry goes first.
        Pending.pop_front();
        ++Serial;
        if (after)
            after();
    }
}

// --- Kinds ---

bool Dialogs::DrawQuestion(Entry& E, std::function<void()>& OutAfter)
{
    ImGui::PushTextWrapPos(ImGui::GetFontSize() * 36.0f);
    ImGui::TextUnformatted(E.Q.Text.c_str());
    ImGui::PopTextWrapPos();
    ImGui::Spacing();
    int answer = -1;
    for (size_t i = 0; i < E.Q.Buttons.size(); ++i)
    {
        if (i > 0)
            ImGui::SameLine();
        if (ImGui::Button(E.Q.Buttons[i].c_str(), ImVec2(120, 0)))
            answer = static_cast<int>(i);
    }
    // A button's first letter answers it too ("d" for "Don't save").
    const ImVector<ImWchar>& typed = ImGui::GetIO().InputQueueCharacters;
    for (int t = 0; t < typed.Size && answer < 0; ++t)
        for (size_t i = 0; i < E.Q.Buttons.size() && answer < 0; ++i)
            if (!E.Q.Buttons[i].empty() &&
                std::tolower(static_cast<unsigned char>(E.Q.Buttons[i][0])) == std::tolower(typed[t]))
                answer = static_cast<int>(i);
    const int escape = E.Q.EscapeButton >= 0 ? E.Q.EscapeButton : static_cast<int>(E.Q.Buttons.size()) - 1;
    if (answer < 0 && ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape)))
        answer = escape;
    if (answer < 0 && (ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Enter)) || ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_KeyPadEnter))))
        answer = 0;
    if (answer < 0)
        return false;
    if (E.Q.OnAnswer)
        OutAfter = [callback = E.Q.OnAnswer, answer] { callback(answer); };
    return true;
}

bool Dialogs::DrawPath(Entry& E, std::function<void()>& OutAfter)
{
    if (!E.P.Text.empty())
        ImGui::TextUnformatted(E.P.Text.c_str());
    char buffer[kPathBufferBytes];
    std::strncpy(buffer, E.Buffer.c_str(), sizeof(buffer) - 1);
    buffer[sizeof(buffer) - 1] = '\0';
    if (E.bFocusField)
    {
        ImGui::SetKeyboardFocusHere();
        E.bFocusField = false;
    }
    ImGui::SetNextItemWidth(ImGui::GetFontSize() * 36.0f);
    const bool entered = ImGui::InputText("##path", buffer, sizeof(buffer), ImGuiInputTextFlags_EnterReturnsTrue);
    E.Buffer = buffer;
    if (E.P.bSave)
    {
        if (IsWritablePath(E.Buffer, WritableKind::Lossy))
        {
            ImGui::SetNextItemWidth(120);
            const std::string current = std::to_string(E.P.BitrateKbps) + " kbps";
            if (ImGui::BeginCombo("Bitrate", current.c_str()))
            {
                for (const int kbps : kBitrates)
                    if (ImGui::Selectable((std::to_string(kbps) + " kbps").c_str(), kbps == E.P.BitrateKbps))
                        E.P.BitrateKbps = kbps;
                ImGui::EndCombo();
            }
        }
        else
        {
            static const std::string hint = "Lossless: " + WritableExtensionsText(WritableKind::Lossless) +
                                            " (depth and rate come next). Lossy: " +
                                            WritableExtensionsText(WritableKind::Lossy, " ", " ");
            ImGui::TextDisabled("%s", hint.c_str());
        }
    }
    const bool accept = ImGui::Button(E.P.bSave ? "Save" : "Open", ImVec2(120, 0)) || entered;
    ImGui::SameLine();
    const bool cancel = ImGui::Button("Cancel", ImVec2(120, 0)) || ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape));
    if (!accept && !cancel)
        return false;
    const std::vector<std::string> paths = accept ? SplitPaths(E.Buffer) : std::vector<std::string>();
    if (E.P.OnAnswer)
        OutAfter = [callback = E.P.OnAnswer, paths, kbps = E.P.BitrateKbps] { callback(paths, kbps); };
    return true;
}

bool Dialogs::DrawNumber(Entry& E, std::function<void()>& OutAfter)
{
    ImGui::TextUnformatted(E.N.Text.c_str());
    if (E.bFocusField)
    {
        ImGui::SetKeyboardFocusHere();
        E.bFocusField = false;
    }
    ImGui::SetNextItemWidth(160);
    const bool entered =
        ImGui::InputDouble("##value", &E.N.Value, 1.0, 10.0, "%.1f", ImGuiInputTextFlags_EnterReturnsTrue);
    E.N.Value = std::clamp(E.N.Value, E.N.Min, E.N.Max);
    const bool accept = ImGui::Button("Apply", ImVec2(120, 0)) || entered;
    ImGui::SameLine();
    const bool cancel = ImGui::Button("Cancel", ImVec2(120, 0)) || ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape));
    if (!accept && !cancel)
        return false;
    if (E.N.OnAnswer)
        OutAfter = [callback = E.N.OnAnswer, accept, value = E.N.Value] { callback(accept, value); };
    return true;
}
