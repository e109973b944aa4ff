// The drawn waveform, checked by pixel colour in a screenshot of the desktop
// program under Xvfb: two channel lanes, each with its amplitude scale, red
// caps exactly over the stretch that clips, and the selection tinted across
// both lanes; and the same waveform whether a shader or lines draw it.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "desktop_harness.h"
#include "test_support.h"

namespace
{
// The plot's empty background: the theme's info fill (0.05, 0.09, 0.14) in 8 bits.
const Rgb kPlotBack{13, 23, 36};

bool IsClipRed(const Rgb& C)
{
    return C.R > 200 && C.G < 90 && C.B < 90;
}

bool IsText(const Rgb& C)
{
    return C.R > 200 && C.G > 200 && C.B > 200;
}

// The plot: the bounding box of its empty background.
void PlotBounds(const Screenshot& Picture, int& X1, int& Y1, int& X2, int& Y2)
{
    X1 = Picture.Width, X2 = -1, Y1 = Picture.Height, Y2 = -1;
    for (int y = 0; y < Picture.Height; ++y)
        for (int x = 0; x < Picture.Width; ++x)
            if (Near(Picture.At(x, y), kPlotBack, 2))
                X1 = std::min(X1, x), X2 = std::max(X2, x), Y1 = std::min(Y1, y), Y2 = std::max(Y2, y);
}

// The program on Audio under Xvfb, with Options, its screenshot read back;
// Environment goes before the command (VAR=value ...).
bool TakeScreenshot(const std::string& Audio, const std::string& Options, const std::string& Environment,
                    const std::string& Name, Screenshot& Out)
{
    const std::string shot = ScratchPath(Name + ".png");
    std::remove(shot.c_str());
    const std::string command = Environment + " " + GLWE_XVFB_RUN_PATH + " -a -s '-screen 0 1280x800x24' " +
                                GLWE_PROGRAM_PATH + " '" + Audio + "' " + Options + " --screenshot '" + shot + "' > '" +
                                ScratchPath(Name + ".log") + "' 2>&1";
    const int status = std::system(command.c_str());
    EXPECT_EQ(status, 0) << command;
    return status == 0 && Out.Read(shot);
}
}  // namespace

TEST(WaveformScreenshot, ShowsLanesScalesClipCapsAndTheSelection)
{
    // 4 s of stereo float: left a square wave at 1.2 (beyond full scale) for
    // the first 2 s, then a 0.5 sine; right a quiet 0.1 sine throughout.
    const std::string audio = MakeFfmpegFixture(
        "clip_lanes.wav",
        "-f lavfi -i \"aevalsrc=exprs='if(lt(t,2),1.2*(2*gte(sin(2*PI*3*t),0)-1),0.5*sin(2*PI*3*t))|"
        "0.1*sin(2*PI*440*t)':s=48000:d=4\" -c:a pcm_f32le");
    Screenshot picture;
    ASSERT_TRUE(TakeScreenshot(audio, "--select 3.0 3.5", "", "clip_lanes", picture));

    int plotX1, plotY1, plotX2, plotY2;
    PlotBounds(picture, plotX1, plotY1, plotX2, plotY2);
    ASSERT_GT(plotX2 - plotX1, 400);
    ASSERT_GT(plotY2 - plotY1, 200);
    const double widthPx = plotX2 - plotX1;
    const auto xAt = [&](double TimeSec) { return plotX1 + static_cast<int>(TimeSec / 4.0 * widthPx); };
    const int laneHeight = (plotY2 - plotY1) / 2;
    const int upperTop = plotY1, lowerTop = plotY1 + laneHeight;

    // Red caps along the top and bottom edge of the upper lane while it clips
    // (0.2 .. 1.8 s), none after 2 s, none at all in the quiet lower lane.
    const int capsWhileClipping = picture.Count(xAt(0.2), upperTop, xAt(1.8), upperTop + 6, IsClipRed);
    EXPECT_GT(capsWhileClipping, (xAt(1.8) - xAt(0.2)) / 3) << "upper lane, top edge, 0.2..1.8 s";
    EXPECT_GT(picture.Count(xAt(0.2), lowerTop - 6, xAt(1.8), lowerTop, IsClipRed), (xAt(1.8) - xAt(0.2)) / 3)
        << "upper lane, bottom edge, 0.2..1.8 s";
    EXPECT_EQ(picture.Count(xAt(2.2), plotY1, plotX2, plotY2, IsClipRed), 0) << "after 2 s";
    EXPECT_EQ(picture.Count(plotX1, lowerTop + 2, plotX2, plotY2, IsClipRed), 0) << "lower lane";

    // Two lanes: at 2.5 s the upper one reaches half its height (0.5 sine),
    // the lower one stays within a tenth of it around its middle.
    const auto wavePixels = [&](int Top, double FromFraction, double ToFraction) {
        return picture.Count(xAt(2.1), Top + static_cast<int>(laneHeight * FromFraction), xAt(2.9),
                       Top + static_cast<int>(laneHeight * ToFraction),
                       [](const Rgb& C) { return C.B > 150 && C.B > C.R + 60; });
    };
    EXPECT_GT(wavePixels(upperTop, 0.3, 0.45), 100) << "the loud channel's lane";
    EXPECT_EQ(wavePixels(lowerTop, 0.1, 0.4), 0) << "the quiet channel's lane above its 0.1 peaks";
    EXPECT_GT(wavePixels(lowerTop, 0.46, 0.54), 100) << "the quiet channel around its zero line";

    // A scale with text at the left edge of each lane.
    for (const int top : {upperTop, lowerTop})
        EXPECT_GT(picture.Count(plotX1, top, plotX1 + 70, top + laneHeight, IsText), 20) << "scale of lane at " << top;

    // The selection (3.0 .. 3.5 s) tints both lanes: a quiet row of each lane
    // is redder inside it than just before it.
    for (const int top : {upperTop + laneHeight / 8, lowerTop + laneHeight / 8})
    {
        const Rgb inside = picture.At(xAt(3.25), top);
        const Rgb outside = picture.At(xAt(2.75), top);
        EXPECT_GT(inside.R - outside.R, 10) << "row " << top;
    }
}

// The columns are drawn by a fragment shader where GL has one, and as lines
// where it has not (GLWE_WAVEFORM_LINES=1 asks for lines). Both must show the
// same waveform: only pixels along edges may differ, and some must, or the
// two screenshots did not come from two ways of drawing.
TEST(WaveformScreenshot, LooksTheSameDrawnByTheShaderOrAsLines)
{
    const std::string audio = MakeFfmpegFixture(
        "shader_lines.wav", "-f lavfi -i \"aevalsrc=exprs='0.7*sin(2*PI*3*t)*sin(2*PI*440*t)|"
                            "0.5*(random(0)*2-1)*abs(sin(PI*t/4))':s=48000:d=4\" -c:a pcm_f32le");
    Screenshot shaded;
    Screenshot lines;
    ASSERT_TRUE(TakeScreenshot(audio, "", "", "shader_lines_shaded", shaded));
    ASSERT_TRUE(TakeScreenshot(audio, "", "GLWE_WAVEFORM_LINES=1", "shader_lines_lines", lines));
    ASSERT_EQ(shaded.Width, lines.Width);
    ASSERT_EQ(shaded.Height, lines.Height);

    int waveform = 0;
    int differing = 0;
    for (int y = 0; y < shaded.Height; ++y)
        for (int x = 0; x < shaded.Width; ++x)
        {
            const Rgb a = shaded.At(x, y);
            const Rgb b = lines.At(x, y);
            waveform += (a.B > 150 && a.B > a.R + 60) ? 1 : 0;
            differing += Near(a, b, 40) ? 0 : 1;
        }
    EXPECT_GT(waveform, 50000) << "the shaded picture shows a waveform";
    EXPECT_GT(differing, 0) << "both pictures drawn the same way";
    EXPECT_LT(differing, waveform / 25) << "pixels differing by more than a shade";
}

// A mono file is one lane at its own level: a 0.5 sine reaches half the
// lane's height (the document holds it at 0.5 x 0.7071 in each of its two
// channels), and a square at 1.2 gets red caps (0.85 in the document).
TEST(WaveformScreenshot, AMonoFileIsOneLaneAtItsOwnLevel)
{
    const std::string audio = MakeFfmpegFixture(
        "mono_level.wav",
        "-f lavfi -i \"aevalsrc=exprs='if(lt(t,2),1.2*(2*gte(sin(2*PI*3*t),0)-1),0.5*sin(2*PI*3*t))':s=48000:d=4\" "
        "-c:a pcm_f32le");
    Screenshot picture;
    ASSERT_TRUE(TakeScreenshot(audio, "", "", "mono_level", picture));
    int plotX1, plotY1, plotX2, plotY2;
    PlotBounds(picture, plotX1, plotY1, plotX2, plotY2);
    ASSERT_GT(plotY2 - plotY1, 200);
    const double height = plotY2 - plotY1;
    const auto xAt = [&](double TimeSec) { return plotX1 + static_cast<int>(TimeSec / 4.0 * (plotX2 - plotX1)); };
    const auto isWave = [](const Rgb& C) { return C.B > 150 && C.B > C.R + 60; };
    // One lane over the whole plot: the sine's peaks lie a quarter of its
    // height from the top (0.354 would stop at 0.32 of it), and its fill runs
    // on down across where two lanes would part.
    for (const double band : {0.27, 0.36})
        EXPECT_GT(picture.Count(xAt(2.1), plotY1 + static_cast<int>(height * band), xAt(2.9),
                          plotY1 + static_cast<int>(height * (band + 0.04)), isWave),
                  50)
            << "rows from " << band;
    EXPECT_GT(picture.Count(xAt(0.2), plotY1, xAt(1.8), plotY1 + 6, IsClipRed), (xAt(1.8) - xAt(0.2)) / 3);
    EXPECT_EQ(picture.Count(xAt(2.2), plotY1, plotX2, plotY2, IsClipRed), 0);
}
