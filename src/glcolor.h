// GLColor: an RGBA colour of four floats, red, green, blue, alpha.
#pragma once

class GLColor
{
public:
    float R = 0.0f;
    float G = 0.0f;
    float B = 0.0f;
    float A = 1.0f;

    GLColor() = default;
    GLColor(float Red, float Green, float Blue, float Alpha) : R(Red), G(Green), B(Blue), A(Alpha) {}
    GLColor(const GLColor&) = default;
    GLColor& operator=(const GLColor&) = default;
    virtual ~GLColor() = default;
};
