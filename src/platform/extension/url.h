// A URL as an item provider hands it out: the absolute string, its scheme,
// host and path, and whether it names a local file. Parsing follows the
// generic URL syntax and is strict where sharing needs it to be: text that
// is not a URL (no scheme, spaces, an http link without a host) is refused,
// so the share intake can keep it as text instead of as a link.
#pragma once

#include "platform/error.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tasket::platform {

class Url {
  public:
    // ---- Making URLs ---------------------------------------------------------------

    /// Parses an absolute URL. Fails with parseError saying why: no scheme;
    /// a space, control character or one of "<>\^`{|} in the text; a bad
    /// percent escape; bytes that are not UTF-8; a host that is not ASCII;
    /// an http or https URL without a host. Non-ASCII characters outside the
    /// host are percent-encoded in the absolute string.
    [[nodiscard]] static Result<Url> parse(std::string_view text);

    /// The URL whose data representation is `bytes` (its text in UTF-8), as
    /// a provider that hands out raw data for a URL type means it.
    [[nodiscard]] static Result<Url> fromDataRepresentation(std::span<const std::uint8_t> bytes);

    /// The file URL of an absolute path ("/tmp/a b.png" gives
    /// "file:///tmp/a%20b.png"). Fails with invalidArgument for a relative
    /// path.
    [[nodiscard]] static Result<Url> fromFilePath(const std::filesystem::path& path);

    // ---- Reading them ----------------------------------------------------------------

    /// The whole URL as text.
    [[nodiscard]] const std::string& absoluteString() const { return m_text; }
    /// Lower case, without the colon.
    [[nodiscard]] const std::string& scheme() const { return m_scheme; }
    /// As written (percent escapes kept); empty when there is none.
    [[nodiscard]] const std::string& host() const { return m_host; }
    /// As written (percent escapes kept).
    [[nodiscard]] const std::string& path() const { return m_path; }

    /// True for the file scheme, whatever the host.
    [[nodiscard]] bool isFileURL() const { return m_scheme == "file"; }
    /// The decoded local path of a file URL whose host is empty or
    /// "localhost"; nullopt for any other URL or a path holding %00.
    [[nodiscard]] std::optional<std::filesystem::path> filePath() const;

    /// The last segment of the path, decoded ("a b.png"); "/" for the root
    /// alone, empty for no path.
    [[nodiscard]] std::string lastPathComponent() const;
    /// What follows the last dot of the last segment ("png"); empty when the
    /// segment has no dot, starts with its only dot (".bashrc") or ends in one.
    [[nodiscard]] std::string pathExtension() const;
    /// The last segment without its extension and that dot ("a b"); the
    /// whole segment when it has no extension.
    [[nodiscard]] std::string lastPathComponentDeletingExtension() const;

    friend bool operator==(const Url& a, const Url& b) { return a.m_text == b.m_text; }

  private:
    Url() = default;

    std::string m_text;
    std::string m_scheme;
    std::string m_host;
    std::string m_path;
};

} // namespace tasket::platform
