#include "model/commanderthemecolours.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace quillorn {

namespace {

// RRGGBB per role, in field order: window, pane, bar, row, alternateRow,
// button, selection, accent, border.
using PaletteRow = std::array<std::uint32_t, 9>;

constexpr std::array<PaletteRow, 12> kPalettes{{
    {0x111D36, 0x17294C, 0x1F375E, 0x23375B, 0x273D63, 0x2D4365, 0x1B6991, 0x5BCFFA, 0x5582AE}, // classicNavy
    {0x0F1220, 0x171B2E, 0x1F253D, 0x23283E, 0x282E46, 0x2D334B, 0x374A7E, 0x8BA4FF, 0x535E89}, // midnight
    {0x2D2522, 0x3E332D, 0x4F4037, 0x53453D, 0x5B4C43, 0x635246, 0x7E5B3F, 0xF0BE81, 0x8F7460}, // cappuccino
    {0x202123, 0x2D2E30, 0x393A3D, 0x3D3E41, 0x444548, 0x4B4B4D, 0x84471E, 0xFF9945,
     0x7D6049}, // graphiteOrange
    {0x1F2221, 0x2B302E, 0x363E3A, 0x3A423E, 0x414945, 0x464F4B, 0x2A6847, 0x66E096,
     0x538267}, // graphiteGreen
    {0x1F2124, 0x2B2F34, 0x353C43, 0x3A4046, 0x41474E, 0x474E55, 0x2A5F7E, 0x7ED3FF, 0x597E94}, // graphiteSky
    {0x0A2630, 0x0D3440, 0x12424E, 0x164753, 0x1B4F5B, 0x1E5460, 0x0F707C, 0x42DCD2, 0x38878F}, // deepOcean
    {0x28192B, 0x38223B, 0x462B48, 0x4A2F4D, 0x523555, 0x583A5A, 0x713A6C, 0xE991E1, 0x82567F}, // aubergine
    {0x182720, 0x21352B, 0x2B4337, 0x2E483B, 0x345042, 0x395647, 0x376949, 0xA0DA84, 0x668A69}, // forest
    {0x262830, 0x333640, 0x40434F, 0x444753, 0x4C4F5B, 0x525561, 0x79445B, 0xFF99BE, 0x8B6375}, // slateRose
    {0x1F2B36, 0x2A3946, 0x364654, 0x3A4B59, 0x415362, 0x475968, 0x366987, 0xA4E2FF, 0x6894A9}, // arctic
    {0x002B36, 0x073642, 0x124550, 0x164954, 0x1C515B, 0x235862, 0x1E656F, 0xB58900, 0x5B7378}, // solarized
}};

ThemeColour opaque(std::uint32_t rgb)
{
    return {static_cast<std::uint8_t>((rgb >> 16) & 0xFF), static_cast<std::uint8_t>((rgb >> 8) & 0xFF),
            static_cast<std::uint8_t>(rgb & 0xFF)};
}

} // namespace

CommanderThemeColours colours(CommanderTheme theme)
{
    const PaletteRow &row = kPalettes[static_cast<std::size_t>(theme)];
    return CommanderThemeColours{opaque(row[0]), opaque(row[1]), opaque(row[2]),
                                 opaque(row[3]), opaque(row[4]), opaque(row[5]),
                                 opaque(row[6]), opaque(row[7]), opaque(row[8])};
}

} // namespace quillorn

namespace quillorn {

namespace {

constexpr double kReadableContrast = 4.5;
constexpr double kGraphicContrast = 3.0;
constexpr ThemeColour kWhite{255, 255, 255};
constexpr ThemeColour kBlack{0, 0, 0};

double linear(std::uint8_t channel)
{
    const double value = channel / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double luminance(ThemeColour colour)
{
    return 0.2126 * linear(colour.red) + 0.7152 * linear(colour.green) + 0.0722 * linear(colour.blue);
}

// The least step from `tint` towards white that reads on every surface but
// the one skipped.
ThemeColour readableTint(ThemeColour tint, const std::array<ThemeColour, 9> &surfaces, double contrast,
                         std::optional<ThemeColour> skipped = std::nullopt)
{
    for (int percent = 0; percent < 100; ++percent) {
        const ThemeColour candidate = blend(kWhite, tint, percent / 100.0);
        const bool reads = std::all_of(surfaces.begin(), surfaces.end(), [&](ThemeColour surface) {
            return surface == skipped || contrastRatio(candidate, surface) >= contrast;
        });
        if (reads)
            return candidate;
    }
    return kWhite;
}

// The least step from `colour` towards white, or else towards black, that
// stands out from every surface.
ThemeColour distinctShade(ThemeColour colour, const std::vector<ThemeColour> &surfaces, double contrast)
{
    const auto standsOut = [&](ThemeColour candidate) {
        return std::all_of(surfaces.begin(), surfaces.end(), [&](ThemeColour surface) {
            return contrastRatio(candidate, surface) >= contrast;
        });
    };
    for (int percent = 0; percent <= 100; ++percent)
        for (ThemeColour towards : {kWhite, kBlack})
            if (const ThemeColour candidate = blend(towards, colour, percent / 100.0); standsOut(candidate))
                return candidate;
    return kWhite;
}

} // namespace

double contrastRatio(ThemeColour first, ThemeColour second)
{
    const double a = luminance(first);
    const double b = luminance(second);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

ThemeColour blend(ThemeColour over, ThemeColour under, double opacity)
{
    const auto channel = [opacity](std::uint8_t top, std::uint8_t bottom) {
        return static_cast<std::uint8_t>(std::lround(top * opacity + bottom * (1 - opacity)));
    };
    return {channel(over.red, under.red), channel(over.green, under.green), channel(over.blue, under.blue)};
}

std::array<ThemeColour, 9> textSurfaces(const CommanderThemeColours &palette)
{
    return {palette.window,
            palette.pane,
            palette.bar,
            palette.row,
            palette.alternateRow,
            palette.button,
            palette.selection,
            blend(palette.selection, palette.row, 0.45),
            blend(palette.selection, palette.alternateRow, 0.45)};
}

ThemeTextColours textColours(const CommanderThemeColours &palette)
{
    const std::array<ThemeColour, 9> surfaces = textSurfaces(palette);
    // Margins over the threshold leave room for the smoothing of glyph edges.
    const ThemeColour primary = readableTint(ThemeColour{236, 238, 244}, surfaces, kReadableContrast + 1.0);
    // Tagged rows draw all their text in the primary colour, so the secondary
    // one need not read on the full selection colour.
    const ThemeColour secondary =
        readableTint(palette.border, surfaces, kReadableContrast + 0.3, palette.selection);
    return {primary, secondary, blend(primary, palette.button, 0.42)};
}

ThemeColour cursorFrameColour(const CommanderThemeColours &palette, bool activePane)
{
    const std::vector<ThemeColour> surfaces{palette.row, palette.alternateRow, palette.selection,
                                            blend(palette.selection, palette.row, 0.45),
                                            blend(palette.selection, palette.alternateRow, 0.45)};
    return distinctShade(activePane ? palette.accent : palette.border, surfaces, kGraphicContrast);
}

} // namespace quillorn
