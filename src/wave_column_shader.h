// The waveform's columns drawn by a fragment shader: one quad per lane, whose
// fragments read their column's extent from a float texture. Thousands of
// one-pixel lines cost the calling thread their vertex and setup work on every
// frame, which under a software rasteriser is most of a frame; a quad costs
// almost nothing there and leaves the pixels to the rasteriser's threads.
// Where GLSL or float textures are missing, IsAvailable says so once and the
// caller draws lines as before.
#pragma once

#include <vector>

#include "glcolor.h"

class WaveColumnShader
{
public:
    // A column's extent in the caller's normalised y. An empty RMS band has
    // RmsTopY below RmsBottomY.
    struct Column
    {
        float MaxY = 0.0f;
        float MinY = 0.0f;
        float RmsTopY = -2.0f;
        float RmsBottomY = 2.0f;
    };

    struct Look
    {
        GLColor Fill;  // alpha 0: no fill
        GLColor Rms;   // alpha 0: no band
        GLColor Edge;
    };

    WaveColumnShader() = default;
    WaveColumnShader(const WaveColumnShader&) = delete;
    WaveColumnShader& operator=(const WaveColumnShader&) = delete;
    // Makes no GL call: the context may be gone by then. Release first.
    ~WaveColumnShader() = default;

    // Deletes its GL objects in the current context; the next IsAvailable
    // builds them anew.
    void Release();

    // Compiles on the first call in a context that has GL 2.0 and float
    // textures; false from then on where it could not.
    bool IsAvailable();

    // Rows of Count columns each, row-major; sent to GL only when they differ
    // from the last ones sent. False where the texture cannot hold them.
    bool SetColumns(const std::vector<Column>& Columns, int Count, int Rows);

    // Row's columns spread evenly over X1..X2, drawn between Top and Bottom.
    void DrawRow(int Row, double X1, double X2, double Top, double Bottom, double PixelY, const Look& Colors) const;

private:
    enum class State
    {
        Untried,
        Ready,
        Unavailable
    };
    State Status = State::Untried;
    unsigned Program = 0;
    unsigned Texture = 0;
    int RowLocation = -1;
    int StepLocation = -1;
    int PixelYLocation = -1;
    int FillLocation = -1;
    int RmsLocation = -1;
    int EdgeLocation = -1;
    std::vector<Column> Sent;
    int SentCount = 0;
    int SentRows = 0;

    bool Build();
};
