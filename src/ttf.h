// TTF: the shell's text renderer, FreeType underneath. Text is drawn with the
// fixed-function pipeline in normalised coordinates.
#pragma once

#include <memory>
#include <string>

class TTF
{
public:
    TTF();
    virtual ~TTF();
    TTF(const TTF&) = delete;
    TTF& operator=(const TTF&) = delete;

    // Loads a TrueType font; false with a message when the file cannot be used.
    bool Load(const std::string& FontPath, std::string* ErrorMessage = nullptr);
    bool IsLoaded() const;

    // Height of one character cell at SizePx, in pixels.
    virtual int GetCellHeight(int SizePx) const;
    // Advance width of Text at SizePx, in pixels.
    virtual double MeasureTextPx(const std::string& Text, int SizePx) const;
    // Draws Text with its baseline's left end at (X, Y), normalised coordinates,
    // for a surface of ScreenWidthPx x ScreenHeightPx, in the current GL colour.
    virtual void DrawText(const std::string& Text, double X, double Y, int SizePx, int ScreenWidthPx,
                          int ScreenHeightPx);

private:
    struct Impl;
    std::unique_ptr<Impl> pImpl;
};
