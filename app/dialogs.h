// The program's questions, drawn as Dear ImGui modal windows over the editor:
// a question with buttons (Save / Don't save / Cancel, Replace / Cancel,
// messages), a path typed into the window where no desktop file chooser is
// there, and a number (gain in percent). One shows at a time, in the order
// asked; while one shows, the editor gets no input.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

struct Question
{
    std::string Title;
    std::string Text;
    std::vector<std::string> Buttons;      // the first is the default (Enter); a first letter answers too
    int EscapeButton = -1;                 // the answer Esc gives; -1: the last button
    std::function<void(int)> OnAnswer;     // the index of the button pressed
};

struct PathPrompt
{
    std::string Title;
    std::string Text;                      // what to type, shown above the field
    std::string Path;                      // the field's starting text
    bool bSave = false;                    // shows the bitrate choice for lossy formats
    int BitrateKbps = 192;
    // The paths typed (several for Open, separated by ";"), or none when cancelled.
    std::function<void(const std::vector<std::string>&, int)> OnAnswer;
};

struct NumberPrompt
{
    std::string Title;
    std::string Text;
    double Value = 100.0;
    double Min = 0.0;
    double Max = 1000.0;
    std::function<void(bool, double)> OnAnswer;  // false when cancelled
};

// A dialog whose body its owner draws (the save format's choices): Draw runs
// inside the modal every frame and returns true once answered, leaving what
// to do then in its argument, which runs after the dialog has closed.
struct PanelPrompt
{
    std::string Title;
    std::function<bool(std::function<void()>&)> Draw;
};

class Dialogs
{
public:
    void Ask(Question Q);
    void Ask(PathPrompt P);
    void Ask(NumberPrompt N);
    void Ask(PanelPrompt Panel);
    bool IsShowing() const { return !Pending.empty(); }
    // The dialog in front has not been drawn long enough to take keys: its
    // popup opens on one frame and its field takes the focus on a later one.
    // Keys typed ahead wait meanwhile instead of going nowhere.
    bool IsSettling() const { return !Pending.empty() && Pending.front().FramesDrawn < kSettleFrames; }
    // Draws the one in front; answers run their callbacks after it is gone.
    void Draw();

private:
    enum class DialogKind
    {
        Question,
        Path,
        Number,
        Panel,
    };
    struct Entry
    {
        DialogKind Kind = DialogKind::Question;  // which of the four below is asked
        Question Q;
        PathPrompt P;
        NumberPrompt N;
        PanelPrompt Panel;
        std::string Buffer;
        bool bOpened = false;
        bool bFocusField = true;
        int FramesDrawn = 0;
    };
    static constexpr int kSettleFrames = 3;
    std::deque<Entry> Pending;
    int Serial = 0;  // gives every popup its own ImGui id

    bool DrawQuestion(Entry& E, std::function<void()>& OutAfter);
    bool DrawPath(Entry& E, std::function<void()>& OutAfter);
    bool DrawNumber(Entry& E, std::function<void()>& OutAfter);
};
