#include "ttf.h"

#include <GL/gl.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

// Pixel sizes outside this range are clamped: FreeType refuses 0, and huge
// sizes would make huge textures.
static constexpr int kMinSizePx = 4;
static constexpr int kMaxSizePx = 256;
// Without a font, text is measured as if each character were this share of
// the size wide, and a line this share of it high.
static constexpr double kFallbackAdvanceRatio = 0.6;
static constexpr double kFallbackLineRatio = 1.2;

static int BoundedSize(int SizePx)
{
    return std::clamp(SizePx, kMinSizePx, kMaxSizePx);
}

// Decodes UTF-8 one code point at a time; a broken sequence yields U+FFFD and
// moves on by one byte, so any string can be measured and drawn.
static char32_t NextCodePoint(const std::string& Text, size_t& Pos)
{
    const auto lead = static_cast<unsigned char>(Text[Pos]);
    int length = 1;
    char32_t code = lead;
    if (lead >= 0xF0 && lead < 0xF8)
    {
        length = 4;
        code = lead & 0x07;
    }
    else if (lead >= 0xE0)
    {
        length = 3;
        code = lead & 0x0F;
    }
    else if (lead >= 0xC0)
    {
        length = 2;
        code = lead & 0x1F;
    }
    else if (lead >= 0x80)
    {
        Pos += 1;
        return 0xFFFD;
    }
    if (Pos + length > Text.size())
    {
        Pos += 1;
        return 0xFFFD;
    }
    for (int i = 1; i < length; ++i)
    {
        const auto next = static_cast<unsigned char>(Text[Pos + i]);
        if ((next & 0xC0) != 0x80)
        {
            Pos += 1;
            return 0xFFFD;
        }
        code = (code << 6) | (next & 0x3F);
    }
    Pos += length;
    return code;
}

struct TTF::Impl
{
    // One rendered glyph. Pixels wait here until the first DrawText turns
    // them into a texture, so measuring needs no GL context.
    struct Glyph
    {
        double AdvancePx = 0.0;
        int Left = 0;  // from the pen to the bitmap's left edge
        int Top = 0;   // from the baseline up to the bitmap's top edge
        int Width = 0;
        int Rows = 0;
        std::vector<unsigned char> Pixels;
        GLuint Texture = 0;
    };

    struct SizeCache
    {
        int LineHeightPx = 0;
        std::map<char32_t, Glyph> Glyphs;
    };

    FT_Library Library = nullptr;
    FT_Face Face = nullptr;
    std::map<int, SizeCache> Sizes;

    ~Impl()
    {
        DeleteTextures();
        if (Face)
            FT_Done_Face(Face);
        if (Library)
            FT_Done_FreeType(Library);
    }

    void DeleteTextures()
    {
        for (auto& [size, cache] : Sizes)
            for (auto& [code, glyph] : cache.Glyphs)
                if (glyph.Texture != 0)
                    glDeleteTextures(1, &glyph.Texture);
    }

    SizeCache& CacheFor(int SizePx)
    {
        auto found = Sizes.find(SizePx);
        if (found != Sizes.end())
            return found->second;
        SizeCache& cache = Sizes[SizePx];
        FT_Set_Pixel_Sizes(Face, 0, static_cast<FT_UInt>(SizePx));
        const FT_Size_Metrics& metrics = Face->size->metrics;
        cache.LineHeightPx = static_cast<int>(std::ceil((metrics.ascender - metrics.descender) / 64.0));
        return cache;
    }

    Glyph& GlyphFor(SizeCache& Cache, int SizePx, char32_t Code)
    {
        auto found = Cache.Glyphs.find(Code);
        if (found != Cache.Glyphs.end())
            return found->second;
        Glyph& glyph = Cache.Glyphs[Code];
        FT_Set_Pixel_Sizes(Face, 0, static_cast<FT_UInt>(SizePx));
        if (FT_Load_Char(Face, Code, FT_LOAD_RENDER) != 0)
            return glyph;  // an empty glyph: takes no room, draws nothing
        const FT_GlyphSlot slot = Face->glyph;
        glyph.AdvancePx = slot->advance.x / 64.0;
        glyph.Left = slot->bitmap_left;
        glyph.Top = slot->bitmap_top;
        glyph.Width = static_cast<int>(slot->bitmap.width);
        glyph.Rows = static_cast<int>(slot->bitmap.rows);
        glyph.Pixels.resize(static_cast<size_t>(glyph.Width) * glyph.Rows);
        for (int row = 0; row < glyph.Rows; ++row)
            std::copy_n(slot->bitmap.buffer + row * slot->bitmap.pitch, glyph.Width,
                        glyph.Pixels.begin() + static_cast<size_t>(row) * glyph.Width);
        return glyph;
    }

    static void Upload(Glyph& G)
    {
        glGenTextures(1, &G.Texture);
        glBindTexture(GL_TEXTURE_2D, G.Texture);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_ALPHA, G.Width, G.Rows, 0, GL_ALPHA, GL_UNSIGNED_BYTE, G.Pixels.data());
        G.Pixels.clear();
        G.Pixels.shrink_to_fit();
    }
};

TTF::TTF() = default;
TTF::~TTF() = default;

bool TTF::Load(const std::string& FontPath, std::string* ErrorMessage)
{
    auto impl = std::make_unique<Impl>();
    if (FT_Init_FreeType(&impl->Library) != 0)
    {
        if (ErrorMessage)
            *ErrorMessage = "FreeType could not be initialised";
        return false;
    }
    if (FT_New_Face(impl->Library, FontPath.c_str(), 0, &impl->Face) != 0)
    {
        if (ErrorMessage)
            *ErrorMessage = "cannot load font " + FontPath;
        return false;
    }
    pImpl = std::move(impl);
    return true;
}

bool TTF::IsLoaded() const
{
    return pImpl != nullptr;
}

int TTF::GetCellHeight(int SizePx) const
{
    const int size = BoundedSize(SizePx);
    if (!pImpl)
        return static_cast<int>(std::ceil(size * kFallbackLineRatio));
    return pImpl->CacheFor(size).LineHeightPx;
}

double TTF::MeasureTextPx(const std::string& Text, int SizePx) const
{
    const int size = BoundedSize(SizePx);
    double widthPx = 0.0;
    Impl::SizeCache* cache = pImpl ? &pImpl->CacheFor(size) : nullptr;
    for (size_t pos = 0; pos < Text.size();)
    {
        const char32_t code = NextCodePoint(Text, pos);
        widthPx += cache ? pImpl->GlyphFor(*cache, size, code).AdvancePx : size * kFallbackAdvanceRatio;
    }
    return widthPx;
}

void TTF::DrawText(const std::string& Text, double X, double Y, int SizePx, int ScreenWidthPx, int ScreenHeightPx)
{
    if (!pImpl || Text.empty())
        return;
    const int size = BoundedSize(SizePx);
    const double unitX = 2.0 / std::max(ScreenWidthPx, 1);
    const double unitY = 2.0 / std::max(ScreenHeightPx, 1);
    // The pen starts on a whole pixel so that glyphs are not smeared.
    double penPx = std::round((X + 1.0) / unitX);
    const double baselinePx = std::round((Y + 1.0) / unitY);
    Impl::SizeCache& cache = pImpl->CacheFor(size);

    glPushAttrib(GL_ENABLE_BIT | GL_COLOR_BUFFER_BIT | GL_TEXTURE_BIT);
    glEnable(GL_TEXTURE_2D);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    for (size_t pos = 0; pos < Text.size();)
    {
        Impl::Glyph& glyph = pImpl->GlyphFor(cache, size, NextCodePoint(Text, pos));
        if (glyph.Width > 0 && glyph.Rows > 0)
        {
            if (glyph.Texture == 0)
                Impl::Upload(glyph);
            const double x1 = (penPx + glyph.Left) * unitX - 1.0;
            const double x2 = x1 + glyph.Width * unitX;
            const double y1 = (baselinePx + glyph.Top) * unitY - 1.0;
            const double y2 = y1 - glyph.Rows * unitY;
            glBindTexture(GL_TEXTURE_2D, glyph.Texture);
            glBegin(GL_QUADS);
            glTexCoord2d(0.0, 0.0);
            glVertex2d(x1, y1);
            glTexCoord2d(1.0, 0.0);
            glVertex2d(x2, y1);
            glTexCoord2d(1.0, 1.0);
            glVertex2d(x2, y2);
            glTexCoord2d(0.0, 1.0);
            glVertex2d(x1, y2);
            glEnd();
        }
        penPx += glyph.AdvancePx;
    }
    glPopAttrib();
}
