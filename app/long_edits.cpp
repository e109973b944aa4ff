#include "long_edits.h"

#include <GL/gl.h>
#include <imgui.h>
#include <imgui/backends/imgui_impl_opengl2.h>
#include <imgui/backends/imgui_impl_sdl.h>

#include <algorithm>
#include <cstdio>

#include "program.h"

namespace
{
// An edit that ends within this leaves the picture as it was: no flash of a
// dimmed window for a short edit.
constexpr std::chrono::milliseconds kQuietFor{150};
constexpr float kDimmed = 0.55f;
constexpr int kBusyFrameMs = 50;
}  // namespace

void LongEdits::Queue(const std::string& What, std::function<void()> Edit, bool Stoppable)
{
    Queued.push_back({What, std::move(Edit), Stoppable});
}

void LongEdits::KeepPicture(int Width, int Height)
{
    if (Queued.empty())
        return;
    // What was just drawn, from the back buffer, before the swap.
    if (PictureTexture == 0)
        glGenTextures(1, &PictureTexture);
    glBindTexture(GL_TEXTURE_2D, PictureTexture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP);
    glReadBuffer(GL_BACK);
    glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 0, 0, Width, Height, 0);
    glBindTexture(GL_TEXTURE_2D, 0);
}

void LongEdits::StartQueued()
{
    StartedAt = std::chrono::steady_clock::now();
    for (Job& job : Queued)
    {
        ++Running;
        Thread.Post([this, what = std::move(job.What), edit = std::move(job.Edit), stoppable = job.bStoppable] {
            {
                std::lock_guard<std::mutex> hold(Lock);
                Current = what;
                Work.Reset();
                bCurrentStoppable = stoppable;
            }
            edit();
            bCurrentStoppable = false;
            std::lock_guard<std::mutex> hold(Lock);
            --Running;
            Ended.notify_all();
        });
    }
    Queued.clear();
}

bool LongEdits::WaitForEnd(int Ms)
{
    std::unique_lock<std::mutex> hold(Lock);
    return Ended.wait_for(hold, std::chrono::milliseconds(Ms), [this] { return Running.load() == 0; });
}

void LongEdits::DrawBusyFrame(int Width, int Height)
{
    const auto elapsed = std::chrono::steady_clock::now() - StartedAt;
    const bool bDim = elapsed >= kQuietFor;
    glViewport(0, 0, Width, Height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glClearColor(0.06f, 0.07f, 0.09f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    if (PictureTexture != 0)
    {
        // The picture as it was taken; a resized window stretches it.
        glEnable(GL_TEXTURE_2D);
        glBindTexture(GL_TEXTURE_2D, PictureTexture);
        const float shade = bDim ? kDimmed : 1.0f;
        glColor4f(shade, shade, shade, 1.0f);
        glBegin(GL_QUADS);
        glTexCoord2f(0.0f, 0.0f), glVertex2f(-1.0f, -1.0f);
        glTexCoord2f(1.0f, 0.0f), glVertex2f(1.0f, -1.0f);
        glTexCoord2f(1.0f, 1.0f), glVertex2f(1.0f, 1.0f);
        glTexCoord2f(0.0f, 1.0f), glVertex2f(-1.0f, 1.0f);
        glEnd();
        glBindTexture(GL_TEXTURE_2D, 0);
        glDisable(GL_TEXTURE_2D);
    }
    if (!bDim)
        return;
    std::string what;
    {
        std::lock_guard<std::mutex> hold(Lock);
        what = Current;
    }
    ImGui_ImplOpenGL2_NewFrame();
    ImGui_ImplSDL2_NewFrame();
    ImGui::NewFrame();
    const ImGuiViewport* view = ImGui::GetMainViewport();
    ImGui::SetNextWindowPos(ImVec2(view->WorkPos.x + view->WorkSize.x * 0.5f, view->WorkPos.y + view->WorkSize.y * 0.5f),
                            ImGuiCond_Always, ImVec2(0.5f, 0.5f));
    ImGui::Begin("##busy", nullptr,
                 ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoInputs | ImGuiWindowFlags_AlwaysAutoResize |
                     ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoFocusOnAppearing);
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f s", std::chrono::duration<double>(elapsed).count());
    ImGui::Text("%s...  %s", what.c_str(), seconds);
    const double fraction = Work.Fraction();
    const bool stoppable = bCurrentStoppable.load();
    if (fraction >= 0.0)
        ImGui::ProgressBar(static_cast<float>(fraction), ImVec2(ImGui::GetFontSize() * 18.0f, 0.0f));
    if (stoppable && !Work.IsCancelled())
    {
        // The window takes no input: the click is found in SDL's queue
        // (TakeStopRequests) on this button's place.
        ImGui::Button("Cancel");
        CancelButton[0] = ImGui::GetItemRectMin().x;
        CancelButton[1] = ImGui::GetItemRectMin().y;
        CancelButton[2] = ImGui::GetItemRectMax().x;
        CancelButton[3] = ImGui::GetItemRectMax().y;
        ImGui::SameLine();
        ImGui::TextDisabled("or Esc stops it; the document stays as it was.");
    }
    else
        CancelButton[2] = CancelButton[0];
    if (stoppable && Work.IsCancelled())
        ImGui::TextDisabled("Stopping...");
    ImGui::TextDisabled("Keys and clicks wait until it is done.");
    ImGui::End();
    ImGui::Render();
    ImGui_ImplOpenGL2_RenderDrawData(ImGui::GetDrawData());
}

Uint64 RunBusyFrame(Program& App)
{
    const bool ended = App.Edits.WaitForEnd(kBusyFrameMs);
    const Uint64 busyFrom = SDL_GetPerformanceCounter();
    if (ended)
    {
        App.Edits.ReleasePicture();
        App.FramesToDraw = std::max(App.FramesToDraw, 3);
        return busyFrom;
    }
    SDL_PumpEvents();  // the window stays alive to the window manager
    App.Edits.TakeStopRequests();
    int width = 1;
    int height = 1;
    SDL_GL_GetDrawableSize(App.pWindow, &width, &height);
    App.Edits.DrawBusyFrame(width, height);
    SDL_GL_SwapWindow(App.pWindow);
    return busyFrom;
}

void LongEdits::ReleasePicture()
{
    if (PictureTexture != 0)
        glDeleteTextures(1, &PictureTexture);
    PictureTexture = 0;
}

void LongEdits::TakeStopRequests()
{
    struct Look
    {
        LongEdits* Self;
        bool bStop = false;
    } look{this};
    // SDL drops each event this answers 0 for and keeps the rest in order.
    SDL_FilterEvents(
        [](void* Data, SDL_Event* Event) -> int {
            Look& look = *static_cast<Look*>(Data);
            LongEdits& self = *look.Self;
            if (!self.bCurrentStoppable.load())
                return 1;
            if (Event->type == SDL_KEYDOWN && Event->key.keysym.sym == SDLK_ESCAPE)
            {
                look.bStop = true;
                return 0;
            }
            const bool press = Event->type == SDL_MOUSEBUTTONDOWN;
            if ((press || Event->type == SDL_MOUSEBUTTONUP) && Event->button.button == SDL_BUTTON_LEFT)
            {
                const float x = static_cast<float>(Event->button.x);
                const float y = static_cast<float>(Event->button.y);
                const float* box = self.CancelButton;
                const bool onButton = box[2] > box[0] && x >= box[0] && x < box[2] && y >= box[1] && y < box[3];
                if (press && onButton)
                {
                    look.bStop = true;
                    self.bSwallowRelease = true;
                    return 0;
                }
                if (!press && self.bSwallowRelease)
                {
                    self.bSwallowRelease = false;
                    return 0;
                }
            }
            return 1;
        },
        &look);
    if (look.bStop)
        Work.Cancel();
}
