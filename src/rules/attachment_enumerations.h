// Attachments: what an attachment holds, how a task's attachments are
// filtered, sorted and laid out, and how large their thumbnails are drawn.
#pragma once

#include "rules/enum_table.h"

namespace tasket::rules {

enum class TK_AttachmentType { none, image, file };
// The encoding of an image attachment's bytes. The domain names this
// enumeration without listing its cases; these are ours, to be revisited
// before any store holds them.
enum class TK_AttachmentImageType { none, png, jpeg, heic };
enum class TK_AttachmentsFilter { all, image, file };
enum class TK_AttachmentsSortOrder { custom, alphabetical, creationDate };
enum class TK_AttachmentsSortOrderDirection { ascending, descending };
enum class TK_AttachmentsViewType { grid, list };
enum class TK_AttachmentThumbnailType { unknown, none, small, medium, large };

template <> struct EnumTraits<TK_AttachmentType> {
    using enum TK_AttachmentType;
    static constexpr std::string_view typeName = "TK_AttachmentType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentType>>({
        {none, "none", "None"},
        {image, "image", "Image"},
        {file, "file", "File"},
    });
};

template <> struct EnumTraits<TK_AttachmentImageType> {
    using enum TK_AttachmentImageType;
    static constexpr std::string_view typeName = "TK_AttachmentImageType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentImageType>>({
        {none, "none", "None"},
        {png, "png", "PNG"},
        {jpeg, "jpeg", "JPEG"},
        {heic, "heic", "HEIC"},
    });
};

template <> struct EnumTraits<TK_AttachmentsFilter> {
    using enum TK_AttachmentsFilter;
    static constexpr std::string_view typeName = "TK_AttachmentsFilter";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentsFilter>>({
        {all, "all", "All"},
        {image, "image", "Images"},
        {file, "file", "Files"},
    });
};

template <> struct EnumTraits<TK_AttachmentsSortOrder> {
    using enum TK_AttachmentsSortOrder;
    static constexpr std::string_view typeName = "TK_AttachmentsSortOrder";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentsSortOrder>>({
        {custom, "custom", "Custom"},
        {alphabetical, "alphabetical", "Alphabetical"},
        {creationDate, "creationDate", "Creation Date"},
    });
};

template <> struct EnumTraits<TK_AttachmentsSortOrderDirection> {
    using enum TK_AttachmentsSortOrderDirection;
    static constexpr std::string_view typeName = "TK_AttachmentsSortOrderDirection";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentsSortOrderDirection>>({
        {ascending, "ascending", "Ascending"},
        {descending, "descending", "Descending"},
    });
};

template <> struct EnumTraits<TK_AttachmentsViewType> {
    using enum TK_AttachmentsViewType;
    static constexpr std::string_view typeName = "TK_AttachmentsViewType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentsViewType>>({
        {grid, "grid", "Grid"},
        {list, "list", "List"},
    });
};

template <> struct EnumTraits<TK_AttachmentThumbnailType> {
    using enum TK_AttachmentThumbnailType;
    static constexpr std::string_view typeName = "TK_AttachmentThumbnailType";
    static constexpr EnumStorage storage = EnumStorage::code;
    static constexpr auto cases = std::to_array<EnumCase<TK_AttachmentThumbnailType>>({
        {unknown, "unknown", "Automatic"},
        {none, "none", "None"},
        {small, "small", "Small"},
        {medium, "medium", "Medium"},
        {large, "large", "Large"},
    });
};

static_assert(isWellFormedTable<TK_AttachmentType>());
static_assert(isWellFormedTable<TK_AttachmentImageType>());
static_assert(isWellFormedTable<TK_AttachmentsFilter>());
static_assert(isWellFormedTable<TK_AttachmentsSortOrder>());
static_assert(isWellFormedTable<TK_AttachmentsSortOrderDirection>());
static_assert(isWellFormedTable<TK_AttachmentsViewType>());
static_assert(isWellFormedTable<TK_AttachmentThumbnailType>());

} // namespace tasket::rules
