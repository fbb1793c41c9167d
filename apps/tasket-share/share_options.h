// The command line of tasket-share: what was shared (links and paths, and
// --image SOURCE, in the order given; --item starts the next input item)
// and how to finish without a form (--list, --text, --yes, --json). One
// developer option stays out of --help: --screenshot FILE.png draws the
// shown form into FILE.png and cancels, for looking at the form and timing
// its start without a person at the keyboard.
#pragma once

#include "platform/error.h"
#include "platform/extension/command_line_share.h"

#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace tasket::apps {

struct ShareOptions {
    std::vector<platform::ShareArgumentGroup> groups;
    std::optional<std::string> list;       // --list NAME|ID
    bool createList = false;               // --create-list: make the --list list when missing
    std::optional<std::string> text;       // --text TEXT
    bool yes = false;                      // --yes: save without asking
    bool json = false;                     // --json: print the saved task as JSON
    bool readsStandardInput = false;       // some --image is "-"
    bool decodesPictures = false;          // some --image is given
    std::optional<std::string> screenshot; // --screenshot FILE.png
};

/// The parsed options, or the exit status to end with at once (0 after
/// --help, which is printed on `out`; 64 after a wrong command line, whose
/// message is printed on `err`).
struct ParsedShareOptions {
    std::optional<ShareOptions> options;
    int exitStatus = 0;
};

ParsedShareOptions parseShareOptions(std::span<const std::string> arguments, std::ostream& out,
                                     std::ostream& err);

} // namespace tasket::apps
