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

// Glyphs of one size share atlas pages, so that a string is drawn with one
// texture bind and one batch of quads: under a software GL every bind and
// every glBegin/glEnd is a draw of its own, and text was most of a frame.
static constexpr int kAtlasSidePx = 512;
static constexpr int kAtlasGapPx = 1;  // keeps neighbours out of each other's edges

struct TTF::Impl
{
    // One rendered glyph. Pixels wait here until the first DrawText places
    // them in an atlas page, so measuring needs no GL context.
    struct Glyph
    {
        double AdvancePx = 0.0;
        int Left = 0;  // from the pen to the bitmap's left edge
        int Top = 0;   // from the baseline up to the bitmap's top edge
        int Width = 0;
        int Rows = 0;
        std::vector<unsigned char> Pixels;
        int Page = -1;  // index into the size's pages once placed
        double U1 = 0.0, V1 = 0.0, U2 = 0.0, V2 = 0.0;
    };

    // A texture filled shelf by shelf, left to right.
    struct AtlasPage
    {
        GLuint Texture = 0;
        int PenX = 0;
        int ShelfY = 0;
        int ShelfHeight = 0;
    };

    struct SizeCache
    {
        int LineHeightPx = 0;
        std::map<char32_t, Glyph> Glyphs;
        std::vector<AtlasPage> Pages;
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
            for (AtlasPage& page : cache.Pages)
                glDeleteTextures(1, &page.Texture);
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
        glyph.Width = std::min(static_cast<int>(slot->bitmap.width), kAtlasSidePx - kAtlasGapPx);
        glyph.Rows = std::min(static_cast<int>(slot->bitmap.rows), kAtlasSidePx - kAtlasGapPx);
        glyph.Pixels.resize(static_cast<size_t>(glyph.Width) * glyph.Rows);
        for (int row = 0; row < glyph.Rows; ++row)
            std::copy_n(slot->bitmap.buffer + row * slot->bitmap.pitch, glyph.Width,
                        glyph.Pixels.begin() + static_cast<size_t>(row) * glyph.Width);
        return glyph;
    }

    static AtlasPage NewPage()
    {
        AtlasPage page;
        glGenTextures(1, &page.Texture);
        glBindTexture(GL_TEXTURE_2D, page.Texture);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP);
        const std::vector<unsigned char> clear(static_cast<size_t>(kAtlasSidePx) * kAtlasSidePx, 0);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_ALPHA, kAtlasSidePx, kAtlasSidePx, 0, GL_ALPHA, GL_UNSIGNED_BYTE,
                     clear.data());
        return page;
    }

    // Finds room on the last page's shelf, on a new shelf, or on a new page.
    static AtlasPage& RoomFor(SizeCache& Cache, int Width, int Rows)
    {
        if (!Cache.Pages.empty())
        {
            AtlasPage& page = Cache.Pages.back();
            if (page.PenX + Width + kAtlasGapPx > kAtlasSidePx)
            {
                page.ShelfY += page.ShelfHeight + kAtlasGapPx;
                page.PenX = 0;
                page.ShelfHeight = 0;
            }
            if (page.ShelfY + Rows + kAtlasGapPx <= kAtlasSidePx)
                return page;
        }
        Cache.Pages.push_back(NewPage());
        return Cache.Pages.back();
    }

    static void Place(SizeCache& Cache, Glyph& G)
    {
        AtlasPage& page = RoomFor(Cache, G.Width, G.Rows);
        glBindTexture(GL_TEXTURE_2D, page.Texture);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTexSubImage2D(GL_TEXTURE_2D, 0, page.PenX, page.ShelfY, G.Width, G.Rows, GL_ALPHA, GL_UNSIGNED_BYTE,
                        G.Pixels.data());
        constexpr double unit = 1.0 / kAtlasSidePx;
        G.Page = static_cast<int>(&page - Cache.Pages.data());
        G.U1 = page.PenX * unit;
        G.V1 = page.ShelfY * unit;
        G.U2 = (page.PenX + G.Width) * unit;
        G.V2 = (page.ShelfY + G.Rows) * unit;
        page.PenX += G.Width + kAtlasGapPx;
        page.ShelfHeight = std::max(page.ShelfHeight, G.Rows);
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
    int boundPage = -1;  // one batch of quads per page the string touches
    for (size_t pos = 0; pos < Text.size();)
    {
        Impl::Glyph& glyph = pImpl->GlyphFor(cache, size, NextCodePoint(Text, pos));
        if (glyph.Width > 0 && glyph.Rows > 0)
        {
            if (glyph.Page < 0)
            {
                if (boundPage >= 0)
                    glEnd();
                Impl::Place(cache, glyph);  // binds and uploads outside a batch
                boundPage = -1;
            }
            if (glyph.Page != boundPage)
            {
                if (boundPage >= 0)
                    glEnd();
                glBindTexture(GL_TEXTURE_2D, cache.Pages[static_cast<size_t>(glyph.Page)].Texture);
                glBegin(GL_QUADS);
                boundPage = glyph.Page;
            }
            const double x1 = (penPx + glyph.Left) * unitX - 1.0;
            const double x2 = x1 + glyph.Width * unitX;
            const double y1 = (baselinePx + glyph.Top) * unitY - 1.0;
            const double y2 = y1 - glyph.Rows * unitY;
            glTexCoord2d(glyph.U1, glyph.V1);
            glVertex2d(x1, y1);
            glTexCoord2d(glyph.U2, glyph.V1);
            glVertex2d(x2, y1);
            glTexCoord2d(glyph.U2, glyph.V2);
            glVertex2d(x2, y2);
            glTexCoord2d(glyph.U1, glyph.V2);
            glVertex2d(x1, y2);
        }
        penPx += glyph.AdvancePx;
    }
    if (boundPage >= 0)
        glEnd();
    glPopAttrib();
}
