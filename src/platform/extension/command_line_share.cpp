#include "platform/extension/command_line_share.h"

#include "platform/extension/in_memory_item_provider.h"
#include "platform/extension/type_identifier.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <iostream>

namespace tasket::platform {
namespace {

// "scheme:" as URLs begin; one letter alone is not taken for a scheme.
bool startsWithScheme(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon < 2)
        return false;
    const auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (!isAlpha(text[0]))
        return false;
    for (const char c : text.substr(1, colon - 1)) {
        if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.')
            return false;
    }
    return true;
}

bool pathExists(const std::filesystem::path& path) {
    if (path.native().find('\0') != std::string::npos)
        return false;
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

class Reader {
  public:
    Reader(const CommandLineShareOptions& options, CommandLineShare& share)
        : m_options(options), m_share(share),
          m_workingDirectory(options.workingDirectory.empty() ? std::filesystem::current_path()
                                                              : options.workingDirectory) {}

    ExtensionItem readGroup(std::size_t index, const ShareArgumentGroup& group) {
        m_index = index;
        ExtensionItem item;
        for (const ShareArgument& argument : group) {
            auto provider = std::visit([this](const auto& a) { return read(a); }, argument);
            if (provider)
                item.attachments.push_back(std::move(provider));
        }
        return item;
    }

  private:
    using ProviderPtr = std::shared_ptr<const ItemProvider>;

    ProviderPtr skip(std::string argument, Error error) {
        m_share.skipped.push_back({m_index, std::move(argument), std::move(error)});
        return nullptr;
    }

    std::filesystem::path resolve(const std::filesystem::path& path) const {
        return (path.is_absolute() ? path : m_workingDirectory / path).lexically_normal();
    }

    ProviderPtr read(const LinkOrPathArgument& argument) {
        const std::string& text = argument.text;
        if (text.empty())
            return skip(text, Error{Errc::invalidArgument,
                                    "cannot share \"\": an empty argument names nothing"});
        if (!startsWithScheme(text) || pathExists(resolve(text)))
            return readFile(text, resolve(text));

        auto url = Url::parse(text);
        if (!url) {
            m_share.textArguments.push_back({m_index, text});
            return nullptr;
        }
        if (!url->isFileURL())
            return InMemoryItemProvider::make(std::string(kTypeURL), *url);
        const auto path = url->filePath();
        if (!path)
            return skip(
                text,
                Error{Errc::invalidArgument,
                      fmt::format("cannot share \"{}\": it names no file on this computer", text)});
        return readFile(text, path->lexically_normal());
    }

    ProviderPtr readFile(const std::string& argument, const std::filesystem::path& path) {
        if (auto checked = checkSharedFile(path, argument, m_options.maxFileSize); !checked)
            return skip(argument, checked.error());
        auto url = Url::fromFilePath(path);
        if (!url)
            return skip(argument, url.error());
        auto provider = InMemoryItemProvider::make(std::string(kTypeFileURL), *url);
        if (const auto imageType = imageTypeForFileExtension(url->pathExtension());
            !imageType.empty())
            provider->registerItem(std::string(imageType), *url);
        return provider;
    }

    ProviderPtr read(const ImageArgument& argument) {
        Result<Bytes> bytes;
        std::string name = argument.source;
        if (argument.source == "-") {
            name = "standard input";
            if (m_readStandardInput)
                return skip(
                    argument.source,
                    Error{
                        Errc::invalidArgument,
                        "cannot share standard input twice: it was read for an earlier --image -"});
            m_readStandardInput = true;
            std::istream& in = m_options.standardInput ? *m_options.standardInput : std::cin;
            bytes = readSharedStream(in, name, m_options.maxFileSize);
        } else {
            bytes = readSharedFile(resolve(argument.source), name, m_options.maxFileSize);
        }
        if (!bytes)
            return skip(argument.source, bytes.error());
        if (bytes->empty())
            return skip(argument.source,
                        Error{Errc::invalidArgument,
                              fmt::format("cannot share \"{}\": it holds no image bytes", name)});
        std::string type(imageTypeForContents(*bytes));
        if (type.empty())
            type = kTypeImage;
        return InMemoryItemProvider::make(type, InMemoryImage{std::move(*bytes), type});
    }

    const CommandLineShareOptions& m_options;
    CommandLineShare& m_share;
    std::filesystem::path m_workingDirectory;
    std::size_t m_index = 0;
    bool m_readStandardInput = false;
};

} // namespace

CommandLineShare readCommandLineShare(std::span<const ShareArgumentGroup> groups,
                                      const CommandLineShareOptions& options) {
    CommandLineShare share;
    Reader reader(options, share);
    for (std::size_t i = 0; i < groups.size(); ++i)
        share.inputItems.push_back(reader.readGroup(i, groups[i]));
    return share;
}

} // namespace tasket::platform
