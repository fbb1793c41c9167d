// The share request of the share program on Linux, built from its command
// line. Each group of arguments (the program's --item starts a new one)
// becomes one input item, and each argument one item provider, in order:
//   - a link ("https://…", any "scheme:…" that is not an existing path)
//     that parses as a URL becomes a provider of public.url;
//   - a file link ("file:///…") or a path becomes a provider of
//     public.file-url (and of its image type, for an image file name),
//     both loading the file URL, once the file passed checkSharedFile();
//   - --image SOURCE reads image bytes from a file, or from standard
//     input for "-", into a provider of the picture's type (public.image
//     when unrecognised) that loads an in-memory image.
// A link that is not a valid URL is handed back as text; any argument
// that fails its checks is skipped with a message naming it.
#pragma once

#include "platform/error.h"
#include "platform/extension/extension_item.h"
#include "platform/extension/shared_file.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <istream>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace tasket::platform {

// ---- Input ---------------------------------------------------------------------

/// An argument naming a link or a path.
struct LinkOrPathArgument {
    std::string text;
};
/// --image SOURCE: a path, or "-" for standard input.
struct ImageArgument {
    std::string source;
};
using ShareArgument = std::variant<LinkOrPathArgument, ImageArgument>;
/// The arguments of one input item, in order.
using ShareArgumentGroup = std::vector<ShareArgument>;

struct CommandLineShareOptions {
    /// Where relative paths start; empty for the current directory.
    std::filesystem::path workingDirectory;
    /// Where "-" reads from; null for std::cin.
    std::istream* standardInput = nullptr;
    std::uintmax_t maxFileSize = kMaxSharedFileSize;
};

// ---- Result --------------------------------------------------------------------

/// Link text that is not a valid URL: for the task's text, never its link.
struct TextArgument {
    std::size_t itemIndex;
    std::string text;
};

/// An argument that became no provider, and why (the message names it).
struct SkippedArgument {
    std::size_t itemIndex;
    std::string argument;
    Error error;
};

struct CommandLineShare {
    /// One per group, in order, even when all of a group was skipped.
    std::vector<ExtensionItem> inputItems;
    std::vector<TextArgument> textArguments;
    std::vector<SkippedArgument> skipped;
};

/// Checks and reads the arguments; never fails as a whole. Reads standard
/// input at most once: a second "-" is skipped.
[[nodiscard]] CommandLineShare readCommandLineShare(std::span<const ShareArgumentGroup> groups,
                                                    const CommandLineShareOptions& options = {});

} // namespace tasket::platform
