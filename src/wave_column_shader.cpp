#include "wave_column_shader.h"

#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
// The vertex's own y rides along as the second texture coordinate, so that
// each fragment knows its height in the caller's units whatever the matrices.
const char* const kVertexSource = R"(#version 110
varying vec2 Coord;
void main()
{
    Coord = gl_MultiTexCoord0.xy;
    gl_Position = ftransform();
}
)";

// Layers as the line drawing had them: the min/max fill half a pixel beyond
// its ends, the RMS band inside it, and the edge, a one-pixel line through
// the column's extreme that reaches halfway to each neighbour's.
const char* const kFragmentSource = R"(#version 110
uniform sampler2D Columns;  // max, min, RMS top, RMS bottom
uniform float Row;
uniform float Step;
uniform float PixelY;
uniform vec4 FillColor;
uniform vec4 RmsColor;
uniform vec4 EdgeColor;
varying vec2 Coord;

vec4 Over(vec4 Top, vec4 Under)
{
    return vec4(Top.rgb * Top.a, Top.a) + Under * (1.0 - Top.a);
}

bool OnEdge(float Y, float Own, float Left, float Right, float Pad)
{
    float a = 0.5 * (Left + Own);
    float b = 0.5 * (Right + Own);
    return Y >= min(Own, min(a, b)) - Pad && Y <= max(Own, max(a, b)) + Pad;
}

void main()
{
    vec4 own = texture2D(Columns, vec2(Coord.x, Row));
    vec4 left = texture2D(Columns, vec2(Coord.x - Step, Row));
    vec4 right = texture2D(Columns, vec2(Coord.x + Step, Row));
    float y = Coord.y;
    float pad = 0.5 * PixelY;
    vec4 sum = vec4(0.0);
    if (y >= own.y - pad && y <= own.x + pad)
        sum = Over(FillColor, sum);
    if (y <= own.z && y >= own.w)
        sum = Over(RmsColor, sum);
    if (OnEdge(y, own.x, left.x, right.x, pad) || OnEdge(y, own.y, left.y, right.y, pad))
        sum = Over(EdgeColor, sum);
    if (sum.a <= 0.0)
        discard;
    gl_FragColor = vec4(sum.rgb / sum.a, sum.a);
}
)";

bool HasFloatTextures()
{
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    const auto* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (!version || std::atoi(version) < 2)
        return false;
    return std::atoi(version) >= 3 || (extensions && std::strstr(extensions, "GL_ARB_texture_float"));
}

GLuint CompiledShader(GLenum Kind, const char* Source)
{
    const GLuint shader = glCreateShader(Kind);
    glShaderSource(shader, 1, &Source, nullptr);
    glCompileShader(shader);
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    if (compiled == GL_TRUE)
        return shader;
    char log[512] = "";
    glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
    std::fprintf(stderr, "glwaveedit: waveform shader not compiled, lines drawn instead: %s\n", log);
    glDeleteShader(shader);
    return 0;
}

void SetColour(GLint Location, const GLColor& Colour)
{
    glUniform4f(Location, Colour.R, Colour.G, Colour.B, Colour.A);
}
}  // namespace

void WaveColumnShader::Release()
{
    if (Status == State::Ready)
    {
        glDeleteTextures(1, &Texture);
        glDeleteProgram(Program);
    }
    Status = State::Untried;
    Program = 0;
    Texture = 0;
    Sent.clear();
    SentCount = 0;
    SentRows = 0;
}

bool WaveColumnShader::IsAvailable()
{
    if (Status == State::Untried)
        Status = Build() ? State::Ready : State::Unavailable;
    return Status == State::Ready;
}

bool WaveColumnShader::Build()
{
    if (!HasFloatTextures())
        return false;
    const GLuint vertex = CompiledShader(GL_VERTEX_SHADER, kVertexSource);
    const GLuint fragment = vertex ? CompiledShader(GL_FRAGMENT_SHADER, kFragmentSource) : 0;
    if (!fragment)
    {
        glDeleteShader(vertex);
        return false;
    }
    Program = glCreateProgram();
    glAttachShader(Program, vertex);
    glAttachShader(Program, fragment);
    glLinkProgram(Program);
    // The program keeps what it linked; the shaders go with it.
    glDeleteShader(fragment);
    glDeleteShader(vertex);
    GLint linked = GL_FALSE;
    glGetProgramiv(Program, GL_LINK_STATUS, &linked);
    if (linked != GL_TRUE)
    {
        glDeleteProgram(Program);
        Program = 0;
        return false;
    }
    RowLocation = glGetUniformLocation(Program, "Row");
    StepLocation = glGetUniformLocation(Program, "Step");
    PixelYLocation = glGetUniformLocation(Program, "PixelY");
    FillLocation = glGetUniformLocation(Program, "FillColor");
    RmsLocation = glGetUniformLocation(Program, "RmsColor");
    EdgeLocation = glGetUniformLocation(Program, "EdgeColor");
    glUseProgram(Program);
    glUniform1i(glGetUniformLocation(Program, "Columns"), 0);
    glUseProgram(0);

    glGenTextures(1, &Texture);
    glBindTexture(GL_TEXTURE_2D, Texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glBindTexture(GL_TEXTURE_2D, 0);
    return true;
}

bool WaveColumnShader::SetColumns(const std::vector<Column>& Columns, int Count, int Rows)
{
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    if (Count < 1 || Rows < 1 || Count > maxSize || Rows > maxSize ||
        Columns.size() != static_cast<size_t>(Count) * Rows)
        return false;
    const bool bSameShape = Count == SentCount && Rows == SentRows;
    if (bSameShape && std::memcmp(Sent.data(), Columns.data(), Columns.size() * sizeof(Column)) == 0)
        return true;
    glBindTexture(GL_TEXTURE_2D, Texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    if (bSameShape)
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, Count, Rows, GL_RGBA, GL_FLOAT, Columns.data());
    else
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F_ARB, Count, Rows, 0, GL_RGBA, GL_FLOAT, Columns.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    Sent = Columns;
    SentCount = Count;
    SentRows = Rows;
    return true;
}

void WaveColumnShader::DrawRow(int Row, double X1, double X2, double Top, double Bottom, double PixelY,
                               const Look& Colors) const
{
    glUseProgram(Program);
    glUniform1f(RowLocation, static_cast<float>((Row + 0.5) / SentRows));
    glUniform1f(StepLocation, 1.0f / static_cast<float>(SentCount));
    glUniform1f(PixelYLocation, static_cast<float>(PixelY));
    SetColour(FillLocation, Colors.Fill);
    SetColour(RmsLocation, Colors.Rms);
    SetColour(EdgeLocation, Colors.Edge);
    glBindTexture(GL_TEXTURE_2D, Texture);
    glBegin(GL_QUADS);
    glTexCoord2d(0.0, Bottom);
    glVertex2d(X1, Bottom);
    glTexCoord2d(1.0, Bottom);
    glVertex2d(X2, Bottom);
    glTexCoord2d(1.0, Top);
    glVertex2d(X2, Top);
    glTexCoord2d(0.0, Top);
    glVertex2d(X1, Top);
    glEnd();
    glBindTexture(GL_TEXTURE_2D, 0);
    glUseProgram(0);
}
