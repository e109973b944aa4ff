// glwaveedit: the wave editor as a desktop program. One SDL window with an
// OpenGL 2.1 context carries the shell's host objects (Core with screen,
// renderer, mouse and root) and one GLWaveEdit between a Dear ImGui menu bar
// and status bar. Files open and save on worker threads; the window draws
// only when something changed, and otherwise sleeps in SDL_WaitEvent.
//
// main reads as set-up, the event loop, and one cleanup in reverse order;
// the README's file map names the other parts.

#include <GL/gl.h>
#include <imgui.h>
#include <imgui/backends/imgui_impl_opengl2.h>
#include <imgui/backends/imgui_impl_sdl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "audio_decode.h"
#include "audio_format_convert.h"
#include "batch.h"
#include "core.h"
#include "demo_clip.h"
#include "frame_times.h"
#include "glwaveedit.h"
#include "input.h"
#include "markers.h"
#include "options.h"
#include "program.h"
#include "screenshot.h"
#include "sdl_compat.h"
#include "time_entry.h"

namespace
{
constexpr double kWindowMarginPx = 4.0;
constexpr Uint32 kFrameMs = 16;        // while something moves: about 60 frames a second
constexpr Uint32 kProgressFrameMs = 100;  // while only a progress bar moves
constexpr const char* kFontPath = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr float kUiFontPx = 15.0f;

// --- Window ---

// The drawable's size into the screen, and the editor's rectangle between the
// menu bar and the status bar.
void FitToWindow(Program& App)
{
    CoreSDL& screen = *App.pHost->pCoreSDL;
    SDL_GL_GetDrawableSize(App.pWindow, &screen.Width, &screen.Height);
    screen.Width = std::max(screen.Width, 1);
    screen.Height = std::max(screen.Height, 1);
    int pointsW = 1;
    int pointsH = 1;
    SDL_GetWindowSize(App.pWindow, &pointsW, &pointsH);
    const double scale = static_cast<double>(screen.Height) / std::max(pointsH, 1);
    const double top = ((App.MenuBarPx + App.Overview.HeightPx) * scale + kWindowMarginPx) * 2.0 / screen.Height;
    const double bottom = (App.StatusBarPx * scale + kWindowMarginPx) * 2.0 / screen.Height;
    const double side = kWindowMarginPx * 2.0 / screen.Width;
    GLWaveEdit& editor = *App.pEditor;
    editor.X1 = -1.0 + side;
    editor.X2 = 1.0 - side;
    editor.Y1 = 1.0 - top;
    editor.Y2 = -1.0 + bottom;
}

// The program's own colours for the markers, so that the playhead, the
// selection's edges and the hover line each say what they are.
void DistinguishMarkers(GLWaveEdit& Editor)
{
    *Editor.pPlayheadColor = GLColor(0.4f, 0.95f, 0.55f, 1.0f);
    *Editor.pSelectionBorderColor = GLColor(1.0f, 0.74f, 0.25f, 0.95f);
    *Editor.pHoverColor = GLColor(0.85f, 0.88f, 0.95f, 0.45f);
}

void RefreshTitle(Program& App, std::string& Shown)
{
    const GLWaveEdit& editor = *App.pEditor;
    std::string title = "GLWaveEdit";
    const uint64_t id = editor.DocumentIdAt(editor.ActiveDocument());
    const std::string name = DocumentName(App, id, editor.SourcePath());
    if (!name.empty())
        title = (App.Docs.IsModified(editor, id) ? "* " : "") + name + " - " + title;
    if (title != Shown)
    {
        SDL_SetWindowTitle(App.pWindow, title.c_str());
        Shown = title;
    }
}

// --- Events ---

void HandleKey(Program& App, const SDL_KeyboardEvent& Key, bool bUiWantsKeys)
{
    if (bUiWantsKeys || App.Prompts.IsShowing())
        return;
    if (Key.keysym.sym == SDLK_ESCAPE && App.Work.IsOpening())
    {
        App.Work.CancelOpens();
        return;
    }
    if (HandleShortcut(App, Key.keysym) || IsEditorFrozen(App))
        return;
    const Uint16 mod = Key.keysym.mod;
    App.pEditor->HandleGlobalKey(Key.keysym.sym, (mod & KMOD_SHIFT) != 0, (mod & KMOD_CTRL) != 0,
                                 (mod & KMOD_ALT) != 0);
}

// Wheel up zooms in (button 3), down zooms out (4), one click per step.
void HandleWheel(Program& App, const SDL_MouseWheelEvent& Wheel)
{
    int x = 0;
    int y = 0;
    SDL_GetMouseState(&x, &y);
    double nx = 0.0;
    double ny = 0.0;
    PointerToNormalised(App.pWindow, x, y, nx, ny);
    const int delta = Wheel.direction == SDL_MOUSEWHEEL_FLIPPED ? -Wheel.y : Wheel.y;
    // Ctrl+wheel zooms the amplitude, a quarter per step, from full scale to 1/1024 of it.
    if ((SDL_GetModState() & KMOD_CTRL) != 0)
    {
        GLWaveEdit& editor = *App.pEditor;
        editor.AmplitudeZoom = std::clamp(editor.AmplitudeZoom * std::pow(1.25, delta), 1.0, 1024.0);
        return;
    }
    for (int i = 0; i < std::min(std::abs(delta), 10); ++i)
        App.pEditor->EventMouseClick(delta > 0 ? 3 : 4, nx, ny);
}

void HandleEvent(Program& App, PointerInput& Pointer, const SDL_Event& Event)
{
    ImGui_ImplSDL2_ProcessEvent(&Event);
    const ImGuiIO& io = ImGui::GetIO();
    const bool uiBusy = App.Prompts.IsShowing() || io.WantCaptureMouse;
    App.FramesToDraw = std::max(App.FramesToDraw, 3);  // ImGui settles within a few frames
    if (Pointer.Take(Event))
        return;
    switch (Event.type)
    {
    case SDL_QUIT: CommandQuit(App); break;
    case SDL_WINDOWEVENT:
        if (Event.window.event == SDL_WINDOWEVENT_LEAVE)
            App.pEditor->EventMouseOut();
        else if (Event.window.event == SDL_WINDOWEVENT_FOCUS_GAINED)
            CheckDiskChanges(App);
        break;
    case SDL_MOUSEWHEEL:
        if (!uiBusy && !IsEditorFrozen(App))
            HandleWheel(App, Event.wheel);
        break;
    case SDL_KEYDOWN: HandleKey(App, Event.key, io.WantCaptureKeyboard); break;
    case SDL_DROPFILE:
        OpenPaths(App, {Event.drop.file});
        SDL_free(Event.drop.file);
        break;
    default: break;
    }
}

// Something moves on screen: playback, a progress bar, a dialog settling.
bool WantsFrames(const Program& App)
{
    return App.FramesToDraw > 0 || App.pEditor->IsPlaybackActive() || App.Work.IsOpening() ||
           App.Work.IsSaving() || App.Chooser.IsShowing();
}

// Waits for the next event, or for the next frame when something moves.
bool WaitForEvent(const Program& App, SDL_Event& Out, Uint32 SinceFrameMs)
{
    if (!WantsFrames(App))
        return SDL_WaitEvent(&Out) == 1;
    const bool smooth = App.FramesToDraw > 0 || App.pEditor->IsPlaybackActive();
    const Uint32 period = smooth ? kFrameMs : kProgressFrameMs;
    return SinceFrameMs < period && SDL_WaitEventTimeout(&Out, static_cast<int>(period - SinceFrameMs)) == 1;
}

// One frame: the queued pointer changes, the UI, the editor's pass, drawing.
void RunFrame(Program& App, PointerInput& Pointer, Cursors& Shapes, std::string& Title)
{
    Core& host = *App.pHost;
    ImGui_ImplOpenGL2_NewFrame();
    ImGui_ImplSDL2_NewFrame();
    ImGui::NewFrame();
    DrawMenuBar(App);
    DrawOverview(App);
    DrawStatusBar(App);
    App.Prompts.Draw();
    FitToWindow(App);

    host.pMouse->BeginFrame();
    host.pTarvik->bChildWindowProcessed = false;
    host.pTarvik->SetCursor(kCursorDefault, false);
    const bool editorMayTake = !ImGui::GetIO().WantCaptureMouse && !App.Prompts.IsShowing() && !IsEditorFrozen(App);
    if (Pointer.Deliver(App, editorMayTake))
        App.FramesToDraw = std::max(App.FramesToDraw, 2);
    App.pEditor->MouseProcessing();
    ApplyPlaybackOptions(App);
    ApplyCursor(*host.pTarvik, Shapes);
    // A queued edit is for the document on screen: no tab may come or go first.
    if (!App.Edits.IsBusy())
    {
        PollChooser(App);
        TakeFinishedJobs(App);
        AdvanceCloseQueue(App);
    }
    RefreshTitle(App, Title);

    ImGui::Render();
    glViewport(0, 0, host.pCoreSDL->Width, host.pCoreSDL->Height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glClearColor(0.06f, 0.07f, 0.09f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    App.pEditor->Render(0.0, 0.0);
    ImGui_ImplOpenGL2_RenderDrawData(ImGui::GetDrawData());
}

// --- Set-up of the editor ---

void ConnectEditor(Program& App, GLWaveEdit& Editor, PointerInput& Pointer)
{
    Editor.SetEffectProgress(&App.Edits.Progress());  // Esc and Cancel stop an effect
    Editor.MinViewSpanSec = 0.01;  // deep enough to see single samples
    Editor.ScaleGutterPx = 64.0;  // the amplitude scale beside the audio, not over it
    App.Work.bPrepareDocuments = true;
    App.Work.OnFinished = [] {
        SDL_Event wake{};
        wake.type = SDL_USEREVENT;
        SDL_PushEvent(&wake);  // thread-safe
    };
    Editor.EnableEditHistory(App.Settings.HistoryCapBytes);
    ConnectMarkers(App, Editor);
    Editor.IsPreloadingProvider = [&App] { return App.Work.IsOpening(); };
    Editor.PreloadProgressProvider = [&App] { return App.Work.OpenProgress(); };
    Editor.SignalEditActionRequested.connect([&App](std::string Action, double, double) {
        App.LastEdit = {Action, App.LastEdit.Serial + 1};
    });
    Editor.SignalActiveDocumentChanged.connect([&App](std::string) { App.Docs.Prune(*App.pEditor); });
    // A click on a tab's close box goes through the same guard as Ctrl+W. A
    // press waiting behind it is dropped: the tabs widen after a close, and
    // another close box may now sit under the pointer.
    Editor.TabMarkProvider = [&App](int Index) {
        return App.Docs.IsModified(*App.pEditor, App.pEditor->DocumentIdAt(Index));
    };
    Editor.TabLabelProvider = [&App](int Index) { return DocumentName(App, App.pEditor->DocumentIdAt(Index), ""); };
    // A mono file shows as the one channel it is, at its own level.
    Editor.MonoSourceLevelProvider = [&App](int Index) {
        const DocumentInfo* info = App.Docs.Find(App.pEditor->DocumentIdAt(Index));
        return info && info->Source.bKnown && info->Source.Channels == 1 ? 1.0 / ImportMonoSpreadGain() : 0.0;
    };
    ConnectTimeFormat(App);
    Editor.bChannelLanes = App.Settings.bChannelLanes;
    Editor.bAmplitudeDb = App.Settings.bAmplitudeDb;
    const char* lines = std::getenv("GLWE_WAVEFORM_LINES");  // "1": columns as lines, for a GLSL that misbehaves
    Editor.bColumnShader = !(lines && std::string(lines) == "1");
    // A second core folds half the columns of a long view in each frame.
    Editor.bRenderHelperThread = true;
    Editor.CloseRequestProvider = [&App, &Pointer](int Index) {
        Pointer.ForgetPresses();
        RequestClose(App, {App.pEditor->DocumentIdAt(Index)}, false);
        return false;
    };
}

void OpenStartupDocuments(Program& App, const Options& Opts)
{
    GLWaveEdit& editor = *App.pEditor;
    if (Opts.Files.empty())
        editor.AdoptDecodedDocument("Demo chords", SynthesiseDemoChords(kDocumentRateHz));
    // A screenshot shows the files opened; otherwise they open in the background.
    for (const std::string& path : Opts.Files)
    {
        std::string error;
        if (!Opts.ScreenshotPath.empty() && !OpenAndWait(editor, App.Work, App.Docs, path, error))
            App.Complain("Cannot open " + path + ": " + error);
        else if (Opts.ScreenshotPath.empty())
            OpenPaths(App, {path});
    }
    if (App.Settings.EditorStateType == editor.GetStateType() && Opts.Files.empty())
        editor.ApplyExtraState(App.Settings.EditorState);
    if (!RunBatchSteps(editor, App.Work, App.Docs, Opts))
        App.Complain("A command-line step failed; see the terminal.");
    if (Opts.bSeek)
        editor.SeekPlaybackTo(Opts.SeekSec);
}

void RememberState(Program& App)
{
    int width = 0;
    int height = 0;
    SDL_GetWindowSize(App.pWindow, &width, &height);
    App.Settings.bMaximized = (SDL_GetWindowFlags(App.pWindow) & SDL_WINDOW_MAXIMIZED) != 0;
    if (!App.Settings.bMaximized)
        App.Settings.WindowWidth = width, App.Settings.WindowHeight = height;
    App.Settings.bChannelLanes = App.pEditor->bChannelLanes;
    App.Settings.bAmplitudeDb = App.pEditor->bAmplitudeDb;
    App.Settings.EditorStateType = App.pEditor->GetStateType();
    App.Settings.EditorState = nlohmann::json::object();
    App.pEditor->SerializeExtraState(App.Settings.EditorState);
    std::string error;
    if (!SaveSettings(SettingsFilePath(), App.Settings, error))
        std::fprintf(stderr, "glwaveedit: settings not saved: %s\n", error.c_str());
}

bool HasDisplay()
{
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "SDL_VIDEODRIVER"})
        if (const char* value = std::getenv(name); value && *value)
            return true;
    return false;
}

int WriteScreenshotNow(const Program& App, const std::string& Path)
{
    std::string error;
    if (!WriteScreenshot(Path, App.pHost->pCoreSDL->Width, App.pHost->pCoreSDL->Height, error))
    {
        std::fprintf(stderr, "glwaveedit: %s\n", error.c_str());
        return 1;
    }
    std::fprintf(stderr, "glwaveedit: screenshot written to %s\n", Path.c_str());
    return 0;
}
}  // namespace

int main(int argc, char** argv)
{
    // --- Set-up ---
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error))
    {
        std::fprintf(stderr, "glwaveedit: %s\nRun glwaveedit --help for the options and keys.\n", error.c_str());
        return 2;
    }
    if (options.bHelp)
    {
        std::fputs(UsageText(), stdout);
        return 0;
    }
    CapFfmpegAllocations();  // no file may make FFmpeg take gigabytes at once
    if (options.IsBatch() && options.ScreenshotPath.empty())
        return RunBatch(options);

    Program app;
    std::string settingsMessage;
    LoadSettings(SettingsFilePath(), app.Settings, settingsMessage);
    // Without a display SDL may probe consoles and input devices for a long
    // time; say at once what is missing.
    if (!HasDisplay() || SDL_Init(SDL_INIT_VIDEO) != 0)
    {
        std::fprintf(stderr,
                     "glwaveedit: no display to open a window on (%s). Set DISPLAY, use the batch mode "
                     "(--help), or scripts/run-editor, which falls back to Xvfb.\n",
                     HasDisplay() ? SDL_GetError() : "neither DISPLAY nor WAYLAND_DISPLAY is set");
        return 1;
    }
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 2);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 1);
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    const Uint32 windowFlags = SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI |
                               (app.Settings.bMaximized ? SDL_WINDOW_MAXIMIZED : 0);
    SDL_Window* window = SDL_CreateWindow("GLWaveEdit", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                          app.Settings.WindowWidth, app.Settings.WindowHeight, windowFlags);
    SDL_GLContext context = window ? SDL_GL_CreateContext(window) : nullptr;
    if (!context)
    {
        std::fprintf(stderr, "glwaveedit: no OpenGL 2.1 window: %s\n", SDL_GetError());
        if (window)
            SDL_DestroyWindow(window);
        SDL_Quit();
        return 1;
    }
    SDL_GL_MakeCurrent(window, context);
    SDL_GL_SetSwapInterval(1);

    IMGUI_CHECKVERSION();
    ImGui::CreateContext();
    ImGui::GetIO().IniFilename = nullptr;  // the program keeps its own state
    ImGui::StyleColorsDark();
    ImGui::GetIO().Fonts->AddFontFromFileTTF(kFontPath, kUiFontPx);
    ImGui_ImplSDL2_InitForOpenGL(window, context);
    ImGui_ImplOpenGL2_Init();

    Core host;
    host.CreateParts();
    p = &host;
    auto font = std::make_unique<TTF>();
    if (font->Load(kFontPath, &error))
        host.pRend->pTTF = font.get();
    else
        app.Complain(error + "; the waveform runs without text");

    GLWindow hostWindow;
    auto editor = std::make_unique<GLWaveEdit>(1);
    editor->pHostWindow = &hostWindow;
    editor->Init();
    DistinguishMarkers(*editor);
    editor->bFocused = true;
    host.pTarvik->Windows.push_back(editor.get());
    app.pWindow = window;
    app.pHost = &host;
    app.pEditor = editor.get();
    PointerInput pointer;
    ConnectEditor(app, *editor, pointer);
    if (!settingsMessage.empty())
        app.Complain(settingsMessage);
    OpenStartupDocuments(app, options);
    if (options.ScreenshotPath.empty())
        OfferRestores(app);
    auto cursors = std::make_unique<Cursors>();

    // --- Event loop ---
    int exitCode = 0;
    std::string title;
    Uint32 lastFrameMs = SDL_GetTicks();
    FrameTimes times;
    KeyLatch keys;
    for (int frame = 1; !app.bQuit; ++frame)
    {
        if (app.Edits.IsRunning())
        {
            times.Note(RunBusyFrame(app));
            continue;
        }
        // Events after one that queued an edit or opened a dialog wait until
        // the edit is done or the dialog can take them.
        SDL_Event event;
        const bool holdInput = app.Prompts.IsSettling();
        if (holdInput)
            SDL_Delay(kFrameMs);
        const bool waited = !holdInput && options.ScreenshotPath.empty() &&
                            WaitForEvent(app, event, SDL_GetTicks() - lastFrameMs);
        const Uint64 busyFrom = SDL_GetPerformanceCounter();
        for (const SDL_Event& kept : holdInput ? std::deque<SDL_Event>() : keys.NextFrame())
            HandleEvent(app, pointer, kept);
        if (waited && !keys.Defer(event))
            HandleEvent(app, pointer, event);
        while (!app.Edits.IsBusy() && !app.Prompts.IsSettling() && SDL_PollEvent(&event))
            if (!keys.Defer(event))
                HandleEvent(app, pointer, event);
        if (keys.HasDeferred())
            app.FramesToDraw = std::max(app.FramesToDraw, 2);
        lastFrameMs = SDL_GetTicks();
        RunFrame(app, pointer, *cursors, title);
        app.FramesToDraw = std::max(app.FramesToDraw - 1, 0);
        if (!options.ScreenshotPath.empty() && frame >= options.ScreenshotFrames)
        {
            exitCode = WriteScreenshotNow(app, options.ScreenshotPath);
            app.bQuit = true;
        }
        app.Edits.KeepPicture(host.pCoreSDL->Width, host.pCoreSDL->Height);
        app.Edits.StartQueued();
        SDL_GL_SwapWindow(window);
        times.Note(busyFrom);
    }
    times.Report();
    while (!app.Edits.WaitForEnd(1000))  // the editor goes below; its edit ends first
    {
    }
    app.Edits.ReleasePicture();
    if (options.ScreenshotPath.empty())
        RememberState(app);
    app.Recovery.ForgetAll();  // a clean end: every change was saved or let go

    // --- Cleanup, in reverse ---
    cursors.reset();
    host.pTarvik->Windows.clear();
    editor->Destroy();
    editor.reset();  // ends playback while SDL is still up
    host.pRend->pTTF = nullptr;
    font.reset();  // its textures go while the context exists
    p = nullptr;
    ImGui_ImplOpenGL2_Shutdown();
    ImGui_ImplSDL2_Shutdown();
    ImGui::DestroyContext();
    SDL_GL_DeleteContext(context);
    SDL_DestroyWindow(window);
    SDL_Quit();
    return exitCode;
}
