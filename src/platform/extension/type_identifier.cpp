#include "platform/extension/type_identifier.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace tasket::platform {
namespace {

struct TypeDeclaration {
    std::string_view type;
    std::array<std::string_view, 2> parents; // empty entries unused
};

// Each known type with its direct parents, as the standard hierarchy has them.
constexpr std::array kDeclarations{
    TypeDeclaration{kTypeItem, {}},
    TypeDeclaration{kTypeContent, {}},
    TypeDeclaration{kTypeData, {kTypeItem}},
    TypeDeclaration{kTypeURL, {kTypeData}},
    TypeDeclaration{kTypeFileURL, {kTypeURL}},
    TypeDeclaration{kTypePlainText, {kTypeData, kTypeContent}},
    TypeDeclaration{kTypeImage, {kTypeData, kTypeContent}},
    TypeDeclaration{kTypePNG, {kTypeImage}},
    TypeDeclaration{kTypeJPEG, {kTypeImage}},
    TypeDeclaration{kTypeTIFF, {kTypeImage}},
    TypeDeclaration{kTypeHEIC, {kTypeImage}},
    TypeDeclaration{kTypeGIF, {kTypeImage}},
    TypeDeclaration{kTypeBMP, {kTypeImage}},
    TypeDeclaration{kTypeWebP, {kTypeImage}},
};

const TypeDeclaration* declaration(std::string_view type) {
    const auto it = std::ranges::find(kDeclarations, type, &TypeDeclaration::type);
    return it == kDeclarations.end() ? nullptr : &*it;
}

struct ExtensionType {
    std::string_view extension;
    std::string_view type;
};

constexpr std::array kImageExtensions{
    ExtensionType{"png", kTypePNG},   ExtensionType{"jpg", kTypeJPEG},
    ExtensionType{"jpeg", kTypeJPEG}, ExtensionType{"jpe", kTypeJPEG},
    ExtensionType{"tif", kTypeTIFF},  ExtensionType{"tiff", kTypeTIFF},
    ExtensionType{"heic", kTypeHEIC}, ExtensionType{"gif", kTypeGIF},
    ExtensionType{"bmp", kTypeBMP},   ExtensionType{"webp", kTypeWebP},
};

bool startsWith(std::span<const std::uint8_t> bytes, std::size_t offset, std::string_view magic) {
    if (bytes.size() < offset + magic.size())
        return false;
    return std::equal(magic.begin(), magic.end(),
                      bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char m, std::uint8_t b) { return static_cast<std::uint8_t>(m) == b; });
}

} // namespace

bool typeConforms(std::string_view type, std::string_view to) {
    if (type == to)
        return true;
    const TypeDeclaration* decl = declaration(type);
    if (decl == nullptr)
        return false;
    // The hierarchy is a shallow DAG, so plain recursion ends quickly.
    return std::ranges::any_of(decl->parents, [&](std::string_view parent) {
        return !parent.empty() && typeConforms(parent, to);
    });
}

std::string_view imageTypeForFileExtension(std::string_view extension) {
    std::string lower(extension);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto it = std::ranges::find(kImageExtensions, lower, &ExtensionType::extension);
    return it == kImageExtensions.end() ? std::string_view{} : it->type;
}

std::string_view imageTypeForContents(std::span<const std::uint8_t> bytes) {
    using namespace std::string_view_literals;
    if (startsWith(bytes, 0, "\x89PNG\r\n\x1a\n"sv))
        return kTypePNG;
    if (startsWith(bytes, 0, "\xff\xd8\xff"sv))
        return kTypeJPEG;
    if (startsWith(bytes, 0, "GIF87a"sv) || startsWith(bytes, 0, "GIF89a"sv))
        return kTypeGIF;
    if (startsWith(bytes, 0, "RIFF"sv) && startsWith(bytes, 8, "WEBP"sv))
        return kTypeWebP;
    if (startsWith(bytes, 0, "BM"sv) && bytes.size() >= 26)
        return kTypeBMP;
    if (startsWith(bytes, 0, "II*\0"sv) || startsWith(bytes, 0, "MM\0*"sv))
        return kTypeTIFF;
    if (startsWith(bytes, 4, "ftypheic"sv) || startsWith(bytes, 4, "ftypheix"sv))
        return kTypeHEIC;
    return {};
}

} // namespace tasket::platform
