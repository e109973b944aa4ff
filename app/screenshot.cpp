#include "screenshot.h"

#include <GL/gl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Rows top first, as image files want them; GL gives them bottom first.
static Bytes ReadPixelsTopDown(int WidthPx, int HeightPx)
{
    const size_t rowBytes = static_cast<size_t>(WidthPx) * 3;
    Bytes bottomUp(rowBytes * HeightPx);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, WidthPx, HeightPx, GL_RGB, GL_UNSIGNED_BYTE, bottomUp.data());
    Bytes topDown(bottomUp.size());
    for (int row = 0; row < HeightPx; ++row)
        std::copy_n(bottomUp.begin() + (HeightPx - 1 - row) * rowBytes, rowBytes, topDown.begin() + row * rowBytes);
    return topDown;
}

static void PutBigEndian32(Bytes& Out, uint32_t Value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        Out.push_back(static_cast<uint8_t>(Value >> shift));
}

static uint32_t Crc32(const uint8_t* Data, size_t Size)
{
    static const std::array<uint32_t, 256> table = [] {
        std::array<uint32_t, 256> t{};
        for (uint32_t n = 0; n < 256; ++n)
        {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < Size; ++i)
        crc = table[(crc ^ Data[i]) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

static uint32_t Adler32(const Bytes& Data)
{
    uint32_t a = 1;
    uint32_t b = 0;
    for (const uint8_t byte : Data)
    {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    return (b << 16) | a;
}

static void PutChunk(Bytes& Out, const char* Type, const Bytes& Data)
{
    PutBigEndian32(Out, static_cast<uint32_t>(Data.size()));
    const size_t typeStart = Out.size();
    Out.insert(Out.end(), Type, Type + 4);
    Out.insert(Out.end(), Data.begin(), Data.end());
    PutBigEndian32(Out, Crc32(Out.data() + typeStart, Out.size() - typeStart));
}

// A zlib stream of stored (uncompressed) deflate blocks: larger than a
// compressed file, but it needs no library and a screenshot is rare.
static Bytes StoredZlib(const Bytes& Raw)
{
    constexpr size_t kMaxBlock = 65535;
    Bytes out = {0x78, 0x01};
    size_t pos = 0;
    do
    {
        const size_t length = std::min(kMaxBlock, Raw.size() - pos);
        const bool bLast = pos + length == Raw.size();
        out.push_back(bLast ? 1 : 0);
        out.push_back(static_cast<uint8_t>(length & 0xFF));
        out.push_back(static_cast<uint8_t>(length >> 8));
        out.push_back(static_cast<uint8_t>(~length & 0xFF));
        out.push_back(static_cast<uint8_t>((~length >> 8) & 0xFF));
        out.insert(out.end(), Raw.begin() + pos, Raw.begin() + pos + length);
        pos += length;
    } while (pos < Raw.size());
    PutBigEndian32(out, Adler32(Raw));
    return out;
}

static Bytes EncodePng(const Bytes& Rgb, int WidthPx, int HeightPx)
{
    const size_t rowBytes = static_cast<size_t>(WidthPx) * 3;
    Bytes filtered;
    filtered.reserve((rowBytes + 1) * HeightPx);
    for (int row = 0; row < HeightPx; ++row)
    {
        filtered.push_back(0);  // filter type None
        filtered.insert(filtered.end(), Rgb.begin() + row * rowBytes, Rgb.begin() + (row + 1) * rowBytes);
    }
    Bytes header;
    PutBigEndian32(header, static_cast<uint32_t>(WidthPx));
    PutBigEndian32(header, static_cast<uint32_t>(HeightPx));
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8-bit RGB, no interlace

    Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    PutChunk(png, "IHDR", header);
    PutChunk(png, "IDAT", StoredZlib(filtered));
    PutChunk(png, "IEND", {});
    return png;
}

static Bytes EncodePpm(const Bytes& Rgb, int WidthPx, int HeightPx)
{
    const std::string header = "P6\n" + std::to_string(WidthPx) + " " + std::to_string(HeightPx) + "\n255\n";
    Bytes ppm(header.begin(), header.end());
    ppm.insert(ppm.end(), Rgb.begin(), Rgb.end());
    return ppm;
}

static bool EndsWith(const std::string& Text, const std::string& Suffix)
{
    return Text.size() >= Suffix.size() && Text.compare(Text.size() - Suffix.size(), Suffix.size(), Suffix) == 0;
}

bool WriteScreenshot(const std::string& Path, int WidthPx, int HeightPx, std::string& ErrorMessage)
{
    if (WidthPx <= 0 || HeightPx <= 0)
    {
        ErrorMessage = "the window has no pixels to save";
        return false;
    }
    const Bytes rgb = ReadPixelsTopDown(WidthPx, HeightPx);
    const Bytes file = EndsWith(Path, ".png") ? EncodePng(rgb, WidthPx, HeightPx) : EncodePpm(rgb, WidthPx, HeightPx);
    std::ofstream out(Path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
    if (!out)
    {
        ErrorMessage = "cannot write " + Path;
        return false;
    }
    return true;
}
