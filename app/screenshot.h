// Screenshots of the program's window, for checking it without a screen
// (under Xvfb) and for the documentation.
#pragma once

#include <string>

// Reads the current GL read buffer (WidthPx x HeightPx, bottom row first) and
// writes it to Path: PNG when Path ends in ".png", binary PPM otherwise.
// False with a reason in ErrorMessage when the file cannot be written.
bool WriteScreenshot(const std::string& Path, int WidthPx, int HeightPx, std::string& ErrorMessage);
