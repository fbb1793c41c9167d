#include "platform/extension/url.h"

#include "platform/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace tasket::platform {
namespace {

bool isAsciiAlpha(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}
bool isHexDigit(unsigned char c) {
    return std::isxdigit(c) != 0;
}

int hexValue(unsigned char c) {
    if (isAsciiDigit(c))
        return c - '0';
    return std::tolower(c) - 'a' + 10;
}

// Characters no URL holds unescaped, whatever the component.
bool isForbiddenAscii(unsigned char c) {
    return c <= 0x20 || c == 0x7f ||
           std::string_view("\"<>\\^`{|}").find(static_cast<char>(c)) != std::string_view::npos;
}

bool isHostCharacter(unsigned char c) {
    return isAsciiAlpha(c) || isAsciiDigit(c) ||
           std::string_view("-._~!$&'()*+,;=%").find(static_cast<char>(c)) !=
               std::string_view::npos;
}

void appendPercentEncoded(std::string& out, unsigned char c) {
    out += fmt::format("%{:02X}", static_cast<unsigned>(c));
}

// Checks `part` (no host in it) and percent-encodes its non-ASCII
// characters into `out`; returns the reason it is not part of a URL.
std::optional<std::string> appendComponent(std::string& out, std::string_view part) {
    for (std::size_t i = 0; i < part.size();) {
        const auto c = static_cast<unsigned char>(part[i]);
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(part, i);
            if (length == 0)
                return "it is not valid UTF-8";
            for (std::size_t k = 0; k < length; ++k)
                appendPercentEncoded(out, static_cast<unsigned char>(part[i + k]));
            i += length;
            continue;
        }
        if (isForbiddenAscii(c)) {
            if (c == ' ')
                return "it contains a space";
            if (c < 0x20 || c == 0x7f)
                return "it contains a control character";
            return fmt::format("it contains '{}'", static_cast<char>(c));
        }
        if (c == '%' &&
            (i + 2 >= part.size() || !isHexDigit(static_cast<unsigned char>(part[i + 1])) ||
             !isHexDigit(static_cast<unsigned char>(part[i + 2]))))
            return "it has a '%' that does not start a percent escape";
        out += static_cast<char>(c);
        ++i;
    }
    return std::nullopt;
}

std::optional<std::string> checkHost(std::string_view host) {
    if (host.starts_with('[')) {
        if (!host.ends_with(']') || host.size() < 3)
            return "its host has an unclosed '['";
        const std::string_view inner = host.substr(1, host.size() - 2);
        const bool ok = std::ranges::all_of(inner, [](char ch) {
            const auto c = static_cast<unsigned char>(ch);
            return isHexDigit(c) || c == ':' || c == '.';
        });
        return ok ? std::nullopt : std::optional<std::string>("its host is not an IPv6 address");
    }
    for (const char ch : host) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x80)
            return "its host is not ASCII";
        if (!isHostCharacter(c))
            return fmt::format("its host contains '{}'", ch);
    }
    return std::nullopt;
}

std::string percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '%' && i + 2 < text.size() &&
            isHexDigit(static_cast<unsigned char>(text[i + 1])) &&
            isHexDigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(hexValue(static_cast<unsigned char>(text[i + 1])) * 16 +
                                     hexValue(static_cast<unsigned char>(text[i + 2])));
            i += 2;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::unexpected<Error> notAURL(std::string_view text, std::string_view reason) {
    return fail(Errc::parseError, fmt::format("\"{}\" is not a valid URL: {}", text, reason));
}

} // namespace

Result<Url> Url::parse(std::string_view text) {
    // Scheme: a letter, then letters, digits, '+', '-' or '.', then ':'.
    std::size_t colon = 0;
    while (colon < text.size() && text[colon] != ':') {
        const auto c = static_cast<unsigned char>(text[colon]);
        const bool ok =
            colon == 0 ? isAsciiAlpha(c)
                       : isAsciiAlpha(c) || isAsciiDigit(c) || c == '+' || c == '-' || c == '.';
        if (!ok)
            return notAURL(text, "it does not start with a scheme");
        ++colon;
    }
    if (colon == 0 || colon == text.size())
        return notAURL(text, "it does not start with a scheme");

    Url url;
    url.m_scheme.resize(colon);
    std::ranges::transform(text.substr(0, colon), url.m_scheme.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    url.m_text.append(text.substr(0, colon + 1));

    std::string_view rest = text.substr(colon + 1);
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const std::size_t authorityEnd = std::min(rest.find_first_of("/?#"), rest.size());
        const std::string_view authority = rest.substr(0, authorityEnd);
        rest.remove_prefix(authorityEnd);

        const std::size_t at = authority.rfind('@');
        const std::string_view userInfo =
            at == std::string_view::npos ? std::string_view{} : authority.substr(0, at);
        std::string_view hostPort =
            at == std::string_view::npos ? authority : authority.substr(at + 1);
        // A port is the digits after the last ':' that is not inside an IPv6 literal.
        const std::size_t portColon = hostPort.rfind(':');
        std::string_view host = hostPort;
        if (portColon != std::string_view::npos &&
            hostPort.find(']', portColon) == std::string_view::npos) {
            const std::string_view port = hostPort.substr(portColon + 1);
            if (!std::ranges::all_of(
                    port, [](char c) { return isAsciiDigit(static_cast<unsigned char>(c)); }))
                return notAURL(text, "its port is not a number");
            host = hostPort.substr(0, portColon);
        }
        if (auto reason = checkHost(host))
            return notAURL(text, *reason);

        url.m_text += "//";
        if (at != std::string_view::npos) {
            if (auto reason = appendComponent(url.m_text, userInfo))
                return notAURL(text, *reason);
            url.m_text += '@';
        }
        url.m_text.append(hostPort);
        url.m_host = std::string(host);
    }

    const std::size_t pathEnd = std::min(rest.find_first_of("?#"), rest.size());
    const std::size_t pathStart = url.m_text.size();
    if (auto reason = appendComponent(url.m_text, rest.substr(0, pathEnd)))
        return notAURL(text, *reason);
    url.m_path = url.m_text.substr(pathStart);
    if (auto reason = appendComponent(url.m_text, rest.substr(pathEnd)))
        return notAURL(text, *reason);

    if ((url.m_scheme == "http" || url.m_scheme == "https") && url.m_host.empty())
        return notAURL(text, fmt::format("an {} link needs a host", url.m_scheme));
    return url;
}

Result<Url> Url::fromDataRepresentation(std::span<const std::uint8_t> bytes) {
    const std::string text(bytes.begin(), bytes.end());
    return parse(text);
}

Result<Url> Url::fromFilePath(const std::filesystem::path& path) {
    const std::string& native = path.native();
    if (!path.is_absolute())
        return fail(Errc::invalidArgument, fmt::format("\"{}\" is not an absolute path", native));
    constexpr std::string_view kKept = "-._~/!$&'()*+,;=:@";
    Url url;
    url.m_scheme = "file";
    url.m_text = "file://";
    for (const char ch : native) {
        const auto c = static_cast<unsigned char>(ch);
        if (isAsciiAlpha(c) || isAsciiDigit(c) || kKept.find(ch) != std::string_view::npos)
            url.m_text += ch;
        else
            appendPercentEncoded(url.m_text, c);
    }
    url.m_path = url.m_text.substr(std::string_view("file://").size());
    return url;
}

std::optional<std::filesystem::path> Url::filePath() const {
    if (!isFileURL() || (!m_host.empty() && m_host != "localhost") || !m_path.starts_with('/'))
        return std::nullopt;
    std::string decoded = percentDecode(m_path);
    if (decoded.find('\0') != std::string::npos)
        return std::nullopt;
    return std::filesystem::path(std::move(decoded));
}

std::string Url::lastPathComponent() const {
    std::string_view path = m_path;
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    if (path.empty())
        return {};
    if (path == "/")
        return "/";
    return percentDecode(path.substr(path.rfind('/') + 1));
}

std::string Url::pathExtension() const {
    const std::string name = lastPathComponent();
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size())
        return {};
    return name.substr(dot + 1);
}

std::string Url::lastPathComponentDeletingExtension() const {
    std::string name = lastPathComponent();
    const std::string extension = pathExtension();
    if (!extension.empty())
        name.resize(name.size() - extension.size() - 1);
    return name;
}

} // namespace tasket::platform
