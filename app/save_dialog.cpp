// The save dialog: after the file's name (typed or from the desktop's
// chooser), the format it is written in. It starts from the document's
// remembered format, the source's own, and shows beside every choice about
// how large the file becomes.

#include <imgui.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "audio_codec_internal.h"
#include "glwaveedit.h"
#include "program.h"

namespace
{
constexpr int kRates[] = {44100, 48000, 96000};
constexpr int kBitrates[] = {96, 128, 160, 192, 256, 320};
const ImVec4 kWarningColour(1.0f, 0.75f, 0.35f, 1.0f);

struct SaveChoices
{
    std::string Path;
    SaveFormat Format;
    SourceFormat Source;
    size_t Frames = 0;
    int OtherRateHz = 22050;
    bool bOtherRate = false;
};

std::string Extension(const std::string& Path)
{
    std::string ext = std::filesystem::path(Path).extension().string();
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

// "label (about 1.8 MB)": what the file would be with Format.
std::string WithSize(const std::string& Label, const SaveChoices& Choices, const SaveFormat& Format,
                     const std::string& Path)
{
    return Label + "  (about " + ByteSizeText(EstimatedBytes(Format, Path, Choices.Frames)) + ")";
}

void DrawContainer(SaveChoices& C)
{
    const std::string current = Extension(C.Path);
    if (!ImGui::BeginCombo("Format", current.empty() ? "?" : current.substr(1).c_str()))
        return;
    for (const std::string& ext : WritableExtensions())
    {
        const std::string path = std::filesystem::path(C.Path).replace_extension(ext).string();
        const std::string label =
            ext.substr(1) + (IsWritablePath(path, WritableKind::Lossy) ? " (lossy)" : " (lossless)");
        if (ImGui::Selectable(WithSize(label, C, C.Format, path).c_str(), current == ext))
            C.Path = path;
    }
    ImGui::EndCombo();
}

void DrawRate(SaveChoices& C)
{
    const std::string current = std::to_string(C.Format.SampleRate) + " Hz";
    if (ImGui::BeginCombo("Sample rate", current.c_str()))
    {
        auto item = [&C](const std::string& Label, int RateHz) {
            SaveFormat format = C.Format;
            format.SampleRate = RateHz;
            if (ImGui::Selectable(WithSize(Label, C, format, C.Path).c_str(),
                                  !C.bOtherRate && RateHz == C.Format.SampleRate))
            {
                C.Format.SampleRate = RateHz;
                C.bOtherRate = false;
            }
        };
        if (C.Source.bKnown)
            item("the source's, " + std::to_string(C.Source.SampleRate) + " Hz", C.Source.SampleRate);
        for (int rate : kRates)
            item(std::to_string(rate) + " Hz", rate);
        if (ImGui::Selectable("other...", C.bOtherRate))
        {
            C.bOtherRate = true;
            C.Format.SampleRate = C.OtherRateHz;
        }
        ImGui::EndCombo();
    }
    if (C.bOtherRate)
    {
        ImGui::SetNextItemWidth(140);
        if (ImGui::InputInt("Hz", &C.OtherRateHz, 100, 1000))
            C.OtherRateHz = std::clamp(C.OtherRateHz, 8000, 384000);
        C.Format.SampleRate = C.OtherRateHz;
    }
}

void DrawChannels(SaveChoices& C)
{
    const char* current = C.Format.Channels == 1 ? "mono" : "stereo";
    if (!ImGui::BeginCombo("Channels", current))
        return;
    auto item = [&C](const std::string& Label, int Channels, bool bSelected) {
        SaveFormat format = C.Format;
        format.Channels = Channels;
        if (ImGui::Selectable(WithSize(Label, C, format, C.Path).c_str(), bSelected))
            C.Format.Channels = Channels;
    };
    if (C.Source.bKnown)
        item(C.Source.Channels == 1 ? "the source's, mono" : "the source's, as stereo", C.Source.Channels == 1 ? 1 : 2,
             false);
    item("mono", 1, C.Format.Channels == 1);
    item("stereo", 2, C.Format.Channels == 2);
    ImGui::EndCombo();
}

void DrawDepth(SaveChoices& C)
{
    const bool bFlac = Extension(C.Path) == ".flac";
    const int shown = bFlac ? (C.Format.Bits == 16 ? 16 : 24) : (C.Format.Bits == 16 || C.Format.Bits == 24 ? C.Format.Bits : 32);
    const std::string current = shown == 32 ? "32-bit float" : std::to_string(shown) + "-bit";
    if (ImGui::BeginCombo("Bit depth", current.c_str()))
    {
        for (int bits : {16, 24, 32})
        {
            if (bFlac && bits == 32)
                continue;  // FLAC holds 24 bits at most
            SaveFormat format = C.Format;
            format.Bits = bits;
            const std::string label = bits == 32 ? "32-bit float" : std::to_string(bits) + "-bit";
            if (ImGui::Selectable(WithSize(label, C, format, C.Path).c_str(), bits == shown))
                C.Format.Bits = bits;
        }
        ImGui::EndCombo();
    }
    if (shown < 32)
        ImGui::Checkbox("Dither (triangular) when reducing the depth", &C.Format.bDither);
}

void DrawBitrate(SaveChoices& C)
{
    const std::string current = std::to_string(C.Format.BitrateKbps) + " kb/s";
    if (!ImGui::BeginCombo("Bitrate", current.c_str()))
        return;
    for (int kbps : kBitrates)
    {
        SaveFormat format = C.Format;
        format.BitrateKbps = kbps;
        if (ImGui::Selectable(WithSize(std::to_string(kbps) + " kb/s", C, format, C.Path).c_str(),
                              kbps == C.Format.BitrateKbps))
            C.Format.BitrateKbps = kbps;
    }
    ImGui::EndCombo();
}
}  // namespace

void AskSaveFormat(Program& App, uint64_t Id, const std::string& Path, SaveFormatAnswer OnSave,
                   std::function<void()> OnCancel)
{
    auto choices = std::make_shared<SaveChoices>();
    const DocumentInfo& info = App.Docs.Info(Id);
    choices->Path = Path;
    choices->Format = info.Save;
    choices->Source = info.Source;
    choices->Frames = DocumentFrames(App.pEditor->ActiveFrames().size());
    const std::string warning = ChannelWarning(info.Source);
    PanelPrompt panel;
    panel.Title = "Save format";
    panel.Draw = [choices, warning, OnSave, OnCancel](std::function<void()>& OutAfter) {
        SaveChoices& c = *choices;
        ImGui::Text("File: %s", std::filesystem::path(c.Path).filename().string().c_str());
        const std::string source = DescribeSource(c.Source);
        ImGui::TextDisabled("Source: %s", source.empty() ? "none (a new document)" : source.c_str());
        if (!warning.empty())
        {
            ImGui::PushTextWrapPos(ImGui::GetFontSize() * 34.0f);
            ImGui::TextColored(kWarningColour, "%s", warning.c_str());
            ImGui::PopTextWrapPos();
        }
        ImGui::Separator();
        ImGui::PushItemWidth(ImGui::GetFontSize() * 18.0f);
        DrawContainer(c);
        DrawRate(c);
        DrawChannels(c);
        if (IsWritablePath(c.Path, WritableKind::Lossy))
            DrawBitrate(c);
        else
            DrawDepth(c);
        ImGui::PopItemWidth();
        ImGui::Separator();
        ImGui::Text("Writes %s, about %s.", DescribeSave(c.Format, c.Path).c_str(),
                    ByteSizeText(EstimatedBytes(c.Format, c.Path, c.Frames)).c_str());
        // Enter and Esc answer the dialog unless a list of choices is open.
        const bool bKeys = !ImGui::IsPopupOpen("", ImGuiPopupFlags_AnyPopupId);
        const bool bSave = ImGui::Button("Save", ImVec2(120, 0)) ||
                           (bKeys && (ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Enter)) ||
                                      ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_KeyPadEnter))));
        ImGui::SameLine();
        const bool bCancel = ImGui::Button("Cancel", ImVec2(120, 0)) ||
                             (bKeys && ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape)));
        if (bSave)
            OutAfter = [OnSave, path = c.Path, format = c.Format] { OnSave(path, format); };
        else if (bCancel)
            OutAfter = OnCancel;
        return bSave || bCancel;
    };
    App.Prompts.Ask(std::move(panel));
}
