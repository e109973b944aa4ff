// The editor object (what Destroy releases) and what it relies on in the
// host: Signal.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_support.h"

namespace
{
using Colour = GLColor* GLWaveEdit::*;
// In declaration order, which is the order Destroy deletes them in.
const Colour kColours[16] = {
    &GLWaveEdit::pBackgroundColor,    &GLWaveEdit::pPlotBackColor,        &GLWaveEdit::pWaveColor,
    &GLWaveEdit::pWaveFillColor,      &GLWaveEdit::pGridColor,            &GLWaveEdit::pAxisColor,
    &GLWaveEdit::pSelectionFillColor, &GLWaveEdit::pSelectionBorderColor, &GLWaveEdit::pPlayheadColor,
    &GLWaveEdit::pHoverColor,         &GLWaveEdit::pTabBackColor,         &GLWaveEdit::pTabActiveColor,
    &GLWaveEdit::pTabBorderColor,     &GLWaveEdit::pTextColor,            &GLWaveEdit::pBorderColor,
    &GLWaveEdit::pBorderFocusColor};

// Reports its deletion, so that Destroy's work can be watched.
struct WatchedColour : GLColor
{
    WatchedColour(int Id, std::vector<int>* Log) : Id(Id), Log(Log) {}
    ~WatchedColour() override { Log->push_back(Id); }
    int Id;
    std::vector<int>* Log;
};

// A GL 2 context of Mesa's software rasteriser, current on this thread for
// the object's lifetime, without a window. Empty where EGL has none to give.
class SoftwareGLContext
{
public:
    SoftwareGLContext()
    {
        const auto platformDisplay =
            reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
        if (!platformDisplay)
            return;
        Display = platformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (Display == EGL_NO_DISPLAY || !eglInitialize(Display, nullptr, nullptr) || !eglBindAPI(EGL_OPENGL_API))
            return;
        Context = eglCreateContext(Display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, nullptr);
        if (Context != EGL_NO_CONTEXT && !eglMakeCurrent(Display, EGL_NO_SURFACE, EGL_NO_SURFACE, Context))
            Context = EGL_NO_CONTEXT;
    }
    ~SoftwareGLContext()
    {
        if (Context != EGL_NO_CONTEXT)
        {
            eglMakeCurrent(Display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            eglDestroyContext(Display, Context);
        }
        if (Display != EGL_NO_DISPLAY)
            eglTerminate(Display);
    }
    bool IsCurrent() const { return Context != EGL_NO_CONTEXT; }

private:
    EGLDisplay Display = EGL_NO_DISPLAY;
    EGLContext Context = EGL_NO_CONTEXT;
};

// GL programs alive in the current context, among the first names GL hands out.
int LivePrograms()
{
    int live = 0;
    for (GLuint name = 1; name < 64; ++name)
        live += glIsProgram(name) == GL_TRUE;
    return live;
}
}  // namespace

TEST(EditorObject, DestroyDeletesTheColoursInFieldOrderAndLeavesDocumentsAndPlayerAlone)
{
    TestHost host;
    GLWaveEdit editor;
    editor.Init();
    std::vector<int> deleted;
    std::vector<GLColor*> handedIn;
    for (int i = 0; i < 16; ++i)  // watched colours on even fields, nulls on odd ones
    {
        delete (editor.*kColours[i]);
        handedIn.push_back(editor.*kColours[i] = (i % 2 == 0) ? new WatchedColour(i, &deleted) : nullptr);
    }
    editor.AdoptDecodedDocument("a", ConstantFrames(14400, 0.1f, 0.1f));  // 48000 * 0.3 = 14400 frames
    ASSERT_TRUE(editor.PlayFromCurrentPosition());
    editor.Destroy();
    EXPECT_EQ(deleted, (std::vector<int>{0, 2, 4, 6, 8, 10, 12, 14}));
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(editor.*kColours[i], handedIn[i]) << "pointers stay as they were";
    EXPECT_TRUE(editor.IsPlaybackActive());
    EXPECT_EQ(editor.DocumentCount(), 1);
    EXPECT_EQ(editor.DurationSec, 0.3);
}

TEST(EditorObject, DestroyReleasesTheWaveformShadersGLObjectsWhileTheHostsContextIsCurrent)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // Mesa's software rasteriser may keep allocations past eglTerminate,
    // which the leak checker would report; the plain build runs this.
    GTEST_SKIP() << "no software GL under the sanitizers";
#endif
    SoftwareGLContext context;
    if (!context.IsCurrent())
        GTEST_SKIP() << "no EGL context to be had here";
    TestHost host;
    GLWaveEdit editor;
    editor.Init();
    editor.X1 = -0.9, editor.X2 = 0.9, editor.Y1 = 0.9, editor.Y2 = -0.9;
    editor.AdoptDecodedDocument("a", RampFrames(48000, 1e-5f));
    const int before = LivePrograms();
    editor.Render(0.0, 0.0);
    ASSERT_EQ(LivePrograms(), before + 1) << "the waveform is drawn by a shader program in this context";
    editor.Destroy();
    EXPECT_EQ(LivePrograms(), before);
}

TEST(HostContract, SignalCallsEverySlotInOrderWithTheValuesOfTheMomentOfTheEmit)
{
    Signal<std::string, double> signal;
    std::string field = "cut";  // an emitter's own field, which a slot changes
    std::vector<std::string> seen;
    signal.connect([&](std::string S, double V) {
        seen.push_back("1 " + (S += "!") + std::to_string(V));
        field = "closed";
    });
    signal.connect([&](std::string S, double V) { seen.push_back("2 " + std::move(S) + std::to_string(V)); });
    signal.connect([&](std::string S, double V) { seen.push_back("3 " + S + std::to_string(V)); });
    signal.emit(field, 2.5);
    EXPECT_EQ(seen, (std::vector<std::string>{"1 cut!2.500000", "2 cut2.500000", "3 cut2.500000"}));
    seen.clear();
    signal.emit(std::string("paste"), 1.0);  // a temporary, moved from by none of them
    EXPECT_EQ(seen, (std::vector<std::string>{"1 paste!1.000000", "2 paste1.000000", "3 paste1.000000"}));
}

