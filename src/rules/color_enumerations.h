// Colours, icon sizes and the application's look: the colour of any object
// (stored by code), the accent colour and appearance settings (stored by
// case name, matched exactly: "Indigo" is not "indigo").
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_Color {
    celestialBlue,
    cyan,
    teal,
    blue,
    sapphire,
    indigo,
    lightPurple,
    lavenderIndigo,
    purple,
    magenta,
    darkGreen,
    green,
    yellow,
    orange,
    softRed,
    raspberry,
    pink,
    red,
    gray,
    brown,
    verySoftBlue,
    veryDarkCyan,
    verySoftOrange,
    vividOrange,
    strongRed
};
enum class TK_TintColor {
    indigo,
    orange,
    purple,
    green,
    blue,
    pink,
    teal,
    yellow,
    red,
    gray,
    cyan,
    mint,
    brown,
    primary,
    secondary
};
enum class TK_IconSize {
    custom,
    sixteenPixels,
    eighteenPixels,
    twentyPixels,
    twentyFourPixels,
    twentyEightPixels,
    thirtyTwoPixels,
    fortyEightPixels,
    fiftySixPixels,
    sixtyFourPixels,
    ninetySixPixels,
    twoHundredPixels
};
enum class TK_Appearance { system, light, dark };

template <> struct EnumTraits<TK_Color> {
    using enum TK_Color;
    static constexpr std::string_view typeName = "TK_Color";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_Color>>({
        {celestialBlue, "celestialBlue", "Celestial Blue"},
        {cyan, "cyan", "Cyan"},
        {teal, "teal", "Teal"},
        {blue, "blue", "Blue"},
        {sapphire, "sapphire", "Sapphire"},
        {indigo, "indigo", "Indigo"},
        {lightPurple, "lightPurple", "Light Purple"},
        {lavenderIndigo, "lavenderIndigo", "Lavender Indigo"},
        {purple, "purple", "Purple"},
        {magenta, "magenta", "Magenta"},
        {darkGreen, "darkGreen", "Dark Green"},
        {green, "green", "Green"},
        {yellow, "yellow", "Yellow"},
        {orange, "orange", "Orange"},
        {softRed, "softRed", "Soft Red"},
        {raspberry, "raspberry", "Raspberry"},
        {pink, "pink", "Pink"},
        {red, "red", "Red"},
        {gray, "gray", "Gray"},
        {brown, "brown", "Brown"},
        {verySoftBlue, "verySoftBlue", "Very Soft Blue"},
        {veryDarkCyan, "veryDarkCyan", "Very Dark Cyan"},
        {verySoftOrange, "verySoftOrange", "Very Soft Orange"},
        {vividOrange, "vividOrange", "Vivid Orange"},
        {strongRed, "strongRed", "Strong Red"},
    });
};

template <> struct EnumTraits<TK_TintColor> {
    using enum TK_TintColor;
    static constexpr std::string_view typeName = "TK_TintColor";
    static constexpr EnumStorage storage = EnumStorage::name;
    static constexpr auto cases = std::to_array<EnumCase<TK_TintColor>>({
        {indigo, "indigo", "Indigo"},
        {orange, "orange", "Orange"},
        {purple, "purple", "Purple"},
        {green, "green", "Green"},
        {blue, "blue", "Blue"},
        {pink, "pink", "Pink"},
        {teal, "teal", "Teal"},
        {yellow, "yellow", "Yellow"},
        {red, "red", "Red"},
        {gray, "gray", "Gray"},
        {cyan, "cyan", "Cyan"},
        {mint, "mint", "Mint"},
        {brown, "brown", "Brown"},
        {primary, "primary", "Primary"},
        {secondary, "secondary", "Secondary"},
    });
};

template <> struct EnumTraits<TK_IconSize> {
    using enum TK_IconSize;
    static constexpr std::string_view typeName = "TK_IconSize";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_IconSize>>({
        {custom, "custom", "Custom"},
        {sixteenPixels, "sixteenPixels", "16 px"},
        {eighteenPixels, "eighteenPixels", "18 px"},
        {twentyPixels, "twentyPixels", "20 px"},
        {twentyFourPixels, "twentyFourPixels", "24 px"},
        {twentyEightPixels, "twentyEightPixels", "28 px"},
        {thirtyTwoPixels, "thirtyTwoPixels", "32 px"},
        {fortyEightPixels, "fortyEightPixels", "48 px"},
        {fiftySixPixels, "fiftySixPixels", "56 px"},
        {sixtyFourPixels, "sixtyFourPixels", "64 px"},
        {ninetySixPixels, "ninetySixPixels", "96 px"},
        {twoHundredPixels, "twoHundredPixels", "200 px"},
    });
};

template <> struct EnumTraits<TK_Appearance> {
    using enum TK_Appearance;
    static constexpr std::string_view typeName = "TK_Appearance";
    static constexpr EnumStorage storage = EnumStorage::name;
    static constexpr auto cases = std::to_array<EnumCase<TK_Appearance>>({
        {system, "system", "System"},
        {light, "light", "Light"},
        {dark, "dark", "Dark"},
    });
};

static_assert(isWellFormedTable<TK_Color>());
static_assert(isWellFormedTable<TK_TintColor>());
static_assert(isWellFormedTable<TK_IconSize>());
static_assert(isWellFormedTable<TK_Appearance>());

} // namespace tasket::rules
