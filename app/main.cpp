// glwaveedit: the wave editor as a desktop program. One SDL window with an
// OpenGL 2.1 context carries the shell's host objects (Core with screen,
// renderer, mouse and root) and one GLWaveEdit that fills the window.
//
//   glwaveedit [--select START END] [--seek SEC] [--screenshot FILE [--frames N]] [FILE...]
//
// Without a file the editor opens a short demo chord. Program shortcuts:
// Ctrl+X/C/V cut, copy, paste; Delete; Ctrl+N new; Ctrl+W close tab; Ctrl+S
// save; Ctrl+Up/Down gain +10%/-10%; Ctrl+Q quit. Files dropped on the window
// open in new tabs.

#include <GL/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio_codec_internal.h"
#include "core.h"
#include "glwaveedit.h"
#include "screenshot.h"
#include "sdl_compat.h"

namespace
{

constexpr int kInitialWidthPx = 1280;
constexpr int kInitialHeightPx = 720;
constexpr double kWindowMarginPx = 6.0;
constexpr int kSaveBitrateKbps = 192;
constexpr Uint32 kFrameMs = 16;  // about 60 frames a second without vsync
constexpr int kDefaultScreenshotFrames = 3;
constexpr const char* kFontPath = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr const char* kUsage =
    "usage: glwaveedit [--select START END] [--seek SEC] [--screenshot FILE [--frames N]] [FILE...]\n";

struct Options
{
    std::vector<std::string> Files;
    std::string ScreenshotPath;  // empty: run until the user quits
    int ScreenshotFrames = kDefaultScreenshotFrames;
    bool bSelect = false;
    double SelectStartSec = 0.0;
    double SelectEndSec = 0.0;
    bool bSeek = false;
    double SeekSec = 0.0;
};

// --- Command line ---

bool ParseNumber(const char* Text, double& Out)
{
    char* end = nullptr;
    Out = std::strtod(Text, &end);
    return end != Text && *end == '\0' && std::isfinite(Out);
}

bool ParseOptions(int Argc, char** Argv, Options& Out, std::string& Error)
{
    for (int i = 1; i < Argc; ++i)
    {
        const std::string arg = Argv[i];
        const int left = Argc - 1 - i;
        double frames = 0.0;
        if (arg == "--select" && left >= 2 && ParseNumber(Argv[i + 1], Out.SelectStartSec) &&
            ParseNumber(Argv[i + 2], Out.SelectEndSec))
        {
            Out.bSelect = true;
            i += 2;
        }
        else if (arg == "--seek" && left >= 1 && ParseNumber(Argv[i + 1], Out.SeekSec))
        {
            Out.bSeek = true;
            i += 1;
        }
        else if (arg == "--screenshot" && left >= 1)
            Out.ScreenshotPath = Argv[++i];
        else if (arg == "--frames" && left >= 1 && ParseNumber(Argv[i + 1], frames) && frames >= 1 && frames <= 1e6)
        {
            Out.ScreenshotFrames = static_cast<int>(frames);
            i += 1;
        }
        else if (arg.rfind("--", 0) == 0)
        {
            Error = "bad or incomplete option " + arg;
            return false;
        }
        else
            Out.Files.push_back(arg);
    }
    return true;
}

// --- Demo clip ---

// Four seconds of A major then D major, each chord struck and dying away,
// the voices spread a little between left and right.
std::vector<float> SynthesiseDemoChords(int SampleRate)
{
    constexpr double kPi = 3.14159265358979323846;
    constexpr double kChordSec = 2.0;
    const double chords[2][3] = {{220.0, 277.18, 329.63}, {293.66, 369.99, 440.0}};
    const int framesPerChord = static_cast<int>(kChordSec * SampleRate);
    std::vector<float> frames(static_cast<size_t>(framesPerChord) * 2 * 2);
    for (int chord = 0; chord < 2; ++chord)
        for (int f = 0; f < framesPerChord; ++f)
        {
            const double t = static_cast<double>(f) / SampleRate;
            const double envelope = std::min(t / 0.02, 1.0) * std::exp(-2.2 * t);
            double left = 0.0;
            double right = 0.0;
            for (int voice = 0; voice < 3; ++voice)
            {
                const double tone = std::sin(2.0 * kPi * chords[chord][voice] * t);
                left += tone * (1.2 - 0.3 * voice);
                right += tone * (0.6 + 0.3 * voice);
            }
            const size_t at = (static_cast<size_t>(chord) * framesPerChord + f) * 2;
            frames[at] = static_cast<float>(0.3 * envelope * left);
            frames[at + 1] = static_cast<float>(0.3 * envelope * right);
        }
    return frames;
}

// The editor opens files only, so the demo goes through the encoder into a
// temporary FLAC that is removed once decoded.
void OpenDemoClip(GLWaveEdit& Editor)
{
    constexpr int kRate = 48000;
    std::error_code ignored;
    const std::string path = (std::filesystem::temp_directory_path(ignored) / "glwaveedit-demo.flac").string();
    std::string error;
    if (!TarvikEncodeFloatAudioFile(path, SynthesiseDemoChords(kRate), kRate, 2, 0, &error))
    {
        std::fprintf(stderr, "glwaveedit: no demo clip (%s); starting with an empty document\n", error.c_str());
        Editor.NewUntitledDocument();
        return;
    }
    Editor.SetExternalPeakWaveform(path, {}, 0.0);
    std::filesystem::remove(path, ignored);
}

void OpenStartupDocuments(GLWaveEdit& Editor, const Options& Opts)
{
    for (const std::string& file : Opts.Files)
        Editor.SetExternalPeakWaveform(file, {}, 0.0);
    if (Opts.Files.empty())
        OpenDemoClip(Editor);
    if (Opts.bSelect)
        Editor.SetHostedSelection(Opts.SelectStartSec, Opts.SelectEndSec);
    if (Opts.bSeek)
        Editor.SeekPlaybackTo(Opts.SeekSec);
}

// --- Window ---

struct Cursors
{
    SDL_Cursor* pArrow = SDL_CreateSystemCursor(SDL_SYSTEM_CURSOR_ARROW);
    SDL_Cursor* pSizeWE = SDL_CreateSystemCursor(SDL_SYSTEM_CURSOR_SIZEWE);
    SDL_Cursor* pIBeam = SDL_CreateSystemCursor(SDL_SYSTEM_CURSOR_IBEAM);
    SDL_Cursor* pShown = nullptr;

    ~Cursors()
    {
        SDL_FreeCursor(pIBeam);
        SDL_FreeCursor(pSizeWE);
        SDL_FreeCursor(pArrow);
    }
};

// The shape a child window asked for this frame, or the arrow.
void ApplyCursor(const Tarvik& Root, Cursors& Shapes)
{
    SDL_Cursor* wanted = Shapes.pArrow;
    if (Root.bCursorFromChild && Root.CursorCode == 5)
        wanted = Shapes.pSizeWE;
    else if (Root.bCursorFromChild && Root.CursorCode == 11)
        wanted = Shapes.pIBeam;
    if (wanted && wanted != Shapes.pShown)
    {
        SDL_SetCursor(wanted);
        Shapes.pShown = wanted;
    }
}

// The drawable's size in pixels into the screen, and the editor's rectangle
// to the window less a margin.
void FitToWindow(SDL_Window* pWindow, CoreSDL& Screen, GLWaveEdit& Editor)
{
    SDL_GL_GetDrawableSize(pWindow, &Screen.Width, &Screen.Height);
    Screen.Width = std::max(Screen.Width, 1);
    Screen.Height = std::max(Screen.Height, 1);
    const double marginX = 2.0 * kWindowMarginPx / Screen.Width;
    const double marginY = 2.0 * kWindowMarginPx / Screen.Height;
    Editor.X1 = -1.0 + marginX;
    Editor.X2 = 1.0 - marginX;
    Editor.Y1 = 1.0 - marginY;
    Editor.Y2 = -1.0 + marginY;
}

// Window coordinates (points, y down) to normalised ones (y up).
void PointerToNormalised(SDL_Window* pWindow, int X, int Y, double& OutX, double& OutY)
{
    int width = 1;
    int height = 1;
    SDL_GetWindowSize(pWindow, &width, &height);
    OutX = 2.0 * (X + 0.5) / std::max(width, 1) - 1.0;
    OutY = 1.0 - 2.0 * (Y + 0.5) / std::max(height, 1);
}

void ReadPointer(SDL_Window* pWindow, Mouse& Pointer)
{
    int x = 0;
    int y = 0;
    const Uint32 buttons = SDL_GetMouseState(&x, &y);
    PointerToNormalised(pWindow, x, y, Pointer.X3D, Pointer.Y3D);
    Pointer.pButton[0] = (buttons & SDL_BUTTON_LMASK) != 0;
    Pointer.pButton[1] = (buttons & SDL_BUTTON_MMASK) != 0;
    Pointer.pButton[2] = (buttons & SDL_BUTTON_RMASK) != 0;
}

// --- Title ---

std::string SecondsText(double Sec)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.2fs", Sec);
    return text;
}

// The window title: program, document, selection, and the last message.
struct TitleState
{
    std::string Message;
    std::string Shown;
};

void RefreshTitle(SDL_Window* pWindow, const GLWaveEdit& Editor, TitleState& Title)
{
    std::string title = "GLWaveEdit";
    const std::string name = std::filesystem::path(Editor.SourcePath()).filename().string();
    if (!name.empty())
        title += " - " + name;
    if (Editor.HasSelection())
        title += " - selection " + SecondsText(Editor.SelectionStartSec()) + " to " +
                 SecondsText(Editor.SelectionEndSec());
    if (!Title.Message.empty())
        title += " - " + Title.Message;
    if (title != Title.Shown)
    {
        SDL_SetWindowTitle(pWindow, title.c_str());
        Title.Shown = title;
    }
}

// --- Commands ---

bool HasWritableExtension(const std::filesystem::path& Path)
{
    std::string ext = Path.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const char* known : {".ogg", ".opus", ".mp3", ".flac", ".wav", ".m4a"})
        if (ext == known)
            return true;
    return false;
}

// The document's own path when the encoder can write its format; otherwise
// the same name as Ogg Vorbis (an untitled document's name has no folder,
// so it lands in the current directory).
std::string SaveTarget(const std::string& SourcePath)
{
    const std::filesystem::path path(SourcePath);
    if (HasWritableExtension(path))
        return SourcePath;
    return (path.parent_path() / path.stem()).string() + ".ogg";
}

void SaveActiveDocument(const GLWaveEdit& Editor, TitleState& Title)
{
    const std::string target = SaveTarget(Editor.SourcePath().empty() ? "untitled.ogg" : Editor.SourcePath());
    std::string error;
    if (Editor.SaveToFile(target, kSaveBitrateKbps, &error))
        Title.Message = "saved " + target;
    else
        Title.Message = "save failed: " + error;
    std::fprintf(stderr, "glwaveedit: %s\n", Title.Message.c_str());
}

void ApplyGain(GLWaveEdit& Editor, double Percent, TitleState& Title)
{
    std::string error;
    Title.Message = Editor.ApplyGainPercent(Percent, &error) ? "gain " + std::to_string(static_cast<int>(Percent)) + "%"
                                                              : "gain failed: " + error;
}

// Program shortcuts, which the editor does not know; true when Key was one.
bool HandleShortcut(const SDL_Keysym& Key, GLWaveEdit& Editor, TitleState& Title, bool& bQuit)
{
    const bool ctrl = (Key.mod & KMOD_CTRL) != 0;
    const bool plain = (Key.mod & (KMOD_CTRL | KMOD_ALT | KMOD_SHIFT)) == 0;
    if (plain && Key.sym == SDLK_DELETE)
    {
        Editor.RequestDeleteSelection();
        return true;
    }
    if (!ctrl)
        return false;
    switch (Key.sym)
    {
    case SDLK_x: Editor.RequestCutSelection(); return true;
    case SDLK_c: Editor.RequestCopySelection(); return true;
    case SDLK_v: Editor.RequestPasteAtSelection(); return true;
    case SDLK_n: Editor.NewUntitledDocument(); return true;
    case SDLK_w: Editor.CloseActiveDocument(); return true;
    case SDLK_s: SaveActiveDocument(Editor, Title); return true;
    case SDLK_UP: ApplyGain(Editor, 110.0, Title); return true;
    case SDLK_DOWN: ApplyGain(Editor, 90.0, Title); return true;
    case SDLK_q: bQuit = true; return true;
    default: return false;
    }
}

// --- Events ---

struct Program
{
    SDL_Window* pWindow = nullptr;
    Core* pHost = nullptr;
    GLWaveEdit* pEditor = nullptr;
    TitleState Title;
    bool bQuit = false;
};

// Left and right come as events; the middle button is only polled.
int ButtonIdFor(Uint8 SdlButton)
{
    switch (SdlButton)
    {
    case SDL_BUTTON_LEFT: return 0;
    case SDL_BUTTON_RIGHT: return 2;
    default: return -1;
    }
}

void HandleMouseButton(const SDL_MouseButtonEvent& Button, Program& App)
{
    const int id = ButtonIdFor(Button.button);
    if (id < 0)
        return;
    double x = 0.0;
    double y = 0.0;
    PointerToNormalised(App.pWindow, Button.x, Button.y, x, y);
    if (Button.type == SDL_MOUSEBUTTONUP)
        App.pEditor->EventMouseRelease(id, x, y);
    else if (Button.clicks == 2)
        App.pEditor->EventMouseDoubleClick(id);
    else
        App.pEditor->EventMouseClick(id, x, y);
}

// Wheel up zooms in (button 3), down zooms out (4), one click per step.
void HandleWheel(const SDL_MouseWheelEvent& Wheel, Program& App)
{
    int pointerX = 0;
    int pointerY = 0;
    SDL_GetMouseState(&pointerX, &pointerY);
    double x = 0.0;
    double y = 0.0;
    PointerToNormalised(App.pWindow, pointerX, pointerY, x, y);
    const int delta = Wheel.direction == SDL_MOUSEWHEEL_FLIPPED ? -Wheel.y : Wheel.y;
    const int steps = std::min(std::abs(delta), 10);
    for (int i = 0; i < steps; ++i)
        App.pEditor->EventMouseClick(delta > 0 ? 3 : 4, x, y);
}

void HandleEvent(const SDL_Event& Event, Program& App)
{
    switch (Event.type)
    {
    case SDL_QUIT: App.bQuit = true; break;
    case SDL_WINDOWEVENT:
        if (Event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED)
            FitToWindow(App.pWindow, *App.pHost->pCoreSDL, *App.pEditor);
        else if (Event.window.event == SDL_WINDOWEVENT_LEAVE)
            App.pEditor->EventMouseOut();
        break;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP: HandleMouseButton(Event.button, App); break;
    case SDL_MOUSEWHEEL: HandleWheel(Event.wheel, App); break;
    case SDL_KEYDOWN:
        if (!HandleShortcut(Event.key.keysym, *App.pEditor, App.Title, App.bQuit))
        {
            const Uint16 mod = Event.key.keysym.mod;
            App.pEditor->HandleGlobalKey(Event.key.keysym.sym, (mod & KMOD_SHIFT) != 0, (mod & KMOD_CTRL) != 0,
                                         (mod & KMOD_ALT) != 0);
        }
        break;
    case SDL_DROPFILE:
        App.pEditor->SetExternalPeakWaveform(Event.drop.file, {}, 0.0);
        SDL_free(Event.drop.file);
        break;
    default: break;
    }
}

// One frame: input, the editor's pass, drawing.
void RunFrame(Program& App, Cursors& Shapes)
{
    Core& host = *App.pHost;
    host.pMouse->BeginFrame();
    host.pTarvik->bChildWindowProcessed = false;
    host.pTarvik->SetCursor(0, false);
    SDL_Event event;
    while (SDL_PollEvent(&event))
        HandleEvent(event, App);
    ReadPointer(App.pWindow, *host.pMouse);

    App.pEditor->MouseProcessing();
    ApplyCursor(*host.pTarvik, Shapes);
    RefreshTitle(App.pWindow, *App.pEditor, App.Title);

    glViewport(0, 0, host.pCoreSDL->Width, host.pCoreSDL->Height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glClearColor(0.03f, 0.035f, 0.05f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    App.pEditor->Render(0.0, 0.0);
}

}  // namespace

int main(int argc, char** argv)
{
    // --- Set-up ---
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error))
    {
        std::fprintf(stderr, "glwaveedit: %s\n%s", error.c_str(), kUsage);
        return 2;
    }
    if (SDL_Init(SDL_INIT_VIDEO) != 0)
    {
        std::fprintf(stderr, "glwaveedit: cannot start SDL video: %s\n", SDL_GetError());
        return 1;
    }
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 2);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 1);
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    SDL_Window* window = SDL_CreateWindow("GLWaveEdit", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                          kInitialWidthPx, kInitialHeightPx,
                                          SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI);
    SDL_GLContext context = window ? SDL_GL_CreateContext(window) : nullptr;
    if (!context)
    {
        std::fprintf(stderr, "glwaveedit: no OpenGL 2.1 window: %s\n", SDL_GetError());
        if (window)
            SDL_DestroyWindow(window);
        SDL_Quit();
        return 1;
    }
    SDL_GL_SetSwapInterval(1);

    Core host;
    host.CreateParts();
    p = &host;
    auto font = std::make_unique<TTF>();
    if (font->Load(kFontPath, &error))
        host.pRend->pTTF = font.get();
    else
        std::fprintf(stderr, "glwaveedit: %s; running without text\n", error.c_str());

    GLWindow hostWindow;
    auto editor = std::make_unique<GLWaveEdit>(1);
    editor->pHostWindow = &hostWindow;
    editor->Init();
    editor->bFocused = true;
    host.pTarvik->Windows.push_back(editor.get());
    FitToWindow(window, *host.pCoreSDL, *editor);

    Program app;
    app.pWindow = window;
    app.pHost = &host;
    app.pEditor = editor.get();
    editor->SignalActiveDocumentChanged.connect([&app](std::string) { app.Title.Message.clear(); });
    editor->SignalEditActionRequested.connect([&app](std::string Action, double StartSec, double EndSec) {
        app.Title.Message = Action + " " + SecondsText(StartSec) + " to " + SecondsText(EndSec);
    });
    OpenStartupDocuments(*editor, options);
    auto cursors = std::make_unique<Cursors>();

    // --- Event loop ---
    int exitCode = 0;
    for (int frame = 1; !app.bQuit; ++frame)
    {
        const Uint32 frameStart = SDL_GetTicks();
        RunFrame(app, *cursors);
        if (!options.ScreenshotPath.empty() && frame >= options.ScreenshotFrames)
        {
            if (WriteScreenshot(options.ScreenshotPath, host.pCoreSDL->Width, host.pCoreSDL->Height, error))
                std::fprintf(stderr, "glwaveedit: screenshot written to %s\n", options.ScreenshotPath.c_str());
            else
            {
                std::fprintf(stderr, "glwaveedit: %s\n", error.c_str());
                exitCode = 1;
            }
            app.bQuit = true;
        }
        SDL_GL_SwapWindow(window);
        const Uint32 elapsed = SDL_GetTicks() - frameStart;
        if (elapsed < kFrameMs)
            SDL_Delay(kFrameMs - elapsed);
    }

    // --- Cleanup, in reverse ---
    cursors.reset();
    host.pTarvik->Windows.clear();
    editor->Destroy();
    editor.reset();  // ends playback while SDL is still up
    host.pRend->pTTF = nullptr;
    font.reset();  // its textures go while the context exists
    p = nullptr;
    SDL_GL_DeleteContext(context);
    SDL_DestroyWindow(window);
    SDL_Quit();
    return exitCode;
}
