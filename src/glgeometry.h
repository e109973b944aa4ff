// Rectangle helpers in normalised screen coordinates (y grows upward).
#pragma once

namespace GLGeometry
{
// True for a rectangle with positive width and height; any NaN gives false.
inline bool IsValidRect(double X1, double Y1, double X2, double Y2)
{
    return X2 > X1 && Y1 > Y2;
}
}  // namespace GLGeometry
