// tasket-share: the share intake, built without the UI toolkit so that a
// share from a script, a file manager or a terminal starts at once. When the
// form is wanted (a display, no --yes) or a picture must be decoded, it runs
// tasket-share-form, the same program with Qt, in its place: the arguments
// and the unread standard input pass on untouched.
#include "common/exit_code.h"
#include "common/program_start.h"
#include "tasket-share/share_program.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

namespace {

using tasket::apps::ShareOptions;

// Every picture goes to tasket-share-form, so this one is only a guard.
class NoPictureDecoder final : public tasket::platform::ImageConverter {
  public:
    tasket::platform::Result<tasket::platform::Bytes>
    convertToPNG(std::span<const std::uint8_t>) const override {
        return tasket::platform::fail(tasket::platform::Errc::invalidArgument,
                                      "this build of tasket-share decodes no pictures");
    }
};

bool needsToolkit(const ShareOptions& options) {
    return options.decodesPictures || options.screenshot ||
           (!options.yes && tasket::apps::hasDisplay());
}

// Next to this program (the build tree), or in the libexec folder beside
// its bin folder (an installation).
std::filesystem::path formProgram() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto bin = self.parent_path();
    for (const auto& candidate :
         {bin / "tasket-share-form", bin.parent_path() / "libexec" / "tasket-share-form"})
        if (::access(candidate.c_str(), X_OK) == 0)
            return candidate;
    return bin / "tasket-share-form";
}

} // namespace

int main(int argc, char** argv) {
    tasket::apps::startProgram();
    const NoPictureDecoder converter;
    return tasket::apps::finishProgram(tasket::apps::runShareProgramMain(
        argc, argv, converter, nullptr, [argv](const ShareOptions& options) -> std::optional<int> {
            if (!needsToolkit(options))
                return std::nullopt;
            const std::string program = formProgram().string();
            ::execv(program.c_str(), argv);
            std::cerr << "tasket-share: cannot start " << program
                      << " for the form and pictures: " << std::strerror(errno) << '\n';
            return tasket::apps::kExitUnavailable;
        }));
}
