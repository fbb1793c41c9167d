#include "tasket-share/share_options.h"

#include "common/command_line_docs.h"
#include "common/exit_code.h"
#include "common/version.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tasket::apps {

namespace {

constexpr std::string_view kDescription =
    "tasket-share: save what you share as a new task in Tasket.\n"
    "Each ITEM is a link (https://..., file:///...) or a path to a file; --image\n"
    "gives picture bytes, from a file or from standard input (\"-\"). A link that\n"
    "is not a valid URL becomes the task's text. With a display the form opens;\n"
    "without one, or with --yes, the task is saved from the command line.\n";

constexpr std::string_view kFooter =
    "Files and pictures are attached with Tasket Premium only; each may hold at\n"
    "most 64 MiB. Only the first item's links, files and pictures are read.\n"
    "\n"
    "Exit status: 0 saved; 1 cancelled, nothing saved; 64 wrong command line;\n"
    "65 nothing usable to save; 66 a named file or list does not exist; 70 the\n"
    "store or its folder cannot be opened; 74 the save failed; 77 permission denied.";

class UsageFormatter final : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: tasket-share [OPTIONS] [ITEM...] [--image SOURCE]... [--item ITEM...]\n";
    }
};

} // namespace

ParsedShareOptions parseShareOptions(std::span<const std::string> arguments, std::ostream& out,
                                     std::ostream& err) {
    CLI::App app(std::string(kDescription), "tasket-share");
    app.footer(std::string(kFooter));
    app.formatter(std::make_shared<UsageFormatter>());
    app.set_version_flag("--version", std::string(kTasketVersion));

    ShareOptions options;
    std::vector<std::string> items;
    std::vector<std::string> images;
    std::string list;
    std::string text;
    auto* itemOption = app.add_option("ITEM", items, "A link or a path to share");
    auto* imageOption =
        app.add_option("--image", images, "Picture bytes from SOURCE, \"-\" for standard input")
            ->type_name("SOURCE")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    int groupCount = 0;
    auto* groupOption = app.add_flag("--item", groupCount,
                                     std::string("Start the next input item (read but not used)"))
                            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    auto* listOption =
        app.add_option("--list", list, "The list to save into, by title or identifier")
            ->type_name("NAME|ID");
    app.add_flag("--create-list", options.createList, "Make the --list list when there is none")
        ->needs(listOption);
    auto* textOption = app.add_option("--text", text, "The task's text");
    app.add_flag("--yes,-y", options.yes, "Save without the form and without asking");
    app.add_flag("--json", options.json, "Print the saved task as JSON");
    // For developers, so left out of --help: draw the shown form into a PNG file, then cancel.
    std::string screenshot;
    auto* screenshotOption =
        app.add_option("--screenshot", screenshot)->type_name("FILE.png")->group("");

    // Hidden: the completions and manual page, written from this command line.
    if (const auto status = writeCommandLineDocs(
            arguments, app,
            {"tasket-share", "save what you share as a new task in Tasket", kTasketVersion}, out,
            err))
        return {std::nullopt, *status};

    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::Success& done) { // --help or --version
        return {std::nullopt, app.exit(done, out, err)};
    } catch (const CLI::ParseError& error) {
        err << fmt::format("tasket-share: {}\n", error.what());
        err << "Run \"tasket-share --help\" for the options.\n";
        return {std::nullopt, kExitUsage};
    }

    // Rebuild the order in which items, pictures and --item were given.
    options.groups.emplace_back();
    std::size_t nextItem = 0;
    std::size_t nextImage = 0;
    for (const CLI::Option* option : app.parse_order()) {
        if (option == itemOption && nextItem < items.size()) {
            options.groups.back().emplace_back(platform::LinkOrPathArgument{items[nextItem++]});
        } else if (option == imageOption && nextImage < images.size()) {
            const std::string& source = images[nextImage++];
            options.readsStandardInput = options.readsStandardInput || source == "-";
            options.decodesPictures = true;
            options.groups.back().emplace_back(platform::ImageArgument{source});
        } else if (option == groupOption) {
            options.groups.emplace_back();
        }
    }
    if (listOption->count() > 0)
        options.list = list;
    if (textOption->count() > 0)
        options.text = text;
    if (screenshotOption->count() > 0)
        options.screenshot = screenshot;
    return {std::move(options), kExitSuccess};
}

} // namespace tasket::apps
