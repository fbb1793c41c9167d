// Uniform type identifiers: the names under which an item provider offers
// its representations ("public.url", "public.image", …) and the conformance
// relation between them (a file URL is a URL; a PNG picture is an image).
// Only the types that shared links, files and pictures need are known.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tasket::platform {

// ---- Type identifiers --------------------------------------------------------

inline constexpr std::string_view kTypeItem = "public.item";
inline constexpr std::string_view kTypeContent = "public.content";
inline constexpr std::string_view kTypeData = "public.data";
inline constexpr std::string_view kTypeURL = "public.url";
inline constexpr std::string_view kTypeFileURL = "public.file-url";
inline constexpr std::string_view kTypePlainText = "public.plain-text";
inline constexpr std::string_view kTypeImage = "public.image";
inline constexpr std::string_view kTypePNG = "public.png";
inline constexpr std::string_view kTypeJPEG = "public.jpeg";
inline constexpr std::string_view kTypeTIFF = "public.tiff";
inline constexpr std::string_view kTypeHEIC = "public.heic";
inline constexpr std::string_view kTypeGIF = "com.compuserve.gif";
inline constexpr std::string_view kTypeBMP = "com.microsoft.bmp";
inline constexpr std::string_view kTypeWebP = "org.webmproject.webp";

// ---- Conformance ---------------------------------------------------------------

/// True when `type` is `to` or descends from it (public.file-url conforms to
/// public.url and public.data; public.png to public.image). An unknown type
/// conforms only to itself.
[[nodiscard]] bool typeConforms(std::string_view type, std::string_view to);

// ---- Recognising images ----------------------------------------------------------

/// The image type whose file-name extension is `extension` (any case, no
/// dot: "jpg" gives public.jpeg); empty when it names no known image type.
[[nodiscard]] std::string_view imageTypeForFileExtension(std::string_view extension);

/// The image type whose signature starts `bytes` (PNG, JPEG, GIF, WebP, BMP,
/// TIFF, HEIC); empty when none matches. Says nothing about whether the rest
/// of the bytes decode.
[[nodiscard]] std::string_view imageTypeForContents(std::span<const std::uint8_t> bytes);

} // namespace tasket::platform
